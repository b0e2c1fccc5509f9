// RuxIpcClientSession against the real serving side (RuxIpcServer) and against a
// scripted peer that speaks raw bytes: connect and retries, the handshake and its
// failures, dispatch through the registry, session end and teardown.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "ipc/HandshakePacket.h"
#include "ipc/IpcFrame.h"
#include "ipc/RuxIpcClientSession.h"
#include "ipc/RuxIpcServer.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using rux::test::countEndingWith;
using rux::test::Inbox;
using rux::test::LogCapture;

std::string uniquePath() {
    return rux::test::uniqueSocketPath("rux-ipc-test");
}

ConnectOptions fastOptions(const std::string& path, int attempts = 3) {
    ConnectOptions options;
    options.socketPath = path;
    options.maxAttempts = attempts;
    options.retryDelay = std::chrono::microseconds(1000);
    return options;
}

// Every connection status a session reports.
using StatusLog = Inbox<bool>;
std::function<void(bool)> reportTo(StatusLog& log) {
    return [&log](bool up) { log.put(up); };
}

// The priority of the first line ending with `suffix`, -1 when there is none.
int prio(const LogCapture& capture, const std::string& suffix) {
    return capture.findEndingWith(suffix).priority;
}

// A peer that speaks raw bytes: it listens on `path` and, on its own thread, accepts
// one connection and runs the test's script on it.
class ScriptedPeer {
public:
    ScriptedPeer(std::string path, std::function<void(int fd)> script) : mPath(std::move(path)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, mPath.data(), mPath.size());
        mListen = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        ::unlink(mPath.c_str());
        EXPECT_EQ(::bind(mListen, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(mListen, 8), 0);
        mDone = std::async(std::launch::async, [this, script] {
            pollfd p{mListen, POLLIN, 0};
            if (::poll(&p, 1, 10000) != 1) return;
            const int fd = ::accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
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
    // Connections made after the first one (retries), accepted and closed here.
    int moreConnections() {
        int n = 0;
        for (int fd; (fd = ::accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ++n)
            ::close(fd);
        return n;
    }

    static Bytes readExactly(int fd, size_t n) {
        Bytes out(n);
        size_t got = 0;
        while (got < n) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 10000) <= 0) break;
            const ssize_t r = ::recv(fd, out.data() + got, n - got, 0);
            if (r <= 0) break;
            got += static_cast<size_t>(r);
        }
        out.resize(got);
        return out;
    }
    static void write(int fd, const Bytes& bytes) {
        ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    // True once the other end has closed (end of stream), within the deadline.
    static bool seesClose(int fd) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 10000) <= 0) return false;
        char c;
        return ::recv(fd, &c, 1, 0) == 0;
    }

private:
    std::string mPath;
    int mListen = -1;
    std::future<void> mDone;
};

// A registry entry for SendBlobMessage that hands every blob to `inbox`.
IpcMessageRegistry blobRegistry(Inbox<SendBlobMessage>& inbox) {
    IpcMessageRegistry registry;
    registry[SendBlobMessage::ID] = {
        [](std::vector<uint8_t> payload) -> std::shared_ptr<RuxIpcMessage> {
            auto msg = std::make_shared<SendBlobMessage>();
            msg->deserialize(std::move(payload));
            return msg;
        },
        [&inbox](std::shared_ptr<RuxIpcMessage> msg) {
            inbox.put(*std::static_pointer_cast<SendBlobMessage>(msg));
        }};
    return registry;
}

// --- against the serving side -----------------------------------------------------

class SessionWithServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        RuxIpcServer::Callbacks callbacks;
        callbacks.onConnected = [this](const RuxIpcServerClient& c) { connected.put(c); };
        callbacks.onBlob = [this](const RuxIpcServerClient& c, RuxSdkType type, Bytes blob) {
            blobs.put({type, blob});
            if (echo) c.sendBlob(type, blob);
        };
        callbacks.onFrame = [this](const RuxIpcServerClient&, const IncomingFrame& f) {
            frames.put(f);
        };
        callbacks.onDisconnected = [this](const RuxIpcServerClient& c) {
            disconnected.put(c.sessionId());
        };
        server = std::make_unique<RuxIpcServer>(callbacks);
        ASSERT_TRUE(server->start(path));
    }
    void TearDown() override { server->stop(); }

    std::unique_ptr<RuxIpcClientSession> connectedSession(bool threaded = false) {
        auto session = std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, threaded,
                                                             fastOptions(path));
        session->connectToServer(reportTo(status));
        EXPECT_TRUE(status.waitFor(1));
        EXPECT_EQ(status.get(), std::vector<bool>{true});
        EXPECT_TRUE(connected.waitFor(1));
        return session;
    }

    const std::string path = uniquePath();
    std::atomic<bool> echo{false};
    LogCapture capture;
    StatusLog status;
    Inbox<RuxIpcServerClient> connected;
    Inbox<std::pair<RuxSdkType, Bytes>> blobs;
    Inbox<IncomingFrame> frames;
    Inbox<unsigned int> disconnected;
    std::unique_ptr<RuxIpcServer> server;
};

// A second connect while connected returns at once without a second status.
TEST_F(SessionWithServerTest, ConnectsOnceAndAgreesOnTheServersSessionId) {
    auto session = connectedSession();
    session->connectToServer(reportTo(status));
    EXPECT_EQ(status.get(), std::vector<bool>{true});
    EXPECT_NE(prio(capture, "mSocketFd != -1; RETURNING!!!"), -1);
    EXPECT_TRUE(session->isConnected());
    const RuxIpcServerClient client = connected.get()[0];
    EXPECT_EQ(session->sessionId(), client.sessionId());
    EXPECT_EQ(client.peerProcessId(), PROCESS_ID_CLIENT_101);
    EXPECT_NE(prio(capture, "Connect success: Handshake success"), -1);
    EXPECT_EQ(countEndingWith(capture, "Connect ret: 0"), 1u);
}

// Unregistered ids are dropped with their line; registered blobs travel both ways; an
// entry without a handler delivers nothing.
TEST_F(SessionWithServerTest, BlobsTravelBothWaysThroughTheRegistry) {
    auto session = connectedSession();
    const RuxIpcServerClient client = connected.get()[0];
    ASSERT_TRUE(client.sendBlob(RUX_SDK_TYPE_REQUEST_CLIENT, {9}));
    ASSERT_TRUE(capture.waitForText("No MessageConstructor registered for msg: 5"));
    EXPECT_EQ(prio(capture, "No MessageConstructor registered for msg: 5"), 6);

    echo = true;
    Inbox<SendBlobMessage> received;
    session->registerForMessages(blobRegistry(received));
    ASSERT_TRUE(session->send(
        std::make_shared<SendBlobMessage>(RUX_SDK_TYPE_REQUEST_CLIENT, Bytes{1, 2, 3})));
    ASSERT_TRUE(blobs.waitFor(1));
    EXPECT_EQ(blobs.get()[0], std::make_pair(RUX_SDK_TYPE_REQUEST_CLIENT, Bytes{1, 2, 3}));
    ASSERT_TRUE(received.waitFor(1));
    EXPECT_EQ(received.get()[0].sdkType, RUX_SDK_TYPE_REQUEST_CLIENT);
    EXPECT_EQ(received.get()[0].blob, (Bytes{1, 2, 3}));
    EXPECT_TRUE(capture.contains("Found message handler; calling handler"));
    EXPECT_FALSE(session->send(nullptr));

    IpcMessageRegistry noHandler = blobRegistry(received);
    noHandler[SendBlobMessage::ID].handler = nullptr;
    session->registerForMessages(noHandler);
    ASSERT_TRUE(client.sendBlob(RUX_SDK_TYPE_REQUEST_CLIENT, {8}));
    ASSERT_TRUE(capture.waitForText("Invalid MessageHandler"));
    EXPECT_EQ(received.get().size(), 1u);
}

