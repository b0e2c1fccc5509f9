// The library under load while its service keeps dying: four application threads issue
// requests of three completion kinds while rux-sim is killed (SIGKILL) and started again,
// round after round, for about ten seconds. Every id is unique and odd, every callback runs
// at most once and is the one of its request's kind, each lost session is reported
// (status 6) before the service comes back, and after deregistration the process has as
// many descriptors and threads as before it registered.
#include <android/log.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Subprocess.h"
#include "rux/rux_client.h"

namespace {

using namespace std::chrono_literals;
using rux::test::SimProcess;

size_t entries(const char* dir) {
    size_t n = 0;
    DIR* d = ::opendir(dir);
    while (d != nullptr && ::readdir(d) != nullptr) ++n;
    if (d != nullptr) ::closedir(d);
    return n;
}

enum Kind { kPlain, kHst, kDppd, kKinds };

struct Record {
    std::mutex mutex;
    std::map<int, Kind> issued;       // tid -> the kind of its request
    std::map<int, Kind> duplicateIds;
    std::vector<std::pair<int, Kind>> completions;
    std::set<int> answered;
    std::vector<int> statuses;
    std::condition_variable changed;
};
Record& record() {
    static Record* r = new Record();  // never destroyed: callbacks may run until exit
    return *r;
}
void completed(int tid, Kind kind) {
    {
        std::lock_guard<std::mutex> lock(record().mutex);
        record().completions.emplace_back(tid, kind);
        record().answered.insert(tid);
    }
    record().changed.notify_all();
}
void onStatus(status_e s) {
    {
        std::lock_guard<std::mutex> lock(record().mutex);
        record().statuses.push_back(s);
    }
    record().changed.notify_all();
}
size_t downs() {
    size_t n = 0;
    for (int s : record().statuses) n += s == RUX_STATUS_SERVICE_DOWN;
    return n;
}

TEST(StressE2ETest, ServiceKilledAndRestartedUnderFourRequestingThreads) {
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // thousands of lines otherwise
    // ThreadSanitizer starts a thread of its own with the first thread created: first.
    std::thread([] {}).join();
    const size_t fds = entries("/proc/self/fd"), threads = entries("/proc/self/task");
    const std::string path = SimProcess::uniqueSocketPath("stress");
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    auto sim = std::make_unique<SimProcess>(path);
    ASSERT_TRUE(sim->ready());
    register_rux_client(onStatus);

    std::atomic<bool> stop{false};
    std::vector<std::thread> apps;
    for (int t = 0; t < 4; ++t)
        apps.emplace_back([&stop, t] {
            for (int i = t; !stop.load(); ++i) {
                const Kind kind = static_cast<Kind>(i % kKinds);
                const int tid =
                    kind == kPlain ? set_hst_state(RUX_HST_STATE_SET,
                                                   [](int id, status_e) { completed(id, kPlain); })
                    : kind == kHst ? get_hst_state([](int id, status_e, hst_state_e) {
                                         completed(id, kHst);
                                     })
                                   : get_dppd_capability([](int id, status_e, bool*) {
                                         completed(id, kDppd);
                                     });
                // One request in flight per thread: the next goes when this one is
                // answered, or after 100 ms when its session was lost.
                std::unique_lock<std::mutex> lock(record().mutex);
                if (!record().issued.emplace(tid, kind).second) record().duplicateIds[tid] = kind;
                record().changed.wait_for(lock, 100ms, [tid] { return record().answered.count(tid) > 0; });
            }
        });

    const auto start = std::chrono::steady_clock::now();
    size_t crashes = 0;
    while (crashes < 200 && std::chrono::steady_clock::now() - start < 10s) {
        // Some traffic on this incarnation's session (more or less), then the loss of it.
        ASSERT_TRUE(sim->waitForCount("request session=", 1 + crashes * 7 % 40)) << sim->dump();
        sim->crash();
        ++crashes;
        std::unique_lock<std::mutex> lock(record().mutex);
        ASSERT_TRUE(record().changed.wait_for(lock, 20s, [&] { return downs() >= crashes; }))
            << "no SERVICE_DOWN for loss " << crashes;
        lock.unlock();
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready());
    }
    stop = true;
    for (auto& a : apps) a.join();
    deregister_rux_client();
    sim.reset();

    std::lock_guard<std::mutex> lock(record().mutex);
    EXPECT_TRUE(record().duplicateIds.empty());
    for (const auto& [tid, kind] : record().issued) {
        ASSERT_GT(tid, 0);
        ASSERT_EQ(tid % 2, 1) << tid;
    }
    std::map<int, int> calls;
    for (const auto& [tid, kind] : record().completions) {
        ASSERT_EQ(record().issued.count(tid), 1u) << tid;
        EXPECT_EQ(record().issued[tid], kind) << tid;
        EXPECT_EQ(++calls[tid], 1) << tid;
    }
    EXPECT_GT(record().completions.size(), crashes);  // answered in between
    for (int s : record().statuses)
        EXPECT_TRUE(s == RUX_STATUS_SERVICE_DOWN || s == RUX_STATUS_INTERNAL_ERR) << s;
    EXPECT_EQ(entries("/proc/self/fd"), fds);
    EXPECT_EQ(entries("/proc/self/task"), threads);
    std::printf("%zu losses, %zu requests, %zu answered\n", crashes, record().issued.size(),
                record().completions.size());
}

}  // namespace
