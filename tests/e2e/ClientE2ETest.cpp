// The C interface of librux_client.so against rux-sim over a real Unix socket: the
// threads, service loss and reconnects, and deregistration. Each test case runs in its own
// process (ctest runs every discovered case separately): the library's client, SDK thread
// and transaction counter are per process. What each request and reply converts to is
// pinned by the unit tables; here every request is a plain one.
#include <android/log.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <set>

#include "LogCapture.h"
#include "Subprocess.h"
#include "rux/rux_client.h"

namespace rux::test {
namespace {

using namespace std::chrono_literals;

// What the C callbacks received: "<kind> <tid> <status>" and the thread it ran on.
struct Call {
    std::string kind;
    long tid = 0;
    int status = 0;
    std::thread::id thread;
};

class Sink {
public:
    void add(const char* kind, long tid, int status) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back({kind, tid, status, std::this_thread::get_id()});
        }
        mChanged.notify_all();
    }
    std::vector<Call> of(const std::string& kind) const {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<Call> out;
        for (const auto& c : mCalls)
            if (kind.empty() || c.kind == kind) out.push_back(c);
        return out;
    }
    // Waits until `predicate` holds over the calls so far.
    bool waitUntil(const std::function<bool(const std::vector<Call>&)>& predicate,
                   std::chrono::milliseconds timeout = 20s) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return predicate(mCalls); });
    }
    // The first call of `kind` (with `tid`, unless -1); kind "" at the deadline.
    Call waitFor(const std::string& kind, long tid = -1) const {
        Call found;
        waitUntil([&](const std::vector<Call>& calls) {
            for (const auto& c : calls)
                if (c.kind == kind && (tid == -1 || c.tid == tid)) return found = c, true;
            return false;
        });
        return found;
    }
    size_t downs() const {
        size_t n = 0;
        for (const auto& c : of("status")) n += c.status == RUX_STATUS_SERVICE_DOWN;
        return n;
    }
    std::string dump() const {
        std::string out;
        for (const auto& c : of(""))
            out += "  " + c.kind + " " + std::to_string(c.tid) + " " + std::to_string(c.status) + "\n";
        return out;
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<Call> mCalls;  // guarded by mMutex
};

Sink& sink() {
    static Sink* instance = new Sink();  // never destroyed: callbacks may run until exit
    return *instance;
}

void onStatus(status_e s) { sink().add("status", 0, s); }
void onResponse(int tid, status_e s) { sink().add("response", tid, s); }
void onResponseB(int tid, status_e s) { sink().add("responseB", tid, s); }
void onGetHst(int tid, status_e s, hst_state_e) { sink().add("hst", tid, s); }

// Starts rux-sim on a private socket, points the library at it and (unless the test
// does) registers.
class ClientE2E : public ::testing::Test {
protected:
    void SetUp() override {
        static int casesInThisProcess = 0;
        if (++casesInThisProcess > 1)
            GTEST_SKIP() << "library state is per process: run each case alone (ctest does)";
        path = SimProcess::uniqueSocketPath("client");
        ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready()) << sim->dump();
        if (registerFirst()) {
            register_rux_client(onStatus);
            ASSERT_TRUE(sim->waitForLine("tid=1 REGISTER_CLIENT_REQ {}")) << sim->dump();
        }
    }
    void TearDown() override {
        deregister_rux_client();
        sim.reset();
    }
    virtual bool registerFirst() const { return true; }

    // The sim saw the request with this tid, decoded as `text`.
    bool simSaw(int tid, const std::string& text) {
        return sim->waitForLine("tid=" + std::to_string(tid) + " " + text);
    }
    std::vector<std::string> simLines(const std::string& prefix) {
        std::vector<std::string> out;
        for (const auto& l : sim->process().lines())
            if (l.rfind(prefix, 0) == 0) out.push_back(l);
        return out;
    }

    LogCapture log;
    std::string path;
    std::unique_ptr<SimProcess> sim;
};

class UnregisteredE2E : public ClientE2E {
protected:
    bool registerFirst() const override { return false; }
};

// Requests made right after register_rux_client, without waiting for anything, follow
// the registration on the wire, ids two apart; replies run on another thread.
TEST_F(UnregisteredE2E, RequestsRightAfterRegisteringFollowTheRegistrationOnTheWire) {
    register_rux_client(onStatus);
    const std::vector<int> tids{set_hst_state(RUX_HST_STATE_SET, onResponse),
                                get_hst_state(onGetHst),
                                set_flight_mode_state(RUX_FLIGHT_MODE_STATE_IN_FLIGHT, onResponse)};
    EXPECT_EQ(tids, (std::vector<int>{3, 5, 7}));
    for (size_t i = 0; i < tids.size(); ++i) {
        const Call got = sink().waitFor(i == 1 ? "hst" : "response", tids[i]);
        EXPECT_EQ(got.status, 0) << sink().dump();
        EXPECT_NE(got.thread, std::this_thread::get_id());
    }
    ASSERT_TRUE(simSaw(7, "SET_FLIGHT_MODE_STATE_REQ")) << sim->dump();
    const auto requests = simLines("request session=");
    ASSERT_EQ(requests.size(), 4u) << sim->dump();
    const char* expected[] = {" tid=1 REGISTER_CLIENT_REQ {}", " tid=3 SET_HST_STATE_REQ",
                              " tid=5 GET_HST_STATE_REQ", " tid=7 SET_FLIGHT_MODE_STATE_REQ"};
    for (size_t i = 0; i < 4; ++i) EXPECT_NE(requests[i].find(expected[i]), std::string::npos);
}