// Raw sends reach the server as frames; the raw handler takes incoming frames before
// the registry.
TEST_F(SessionWithServerTest, RawFramesBothWays) {
    auto session = connectedSession();
    ASSERT_TRUE(session->send(3, 77, {5, 6}));
    ASSERT_TRUE(frames.waitFor(1));
    const IncomingFrame f = frames.get()[0];
    EXPECT_EQ(std::vector<uint64_t>(
                  {f.srcProcessId, f.dstProcessId, f.msgId, f.subsystemId, f.sessionId}),
              std::vector<uint64_t>({101, 1, 77, 3, session->sessionId()}));
    EXPECT_EQ(f.payload, (Bytes{5, 6}));
    EXPECT_NE(prio(capture, "subsystem id: 3 msg id: 77"), -1);

    Inbox<SendBlobMessage> viaRegistry;
    session->registerForMessages(blobRegistry(viaRegistry));
    Inbox<std::tuple<uint32_t, uint32_t, Bytes>> raw;
    session->setRawHandler([&](std::shared_ptr<RuxIpcIncomingRawMessage> m) {
        raw.put({m->subsystemId, m->msgId, m->payload});
    });
    ASSERT_TRUE(connected.get()[0].sendFrame(7, 5, {0xAB}));
    ASSERT_TRUE(raw.waitFor(1));
    EXPECT_EQ(raw.get()[0], std::make_tuple(7u, 5u, Bytes{0xAB}));
    EXPECT_TRUE(viaRegistry.get().empty());
    EXPECT_TRUE(capture.contains("Found raw message handler"));
}

TEST_F(SessionWithServerTest, CleanupOfAConnectedSessionReturnsAndReportsNothing) {
    auto session = connectedSession();
    const int fd = session->socketFd();
    auto done = std::async(std::launch::async, [&] { session->cleanup(); });
    ASSERT_EQ(done.wait_for(10s), std::future_status::ready)
        << "cleanup() of a connected session hung";
    EXPECT_EQ(session->socketFd(), -1);
    EXPECT_FALSE(session->isConnected());
    ASSERT_TRUE(disconnected.waitFor(1));  // the service sees the client go
    // Close, wait, deregistration, in that order: the session's own cleanup lines, the
    // first deregistration after its first (the service deregisters on its own thread).
    std::vector<std::string> order;
    for (auto& l : capture.lines())
        if (l.text.find("RuxIpcSession::cleanup:") != std::string::npos ||
            (l.text.find("deregisterSocket: ENTER") != std::string::npos && order.size() == 1))
            order.push_back(l.text.substr(l.text.find(' ') + 1));
    EXPECT_EQ(order, (std::vector<std::string>{"closing socket Fd " + std::to_string(fd),
                                               "deregisterSocket: ENTER", "EXIT"}))
        << capture.dump();
    session.reset();
    EXPECT_EQ(status.get(), std::vector<bool>{true});
}

TEST_F(SessionWithServerTest, DestroyingAConnectedSessionTearsDownCleanly) {
    for (bool threaded : {false, true}) {
        SCOPED_TRACE(threaded ? "threaded" : "unthreaded");
        status.clear();
        auto session = connectedSession(threaded);
        capture.clear();
        auto done = std::async(std::launch::async, [&] { session.reset(); });
        ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
        std::vector<std::string> order;
        for (auto& l : capture.lines()) {
            for (const char* t : {"dtor: ENTER[ ", "closing socket Fd ", "IpcHandler stop called"})
                if (l.text.find(t) != std::string::npos) order.push_back(t);
        }
        EXPECT_EQ(order, (std::vector<std::string>{"dtor: ENTER[ ", "closing socket Fd ",
                                                   "IpcHandler stop called"}))
            << capture.dump();
        EXPECT_EQ(status.get(), std::vector<bool>{true});
    }
}

// --- against a scripted peer ------------------------------------------------------

