// rux-sim's control lines, each by its reply and its effect on the event log; a start-up
// option, the control socket, quit, and paths already served. (ruxctl's tests pin answers.)
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>

#include "Subprocess.h"
#include "ipc/RuxIpcClientSession.h"
#include "ipc/RuxIpcMessage.h"

namespace rux::test {
namespace {

// The library's own client end of the transport (handshake and frames), sending blobs in hex;
// unthreaded, it has connected (or given up) once constructed.
struct SimClient {
    explicit SimClient(const std::string& path)
        : session(ipc::PROCESS_ID_CLIENT_101, false, options(path)) {
        session.connectToServer([this](bool isUp) { up = isUp; });
    }
    ~SimClient() { session.cleanup(); }
    static ipc::ConnectOptions options(const std::string& path) {
        ipc::ConnectOptions o;
        o.socketPath = path;
        o.maxAttempts = 3;
        o.retryDelay = std::chrono::milliseconds(20);
        return o;
    }
    void send(const std::string& hex) {
        std::vector<uint8_t> blob;
        for (size_t i = 0; i < hex.size(); i += 2)
            blob.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
        session.send(
            std::make_shared<ipc::SendBlobMessage>(ipc::RUX_SDK_TYPE_REQUEST_CLIENT, blob));
    }
    ipc::RuxIpcClientSession session;
    std::atomic<bool> up{false};
};

// Requests of tid 9, each with an empty payload of its own, in hex.
const char kSetHst[] = "080110091a021200", kGetHst[] = "080210091a021a00",
           kSetL2nr[] = "080610091a023a00";

// A second rux-sim on `path` exits with status 1 saying who serves it, and leaves the log
// file it was given alone.
void expectServedBy(const std::string& path, const std::string& who) {
    const std::string log = path + ".log";
    std::ofstream(log) << "first\n";
    SimProcess second(path, {"--log", log});
    EXPECT_EQ(second.waitExit(), 1) << second.dump();
    EXPECT_EQ(second.lines(),
              std::vector<std::string>{"rux-sim: " + path + " is already served by " + who});
    std::ifstream in(log);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "first\n");
    ::unlink(log.c_str());
}

struct Row {
    const char* line;     // the control line; nullptr: none
    const char* reply;    // its reply; nullptr: none at all
    const char* request;  // then sent by the client, in hex; nullptr: nothing
    const char* effect;   // then seen in the event log
    size_t count;         // lines holding `effect` so far, exactly
};

// clang-format off
const Row kRows[] = {
    {nullptr, nullptr, kGetHst, "GET_HST_STATE_RESP {status: STATUS_INVALID_OPERATION, ", 1},
    {"status all STATUS_NOT_SUPPORTED", "ok", kSetL2nr, "SET_L2NR_SELECTION_RESP {status: STATUS_NOT_SUPPORTED}", 1},
    {"silent SET_HST_STATE_REQ", "ok", kSetHst, "no-reply session=1 tid=9 (silent)", 1},
    {"silent SET_HST_STATE_REQ off", "ok", kSetHst, "reply session=1 tid=9 SET_HST_STATE_RESP", 1},
    // A delayed answer waits until the delay is lifted.
    {"delay 600000", "ok", kSetHst, "SET_HST_STATE_REQ {", 3},
    {"clients", "ok clients=1", nullptr, "reply session=1 tid=9 SET_HST_STATE_RESP", 1},
    {"delay 0", "ok", nullptr, "reply session=1 tid=9 SET_HST_STATE_RESP", 2},
    {"value hst-state HST_STATE_SET", "ok", kGetHst, "hst_state: HST_STATE_SET}", 1},
    {"reset", "ok", kGetHst, "GET_HST_STATE_RESP {status: STATUS_SUCCESS, hst_state: HST_STATE_NOT_SET}", 1},
    {"reply SET_HST_STATE_RESP 77 RUX_STATUS_INVALID_ARG", "ok sent=1", nullptr, "reply session=1 tid=77 SET_HST_STATE_RESP {status: STATUS_INVALID_ARG}", 1},
    {"blob 08031005", "ok sent=1", nullptr, "blob session=1 bytes=4", 1},
    {"# a comment", nullptr, nullptr, nullptr, 0},
    {"", nullptr, nullptr, nullptr, 0},
    {"help", "ok", nullptr, "# quit ", 1},
    {"frobnicate", "error: unknown command 'frobnicate' (try help)", nullptr, nullptr, 0},
    // Bad input from a client is logged and answered by nothing.
    {nullptr, nullptr, "ffffff", "bad-blob session=1 bytes=3 (not a ClientMsg; ignored)", 1},
    {nullptr, nullptr, "", "deregister session=1 (empty blob; no reply)", 1},
    {nullptr, nullptr, "08281009", "unknown-event session=1 tid=9 (no reply)", 1},
};
// clang-format on

TEST(SimTest, EachControlLineRepliesAndActsAndAServedPathIsLeftAlone) {
    const std::string path = uniqueSocketPath("rux-e2e-sim"), control = path + ".ctl";
    SimProcess sim(path, {"--control-socket", control, "--status", "GET_HST_STATE_REQ=4"});
    ASSERT_TRUE(sim.ready()) << sim.dump();
    SimClient client(path);
    ASSERT_TRUE(client.up) << sim.dump();
    size_t replies = 0;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line ? row.line : row.request);
        if (row.line && row.reply) {
            EXPECT_EQ(sim.command(row.line), row.reply);
            ++replies;
        } else if (row.line) {
            sim.writeLine(row.line);
        }
        if (row.request) client.send(row.request);
        if (!row.effect) continue;
        sim.waitForCount(row.effect, row.count);
        EXPECT_EQ(sim.count(row.effect), row.count) << sim.dump();
    }

    // Refusing, nothing listens on the path, yet a second simulator finds it served.
    ASSERT_EQ(sim.command("refuse on"), "ok");
    EXPECT_FALSE(SimClient(path).up);
    expectServedBy(path, "another rux-sim (pid " + std::to_string(sim.pid()) + ")");
    ASSERT_EQ(sim.command("refuse off"), "ok");
    EXPECT_TRUE(SimClient(path).up) << sim.dump();
    // The control socket takes the same lines and answers on the connection.
    const int fd = unixSocket(control, false);
    char reply[16] = {};
    EXPECT_EQ(::write(fd, "delay 0\n", 8), 8);
    EXPECT_EQ(::read(fd, reply, sizeof reply - 1), 3);
    EXPECT_STREQ(reply, "ok\n");
    ::close(fd);

    EXPECT_EQ(sim.command("quit"), "ok");
    EXPECT_EQ(sim.waitExit(), 0);
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
    EXPECT_NE(::access(control.c_str(), F_OK), 0);
    // Every control line with a reply had one, and no other line (a comment) had any.
    const auto lines = sim.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), SimProcess::isReply), replies + 3);

    // A path another program serves is left alone.
    const int listener = unixSocket(path, true);
    ASSERT_GE(listener, 0);
    expectServedBy(path, "another process (pid " + std::to_string(::getpid()) + ")");
    EXPECT_EQ(::access(path.c_str(), F_OK), 0);
    ::close(listener);
    ::unlink(path.c_str());
}

}  // namespace
}  // namespace rux::test
