// The socket layer over real socket pairs: framed sends, the receiver thread, the
// registry's keys, and what a peer that misbehaves or vanishes leads to.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "SocketPair.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using rux::test::LogCapture;
using rux::test::SocketPair;

// Every frame it was handed, whole (header and payload), and every session end.
class RecordingHandler : public ProcessHandler {
public:
    explicit RecordingHandler(std::chrono::milliseconds stallLimit = kDefaultFrameStallLimit)
        : ProcessHandler(stallLimit) {}
    void handleMsg(ipcMsg_t* msg) override {
        const auto* bytes = reinterpret_cast<const uint8_t*>(msg);
        frames.put(Bytes(bytes, bytes + kIpcHeaderSize + msg->length));
    }
    void handleSessionEnd(unsigned int sessionId) override { ends.put(sessionId); }

    rux::test::Inbox<Bytes> frames;
    rux::test::Inbox<unsigned int> ends;
};

// Ends a registration the way a session does: forget it, shut the socket down, wait.
void retire(unsigned long pid, unsigned int sid, SocketPair& pair, ProcessHandler& handler) {
    deregisterSocket(pid, sid);
    ::shutdown(pair.local, SHUT_RDWR);
    handler.waitForReceivers();
}

Bytes frameBytes(uint64_t src, uint64_t dst, uint64_t msgId, uint64_t subsystemId,
                 uint64_t sessionId, const Bytes& payload) {
    return encodeFrame(ipcMsg_t{src, dst, msgId, subsystemId, sessionId, payload.size()},
                       payload.data());
}

int registeredFd(unsigned long pid, unsigned long sid) {
    return getProcessUtilsGlobals()->registeredFd(pid, sid);
}

class SocketRegistryTest : public ::testing::Test {
protected:
    LogCapture capture;
    SocketPair pair;
    RecordingHandler handler;
};

// Out: a frame with the caller's fields in their places. In: frames in order, a
// zero-length one, and one of exactly the receive limit, whole.
TEST_F(SocketRegistryTest, FramesTravelBothWaysWhole) {
    ASSERT_TRUE(registerSocket(7, 42, pair.local, handler));
    unsigned char payload[] = {'h', 'i', '!'};
    ASSERT_TRUE(ProcessUtilsWrapper::sendMsg(payload, 3, 5, 9, 101, 7, 42));
    const Bytes out = frameBytes(101, 7, 5, 9, 42, {'h', 'i', '!'});
    EXPECT_EQ(pair.read(out.size()), out);

    Bytes large(kMaxReceivedPayload);
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 7 + i / 251);
    const std::vector<Bytes> in = {frameBytes(1, 101, 4, 0, 42, {}),
                                   frameBytes(1, 101, 5, 3, 42, {0xDE, 0xAD}),
                                   frameBytes(1, 101, 6, 0, 42, large)};
    for (const Bytes& frame : in) pair.write(frame);
    ASSERT_TRUE(handler.frames.waitFor(3));
    retire(7, 42, pair, handler);
    EXPECT_TRUE(handler.frames.get() == in) << "frames differ";
    EXPECT_TRUE(handler.ends.get().empty());
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
        cases.push_back(
            {cut(small, n), true, n < kIpcHeaderSize ? "Error 1st recv" : received(10, n)});
    for (size_t n : {kIpcHeaderSize + 65536, large.size() - 1})
        cases.push_back({cut(large, n), true, received(large.size() - kIpcHeaderSize, n)});
    cases.push_back({cut(small, 20), false, "Frame stalled: 20 of 48 header bytes in 50 ms"});
    cases.push_back({cut(small, 52), false, "Frame stalled: 4 of 10 payload bytes in 50 ms"});
    for (uint64_t length :
         {kMaxReceivedPayload + 1, uint64_t{1} << 30, uint64_t{1} << 36, ~uint64_t{0}}) {
        const ipcMsg_t header{1, 101, 5, 0, 42, length};
        const auto* raw = reinterpret_cast<const uint8_t*>(&header);
        cases.push_back(
            {Bytes(raw, raw + kIpcHeaderSize), false,
             "Received data size " + std::to_string(length) + " exceeds the limit of 1048576"});
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
        if (!c.bytes.empty()) pair.write(c.bytes);
        if (c.close) pair.closePeer();
        ASSERT_TRUE(handler.ends.waitFor(1));
        handler.waitForReceivers();
        EXPECT_EQ(handler.ends.get(), std::vector<unsigned int>{42});
        EXPECT_TRUE(handler.frames.get().empty());
        EXPECT_EQ(capture.findEndingWith(c.line).priority, 6) << capture.dump();
        EXPECT_EQ(registeredFd(9, 42), -1);
    }
    idle.write(frameBytes(1, 101, 5, 0, 1, {2}));
    ASSERT_TRUE(idleHandler.frames.waitFor(1));
    retire(9, 1, idle, idleHandler);
    EXPECT_TRUE(idleHandler.ends.get().empty());
}

// A taken key, descriptor 0 or -1: refused, and the first registration stands.
TEST_F(SocketRegistryTest, RegisterRefusesATakenKeyAndDescriptorsBelowOne) {
    SocketPair second;
    RecordingHandler handler2;
    EXPECT_FALSE(registerSocket(4, 4, 0, handler));
    EXPECT_FALSE(registerSocket(4, 4, -1, handler));
    EXPECT_EQ(registeredFd(4, 4), -1);
    ASSERT_TRUE(registerSocket(3, 3, pair.local, handler));
    EXPECT_FALSE(registerSocket(3, 3, second.local, handler2));
    EXPECT_EQ(registeredFd(3, 3), pair.local);
    retire(3, 3, pair, handler);
}

// Deregistration leaves the caller's descriptor alone and reports no session end.
TEST_F(SocketRegistryTest, DeregisteredSocketEndsWithoutASessionEnd) {
    ASSERT_TRUE(registerSocket(10, 2, pair.local, handler));
    deregisterSocket(10, 2);
    EXPECT_EQ(registeredFd(10, 2), -1);
    ASSERT_EQ(::send(pair.local, "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(pair.read(1), Bytes{'x'});
    ::shutdown(pair.local, SHUT_RDWR);
    handler.waitForReceivers();
    EXPECT_TRUE(handler.ends.get().empty());
    EXPECT_TRUE(capture.waitForText("ipc recv error: "));
}

}  // namespace
