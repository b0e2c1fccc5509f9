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

// Ends a registration the way a session does: forget it (at once), shut the socket down,
// wait.
void retire(unsigned long pid, unsigned int sid, SocketPair& pair, ProcessHandler& handler) {
    deregisterSocket(pid, sid);
    EXPECT_EQ(getProcessUtilsGlobals()->registeredFd(pid, sid), -1);
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

// A taken key, descriptor 0 or -1: refused, and the first registration stands. Out: a
// frame with the caller's fields in their places. In, all in one write: a zero-length
// frame, a short one and one of exactly the receive limit, whole and in order.
TEST_F(SocketRegistryTest, FramesTravelBothWaysWhole) {
    EXPECT_FALSE(registerSocket(7, 42, 0, handler));
    EXPECT_FALSE(registerSocket(7, 42, -1, handler));
    EXPECT_EQ(registeredFd(7, 42), -1);
    ASSERT_TRUE(registerSocket(7, 42, pair.local, handler));
    SocketPair second;
    RecordingHandler handler2;
    EXPECT_FALSE(registerSocket(7, 42, second.local, handler2));
    EXPECT_EQ(registeredFd(7, 42), pair.local);
    unsigned char payload[] = {'h', 'i', '!'};
    ASSERT_TRUE(ProcessUtilsWrapper::sendMsg(payload, 3, 5, 9, 101, 7, 42));
    const Bytes out = frameBytes(101, 7, 5, 9, 42, {'h', 'i', '!'});
    EXPECT_EQ(pair.read(out.size()), out);

    Bytes large(kMaxReceivedPayload);
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 7 + i / 251);
    const std::vector<Bytes> in = {frameBytes(1, 101, 4, 0, 42, {}),
                                   frameBytes(1, 101, 5, 3, 42, {0xDE, 0xAD}),
                                   frameBytes(1, 101, 6, 0, 42, large)};
    Bytes all;
    for (const Bytes& frame : in) all.insert(all.end(), frame.begin(), frame.end());
    pair.write(all);
    ASSERT_TRUE(handler.frames.waitFor(3));
    retire(7, 42, pair, handler);
    EXPECT_TRUE(handler.frames.get() == in) << "frames differ";
    EXPECT_TRUE(handler.ends.get().empty());
    // The key is free again: a service reusing a session id gets a receiver of its own.
    ASSERT_TRUE(registerSocket(7, 42, second.local, handler2));
    retire(7, 42, second, handler2);
}

// A peer that misbehaves in a frame ends the session with the line naming what happened
// and delivers nothing: it closes inside the header or the payload (of a short frame, and
// of one longer than the read-ahead), stops with the socket open (stall limit 50 ms), or
// announces a length past the limit (never allocated nor read). A connection idle between
// frames for longer than the stall limit is not ended and still carries a frame after.
TEST_F(SocketRegistryTest, MisbehavingPeerEndsTheSessionWithItsLine) {
    const Bytes small = frameBytes(1, 101, 5, 0, 42, Bytes(10, 0x5A));
    const Bytes large = frameBytes(1, 101, 5, 0, 42, Bytes(3 * 65536 + 5, 0xA5));
    auto cut = [](const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); };
    Bytes huge = cut(small, kIpcHeaderSize - 8);  // then the length word, all ones
    huge.resize(kIpcHeaderSize, 0xFF);
    const struct {
        Bytes bytes;
        bool close;
        std::string line;
    } cases[] = {
        {cut(small, 20), true, "Error 1st recv"},
        {cut(small, 52), true, "Unexpected data received: expected size: 10, received size: 4"},
        {cut(large, large.size() - 1), true,
         "Unexpected data received: expected size: 196613, received size: 196612"},
        {cut(small, 20), false, "Frame stalled: 20 of 48 header bytes in 50 ms"},
        {cut(small, 52), false, "Frame stalled: 4 of 10 payload bytes in 50 ms"},
        {huge, false, "Received data size 18446744073709551615 exceeds the limit of 1048576"},
    };
    SocketPair idle;
    RecordingHandler idleHandler(50ms);
    ASSERT_TRUE(registerSocket(9, 1, idle.local, idleHandler));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line + (c.close ? ", closed" : ", kept open"));
        capture.clear();
        SocketPair pair;
        RecordingHandler handler(50ms);
        ASSERT_TRUE(registerSocket(9, 42, pair.local, handler));
        pair.write(c.bytes);
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

}  // namespace
