// rux-sim as a subprocess, reached through the library's own client end of the transport
// (RuxIpcClientSession): the handshake and frames are the real ones, the requests are
// plain VexProto envelopes. This checks the simulator itself, so the library tests that
// rely on it stand on tested ground.
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
                mBlobs.push_back(blob.blob);
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
    std::vector<VexProto::ServiceMsg> received() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mReceived;
    }
    std::vector<VexProto::ServiceMsg> waitForMessages(size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, kDeadline, [&] { return mReceived.size() >= n; });
        return mReceived;
    }
    std::vector<uint8_t> blob(size_t i) {
        std::lock_guard<std::mutex> lock(mMutex);
        return i < mBlobs.size() ? mBlobs[i] : std::vector<uint8_t>{};
    }
    // Waits for a connection status after the first (the loss of the session).
    bool waitForLoss() {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kDeadline, [&] { return mStatuses.size() >= 2; }) &&
               !mStatuses[1];
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
    std::vector<std::vector<uint8_t>> mBlobs;      // guarded by mMutex
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

struct LogCase {
    const char* name;
    std::function<void(VexProto::ClientMsg&)> fill;
    const char* expected;
};

void PrintTo(const LogCase& c, std::ostream* os) { *os << c.name; }

class SimLogTest : public SimTest, public ::testing::WithParamInterface<LogCase> {};

TEST_P(SimLogTest, LogsEachDecodedRequestReadably) {
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    VexProto::ClientMsg msg;
    msg.set_transaction_id(7);
    GetParam().fill(msg);
    client.send(msg);
    EXPECT_TRUE(sim->waitForLine(std::string("tid=7 ") + GetParam().expected)) << sim->dump();
}

INSTANTIATE_TEST_SUITE_P(
    Requests, SimLogTest,
    ::testing::Values(
        LogCase{"SetHst",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_HST_STATE_REQ);
                    m.mutable_data()->mutable_set_hst_state_req()->set_hst_state(VexProto::HST_STATE_SET);
                },
                "SET_HST_STATE_REQ {hst_state: HST_STATE_SET}"},
        LogCase{"Coverage",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_COVERAGE_STATE_REQ);
                    auto* r = m.mutable_data()->mutable_set_coverage_state_req();
                    r->set_slot_id(VexProto::SLOT_ID_SECOND);
                    r->set_coverage_state(VexProto::COVERAGE_STATE_IN_COVERAGE_HOLE);
                },
                "SET_COVERAGE_STATE_REQ {slot_id: SLOT_ID_SECOND, coverage_state: "
                "COVERAGE_STATE_IN_COVERAGE_HOLE}"},
        LogCase{"OutOfServiceWithUnknownScan",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_OUT_OF_SERVICE_REQ);
                    m.mutable_data()->mutable_set_out_of_service_req()->set_slot_id(VexProto::SLOT_ID_FIRST);
                },
                "SET_OUT_OF_SERVICE_REQ {slot_id: SLOT_ID_FIRST, scan_state: INVALID_SCAN}"},
        LogCase{"DataStall",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SEND_DATA_STALL_PARAMETERS_REQ);
                    auto* r = m.mutable_data()->mutable_send_data_stall_parameters_req();
                    r->set_slot_id(VexProto::SLOT_ID_THIRD);
                    r->mutable_params()->set_traffic_direction(VexProto::DOWNLINK);
                    r->mutable_params()->set_application_type(VexProto::FILE_TRANSFER);
                    r->mutable_params()->set_param1(-1);
                    r->mutable_params()->set_param4(30);
                },
                "SEND_DATA_STALL_PARAMETERS_REQ {slot_id: SLOT_ID_THIRD, params: "
                "{traffic_direction: DOWNLINK, flag: false, application_type: FILE_TRANSFER, "
                "param1: -1, param2: 0, param3: 0, param4: 30}}"},
        LogCase{"CellListNestedMessagesOnlyWhenPresent",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_CELL_LIST_INFO_REQ);
                    auto* r = m.mutable_data()->mutable_set_cell_list_info_req()->mutable_set_cell_list_info();
                    r->set_mitigation_type(VexProto::CELL_INFO);
                    r->add_lte_cell_list();
                    r->add_lte_cell_list();
                    r->add_nr_cell_list();
                },
                "SET_CELL_LIST_INFO_REQ {mitigation_type: CELL_INFO, flag: false, lte_cell_list: "
                "[{param1_valid: false, param1: 0, flag2_valid: false, flag2: false, param3: 0, "
                "param4: 0}, {param1_valid: false, param1: 0, flag2_valid: false, flag2: false, "
                "param3: 0, param4: 0}], nr_cell_list: [{param1_valid: false, param1: 0, "
                "flag2_valid: false, flag2: false, param3: 0, param4: 0}]}"},
        LogCase{"UnknownEnumValueAsNumber",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_SUBWAY_STATE_REQ);
                    m.mutable_data()->mutable_set_subway_state_req()->set_subway_state(
                        static_cast<VexProto::SubwayState>(9));
                },
                "SET_SUBWAY_STATE_REQ {subway_state: 9}"},
        LogCase{"PayloadOfAnotherEvent",
                [](VexProto::ClientMsg& m) {
                    m.set_event_id(VexProto::SET_HST_STATE_REQ);
                    m.mutable_data()->mutable_get_hst_state_req();
                },
                "SET_HST_STATE_REQ {payload: member 3}"},
        LogCase{"NoPayload",
                [](VexProto::ClientMsg& m) { m.set_event_id(VexProto::GET_HST_STATE_REQ); },
                "GET_HST_STATE_REQ {no payload}"}),
    [](const ::testing::TestParamInfo<LogCase>& info) { return std::string(info.param.name); });

