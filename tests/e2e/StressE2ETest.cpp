// Four application threads issue requests of three completion kinds while rux-sim is
// killed and started again, for about ten seconds. Every id is unique and odd, every
// callback runs at most once and is its request's kind, each loss is reported (status 6)
// before the service comes back, and deregistering leaves as many descriptors and threads
// as before registering.
#include <android/log.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Subprocess.h"
#include "rux/rux_client.h"

namespace {

using namespace std::chrono_literals;
using namespace rux::test;

size_t entries(const char* dir) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
}

enum Kind { kPlain, kHst, kDppd, kKinds };

struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, Kind> issued;  // tid -> the kind of its request
    std::set<int> duplicateIds;
    std::map<int, std::vector<Kind>> completions;  // tid -> the kinds of the callbacks run
    size_t downs = 0;
    std::vector<int> otherStatuses;  // neither SERVICE_DOWN nor INTERNAL_ERR
};
Record& record = *new Record();  // never destroyed: callbacks may run until exit

void completed(int tid, Kind kind) {
    std::lock_guard<std::mutex> lock(record.mutex);
    record.completions[tid].push_back(kind);
    record.changed.notify_all();
}
void onStatus(status_e s) {
    std::lock_guard<std::mutex> lock(record.mutex);
    if (s == RUX_STATUS_SERVICE_DOWN) ++record.downs;
    if (s != RUX_STATUS_SERVICE_DOWN && s != RUX_STATUS_INTERNAL_ERR)
        record.otherStatuses.push_back(s);
    record.changed.notify_all();
}

// A request of each kind; its tid.
int (*const kIssue[kKinds])() = {
    [] {
        return set_hst_state(RUX_HST_STATE_SET, [](int id, status_e) { completed(id, kPlain); });
    },
    [] { return get_hst_state([](int id, status_e, hst_state_e) { completed(id, kHst); }); },
    [] { return get_dppd_capability([](int id, status_e, bool*) { completed(id, kDppd); }); }};

TEST(StressE2ETest, ServiceKilledAndRestartedUnderFourRequestingThreads) {
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // thousands of lines otherwise
    // ThreadSanitizer starts a thread of its own with the first thread created: first.
    std::thread([] {}).join();
    const size_t fds = entries("/proc/self/fd"), threads = entries("/proc/self/task");
    const std::string path = uniqueSocketPath("rux-e2e-stress");
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    auto sim = std::make_unique<SimProcess>(path);
    ASSERT_TRUE(sim->ready());
    register_rux_client(onStatus);

    std::atomic<bool> stop{false};
    std::vector<std::thread> apps;
    for (int t = 0; t < 4; ++t)
        apps.emplace_back([&stop, t] {
            for (int i = t; !stop; ++i) {
                const Kind kind = static_cast<Kind>(i % kKinds);
                const int tid = kIssue[kind]();
                // One request in flight per thread: until answered, or 100 ms (a lost session).
                std::unique_lock<std::mutex> lock(record.mutex);
                if (!record.issued.emplace(tid, kind).second) record.duplicateIds.insert(tid);
                record.changed.wait_for(lock, 100ms,
                                        [tid] { return record.completions.count(tid); });
            }
        });

    const auto start = std::chrono::steady_clock::now();
    size_t crashes = 0;
    while (crashes < 200 && std::chrono::steady_clock::now() - start < 10s) {
        // Some traffic on this incarnation's session (more or less), then the loss of it.
        ASSERT_TRUE(sim->waitForCount("request session=", 1 + crashes * 7 % 40)) << sim->dump();
        sim->kill(SIGKILL);
        sim.reset();
        ++crashes;
        std::unique_lock<std::mutex> lock(record.mutex);
        ASSERT_TRUE(record.changed.wait_for(lock, 20s, [&] { return record.downs >= crashes; }))
            << "no SERVICE_DOWN for loss " << crashes;
        lock.unlock();
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready());
    }
    stop = true;
    for (auto& a : apps) a.join();
    deregister_rux_client();
    sim.reset();
    // Receivers are detached threads: one may still be on its way out after it reported
    // itself done. A leaked one stays.
    const auto settleBy = std::chrono::steady_clock::now() + 5s;
    while ((entries("/proc/self/fd") != fds || entries("/proc/self/task") != threads) &&
           std::chrono::steady_clock::now() < settleBy)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(entries("/proc/self/fd"), fds);
    EXPECT_EQ(entries("/proc/self/task"), threads);

    std::lock_guard<std::mutex> lock(record.mutex);
    EXPECT_TRUE(record.duplicateIds.empty());
    for (const auto& [tid, kind] : record.issued) EXPECT_TRUE(tid > 0 && tid % 2 == 1) << tid;
    for (const auto& [tid, kinds] : record.completions) {
        const auto issued = record.issued.find(tid);
        EXPECT_EQ(kinds,
                  std::vector<Kind>(1, issued == record.issued.end() ? kKinds : issued->second))
            << tid;
    }
    EXPECT_GT(record.completions.size(), crashes);  // answered in between
    EXPECT_EQ(record.otherStatuses, std::vector<int>{});
}

}  // namespace