TEST(SessionHandshakeTest, ClientBytesOnTheSocketAreExact) {
    const std::string path = uniquePath();
    Bytes resp, frame;
    ScriptedPeer peer(path, [&](int fd) {
        ScriptedPeer::write(fd, encodeHandshakeInit(0x1234));
        resp = ScriptedPeer::readExactly(fd, 12);
        ScriptedPeer::write(fd, encodeHandshakeComplete(0x1234));
        frame = ScriptedPeer::readExactly(fd, 48 + 6);
    });
    StatusLog status;
    RuxIpcClientSession session(PROCESS_ID_CLIENT_104, false, fastOptions(path));
    session.connectToServer(reportTo(status));
    ASSERT_EQ(status.get(), std::vector<bool>{true});
    session.send(std::make_shared<SendBlobMessage>(static_cast<RuxSdkType>(6), Bytes{0x0A, 0x0B}));
    ASSERT_TRUE(peer.finished());
    EXPECT_EQ(resp, (Bytes{2, 0, 0, 0, 0x34, 0x12, 0, 0, 104, 0, 0, 0}));
    // From this client to the service, SendBlobMessage, the agreed session; sdkType, blob.
    const Bytes payload = {6, 0, 0, 0, 0x0A, 0x0B};
    EXPECT_EQ(frame, encodeFrame(ipcMsg_t{104, 1, 5, 0, 0x1234, 6}, payload.data()));
}

struct HandshakeCase {
    const char* name;
    std::function<void(int fd)> script;  // what the peer does after accepting
    const char* logLine;                 // the line that names the failure
    int priority = 6;                    // and its priority
    std::chrono::milliseconds timeout = ConnectOptions{}.handshakeTimeout;
};

void PrintTo(const HandshakeCase& c, std::ostream* os) {
    *os << c.name;
}

class SessionHandshakeFailureTest : public ::testing::TestWithParam<HandshakeCase> {};