// Statuses are named and numbered as the C interface does; the wire value is one more.
TEST_F(SimTest, ControlCommandsChangeStatusesValuesAndSilence) {
    EXPECT_EQ(sim->command("status SET_HST_STATE_REQ RUX_STATUS_NOT_SUPPORTED"), "ok");
    EXPECT_EQ(sim->command("status GET_HST_STATE_REQ 8"), "ok");  // any number travels
    EXPECT_EQ(sim->command("value hst-state HST_STATE_SET"), "ok");
    EXPECT_EQ(sim->command("value submode DSDS DSDA_TX_SHARING"), "ok");
    EXPECT_EQ(sim->command("value dppd-ui false"), "ok");
    EXPECT_EQ(sim->command("silent SET_SUBWAY_STATE_REQ"), "ok");
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    for (int event : {1, 2, 21, 15, 14}) {
        auto msg = emptyRequest(event, event);
        if (event == 14) msg.mutable_data()->mutable_update_dppd_ui_req()->set_ui_option_enabled(true);
        client.send(msg);
    }
    const auto got = client.waitForMessages(4);
    ASSERT_EQ(got.size(), 4u) << sim->dump();
    EXPECT_EQ(got[0].data().set_hst_state_resp().status(), VexProto::STATUS_NOT_SUPPORTED);
    EXPECT_EQ(static_cast<int>(got[1].data().get_hst_state_resp().status()), 9);
    EXPECT_EQ(got[1].data().get_hst_state_resp().hst_state(), VexProto::HST_STATE_SET);
    // The subway request (21) was not answered; the next reply is for 15.
    EXPECT_EQ(got[2].transaction_id(), 15u);
    const auto& info = got[2].data().get_multi_sim_mode_info_resp().vex_multi_sim_sub_mode_info();
    EXPECT_EQ(info.sub_mode(), VexProto::DSDS);
    EXPECT_EQ(info.tx_concurrency(), VexProto::DSDA_TX_SHARING);
    EXPECT_FALSE(got[3].data().update_dppd_ui_resp().ui_option_enabled());
    EXPECT_TRUE(sim->waitForLine("no-reply session=")) << sim->dump();

    EXPECT_EQ(sim->command("reset"), "ok");
    client.send(emptyRequest(1, 31));
    const auto after = client.waitForMessages(5);
    ASSERT_EQ(after.size(), 5u);
    EXPECT_EQ(after[4].data().set_hst_state_resp().status(), VexProto::STATUS_SUCCESS);
}

