// RuxIpcClientSession against the real serving side and against a scripted peer that
// speaks raw bytes: connect and retries, handshake failures, session end and teardown.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "SocketPair.h"
#include "ipc/HandshakePacket.h"
#include "ipc/IpcFrame.h"
#include "ipc/RuxIpcClientSession.h"
#include "ipc/RuxIpcServer.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using rux::test::Inbox;
using rux::test::LogCapture;
using rux::test::quickConnect;
using rux::test::readExactly;
using rux::test::uniqueSocketPath;
using rux::test::writeAll;

// Every connection status a session reports.
using StatusLog = Inbox<bool>;
std::function<void(bool)> reportTo(StatusLog& log) {
    return [&log](bool up) { log.put(up); };
}

// A peer that speaks raw bytes: it listens on `path` and, on its own thread, accepts
// one connection and runs the test's script on it.
class ScriptedPeer {
public:
    ScriptedPeer(std::string path, std::function<void(int fd)> script) : mPath(std::move(path)) {
        mListen = rux::test::unixSocket(mPath, true);
        EXPECT_GE(mListen, 0);
        mDone = std::async(std::launch::async, [this, script] {
            pollfd p{mListen, POLLIN, 0};
            if (::poll(&p, 1, 10000) != 1) return;
            const int fd = ::accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
            rux::test::setReadDeadline(fd);
            script(fd);
            ::close(fd);
        });
    }
    ~ScriptedPeer() {
        mDone.wait();
        ::close(mListen);
        ::unlink(mPath.c_str());
    }
    // True once the script has finished, within the deadline.
    bool finished() { return mDone.wait_for(10s) == std::future_status::ready; }

private:
    std::string mPath;
    int mListen = -1;
    std::future<void> mDone;
};

class SessionWithServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        RuxIpcServer::Callbacks callbacks;
        callbacks.onConnected = [this](const RuxIpcServerClient& c) { connected.put(c); };
        callbacks.onFrame = [this](const RuxIpcServerClient&, const IncomingFrame& f) {
            frames.put(f);
        };
        // Whether the service still takes the client for connected once it has gone.
        callbacks.onDisconnected = [this](const RuxIpcServerClient& c) {
            disconnected.put(c.isConnected());
        };
        server = std::make_unique<RuxIpcServer>(callbacks);
        ASSERT_TRUE(server->start(path));
    }
    void TearDown() override { server->stop(); }

    std::unique_ptr<RuxIpcClientSession> connectedSession() {
        auto session =
            std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, false, quickConnect(path));
        session->connectToServer(reportTo(status));
        EXPECT_TRUE(status.waitFor(1));
        EXPECT_EQ(status.get(), std::vector<bool>{true});
        EXPECT_TRUE(connected.waitFor(1));
        return session;
    }

    const std::string path = uniqueSocketPath("rux-ipc-test");
    LogCapture capture;
    StatusLog status;
    Inbox<RuxIpcServerClient> connected;
    Inbox<IncomingFrame> frames;
    Inbox<bool> disconnected;
    std::unique_ptr<RuxIpcServer> server;
};

// A second connect while connected returns at once without a second status. Raw sends
// reach the service as frames; an incoming frame of an id nobody registered is dropped
// with its line. Destroying the session closes the socket (the service sees the client go
// and no longer takes it for connected) and reports nothing more.
TEST_F(SessionWithServerTest, SecondConnectIsIdleRawSendsArriveUnknownIdsAreDropped) {
    auto session = connectedSession();
    session->connectToServer(reportTo(status));
    EXPECT_EQ(status.get(), std::vector<bool>{true});

    ASSERT_TRUE(session->send(3, 77, {5, 6}));
    ASSERT_TRUE(frames.waitFor(1));
    const IncomingFrame f = frames.get()[0];
    EXPECT_EQ(std::vector<uint64_t>(
                  {f.srcProcessId, f.dstProcessId, f.msgId, f.subsystemId, f.sessionId}),
              std::vector<uint64_t>({101, 1, 77, 3, session->sessionId()}));
    EXPECT_EQ(f.payload, (Bytes{5, 6}));

    ASSERT_TRUE(connected.get()[0].sendFrame(7, 5, {0xAB}));
    ASSERT_TRUE(capture.waitForText("No MessageConstructor registered for msg: 5"));
    EXPECT_EQ(capture.findEndingWith("No MessageConstructor registered for msg: 5").priority, 6);

    session.reset();
    ASSERT_TRUE(disconnected.waitFor(1));
    EXPECT_EQ(disconnected.get(), std::vector<bool>{false});
    EXPECT_EQ(status.get(), std::vector<bool>{true});
}

