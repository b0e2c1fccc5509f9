// rux-sim as a subprocess, reached through the library's own client end of the transport
// (RuxIpcClientSession): the handshake and frames are the real ones, the requests are
// plain VexProto envelopes. What the end-to-end tests do not already lean on: an answer
// to every request type, bad input, stopping, and a path that is already served.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>

#include "Subprocess.h"
#include "ipc/RuxIpcClientSession.h"
#include "ipc/RuxIpcMessage.h"
#include "vex.pb.h"

namespace rux::test {
namespace {

using namespace std::chrono_literals;
using ipc::ConnectOptions;
using ipc::RuxIpcClientSession;
using ipc::SendBlobMessage;

// A ClientData whose member `event + 1` is an empty message. Built from its bytes so every
// request type is reachable without naming each accessor: tag (member << 3 | 2), length 0.
VexProto::ClientMsg emptyRequest(int event, uint64_t tid) {
    std::string bytes;
    for (uint32_t tag = static_cast<uint32_t>(event + 1) << 3 | 2; ; tag >>= 7) {
        if (tag < 0x80) {
            bytes.push_back(static_cast<char>(tag));
            break;
        }
        bytes.push_back(static_cast<char>((tag & 0x7f) | 0x80));
    }
    bytes.push_back('\0');
    VexProto::ClientMsg msg;
    msg.set_event_id(static_cast<VexProto::ClientEventId>(event));
    msg.set_transaction_id(tid);
    msg.mutable_data()->ParseFromString(bytes);
    return msg;
}

// The client end: connects, sends envelopes, collects the ServiceMsgs that come back.
class SimClient {
public:
    explicit SimClient(const std::string& path, int attempts = 20)
        : mSession(ipc::PROCESS_ID_CLIENT_101, false, options(path, attempts)) {
        mSession.setRawHandler([this](std::shared_ptr<ipc::RuxIpcIncomingRawMessage> raw) {
            SendBlobMessage blob;
            VexProto::ServiceMsg msg;
            if (raw->msgId != SendBlobMessage::ID || !blob.deserialize(raw->payload)) return;
            const bool parsed = msg.ParseFromArray(blob.blob.data(), static_cast<int>(blob.blob.size()));
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mReceived.push_back(parsed ? msg : VexProto::ServiceMsg());
            }
            mChanged.notify_all();
        });
    }
    ~SimClient() { mSession.cleanup(); }

    // The connect runs inline (unthreaded session): the first status is the outcome.
    bool connect() {
        mSession.connectToServer([this](bool up) {
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mStatuses.push_back(up);
            }
            mChanged.notify_all();
        });
        std::lock_guard<std::mutex> lock(mMutex);
        return !mStatuses.empty() && mStatuses.front();
    }
    void send(const VexProto::ClientMsg& msg) {
        std::vector<uint8_t> blob(msg.ByteSizeLong());
        msg.SerializeToArray(blob.data(), static_cast<int>(blob.size()));
        sendBlob(blob);
    }
    void sendBlob(const std::vector<uint8_t>& blob) {
        mSession.send(std::make_shared<SendBlobMessage>(ipc::RUX_SDK_TYPE_REQUEST_CLIENT, blob));
    }
    void sendFrame(uint32_t msgId, std::vector<uint8_t> payload) {
        mSession.send(0, msgId, std::move(payload));
    }
    std::vector<VexProto::ServiceMsg> waitForMessages(size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, kDeadline, [&] { return mReceived.size() >= n; });
        return mReceived;
    }
private:
    static ConnectOptions options(const std::string& path, int attempts) {
        ConnectOptions o;
        o.socketPath = path;
        o.maxAttempts = attempts;
        o.retryDelay = std::chrono::microseconds(20000);
        return o;
    }

    RuxIpcClientSession mSession;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<VexProto::ServiceMsg> mReceived;   // guarded by mMutex
    std::vector<bool> mStatuses;                   // guarded by mMutex
};

class SimTest : public ::testing::Test {
protected:
    void SetUp() override {
        path = SimProcess::uniqueSocketPath("sim");
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready()) << sim->dump();
    }
    void TearDown() override { sim.reset(); }

    std::string path;
    std::unique_ptr<SimProcess> sim;
};