TEST_F(SimTest, SendsIndicationsAndAnyEventToEveryClient) {
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(sim->waitForLine("connected session="));
    EXPECT_EQ(sim->command("indicate hst-state HST_STATE_SET"), "ok sent=1");
    EXPECT_EQ(sim->command("indicate subway-state SUBWAY_STATE_IN_CARRIAGE"), "ok sent=1");
    EXPECT_EQ(sim->command("indicate dppd-recommendation DATA_NOT_ALLOWED NDDS"), "ok sent=1");
    EXPECT_EQ(sim->command("reply 27 5"), "ok sent=1");
    EXPECT_EQ(sim->command("reply SET_HST_STATE_RESP 999 2"), "ok sent=1");
    EXPECT_EQ(sim->command("blob 0801"), "ok sent=1");
    const auto got = client.waitForMessages(6);
    ASSERT_EQ(got.size(), 6u) << sim->dump();
    EXPECT_EQ(got[0].event_id(), VexProto::HST_STATE_CHANGE_IND);
    EXPECT_EQ(got[0].data().hst_state_change_ind().hst_state(), VexProto::HST_STATE_SET);
    EXPECT_EQ(got[1].data().subway_state_change_ind().subway_state(),
              VexProto::SUBWAY_STATE_IN_CARRIAGE);
    const auto& rec = got[2].data().notify_dppd_recommendation_ind().vex_data_recommendation();
    EXPECT_EQ(rec.action(), VexProto::DATA_NOT_ALLOWED);
    EXPECT_EQ(rec.subs(), VexProto::NDDS);
    EXPECT_EQ(static_cast<int>(got[3].event_id()), 27);
    EXPECT_EQ(got[3].transaction_id(), 5u);
    EXPECT_FALSE(got[3].has_data());
    EXPECT_EQ(got[4].transaction_id(), 999u);
    EXPECT_EQ(got[4].data().set_hst_state_resp().status(), VexProto::STATUS_INTERNAL_ERR);
    EXPECT_EQ(client.blob(5), (std::vector<uint8_t>{0x08, 0x01}));
    EXPECT_TRUE(sim->waitForLine("indication session=")) << sim->dump();
}

TEST_F(SimTest, DropEndsTheClientsSessionAndTheNextConnectSucceeds) {
    SimClient first(path);
    ASSERT_TRUE(first.connect());
    ASSERT_TRUE(sim->waitForLine("connected session="));
    EXPECT_EQ(sim->command("drop"), "ok dropped=1");
    EXPECT_TRUE(first.waitForLoss());
    EXPECT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();
    EXPECT_EQ(sim->command("clients"), "ok clients=0");

    SimClient second(path);
    ASSERT_TRUE(second.connect());
    second.send(emptyRequest(1, 3));
    EXPECT_EQ(second.waitForMessages(1).size(), 1u);
}