// Each failure: its log line, the socket closed, false reported once, one attempt only.
TEST_P(SessionHandshakeFailureTest, FailsOnceClosesAndDoesNotRetry) {
    LogCapture capture;
    const std::string path = uniquePath();
    std::atomic<bool> sawClose{false};
    ScriptedPeer peer(path, [&](int fd) {
        GetParam().script(fd);
        sawClose = ScriptedPeer::seesClose(fd);
    });
    StatusLog status;
    ConnectOptions options = fastOptions(path, 5);
    options.handshakeTimeout = GetParam().timeout;
    RuxIpcClientSession session(PROCESS_ID_CLIENT_101, false, options);
    session.connectToServer(reportTo(status));
    EXPECT_EQ(status.get(), std::vector<bool>{false});
    EXPECT_EQ(session.socketFd(), -1);
    EXPECT_FALSE(session.isConnected());
    ASSERT_TRUE(peer.finished());
    EXPECT_TRUE(sawClose.load());
    EXPECT_EQ(peer.moreConnections(), 0);
    EXPECT_EQ(countEndingWith(capture, "Connect ret: 0"), 1u);
    EXPECT_EQ(prio(capture, GetParam().logLine), GetParam().priority) << capture.dump();
    EXPECT_NE(prio(capture, "returning: result: 0"), -1);
    EXPECT_EQ(countEndingWith(capture, "notifyConnectionStatus: 0"), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, SessionHandshakeFailureTest,
    ::testing::Values(
        HandshakeCase{"TwelveByteFirstPacket",
                      [](int fd) { ScriptedPeer::write(fd, encodeHandshakeResp(1, 1)); },
                      "Received data size does not match with expected size"},
        HandshakeCase{"MismatchedCompleteId",
                      [](int fd) {
                          ScriptedPeer::write(fd, encodeHandshakeInit(7));
                          ScriptedPeer::readExactly(fd, 12);
                          ScriptedPeer::write(fd, encodeHandshakeComplete(8));
                      },
                      "HANDSHAKE_COMPLETE: receivedSessionId: 8", 3},
        HandshakeCase{"UnknownType",
                      [](int fd) {
                          ScriptedPeer::write(fd, Bytes{9, 0, 0, 0, 1, 0, 0, 0});
                      },
                      "Unknown handshake type"},
        HandshakeCase{"CloseBeforeInit", [](int fd) { ::shutdown(fd, SHUT_WR); }, "recv: len: 0",
                      3},
        HandshakeCase{"SilentPeerTimesOut", [](int) {},
                      "recv returns error: errno: 11(Resource temporarily unavailable)", 6, 50ms}),
    [](const ::testing::TestParamInfo<HandshakeCase>& info) {
        return std::string(info.param.name);
    });

// The peer sends COMPLETE, then part of a frame, and stops with the socket open: the
// session's own stall limit ends it. The connecting thread is held after the handshake
// until the receiver has ended the session: the session was up, so up is reported, then
// down, once each and in that order.
TEST(SessionHandshakeTest, SessionEndedBeforeItsUpIsReportedGivesUpThenDown) {
    LogCapture capture;
    const std::string path = uniquePath();
    std::promise<void> release;
    ScriptedPeer peer(path, [&release](int fd) {
        ScriptedPeer::write(fd, encodeHandshakeInit(21));
        ScriptedPeer::readExactly(fd, 12);
        ipcMsg_t header{1, 101, 5, 0, 21, 10};
        Bytes bytes = encodeHandshakeComplete(21);
        const Bytes frame = encodeFrame(header, Bytes(10, 1).data());
        bytes.insert(bytes.end(), frame.begin(), frame.begin() + 48 + 4);
        ScriptedPeer::write(fd, bytes);
        release.get_future().wait();
    });
    StatusLog status;
    ConnectOptions options = fastOptions(path);
    options.frameStallLimit = 50ms;
    RuxIpcClientSession* self = nullptr;
    options.afterHandshake = [&self] { self->waitForReceivers(); };
    RuxIpcClientSession session(PROCESS_ID_CLIENT_101, false, options);
    self = &session;
    session.connectToServer(reportTo(status));
    release.set_value();
    EXPECT_EQ(status.get(), (std::vector<bool>{true, false}));
    EXPECT_EQ(session.socketFd(), -1);
    EXPECT_EQ(prio(capture, "Frame stalled: 4 of 10 payload bytes in 50 ms"), 6) << capture.dump();
    EXPECT_NE(prio(capture, "handleSessionEnd for session 21"), -1);
    EXPECT_FALSE(capture.contains("No MessageConstructor"));
}

// --- without a service --------------------------------------------------------------

// No listener: every attempt, then one false. The system's numbers are the defaults.
TEST(SessionConnectTest, NoListenerGivesEveryAttemptThenOneFalse) {
    EXPECT_EQ(ConnectOptions{}.maxAttempts, 50);
    EXPECT_EQ(ConnectOptions{}.retryDelay, std::chrono::microseconds(100000));
    LogCapture capture;
    StatusLog status;
    RuxIpcClientSession session(PROCESS_ID_CLIENT_101, false, fastOptions(uniquePath(), 4));
    session.connectToServer(reportTo(status));
    EXPECT_EQ(status.get(), std::vector<bool>{false});
    EXPECT_EQ(capture.matching("Connect ret: -1").size(), 4u);
    EXPECT_EQ(capture.matching("Connect fail: Max retry reached!!").size(), 1u);
    EXPECT_EQ(prio(capture, "Connect fail: Max retry reached!!"), 6);
    EXPECT_EQ(session.socketFd(), -1);
}

TEST(SessionConnectTest, CleanupDuringRetriesStopsThemWithoutAStatus) {
    LogCapture capture;
    StatusLog status;
    ConnectOptions options;
    options.socketPath = uniquePath();  // nobody listens: 50 x 100 ms unless stopped
    auto session = std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, true, options);
    session->connectToServer(reportTo(status));
    ASSERT_TRUE(capture.waitForText("Connect ret: -1"));
    auto done = std::async(std::launch::async, [&] { session->cleanup(); });
    ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(capture.waitForText("Connect fail: mThreadSemaphore.increase"));
    EXPECT_NE(prio(capture, "Connect fail: mSocketFd is -1; break"), -1);
    EXPECT_LT(countEndingWith(capture, "Connect ret: -1"), 50u);
    session.reset();
    EXPECT_TRUE(status.get().empty());
}

TEST(SessionConnectTest, SessionBuiltAroundASocketClosesItWithoutWaiting) {
    LogCapture capture;
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    {
        RuxIpcSession session(fds[0], 77, PROCESS_ID_SERVICE, PROCESS_ID_CLIENT_101, false);
        auto done = std::async(std::launch::async, [&] { session.cleanup(); });
        ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
        EXPECT_EQ(session.socketFd(), -1);
    }
    EXPECT_TRUE(ScriptedPeer::seesClose(fds[1]));
    EXPECT_NE(prio(capture, "closing socket Fd " + std::to_string(fds[0])), -1);
    ::close(fds[1]);
}

}  // namespace
