// The socket layer over real socket pairs: framed sends, the receiver thread, the
// registry's keys, and what a peer that misbehaves or vanishes leads to.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using rux::test::LogCapture;
using rux::test::LogLine;

struct Frame {
    ipcMsg_t header;
    Bytes payload;
};

class RecordingHandler : public ProcessHandler {
public:
    void handleMsg(ipcMsg_t* msg) override {
        std::lock_guard<std::mutex> lock(mutex);
        frames.push_back({*msg, Bytes(ipcPayload(msg), ipcPayload(msg) + msg->length)});
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
    std::vector<Frame> frames;
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

TEST(SocketRegistryTest, SendMsgWritesOneByteExactFrame) {
    LogCapture capture;
    SocketPair pair;
    RecordingHandler handler;
    ASSERT_TRUE(registerSocket(7, 42, pair.local, handler));
    EXPECT_NE(
        capture.findEndingWith("id: 0x7, sessionId: 42, sockFd: " + std::to_string(pair.local))
            .priority,
        -1);

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
    EXPECT_NE(capture.findEndingWith("dstProcessId: 0x7, sessionId: 42").priority, -1);
    EXPECT_NE(capture.findEndingWith("send: length: 3").priority, -1);
    retire(7, 42, pair, handler);
}

TEST(SocketRegistryTest, ReceiverDeliversFramesInOrderAndZeroLengthWithEmptyPayload) {
    SocketPair pair;
    RecordingHandler handler;
    ASSERT_TRUE(registerSocket(8, 1, pair.local, handler));
    pair.writeRemote(frameBytes(1, 101, 4, 0, 1, {}));
    pair.writeRemote(frameBytes(1, 101, 5, 3, 1, {0xDE, 0xAD}));
    ASSERT_TRUE(handler.waitFrames(2));
    {
        std::lock_guard<std::mutex> lock(handler.mutex);
        EXPECT_EQ(handler.frames[0].header.msgId, 4u);
        EXPECT_EQ(handler.frames[0].header.length, 0u);
        EXPECT_TRUE(handler.frames[0].payload.empty());
        EXPECT_EQ(handler.frames[1].header.msgId, 5u);
        EXPECT_EQ(handler.frames[1].header.subsystemId, 3u);
        EXPECT_EQ(handler.frames[1].header.srcProcessId, 1u);
        EXPECT_EQ(handler.frames[1].payload, (Bytes{0xDE, 0xAD}));
    }
    retire(8, 1, pair, handler);
    EXPECT_TRUE(handler.ends.empty());
}

// The peer closes after `cut` bytes of a frame with a 10-byte payload, for every cut.
TEST(SocketRegistryTest, FrameCutShortAtAnyOffsetEndsTheSessionWithItsLogLine) {
    const Bytes frame = frameBytes(1, 101, 5, 0, 42, Bytes(10, 0x5A));
    for (size_t cut = 0; cut < frame.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        LogCapture capture;
        SocketPair pair;
        RecordingHandler handler;
        ASSERT_TRUE(registerSocket(9, 42, pair.local, handler));
        if (cut > 0) pair.writeRemote(Bytes(frame.begin(), frame.begin() + cut));
        pair.closeRemote();
        ASSERT_TRUE(handler.waitEnds(1));
        handler.waitForReceivers();
        EXPECT_EQ(handler.ends, std::vector<unsigned int>{42});
        EXPECT_TRUE(handler.frames.empty());
        if (cut < kIpcHeaderSize) {
            EXPECT_NE(capture.findEndingWith("Error 1st recv").priority, -1) << capture.dump();
        } else {
            const LogLine line = capture.findEndingWith(
                "Unexpected data received: expected size: 10, received size: " +
                std::to_string(cut - kIpcHeaderSize));
            EXPECT_EQ(line.priority, 6) << capture.dump();
        }
        EXPECT_NE(
            capture.findEndingWith("Cleaning up session 42, socket " + std::to_string(pair.local))
                .priority,
            -1);
        EXPECT_NE(capture.findEndingWith("Notifying session 42").priority, -1);
        EXPECT_EQ(registeredFd(9, 42), -1);
    }
}

TEST(SocketRegistryTest, RegisteringTheSameKeyTwiceKeepsTheFirst) {
    SocketPair first, second;
    RecordingHandler handler1, handler2;
    ASSERT_TRUE(registerSocket(3, 3, first.local, handler1));
    EXPECT_FALSE(registerSocket(3, 3, second.local, handler2));
    EXPECT_EQ(registeredFd(3, 3), first.local);

    unsigned char payload[] = {1};
    ASSERT_TRUE(ProcessUtilsWrapper::sendMsg(payload, 1, 5, 0, 1, 3, 3));
    EXPECT_EQ(first.readRemote(kIpcHeaderSize + 1).size(), kIpcHeaderSize + 1);
    Bytes none(1);
    EXPECT_EQ(::recv(second.remote, none.data(), 1, MSG_DONTWAIT), -1);

    // Only the first socket has a receiver.
    first.writeRemote(frameBytes(1, 3, 5, 0, 3, {}));
    second.writeRemote(frameBytes(1, 3, 5, 0, 3, {}));
    ASSERT_TRUE(handler1.waitFrames(1));
    retire(3, 3, first, handler1);
    handler2.waitForReceivers();
    EXPECT_TRUE(handler2.frames.empty());
}

TEST(SocketRegistryTest, RegisterRefusesDescriptorsBelowOne) {
    RecordingHandler handler;
    EXPECT_FALSE(registerSocket(4, 4, 0, handler));
    EXPECT_FALSE(registerSocket(4, 4, -1, handler));
    EXPECT_EQ(registeredFd(4, 4), -1);
}

TEST(SocketRegistryTest, SendIpcFailures) {
    LogCapture capture;
    EXPECT_FALSE(sendIpc(nullptr));
    EXPECT_EQ(capture.findEndingWith("data null").priority, 6);

    // Nobody registered under the destination: a quiet false.
    capture.clear();
    ipcMsg_t header{1, 55, 5, 0, 55, 0};
    EXPECT_FALSE(sendIpc(&header));
    EXPECT_FALSE(capture.contains("send: length"));

    // A peer that stopped reading: EPIPE is an error return, not SIGPIPE.
    SocketPair pair;
    RecordingHandler handler;
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

TEST(SocketRegistryTest, DeregisteredSocketEndsWithoutASessionEnd) {
    LogCapture capture;
    SocketPair pair;
    RecordingHandler handler;
    ASSERT_TRUE(registerSocket(10, 2, pair.local, handler));
    deregisterSocket(10, 2);
    EXPECT_EQ(registeredFd(10, 2), -1);
    std::vector<std::string> texts;
    for (auto& l : capture.matching("deregister"))
        texts.push_back(l.text.substr(l.text.find(' ') + 1));
    EXPECT_EQ(texts,
              (std::vector<std::string>{"deregisterSocket: ENTER", "deregister socket debug log",
                                        "deregisterSocket: EXIT"}));
    // The caller's descriptor is untouched: it still reaches the peer.
    ASSERT_EQ(::send(pair.local, "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(pair.readRemote(1), Bytes{'x'});
    ::shutdown(pair.local, SHUT_RDWR);
    handler.waitForReceivers();
    EXPECT_TRUE(handler.ends.empty());
    EXPECT_TRUE(capture.waitForText("ipc recv error: "));
}

TEST(SocketRegistryTest, RegProcessFixesTheIdentityOnceAndRegistersSockets) {
    LogCapture capture;
    EXPECT_EQ(getAssignedProcessId(), ~0UL);
    EXPECT_EQ(getAssignedProcessName(), "UNKNOWN");
    RecordingHandler handler;
    EXPECT_TRUE(regProcess(1, "rux-service", 5, "nobody", -1, handler));
    EXPECT_EQ(getAssignedProcessId(), 1u);
    EXPECT_EQ(getAssignedProcessName(), "rux-service");
    EXPECT_NE(capture.findEndingWith("registered: rux-service").priority, -1);
    EXPECT_FALSE(capture.contains("child listening"));

    SocketPair pair;
    EXPECT_TRUE(regProcess(101, "second", 6, "client-101", pair.local, handler));
    EXPECT_EQ(getAssignedProcessId(), 1u);
    EXPECT_EQ(getAssignedProcessName(), "rux-service");
    EXPECT_EQ(registeredFd(101, 6), pair.local);
    EXPECT_NE(
        capture.findEndingWith("child listening to sock: " + std::to_string(pair.local)).priority,
        -1);
    pair.writeRemote(frameBytes(101, 1, 5, 0, 6, {7}));
    ASSERT_TRUE(handler.waitFrames(1));
    retire(101, 6, pair, handler);
}

TEST(SocketRegistryTest, IpcReceiverRunsOnTheCallingThread) {
    SocketPair pair;
    RecordingHandler handler;
    auto loop = std::async(std::launch::async, [&] { ipcReceiver(pair.local, handler); });
    pair.writeRemote(frameBytes(1, 2, 3, 4, 5, {9, 9}));
    ASSERT_TRUE(handler.waitFrames(1));
    pair.closeRemote();
    ASSERT_EQ(loop.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(handler.frames[0].payload, (Bytes{9, 9}));
    EXPECT_TRUE(handler.ends.empty());  // it was never registered
}

TEST(SocketRegistryTest, DefaultHandlerLogsAndDropsFrames) {
    LogCapture capture;
    ProcessHandler handler;
    handler.handleMsg(nullptr);
    EXPECT_EQ(capture.findEndingWith("msg null").priority, 6);
    ipcMsg_t frame{101, 7, 5, 0, 1, 0};
    handler.handleMsg(&frame);
    EXPECT_EQ(capture.findEndingWith("7: dropping IPC from 101").priority, 3);
}

}  // namespace
