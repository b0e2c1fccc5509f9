// The socket layer over real socket pairs: framed sends, the receiver thread, the
// registry's keys, and what a peer that misbehaves or vanishes leads to.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using rux::test::LogCapture;

// A frame as a short string: "src 1 dst 101 msg 5 sub 3 sid 1: de ad".
std::string show(const ipcMsg_t& h) {
    std::string s = "src " + std::to_string(h.srcProcessId) + " dst " +
                    std::to_string(h.dstProcessId) + " msg " + std::to_string(h.msgId) + " sub " +
                    std::to_string(h.subsystemId) + " sid " + std::to_string(h.sessionId) + ":";
    char hex[4];
    for (size_t i = 0; i < h.length; ++i) {
        snprintf(hex, sizeof hex, " %02x", ipcPayload(&h)[i]);
        s += hex;
    }
    return s;
}

class RecordingHandler : public ProcessHandler {
public:
    explicit RecordingHandler(std::chrono::milliseconds stallLimit = kDefaultFrameStallLimit)
        : ProcessHandler(stallLimit) {}
    void handleMsg(ipcMsg_t* msg) override {
        std::lock_guard<std::mutex> lock(mutex);
        frames.push_back(show(*msg));
        changed.notify_all();
    }
    void handleSessionEnd(unsigned int sessionId) override {
        std::lock_guard<std::mutex> lock(mutex);
        ends.push_back(sessionId);
        changed.notify_all();
    }
    bool waitFrames(size_t n) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return frames.size() >= n; });
    }
    bool waitEnds(size_t n) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return ends.size() >= n; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> frames;
    std::vector<unsigned int> ends;
};

