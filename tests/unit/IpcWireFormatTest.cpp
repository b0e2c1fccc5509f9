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

Bytes le64(uint64_t v) {
    Bytes b;
    for (int i = 0; i < 8; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return b;
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

TEST(IpcFrameTest, HeaderIsSixLittleEndianWordsThenThePayload) {
    ipcMsg_t header{};
    header.srcProcessId = 101;
    header.dstProcessId = 1;
    header.msgId = 5;
    header.subsystemId = 0x0102030405060708ULL;
    header.sessionId = 0xCAFE;
    header.length = 3;
    const Bytes payload = {0xAA, 0xBB, 0xCC};
    const Bytes expected = concat(
        {le64(101), le64(1), le64(5), le64(0x0102030405060708ULL), le64(0xCAFE), le64(3), payload});
    EXPECT_EQ(encodeFrame(header, payload.data()), expected);

    ipcMsg_t decoded{};
    ASSERT_TRUE(decodeFrameHeader(expected.data(), expected.size(), decoded));
    EXPECT_EQ(decoded.srcProcessId, 101u);
    EXPECT_EQ(decoded.dstProcessId, 1u);
    EXPECT_EQ(decoded.msgId, 5u);
    EXPECT_EQ(decoded.subsystemId, 0x0102030405060708ULL);
    EXPECT_EQ(decoded.sessionId, 0xCAFEu);
    EXPECT_EQ(decoded.length, 3u);
}

TEST(IpcFrameTest, ZeroLengthFrameIsTheHeaderAlone) {
    ipcMsg_t header{};
    header.msgId = 4;
    EXPECT_EQ(encodeFrame(header, nullptr),
              concat({le64(0), le64(0), le64(4), le64(0), le64(0), le64(0)}));
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
        const bool ok = decodeHandshake(resp.data(), size, packet);
        EXPECT_EQ(ok, size == 8 || size == 12) << size;
        if (size == 12) {
            EXPECT_EQ(packet.type, HANDSHAKE_RESP);
            EXPECT_EQ(packet.sessionId, 9u);
            EXPECT_EQ(packet.processId, 104u);
        }
        if (size == 8) {
            EXPECT_EQ(packet.processId, 0u);
        }
    }
}

TEST(SendBlobMessageTest, SerialisesTypeLittleEndianThenBlob) {
    SendBlobMessage out(static_cast<RuxSdkType>(4), {0x0A, 0x0B});
    EXPECT_EQ(out.serialize(), (Bytes{0x04, 0x00, 0x00, 0x00, 0x0A, 0x0B}));

    SendBlobMessage in;
    ASSERT_TRUE(in.deserialize({0x04, 0x00, 0x00, 0x00, 0x0A, 0x0B}));
    EXPECT_EQ(in.sdkType, 4u);
    EXPECT_EQ(in.blob, (Bytes{0x0A, 0x0B}));

    SendBlobMessage wide(static_cast<RuxSdkType>(0x0A0B0C0D), {});
    EXPECT_EQ(wide.serialize(), (Bytes{0x0D, 0x0C, 0x0B, 0x0A}));
}

TEST(SendBlobMessageTest, PayloadShorterThanTheTypeIsRejectedAndLogged) {
    rux::test::LogCapture capture;
    for (size_t size = 0; size < 4; ++size) {
        SendBlobMessage msg(static_cast<RuxSdkType>(9), {0x01});
        EXPECT_FALSE(msg.deserialize(Bytes(size, 0xFF))) << size;
        EXPECT_EQ(msg.sdkType, 9u);
        EXPECT_EQ(msg.blob, Bytes{0x01});
        EXPECT_NE(
            capture.findEndingWith("SendBlobMessage too short: " + std::to_string(size) + " bytes")
                .priority,
            -1);
    }
    SendBlobMessage empty;
    EXPECT_TRUE(empty.deserialize({7, 0, 0, 0}));
    EXPECT_EQ(empty.sdkType, 7u);
    EXPECT_TRUE(empty.blob.empty());
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
        {std::make_shared<SendBlobMessage>(static_cast<RuxSdkType>(5), payload),
         5,
         "SendBlobMessage",
         {5, 0, 0, 0, 1, 2, 3}},
    };
    for (auto& c : cases) {
        EXPECT_EQ(c.msg->id, c.id) << c.name;
        EXPECT_EQ(c.msg->name, c.name);
        EXPECT_EQ(c.msg->serialize(), c.serialized) << c.name;
    }
}

TEST(SocketPathTest, HostBuildsHonourTheEnvironment) {
    ::unsetenv("RUX_SOCKET_PATH");
    EXPECT_EQ(socketPath(), "/dev/socket/rux");
    ::setenv("RUX_SOCKET_PATH", "", 1);
    EXPECT_EQ(socketPath(), "/dev/socket/rux");
    ::setenv("RUX_SOCKET_PATH", "/tmp/elsewhere.sock", 1);
    EXPECT_EQ(socketPath(), "/tmp/elsewhere.sock");
    ::unsetenv("RUX_SOCKET_PATH");
}

}  // namespace
