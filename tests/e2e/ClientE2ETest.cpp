// The C interface of librux_client.so against rux-sim: ordering on the wire, service loss
// and reconnects. Each case runs in a process of its own (ctest runs every discovered case
// separately): the client, SDK thread and transaction counter are per process.
#include <android/log.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>

#include "Inbox.h"
#include "LogCapture.h"
#include "Subprocess.h"
#include "rux/rux_client.h"

namespace rux::test {
namespace {

using namespace std::chrono_literals;

struct Call {
    std::string kind;
    long tid = 0;
    int status = 0;
    std::thread::id thread;
};

Inbox<Call>& calls() {
    static auto* inbox = new Inbox<Call>();  // never destroyed: callbacks may run until exit
    return *inbox;
}
void add(const char* kind, long tid, int status) {
    calls().put({kind, tid, status, std::this_thread::get_id()});
}
std::vector<Call> callsOf(const std::string& kind) {
    std::vector<Call> out;
    for (const auto& c : calls().get())
        if (kind.empty() || c.kind == kind) out.push_back(c);
    return out;
}
// The first call of `kind` (with `tid`, unless -1); kind "" after 20 s.
Call waitForCall(const std::string& kind, long tid = -1) {
    Call found;
    calls().waitUntil(
        [&](const std::vector<Call>& all) {
            for (const auto& c : all)
                if (c.kind == kind && (tid == -1 || c.tid == tid)) return found = c, true;
            return false;
        },
        kDeadline);
    return found;
}
size_t downs() {
    size_t n = 0;
    for (const auto& c : callsOf("status")) n += c.status == RUX_STATUS_SERVICE_DOWN;
    return n;
}
std::string dumpCalls() {
    std::string out;
    for (const auto& c : callsOf(""))
        out += "  " + c.kind + " " + std::to_string(c.tid) + " " + std::to_string(c.status) + "\n";
    return out;
}

void onStatus(status_e s) { add("status", 0, s); }
void onResponse(int tid, status_e s) { add("response", tid, s); }
void onResponseB(int tid, status_e s) { add("responseB", tid, s); }
void onGetHst(int tid, status_e s, hst_state_e) { add("hst", tid, s); }

// rux-sim on a private socket, the library pointed at it and registered.
class ClientE2E : public ::testing::Test {
protected:
    void SetUp() override {
        static int casesInThisProcess = 0;
        if (++casesInThisProcess > 1)
            GTEST_SKIP() << "library state is per process: run each case alone (ctest does)";
        path = uniqueSocketPath("rux-e2e-client");
        ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready()) << sim->dump();
        register_rux_client(onStatus);
    }
    void TearDown() override {
        deregister_rux_client();
        sim.reset();
    }

    std::vector<std::string> simLines(const std::string& prefix) {
        std::vector<std::string> out;
        for (const auto& l : sim->lines())
            if (l.rfind(prefix, 0) == 0) out.push_back(l);
        return out;
    }

    LogCapture log;
    std::string path;
    std::unique_ptr<SimProcess> sim;
};

// A burst right after register_rux_client follows the registration on the wire, ids two
// apart, answered on another thread. A drop while it is still being written is reported
// once, and requests made after it reconnect and are answered.
TEST_F(ClientE2E, BurstRightAfterRegisteringFollowsItAndADropIsReportedOnce) {
    for (int i = 0; i < 120; ++i)
        ASSERT_EQ(i % 2 ? set_hst_state(RUX_HST_STATE_SET, onResponse) : get_hst_state(onGetHst),
                  3 + 2 * i);
    const Call answered = waitForCall("response", 5);
    EXPECT_EQ(answered.status, 0) << dumpCalls();
    EXPECT_NE(answered.thread, std::this_thread::get_id());
    ASSERT_TRUE(sim->waitForCount("request session=", 10)) << sim->dump();
    const auto requests = simLines("request session=");
    const char* expected[] = {" tid=1 REGISTER_CLIENT_REQ {}", " tid=3 GET_HST_STATE_REQ",
                              " tid=5 SET_HST_STATE_REQ"};
    for (size_t i = 0; i < std::size(expected); ++i)
        EXPECT_NE(requests.at(i).find(expected[i]), std::string::npos) << requests[i];
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_EQ(waitForCall("status").status, RUX_STATUS_SERVICE_DOWN) << dumpCalls();

    const int after = set_hst_state(RUX_HST_STATE_NOT_SET, onResponseB);
    EXPECT_EQ(waitForCall("responseB", after).status, 0) << dumpCalls() << sim->dump();
    // The first connection's receiver has ended (its last line): every report is made.
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    EXPECT_EQ(downs(), 1u) << dumpCalls();
    // The simulator's line may still be on its way through the pipe after its reply.
    ASSERT_TRUE(sim->waitForLine("connected session=2 process=")) << sim->dump();
    EXPECT_EQ(simLines("connected session=").size(), 2u) << sim->dump();
}

// Holds the receiver in an application callback until opened; never destroyed.
struct Gate {
    std::promise<void> entered, open;
    std::shared_future<void> opened = open.get_future().share();
    std::once_flag once;
};
Gate& gate() {
    static Gate* g = new Gate();
    return *g;
}
void onResponseHeld(int tid, status_e s) {
    add("held", tid, s);
    gate().entered.set_value();
    gate().opened.wait_for(60s);
}
void openGate() {
    std::call_once(gate().once, [] { gate().open.set_value(); });
}

// While the receiver is held in an application callback, a send that finds the peer gone
// ends the session itself: one status 6, and the next request connects again and is
// answered. The old receiver's own end, once it gets there, changes nothing.
TEST_F(ClientE2E, SendToAGoneServiceEndsTheSessionEvenIfTheReceiverCannotNotice) {
    struct OpenAtExit {
        ~OpenAtExit() { openGate(); }
    } openAtExit;
    const int held = set_hst_state(RUX_HST_STATE_SET, onResponseHeld);
    ASSERT_EQ(gate().entered.get_future().wait_for(20s), std::future_status::ready);
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();

    const int lost = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);  // meets the dead socket
    const Call down = waitForCall("status");
    ASSERT_EQ(down.status, RUX_STATUS_SERVICE_DOWN) << dumpCalls() << log.dump();
    EXPECT_NE(down.thread, callsOf("held").at(0).thread);  // not the held receiver
    const auto failure = log.matching("send: failure, errno: 32(Broken pipe)");
    ASSERT_EQ(failure.size(), 1u) << log.dump();
    EXPECT_EQ(failure[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(log.matching("Error 1st recv").size(), 0u);  // the receiver is still held

    const int next = get_hst_state(onGetHst);
    EXPECT_EQ(waitForCall("hst", next).status, 0) << dumpCalls() << sim->dump();

    // Released, the old receiver reads what is left and ends without a second report.
    openGate();
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    const int last = set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onResponseB);
    EXPECT_EQ(waitForCall("responseB", last).status, 0) << dumpCalls() << sim->dump();
    EXPECT_EQ(downs(), 1u) << dumpCalls();
    // The simulator's line may still be on its way through the pipe after its reply.
    ASSERT_TRUE(sim->waitForLine("connected session=2 process=")) << sim->dump();
    EXPECT_EQ(simLines("connected session=").size(), 2u) << sim->dump();
    EXPECT_EQ(sim->count("tid=" + std::to_string(lost) + " "), 0u);
    EXPECT_EQ(callsOf("held").size(), 1u);
    EXPECT_EQ(callsOf("held").at(0).tid, held);
}

}  // namespace
}  // namespace rux::test