TEST_F(ClientE2E, KilledServiceGivesStatusSixAndTheNextRequestReconnects) {
    const Call served = sink().waitFor("response", set_hst_state(RUX_HST_STATE_SET, onResponse));
    ASSERT_EQ(served.kind, "response");
    sim->crash();
    const Call down = sink().waitFor("status");
    ASSERT_EQ(down.status, RUX_STATUS_SERVICE_DOWN) << sink().dump();
    EXPECT_EQ(down.thread, served.thread);  // both on that connection's receiver thread

    sim = std::make_unique<SimProcess>(path);
    ASSERT_TRUE(sim->ready()) << sim->dump();
    const int after = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);
    EXPECT_EQ(sink().waitFor("response", after).status, 0) << sink().dump();
    EXPECT_TRUE(simSaw(after, "SET_HST_STATE_REQ {hst_state: HST_STATE_NOT_SET}")) << sim->dump();
}

// A burst posted at once, and the connection dropped while it is still being written:
// the loss is reported once, and requests made after it reconnect and are answered.
TEST_F(ClientE2E, DropWhileABurstIsBeingSentReportsDownOnceAndTheNextRequestReconnects) {
    for (int i = 0; i < 120; ++i)
        ASSERT_GT(i % 2 ? set_hst_state(RUX_HST_STATE_SET, onResponse) : get_hst_state(onGetHst), 0);
    ASSERT_TRUE(sim->waitForCount("request session=", 10)) << sim->dump();
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_EQ(sink().waitFor("status").status, RUX_STATUS_SERVICE_DOWN) << sink().dump();

    const int after = set_hst_state(RUX_HST_STATE_NOT_SET, onResponseB);
    EXPECT_EQ(sink().waitFor("responseB", after).status, 0) << sink().dump() << sim->dump();
    EXPECT_TRUE(simSaw(after, "SET_HST_STATE_REQ {hst_state: HST_STATE_NOT_SET}")) << sim->dump();
    // The first connection's receiver has finished (it logs this last), so every report
    // of that loss has been made.
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    EXPECT_EQ(sink().downs(), 1u) << sink().dump();
    EXPECT_EQ(simLines("connected session=").size(), 2u) << sim->dump();
    std::multiset<long> answered;  // nothing of the burst was answered twice
    for (const auto& c : sink().of(""))
        if (c.kind != "status") answered.insert(c.tid);
    for (long tid : answered) EXPECT_EQ(answered.count(tid), 1u) << tid;
}

// Lets the test hold the receiver thread inside an application callback.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;  // guarded by mutex
    bool open = false;     // guarded by mutex
};
Gate& gate() {
    static Gate* g = new Gate();  // never destroyed: a callback may still be waiting at exit
    return *g;
}
void onResponseHeld(int tid, status_e s) {
    sink().add("held", tid, s);
    Gate& g = gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    g.entered = true;
    g.changed.notify_all();
    g.changed.wait_for(lock, 60s, [&] { return g.open; });
}
void openGate() {
    {
        std::lock_guard<std::mutex> lock(gate().mutex);
        gate().open = true;
    }
    gate().changed.notify_all();
}

// While the receiver cannot notice that the service has gone (here it is held in an
// application callback), a send that finds the peer gone ends the session itself: one
// status 6, and the next request connects again and is answered, on the SDK thread's
// new connection. The old receiver's own end, once it gets there, changes nothing.
TEST_F(ClientE2E, SendToAGoneServiceEndsTheSessionEvenIfTheReceiverCannotNotice) {
    struct OpenAtExit {
        ~OpenAtExit() { openGate(); }
    } openAtExit;
    const int held = set_hst_state(RUX_HST_STATE_SET, onResponseHeld);
    {
        std::unique_lock<std::mutex> lock(gate().mutex);
        ASSERT_TRUE(gate().changed.wait_for(lock, 20s, [&] { return gate().entered; }));
    }
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();

    const int lost = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);  // meets the dead socket
    const Call down = sink().waitFor("status");
    ASSERT_EQ(down.status, RUX_STATUS_SERVICE_DOWN) << sink().dump() << log.dump();
    EXPECT_NE(down.thread, sink().of("held").at(0).thread);  // not the held receiver
    const auto failure = log.matching("send: failure, errno: 32(Broken pipe)");
    ASSERT_EQ(failure.size(), 1u) << log.dump();
    EXPECT_EQ(failure[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(log.matching("Error 1st recv").size(), 0u);  // the receiver is still held

    const int next = get_hst_state(onGetHst);
    EXPECT_EQ(sink().waitFor("hst", next).status, 0) << sink().dump() << sim->dump();
    EXPECT_TRUE(simSaw(next, "GET_HST_STATE_REQ {}")) << sim->dump();

    // Released, the old receiver reads what is left and ends without a second report.
    openGate();
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    const int last = set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onResponseB);
    EXPECT_EQ(sink().waitFor("responseB", last).status, 0) << sink().dump() << sim->dump();
    EXPECT_EQ(sink().downs(), 1u) << sink().dump();
    EXPECT_EQ(simLines("connected session=").size(), 2u) << sim->dump();
    EXPECT_EQ(sim->count("tid=" + std::to_string(lost) + " "), 0u);
    EXPECT_EQ(sink().of("held").size(), 1u);
    EXPECT_EQ(sink().of("held").at(0).tid, held);
}