TEST_F(SimTest, RefusingMakesConnectsFailUntilItAcceptsAgain) {
    EXPECT_EQ(sim->command("refuse on"), "ok");
    {
        SimClient refused(path, 2);
        EXPECT_FALSE(refused.connect());
    }
    EXPECT_EQ(sim->command("refuse off"), "ok");
    SimClient accepted(path, 2);
    EXPECT_TRUE(accepted.connect());
    EXPECT_TRUE(sim->waitForLine("connected session=")) << sim->dump();
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

TEST_F(SimTest, DelayHoldsAnswersUntilItIsLiftedAndStoppingDropsThem) {
    SimClient client(path);
    ASSERT_TRUE(client.connect());
    EXPECT_EQ(sim->command("delay 600000"), "ok");
    client.send(emptyRequest(1, 3));
    ASSERT_TRUE(sim->waitForLine("tid=3 SET_HST_STATE_REQ")) << sim->dump();
    EXPECT_TRUE(client.received().empty());
    EXPECT_EQ(sim->command("delay 0"), "ok");  // an answer already waiting goes out now
    ASSERT_EQ(client.waitForMessages(1).size(), 1u) << sim->dump();

    EXPECT_EQ(sim->command("delay 600000"), "ok");
    client.send(emptyRequest(1, 5));
    ASSERT_TRUE(sim->waitForLine("tid=5 SET_HST_STATE_REQ")) << sim->dump();
    sim->process().closeStdin();  // stops at once, without the held answer
    const auto status = sim->process().waitExit();
    ASSERT_TRUE(status && WIFEXITED(*status)) << sim->dump();
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    ASSERT_TRUE(sim->waitForLine("stopped")) << sim->dump();  // the log's last line
    EXPECT_EQ(sim->count("tid=5 SET_HST_STATE_RESP"), 0u) << sim->dump();
}

TEST_F(SimTest, HelpListsTheCommandsAndEndsWithItsReplyLine) {
    ASSERT_EQ(sim->command("help"), "ok");
    const auto lines = sim->process().lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.back(), "ok");
    EXPECT_EQ(lines[lines.size() - 2].rfind("# quit ", 0), 0u) << sim->dump();
    EXPECT_EQ(sim->count("# delay <ms> "), 1u) << sim->dump();
}

TEST_F(SimTest, RejectsMalformedControlLines) {
    for (const char* line :
         {"frobnicate", "status", "status SET_HST_STATE_REQ BOGUS",
          "status NOT_A_REQ STATUS_SUCCESS", "silent all maybe", "value hst-state",
          "value submode DSDA", "indicate nothing 1", "reply 1", "reply 1 x", "blob 0g", "blob 123",
          "refuse", "delay", "delay -1", "delay soon", "indicate cell-list CELL_BAD",
          "indicate cell-list CELL_INFO mcc=1", "indicate cell-list 1 nr pci=x",
          "indicate cell-list 1 lte size=2"}) {
        const std::string reply = sim->command(line);
        EXPECT_EQ(reply.rfind("error: ", 0), 0u) << line << " -> " << reply;
    }
    EXPECT_EQ(sim->command("clients"), "ok clients=0");  // still serving
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
    Subprocess second({SimProcess::binary(), "--socket", path, "--log", log}, {}, true);
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

TEST(SimProcessTest, ControlSocketAndLogFileServeAControllerWithoutStdin) {
    const std::string path = SimProcess::uniqueSocketPath("ctl");
    const std::string control = path + ".ctl";
    const std::string log = path + ".log";
    SimProcess sim(path,
                   {"--control-socket", control, "--log", log, "--status",
                    "SET_HST_STATE_REQ=STATUS_INVALID_SLOT"},
                   false);
    ASSERT_TRUE(sim.ready());  // the control socket listens before the ready line
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, control.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_GE(fd, 0);
    const std::string line = "clients\n";
    ASSERT_EQ(::send(fd, line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
    char reply[64] = {};
    ASSERT_GT(::recv(fd, reply, sizeof reply - 1, 0), 0);
    EXPECT_STREQ(reply, "ok clients=0\n");
    ::close(fd);

    SimClient client(path);
    ASSERT_TRUE(client.connect());
    client.send(emptyRequest(1, 3));
    const auto got = client.waitForMessages(1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].data().set_hst_state_resp().status(), VexProto::STATUS_INVALID_SLOT);

    sim.process().kill(SIGTERM);
    const auto status = sim.process().waitExit();
    ASSERT_TRUE(status && WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    std::ifstream in(log);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("ready socket=" + path), std::string::npos) << text;
    EXPECT_NE(text.find("reply session="), std::string::npos) << text;
    EXPECT_NE(text.find("STATUS_INVALID_SLOT"), std::string::npos) << text;
    // stdout carries only the ready line; the events went to the file.
    EXPECT_EQ(sim.process().lines(), std::vector<std::string>{"ready socket=" + path});
    ::unlink(log.c_str());
}

}  // namespace
}  // namespace rux::test