// A connected pair: `local` is registered, the test plays the peer on `remote`.
struct SocketPair {
    SocketPair() {
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        local = fds[0];
        remote = fds[1];
    }
    ~SocketPair() {
        if (local >= 0) ::close(local);
        if (remote >= 0) ::close(remote);
    }
    void closeRemote() {
        ::close(remote);
        remote = -1;
    }
    void writeRemote(const Bytes& bytes) const {
        ASSERT_EQ(::send(remote, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    Bytes readRemote(size_t n) const {
        Bytes out(n);
        const ssize_t got = ::recv(remote, out.data(), n, MSG_WAITALL);
        out.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return out;
    }
    int local = -1;
    int remote = -1;
};

// Ends a registration the way a session does: forget it, shut the socket down, wait.
void retire(unsigned long pid, unsigned int sid, SocketPair& pair, ProcessHandler& handler) {
    deregisterSocket(pid, sid);
    ::shutdown(pair.local, SHUT_RDWR);
    handler.waitForReceivers();
}

Bytes frameBytes(uint64_t src, uint64_t dst, uint64_t msgId, uint64_t subsystemId,
                 uint64_t sessionId, const Bytes& payload) {
    ipcMsg_t header{src, dst, msgId, subsystemId, sessionId, payload.size()};
    return encodeFrame(header, payload.data());
}

int registeredFd(unsigned long pid, unsigned long sid) {
    return getProcessUtilsGlobals()->registeredFd(pid, sid);
}

bool logged(const LogCapture& capture, const std::string& suffix) {
    return capture.findEndingWith(suffix).priority != -1;
}

class SocketRegistryTest : public ::testing::Test {
protected:
    LogCapture capture;
    SocketPair pair;
    RecordingHandler handler;
};

// Out: one byte-exact frame. In: frames in order, a zero-length one with no payload, and
// one of exactly the receive limit, whole.
TEST_F(SocketRegistryTest, FramesTravelBothWaysByteExact) {
    ASSERT_TRUE(registerSocket(7, 42, pair.local, handler));
    EXPECT_TRUE(logged(capture, "id: 0x7, sessionId: 42, sockFd: " + std::to_string(pair.local)));

    unsigned char payload[] = {'h', 'i', '!'};
    ASSERT_TRUE(ProcessUtilsWrapper::sendMsg(payload, 3, 5, 9, 101, 7, 42));
    const Bytes expected = {101, 0,   0,  0, 0, 0, 0, 0,  // srcProcessId
                            7,   0,   0,  0, 0, 0, 0, 0,  // dstProcessId
                            5,   0,   0,  0, 0, 0, 0, 0,  // msgId
                            9,   0,   0,  0, 0, 0, 0, 0,  // subsystemId
                            42,  0,   0,  0, 0, 0, 0, 0,  // sessionId
                            3,   0,   0,  0, 0, 0, 0, 0,  // length
                            'h', 'i', '!'};
    EXPECT_EQ(pair.readRemote(expected.size()), expected);
    EXPECT_TRUE(logged(capture, "dstProcessId: 0x7, sessionId: 42"));
    EXPECT_TRUE(logged(capture, "send: length: 3"));

    Bytes large(kMaxReceivedPayload);
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 7 + i / 251);
    const Bytes largeFrame = frameBytes(1, 101, 6, 0, 42, large);
    pair.writeRemote(frameBytes(1, 101, 4, 0, 42, {}));
    pair.writeRemote(frameBytes(1, 101, 5, 3, 42, {0xDE, 0xAD}));
    pair.writeRemote(largeFrame);
    ASSERT_TRUE(handler.waitFrames(3));
    retire(7, 42, pair, handler);
    Bytes aligned(largeFrame.size() + 8);  // for show()
    std::memcpy(aligned.data(), largeFrame.data(), largeFrame.size());
    EXPECT_EQ(handler.frames,
              (std::vector<std::string>{"src 1 dst 101 msg 4 sub 0 sid 42:",
                                        "src 1 dst 101 msg 5 sub 3 sid 42: de ad",
                                        show(*reinterpret_cast<const ipcMsg_t*>(aligned.data()))}));
    EXPECT_TRUE(handler.ends.empty());
}

// A peer that misbehaves in a frame ends the session with the line naming what happened
// and delivers nothing: it closes after some bytes (every cut of a short frame, two of a
// long one), stops after some and keeps the socket open (stall limit 50 ms), or announces
// a length past the limit (never allocated nor read). A connection idle between frames
// for far longer than the stall limit is not ended and still carries a frame after.
TEST_F(SocketRegistryTest, MisbehavingPeerEndsTheSessionWithItsLine) {
    struct Case {
        Bytes bytes;
        bool close;
        std::string line;
    };
    const Bytes small = frameBytes(1, 101, 5, 0, 42, Bytes(10, 0x5A));
    const Bytes large = frameBytes(1, 101, 5, 0, 42, Bytes(3 * 65536 + 5, 0xA5));
    auto cut = [](const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); };
    auto received = [](size_t expected, size_t n) {
        return "Unexpected data received: expected size: " + std::to_string(expected) +
               ", received size: " + std::to_string(n - kIpcHeaderSize);
    };
    std::vector<Case> cases;
    for (size_t n = 0; n < small.size(); ++n)
        cases.push_back({cut(small, n), true, n < kIpcHeaderSize ? "Error 1st recv" : received(10, n)});
    for (size_t n : {kIpcHeaderSize + 65536, large.size() - 1})
        cases.push_back({cut(large, n), true, received(large.size() - kIpcHeaderSize, n)});
    cases.push_back({cut(small, 20), false, "Frame stalled: 20 of 48 header bytes in 50 ms"});
    cases.push_back({cut(small, 52), false, "Frame stalled: 4 of 10 payload bytes in 50 ms"});
    for (uint64_t length : {kMaxReceivedPayload + 1, uint64_t{1} << 30, uint64_t{1} << 36,
                            ~uint64_t{0}}) {
        const ipcMsg_t header{1, 101, 5, 0, 42, length};
        const auto* raw = reinterpret_cast<const uint8_t*>(&header);
        cases.push_back({Bytes(raw, raw + kIpcHeaderSize), false,
                         "Received data size " + std::to_string(length) +
                             " exceeds the limit of 1048576"});
    }
    SocketPair idle;
    RecordingHandler idleHandler(50ms);
    ASSERT_TRUE(registerSocket(9, 1, idle.local, idleHandler));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line + (c.close ? ", closed" : ", kept open"));
        capture.clear();
        SocketPair pair;
        RecordingHandler handler(50ms);
        ASSERT_TRUE(registerSocket(9, 42, pair.local, handler));
        if (!c.bytes.empty()) pair.writeRemote(c.bytes);
        if (c.close) pair.closeRemote();
        ASSERT_TRUE(handler.waitEnds(1));
        handler.waitForReceivers();
        EXPECT_EQ(handler.ends, std::vector<unsigned int>{42});
        EXPECT_TRUE(handler.frames.empty());
        EXPECT_EQ(capture.findEndingWith(c.line).priority, 6) << capture.dump();
        EXPECT_TRUE(logged(capture, "Cleaning up session 42, socket " + std::to_string(pair.local)));
        EXPECT_EQ(registeredFd(9, 42), -1);
    }
    idle.writeRemote(frameBytes(1, 101, 5, 0, 1, {2}));
    ASSERT_TRUE(idleHandler.waitFrames(1));
    retire(9, 1, idle, idleHandler);
    EXPECT_TRUE(idleHandler.ends.empty());
}