TEST_F(ClientE2E, DeregisterWithRequestsOutstandingReturnsAndTheirCallbacksNeverRun) {
    ASSERT_EQ(sim->command("silent all"), "ok");
    std::vector<int> tids;
    for (int i = 0; i < 5; ++i) tids.push_back(set_hst_state(RUX_HST_STATE_SET, onResponse));
    tids.push_back(get_hst_state(onGetHst));
    ASSERT_TRUE(sim->waitForCount("no-reply session=", tids.size())) << sim->dump();

    auto done = std::async(std::launch::async, [] { deregister_rux_client(); });
    ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();

    // A new client in the same process: ids go on, and only its own callback runs.
    ASSERT_EQ(sim->command("silent all off"), "ok");
    register_rux_client(onStatus);
    const int next = set_hst_state(RUX_HST_STATE_SET, onResponseB);
    EXPECT_EQ(next, tids.back() + 4);  // the new registration took one id
    EXPECT_EQ(sink().waitFor("responseB", next).status, 0) << sink().dump();
    EXPECT_EQ(sink().of("response").size() + sink().of("hst").size(), 0u) << sink().dump();
}

// Several application threads while connections come and go.
TEST_F(ClientE2E, ConcurrentRequestsSurviveDroppedConnections) {
    constexpr int kThreads = 4, kPerThread = 30;
    std::mutex tidsMutex;
    std::vector<int> issued;
    // Each worker waits for its answer, or for a loss of service reported after it asked
    // (the request may then be lost), so requests keep flowing while connections drop.
    auto worker = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            const size_t losses = sink().of("status").size();
            const int tid = i % 2 ? set_hst_state(RUX_HST_STATE_SET, onResponse)
                                  : get_hst_state(onGetHst);
            {
                std::lock_guard<std::mutex> lock(tidsMutex);
                issued.push_back(tid);
            }
            sink().waitUntil(
                [&](const std::vector<Call>& calls) {
                    size_t statuses = 0;
                    for (const auto& c : calls) {
                        if (c.tid == tid && c.kind != "status") return true;
                        statuses += c.kind == "status";
                    }
                    return statuses > losses;
                },
                5s);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(worker);
    // Three times: once the client is connected again and more requests have arrived,
    // drop it, and wait until the simulator has seen it go.
    for (size_t round = 1; round <= 3; ++round) {
        EXPECT_TRUE(sim->process().waitFor([&](const std::vector<std::string>& lines) {
            size_t connects = 0, requests = 0;
            for (const auto& l : lines) {
                connects += l.rfind("connected session=", 0) == 0;
                requests += l.rfind("request session=", 0) == 0;
            }
            return connects >= round && requests >= 1 + round * 20;
        })) << "round " << round << "\n" << sim->dump();
        EXPECT_EQ(sim->command("drop"), "ok dropped=1");
        EXPECT_TRUE(sim->waitForCount("disconnected session=", round)) << sim->dump();
    }
    for (auto& t : threads) t.join();

    // After the storm a request from every thread completes.
    std::vector<int> finals(kThreads);
    std::vector<std::thread> last;
    for (int t = 0; t < kThreads; ++t)
        last.emplace_back([&finals, t] { finals[t] = set_hst_state(RUX_HST_STATE_NOT_SET, onResponseB); });
    for (auto& t : last) t.join();
    for (int tid : finals) EXPECT_EQ(sink().waitFor("responseB", tid).status, 0) << tid << sim->dump();

    std::set<int> unique(issued.begin(), issued.end());
    EXPECT_EQ(unique.size(), issued.size());
    std::multiset<long> delivered;
    for (const auto& c : sink().of(""))
        if (c.kind == "response" || c.kind == "hst") {
            delivered.insert(c.tid);
            EXPECT_EQ(c.status, 0);
            EXPECT_TRUE(unique.count(static_cast<int>(c.tid))) << c.tid;
        }
    for (long tid : delivered) EXPECT_EQ(delivered.count(tid), 1u) << tid;
    EXPECT_GE(sink().downs(), 3u) << sink().dump();  // every drop was reported
}

}  // namespace
}  // namespace rux::test