// Each failure: its log line, the socket closed, false reported once, one attempt only.
TEST(SessionHandshakeTest, FailureClosesReportsFalseOnceAndDoesNotRetry) {
    const struct {
        const char* logLine;
        std::function<void(int fd)> script;  // what the peer does after accepting
        int priority;
        std::chrono::milliseconds timeout;  // the handshake's; 0: the default
    } cases[] = {
        {"Received data size does not match with expected size",
         [](int fd) { writeAll(fd, encodeHandshakeResp(1, 1)); }, 6, 0ms},
        {"HANDSHAKE_COMPLETE: receivedSessionId: 8",
         [](int fd) {
             writeAll(fd, encodeHandshakeInit(7));
             readExactly(fd, 12);
             writeAll(fd, encodeHandshakeComplete(8));
         },
         3, 0ms},
        {"Unknown handshake type",
         [](int fd) {
             writeAll(fd, Bytes{9, 0, 0, 0, 1, 0, 0, 0});
         },
         6, 0ms},
        {"recv: len: 0", [](int fd) { ::shutdown(fd, SHUT_WR); }, 3, 0ms},
        {"recv returns error: errno: 11(Resource temporarily unavailable)", [](int) {}, 6, 50ms},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.logLine);
        LogCapture capture;
        const std::string path = uniqueSocketPath("rux-ipc-test");
        std::atomic<bool> sawClose{false};
        ScriptedPeer peer(path, [&](int fd) {
            c.script(fd);
            char byte;
            sawClose = ::recv(fd, &byte, 1, 0) == 0;  // end of stream within the deadline
        });
        StatusLog status;
        ConnectOptions options = quickConnect(path, 5);
        if (c.timeout.count() > 0) options.handshakeTimeout = c.timeout;
        RuxIpcClientSession session(PROCESS_ID_CLIENT_101, false, options);
        session.connectToServer(reportTo(status));
        EXPECT_EQ(status.get(), std::vector<bool>{false});
        EXPECT_EQ(session.socketFd(), -1);
        ASSERT_TRUE(peer.finished());
        EXPECT_TRUE(sawClose.load());
        EXPECT_EQ(capture.matching("Connect ret: 0").size(), 1u);
        EXPECT_EQ(capture.findEndingWith(c.logLine).priority, c.priority) << capture.dump();
    }
}

// The peer sends COMPLETE, then part of a frame, and stops with the socket open: the
// session's own stall limit ends it. The connecting thread is held after the handshake
// until the receiver has ended the session: the session was up, so up is reported, then
// down, once each and in that order.
TEST(SessionHandshakeTest, SessionEndedBeforeItsUpIsReportedGivesUpThenDown) {
    LogCapture capture;
    const std::string path = uniqueSocketPath("rux-ipc-test");
    std::promise<void> release;
    ScriptedPeer peer(path, [&release](int fd) {
        writeAll(fd, encodeHandshakeInit(21));
        readExactly(fd, 12);
        Bytes bytes = encodeHandshakeComplete(21);
        const Bytes frame = encodeFrame(ipcMsg_t{1, 101, 5, 0, 21, 10}, Bytes(10, 1).data());
        bytes.insert(bytes.end(), frame.begin(), frame.begin() + 48 + 4);
        writeAll(fd, bytes);
        release.get_future().wait();
    });
    StatusLog status;
    ConnectOptions options = quickConnect(path);
    options.frameStallLimit = 50ms;
    RuxIpcClientSession* self = nullptr;
    options.afterHandshake = [&self] { self->waitForReceivers(); };
    RuxIpcClientSession session(PROCESS_ID_CLIENT_101, false, options);
    self = &session;
    session.connectToServer(reportTo(status));
    release.set_value();
    EXPECT_EQ(status.get(), (std::vector<bool>{true, false}));
    EXPECT_EQ(session.socketFd(), -1);
    EXPECT_EQ(capture.findEndingWith("Frame stalled: 4 of 10 payload bytes in 50 ms").priority, 6);
    EXPECT_FALSE(capture.contains("No MessageConstructor"));
}

// Cleanup during the retries (50 x 100 ms by default) stops them without a status, and
// returns only once the connect path has let go of the socket.
TEST(SessionConnectTest, CleanupDuringRetriesStopsThemWithoutAStatus) {
    LogCapture capture;
    StatusLog status;
    ConnectOptions options;
    EXPECT_EQ(std::make_pair(options.maxAttempts, options.retryDelay),
              std::make_pair(50, std::chrono::microseconds(100000)));
    options.socketPath = uniqueSocketPath("rux-ipc-test");  // nobody listens
    auto session = std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, true, options);
    session->connectToServer(reportTo(status));
    ASSERT_TRUE(capture.waitForText("Connect ret: -1"));
    auto done = std::async(std::launch::async, [&] { session->cleanup(); });
    ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(capture.contains("Connect fail: mThreadSemaphore.increase")) << capture.dump();
    EXPECT_LT(capture.matching("Connect ret: -1").size(), 50u);
    session.reset();
    EXPECT_TRUE(status.get().empty());
}

}  // namespace
