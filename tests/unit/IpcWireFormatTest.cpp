// Byte formats of the IPC transport: the frame header, the handshake packets and the
// SendBlobMessage payload, plus the message family and the socket path.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "ipc/HandshakePacket.h"
#include "ipc/IpcFrame.h"
#include "ipc/RuxIpcMessage.h"
#include "ipc/SocketPath.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;

// The little-endian words `words`, then `tail`.
Bytes le64s(std::initializer_list<uint64_t> words, const Bytes& tail = {}) {
    Bytes b;
    for (uint64_t v : words)
        for (int i = 0; i < 8; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
}

// Encoding is exact, and decoding the bytes gives back a header that encodes the same.
TEST(IpcFrameTest, HeaderIsSixLittleEndianWordsThenThePayload) {
    const Bytes payload = {0xAA, 0xBB, 0xCC};
    struct Case {
        ipcMsg_t header;
        const uint8_t* payload;
        Bytes expected;
    } cases[] = {
        {{101, 1, 5, 0x0102030405060708ULL, 0xCAFE, 3},
         payload.data(),
         le64s({101, 1, 5, 0x0102030405060708ULL, 0xCAFE, 3}, payload)},
        {{0, 0, 4, 0, 0, 0}, nullptr, le64s({0, 0, 4, 0, 0, 0})},  // zero length: header alone
    };
    for (const auto& c : cases) {
        EXPECT_EQ(encodeFrame(c.header, c.payload), c.expected);
        ipcMsg_t decoded{};
        ASSERT_TRUE(decodeFrameHeader(c.expected.data(), c.expected.size(), decoded));
        EXPECT_EQ(encodeFrame(decoded, c.payload), c.expected);
    }
}

TEST(IpcFrameTest, HeaderCutAtAnyOffsetDoesNotDecode) {
    const Bytes bytes(kIpcHeaderSize, 0x11);
    for (size_t cut = 0; cut < kIpcHeaderSize; ++cut) {
        ipcMsg_t header{};
        header.length = 77;
        EXPECT_FALSE(decodeFrameHeader(bytes.data(), cut, header)) << cut;
        EXPECT_EQ(header.length, 77u) << "untouched on failure, cut " << cut;
    }
    ipcMsg_t header{};
    EXPECT_FALSE(decodeFrameHeader(nullptr, 48, header));
    EXPECT_TRUE(decodeFrameHeader(bytes.data(), kIpcHeaderSize, header));
    EXPECT_EQ(header.length, 0x1111111111111111ULL);
}

TEST(HandshakePacketTest, PacketsAreThirtyTwoBitWords) {
    EXPECT_EQ(encodeHandshakeInit(0x01020304), (Bytes{1, 0, 0, 0, 4, 3, 2, 1}));
    EXPECT_EQ(encodeHandshakeResp(7, 101), (Bytes{2, 0, 0, 0, 7, 0, 0, 0, 101, 0, 0, 0}));
    EXPECT_EQ(encodeHandshakeComplete(7), (Bytes{3, 0, 0, 0, 7, 0, 0, 0}));
}

TEST(HandshakePacketTest, OnlyEightAndTwelveByteRecordsDecode) {
    const Bytes resp = encodeHandshakeResp(9, 104);
    for (size_t size = 0; size <= resp.size(); ++size) {
        HandshakePacket packet;
        EXPECT_EQ(decodeHandshake(resp.data(), size, packet), size == 8 || size == 12) << size;
        if (size == 8) {
            EXPECT_EQ(packet.processId, 0u);
        }
        if (size == 12) {
            EXPECT_EQ(packet.type, HANDSHAKE_RESP);
            EXPECT_EQ(packet.sessionId, 9u);
            EXPECT_EQ(packet.processId, 104u);
        }
    }
}

// Serialisation is pinned by the message family table below.
TEST(SendBlobMessageTest, DeserialisesTypeLittleEndianThenBlobAndRejectsShortPayloads) {
    rux::test::LogCapture capture;
    for (size_t size = 0; size < 4; ++size) {
        SendBlobMessage msg(static_cast<RuxSdkType>(9), {0x01});
        EXPECT_FALSE(msg.deserialize(Bytes(size, 0xFF))) << size;
        EXPECT_EQ(msg.sdkType, 9u);
        EXPECT_EQ(msg.blob, Bytes{0x01});
        const std::string line = "SendBlobMessage too short: " + std::to_string(size) + " bytes";
        EXPECT_NE(capture.findEndingWith(line).priority, -1);
    }
    for (auto [bytes, type, blob] :
         {std::tuple{Bytes{4, 0, 0, 0, 0x0A, 0x0B}, 4u, Bytes{0x0A, 0x0B}},
          {Bytes{0x0D, 0x0C, 0x0B, 0x0A}, 0x0A0B0C0Du, Bytes{}}}) {
        SendBlobMessage in;
        ASSERT_TRUE(in.deserialize(bytes));
        EXPECT_EQ(in.sdkType, type);
        EXPECT_EQ(in.blob, blob);
    }
}

TEST(RuxIpcMessageTest, FamilyIdsNamesAndSerialisation) {
    const Bytes payload = {1, 2, 3};
    struct Case {
        std::shared_ptr<RuxIpcMessage> msg;
        unsigned int id;
        const char* name;
        Bytes serialized;
    } cases[] = {
        {std::make_shared<RuxIpcConnectToServerMessage>(), 1, "RuxIpcConnectToServerMessage", {}},
        {std::make_shared<RuxIpcIncomingRawMessage>(2, 9, payload),
         2,
         "RuxIpcIncomingRawMessage",
         {}},
        {std::make_shared<RuxIpcRawMessage>(2, 9, payload), 3, "RuxIpcRawMessage", payload},
        {std::make_shared<RuxIpcSessionEndMessage>(), 4, "RuxIpcSessionEndMessage", {}},
        {std::make_shared<SendBlobMessage>(static_cast<RuxSdkType>(0x0A0B0C0D), payload), 5,
         "SendBlobMessage", Bytes{0x0D, 0x0C, 0x0B, 0x0A, 1, 2, 3}},
    };
    for (auto& c : cases) {
        EXPECT_EQ(c.msg->id, c.id) << c.name;
        EXPECT_EQ(c.msg->name, c.name);
        EXPECT_EQ(c.msg->serialize(), c.serialized) << c.name;
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
