// Byte formats of the IPC transport, and the socket path.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <tuple>
#include <vector>

#include "LogCapture.h"
#include "ipc/HandshakePacket.h"
#include "ipc/IpcFrame.h"
#include "ipc/RuxIpcMessage.h"
#include "ipc/SocketPath.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;

// Six little-endian 64-bit words, then the payload; decoding the header gives back what
// encodes the same.
TEST(IpcFrameTest, HeaderIsSixLittleEndianWordsThenThePayload) {
    Bytes frame;
    for (uint64_t word : {101ULL, 1ULL, 5ULL, 0x0102030405060708ULL, 0xCAFEULL, 3ULL})
        for (int i = 0; i < 8; ++i) frame.push_back(static_cast<uint8_t>(word >> (8 * i)));
    frame.insert(frame.end(), {0xAA, 0xBB, 0xCC});
    const uint8_t* payload = frame.data() + kIpcHeaderSize;
    EXPECT_EQ(encodeFrame(ipcMsg_t{101, 1, 5, 0x0102030405060708ULL, 0xCAFE, 3}, payload), frame);
    ipcMsg_t header{};
    ASSERT_TRUE(decodeFrameHeader(frame.data(), kIpcHeaderSize, header));
    EXPECT_EQ(encodeFrame(header, payload), frame);
}

// 32-bit little-endian words: type, session id and, in a response, the process id.
TEST(HandshakePacketTest, PacketsAreThirtyTwoBitWords) {
    EXPECT_EQ(encodeHandshakeInit(0x01020304), (Bytes{1, 0, 0, 0, 4, 3, 2, 1}));
    EXPECT_EQ(encodeHandshakeComplete(7), (Bytes{3, 0, 0, 0, 7, 0, 0, 0}));
    const Bytes resp = encodeHandshakeResp(9, 104);
    EXPECT_EQ(resp, (Bytes{2, 0, 0, 0, 9, 0, 0, 0, 104, 0, 0, 0}));
    for (size_t size : {8, 12}) {
        HandshakePacket p;
        ASSERT_TRUE(decodeHandshake(resp.data(), size, p));
        EXPECT_EQ(std::make_tuple(p.type, p.sessionId, p.processId),
                  std::make_tuple(uint32_t{HANDSHAKE_RESP}, 9u, size == 12 ? 104u : 0u));
    }
}

// sdkType as four little-endian bytes, then the blob. Fewer than four bytes are refused
// with their line and leave the message as it was.
TEST(SendBlobMessageTest, TypeLittleEndianThenTheBlob) {
    rux::test::LogCapture capture;
    const Bytes bytes = {0x0D, 0x0C, 0x0B, 0x0A, 1, 2};
    EXPECT_EQ(SendBlobMessage(static_cast<RuxSdkType>(0x0A0B0C0D), {1, 2}).serialize(), bytes);
    for (size_t size = 0; size <= bytes.size(); ++size) {
        SendBlobMessage msg(static_cast<RuxSdkType>(9), {7});
        const bool decoded = msg.deserialize(Bytes(bytes.begin(), bytes.begin() + size));
        EXPECT_EQ(decoded, size >= 4) << size;
        const auto expected =
            decoded ? std::make_pair(0x0A0B0C0Du, Bytes(bytes.begin() + 4, bytes.begin() + size))
                    : std::make_pair(9u, Bytes{7});
        EXPECT_EQ(std::make_pair(static_cast<unsigned>(msg.sdkType), msg.blob), expected) << size;
        const std::string line = "SendBlobMessage too short: " + std::to_string(size) + " bytes";
        EXPECT_EQ(capture.findEndingWith(line).priority, decoded ? -1 : 6) << size;
    }
}

TEST(SocketPathTest, HostBuildsHonourTheEnvironment) {
    for (auto [value, expected] : {std::pair<const char*, const char*>{nullptr, "/dev/socket/rux"},
                                   {"", "/dev/socket/rux"},
                                   {"/tmp/elsewhere.sock", "/tmp/elsewhere.sock"}}) {
        value ? ::setenv("RUX_SOCKET_PATH", value, 1) : ::unsetenv("RUX_SOCKET_PATH");
        EXPECT_EQ(socketPath(), expected);
    }
    ::unsetenv("RUX_SOCKET_PATH");
}

}  // namespace