// Request event -> response event; -1 for the three requests that get no reply.
constexpr int kResponseOf[VexProto::ClientEventId_ARRAYSIZE] = {
    0, 1, 2, 4, 5, 6, 7, 8, 9, 10, -1, -1, 12, 15, 13, 17, -1, 19, 20, 21, 22, 24, 26};
// Responses whose message carries a Status (the DPPD ones carry a flag or a record).
bool carriesStatus(int responseEvent) {
    return responseEvent != 12 && responseEvent != 13 && responseEvent != 15;
}

TEST_F(SimTest, AnswersEveryRequestTypeWithItsResponseEventAndSuccess) {
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    std::vector<int> expected;
    for (int event = 0; event < VexProto::ClientEventId_ARRAYSIZE; ++event) {
        client.send(emptyRequest(event, 100 + event));
        if (kResponseOf[event] >= 0) expected.push_back(event);
    }
    const auto got = client.waitForMessages(expected.size());
    ASSERT_EQ(got.size(), expected.size()) << sim->dump();
    // A reply can reach the client before the simulator's log line about it reaches the
    // test; once every reply line is in, so is every request line written before it.
    ASSERT_TRUE(sim->waitForCount("reply session=", expected.size())) << sim->dump();
    for (size_t i = 0; i < expected.size(); ++i) {
        const int request = expected[i];
        const int response = kResponseOf[request];
        SCOPED_TRACE(VexProto::ClientEventId_Name(request));
        EXPECT_EQ(got[i].event_id(), response);
        EXPECT_EQ(got[i].transaction_id(), 100u + request);
        EXPECT_EQ(static_cast<int>(got[i].data().msg_type_case()), response + 1);
        if (carriesStatus(response)) {
            EXPECT_EQ(sim->count("tid=" + std::to_string(100 + request) + " " +
                                 VexProto::ServiceEventId_Name(response) +
                                 " {status: STATUS_SUCCESS"),
                      1u)
                << sim->dump();
        }
        EXPECT_EQ(sim->count("tid=" + std::to_string(100 + request) + " " +
                             VexProto::ClientEventId_Name(request) + " "),
                  1u)
            << sim->dump();
    }
    // Nothing answered the registrations: each request line, no reply line.
    for (int silentEvent : {10, 11, 16})
        EXPECT_EQ(sim->count("tid=" + std::to_string(100 + silentEvent) + " "), 1u) << sim->dump();
}

TEST_F(SimTest, BadBlobsAndForeignFramesAreLoggedAndServiceGoesOn) {
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    client.sendBlob({0xff, 0xff, 0xff});          // not a ClientMsg
    client.sendBlob({});                          // what a deregistering client sends
    client.sendFrame(9, {1, 2, 3});               // not a SendBlobMessage
    client.send(emptyRequest(40, 11));            // an event id no request has
    client.send(emptyRequest(1, 12));
    const auto got = client.waitForMessages(1);
    ASSERT_EQ(got.size(), 1u) << sim->dump();
    EXPECT_EQ(got[0].transaction_id(), 12u);
    EXPECT_TRUE(sim->waitForLine("bad-blob session=")) << sim->dump();
    EXPECT_TRUE(sim->waitForLine("msgId=9 subsystemId=0 bytes=3 (not a blob; ignored)"));
    EXPECT_TRUE(sim->waitForLine("unknown-event ")) << sim->dump();
    EXPECT_TRUE(sim->waitForLine("deregister session=1 (empty blob; no reply)")) << sim->dump();
    EXPECT_EQ(sim->count("SET_COVERAGE_STATE_REQ"), 0u) << sim->dump();
}

// With --stdin the end of input stops the simulator. Without it, as when started in the
// background of a shell or a script, stdin does not matter and SIGTERM stops it. Either
// way it exits with status 0 and removes its socket.
struct StopCase {
    const char* name;
    bool stdinControl;
};
void PrintTo(const StopCase& c, std::ostream* os) {
    *os << c.name;
}