// A taken key, descriptor 0 or -1: refused, and only the first socket sends and receives.
TEST_F(SocketRegistryTest, RegisterRefusesATakenKeyAndDescriptorsBelowOne) {
    SocketPair second;
    RecordingHandler handler2;
    EXPECT_FALSE(registerSocket(4, 4, 0, handler));
    EXPECT_FALSE(registerSocket(4, 4, -1, handler));
    EXPECT_EQ(registeredFd(4, 4), -1);
    ASSERT_TRUE(registerSocket(3, 3, pair.local, handler));
    EXPECT_FALSE(registerSocket(3, 3, second.local, handler2));
    EXPECT_EQ(registeredFd(3, 3), pair.local);

    unsigned char payload[] = {1};
    ASSERT_TRUE(ProcessUtilsWrapper::sendMsg(payload, 1, 5, 0, 1, 3, 3));
    EXPECT_EQ(pair.readRemote(kIpcHeaderSize + 1).size(), kIpcHeaderSize + 1);
    Bytes none(1);
    EXPECT_EQ(::recv(second.remote, none.data(), 1, MSG_DONTWAIT), -1);

    pair.writeRemote(frameBytes(1, 3, 5, 0, 3, {}));
    second.writeRemote(frameBytes(1, 3, 5, 0, 3, {}));
    ASSERT_TRUE(handler.waitFrames(1));
    retire(3, 3, pair, handler);
    handler2.waitForReceivers();
    EXPECT_TRUE(handler2.frames.empty());
}

TEST_F(SocketRegistryTest, SendIpcFailures) {
    EXPECT_FALSE(sendIpc(nullptr));
    EXPECT_EQ(capture.findEndingWith("data null").priority, 6);

    // Nobody registered under the destination: a quiet false.
    capture.clear();
    ipcMsg_t header{1, 55, 5, 0, 55, 0};
    EXPECT_FALSE(sendIpc(&header));
    EXPECT_FALSE(capture.contains("send: length"));

    // A peer that stopped reading: EPIPE is an error return, not SIGPIPE.
    ASSERT_TRUE(registerSocket(56, 56, pair.local, handler));
    ASSERT_EQ(::shutdown(pair.remote, SHUT_RD), 0);
    header.dstProcessId = 56;
    header.sessionId = 56;
    EXPECT_FALSE(sendIpc(&header));
    EXPECT_EQ(capture.findEndingWith("send: failure, errno: 32(Broken pipe)").priority, 6)
        << capture.dump();
    retire(56, 56, pair, handler);

    unsigned long length = 4;
    EXPECT_FALSE(ProcessUtilsWrapper::sendMsg(nullptr, length, 5, 0, 1, 56, 56));
}

TEST_F(SocketRegistryTest, DeregisteredSocketEndsWithoutASessionEnd) {
    ASSERT_TRUE(registerSocket(10, 2, pair.local, handler));
    deregisterSocket(10, 2);
    EXPECT_EQ(registeredFd(10, 2), -1);
    // The caller's descriptor is untouched: it still reaches the peer.
    ASSERT_EQ(::send(pair.local, "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(pair.readRemote(1), Bytes{'x'});
    ::shutdown(pair.local, SHUT_RDWR);
    handler.waitForReceivers();
    EXPECT_TRUE(handler.ends.empty());
    EXPECT_TRUE(capture.waitForText("ipc recv error: "));
}

TEST_F(SocketRegistryTest, RegProcessFixesTheIdentityOnceAndRegistersSockets) {
    EXPECT_EQ(getAssignedProcessId(), ~0UL);
    EXPECT_EQ(getAssignedProcessName(), "UNKNOWN");
    EXPECT_TRUE(regProcess(1, "rux-service", 5, "nobody", -1, handler));
    EXPECT_EQ(getAssignedProcessId(), 1u);
    EXPECT_EQ(getAssignedProcessName(), "rux-service");
    EXPECT_TRUE(logged(capture, "registered: rux-service"));
    EXPECT_FALSE(capture.contains("child listening"));

    EXPECT_TRUE(regProcess(101, "second", 6, "client-101", pair.local, handler));
    EXPECT_EQ(getAssignedProcessId(), 1u);
    EXPECT_EQ(getAssignedProcessName(), "rux-service");
    EXPECT_EQ(registeredFd(101, 6), pair.local);
    EXPECT_TRUE(logged(capture, "child listening to sock: " + std::to_string(pair.local)));
    pair.writeRemote(frameBytes(101, 1, 5, 0, 6, {7}));
    ASSERT_TRUE(handler.waitFrames(1));
    retire(101, 6, pair, handler);
}

TEST_F(SocketRegistryTest, DefaultHandlerLogsAndDropsFrames) {
    ProcessHandler plain;
    plain.handleMsg(nullptr);
    EXPECT_EQ(capture.findEndingWith("msg null").priority, 6);
    ipcMsg_t frame{101, 7, 5, 0, 1, 0};
    plain.handleMsg(&frame);
    EXPECT_EQ(capture.findEndingWith("7: dropping IPC from 101").priority, 3);
}

}  // namespace