class SimStopTest : public ::testing::TestWithParam<StopCase> {};

TEST_P(SimStopTest, EndOfInputStopsItOnlyWithStdinControl) {
    const std::string path = SimProcess::uniqueSocketPath("stop");
    SimProcess sim(path, {}, GetParam().stdinControl);
    ASSERT_TRUE(sim.ready());
    sim.process().closeStdin();
    if (!GetParam().stdinControl) {
        SimClient client(path);
        ASSERT_TRUE(client.connect()) << sim.dump();
        client.send(emptyRequest(1, 3));
        ASSERT_EQ(client.waitForMessages(1).size(), 1u) << sim.dump();
        sim.process().kill(SIGTERM);
    }
    const auto status = sim.process().waitExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

INSTANTIATE_TEST_SUITE_P(Control, SimStopTest,
                         ::testing::Values(StopCase{"Stdin", true}, StopCase{"Background", false}),
                         [](const ::testing::TestParamInfo<StopCase>& info) {
                             return std::string(info.param.name);
                         });

// A second simulator on a path that is served exits with status 1 and says by whom;
// the first one keeps its socket.
enum class Holder { Simulator, RefusingSimulator, OtherServer };
struct ClaimCase {
    const char* name;
    Holder holder;
    const char* servedBy;
};
void PrintTo(const ClaimCase& c, std::ostream* os) {
    *os << c.name;
}

class SimClaimTest : public ::testing::TestWithParam<ClaimCase> {};

int listenOn(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 4) != 0)
        return -1;
    return fd;
}

TEST_P(SimClaimTest, ASecondSimulatorOnAServedPathRefusesAndLeavesItAlone) {
    const auto& c = GetParam();
    const std::string path = SimProcess::uniqueSocketPath("claim");
    std::unique_ptr<SimProcess> first;
    int listener = -1;
    pid_t holder = ::getpid();
    if (c.holder == Holder::OtherServer) {
        listener = listenOn(path);
        ASSERT_GE(listener, 0);
    } else {
        first = std::make_unique<SimProcess>(path, c.holder == Holder::RefusingSimulator
                                                       ? std::vector<std::string>{"--refuse"}
                                                       : std::vector<std::string>{});
        ASSERT_TRUE(first->ready()) << first->dump();
        holder = first->process().pid();
    }

    // The first one's log file, which a second one told to use it must leave alone.
    const std::string log = path + ".log";
    { std::ofstream(log) << "first\n"; }
    Subprocess second({SimProcess::binary(), "--socket", path, "--log", log}, {},
                      Subprocess::Stderr::Merge);
    const auto status = second.waitExit();
    ASSERT_TRUE(status && WIFEXITED(*status)) << second.dump();
    EXPECT_EQ(WEXITSTATUS(*status), 1) << second.dump();
    EXPECT_TRUE(second.waitForLine("rux-sim: " + path + " is already served by " + c.servedBy +
                                   " (pid " + std::to_string(holder) + ")"))
        << second.dump();
    std::ifstream in(log);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "first\n");
    ::unlink(log.c_str());

    if (listener >= 0) {
        EXPECT_EQ(::access(path.c_str(), F_OK), 0);
        ::close(listener);
        ::unlink(path.c_str());
        return;
    }
    if (c.holder == Holder::RefusingSimulator) {
        EXPECT_EQ(first->command("refuse off"), "ok");
    }
    SimClient client(path);
    ASSERT_TRUE(client.connect()) << first->dump();
    client.send(emptyRequest(1, 3));
    EXPECT_EQ(client.waitForMessages(1).size(), 1u) << first->dump();
}

INSTANTIATE_TEST_SUITE_P(
    Holders, SimClaimTest,
    ::testing::Values(ClaimCase{"Simulator", Holder::Simulator, "another rux-sim"},
                      ClaimCase{"RefusingSimulator", Holder::RefusingSimulator, "another rux-sim"},
                      ClaimCase{"OtherServer", Holder::OtherServer, "another process"}),
    [](const ::testing::TestParamInfo<ClaimCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace rux::test
