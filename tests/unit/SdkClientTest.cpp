// SdkClient: its client-type tables, and the singleton against the real serving side of
// the transport (RuxIpcServer on a Unix socket): connect on demand, SendBlobMessages
// both ways, shared sessions, service loss and reconnect, and teardown.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "SdkTestSupport.h"
#include "ipc/RuxIpcServer.h"
#include "sdk/SdkClient.h"

namespace {

using rux::ipc::ProcessId;
using rux::ipc::RuxIpcServer;
using rux::ipc::RuxIpcServerClient;
using rux::ipc::RuxSdkType;
using rux::sdk::RuxSdkClientType;
using rux::sdk::SdkClient;
using rux::sdk::SdkClientBase;
using rux::sdk::SdkClientEvent;
using rux::test::Inbox;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;
using namespace std::chrono_literals;

RuxSdkClientType type(int t) {
    return static_cast<RuxSdkClientType>(t);
}

// --- tables ----------------------------------------------------------------------------

class ClientTypeTable : public ::testing::TestWithParam<std::tuple<int, unsigned long, uint32_t>> {
};

TEST_P(ClientTypeTable, MapsToProcessIdAndWireType) {
    const auto [clientType, processId, wireType] = GetParam();
    EXPECT_EQ(SdkClient::convertSdkTypeToProcessId(type(clientType)), processId);
    EXPECT_EQ(static_cast<uint32_t>(SdkClient::convertSdkTypeToIpc(type(clientType))), wireType);
}

INSTANTIATE_TEST_SUITE_P(
    AllTypes, ClientTypeTable,
    ::testing::Values(std::make_tuple(4, 101ul, 4u), std::make_tuple(5, 102ul, 5u),
                      std::make_tuple(6, 108ul, 0u), std::make_tuple(7, 104ul, 6u),
                      std::make_tuple(8, 108ul, 0u), std::make_tuple(9, 105ul, 7u),
                      std::make_tuple(10, 106ul, 8u), std::make_tuple(11, 107ul, 9u),
                      std::make_tuple(0, 108ul, 0u), std::make_tuple(3, 108ul, 0u),
                      std::make_tuple(12, 108ul, 0u), std::make_tuple(-1, 108ul, 0u)));

class WireTypeTable : public ::testing::TestWithParam<std::pair<uint32_t, int>> {};

TEST_P(WireTypeTable, MapsBackToClientType) {
    const auto [wire, clientType] = GetParam();
    EXPECT_EQ(SdkClient::convertSdkTypeToSdk(static_cast<RuxSdkType>(wire)), clientType);
}

// Not the inverse of the table above: 6 and 8 have no wire type of their own.
INSTANTIATE_TEST_SUITE_P(AllWireTypes, WireTypeTable,
                         ::testing::Values(std::make_pair(4u, 4), std::make_pair(5u, 5),
                                           std::make_pair(6u, 7), std::make_pair(7u, 9),
                                           std::make_pair(8u, 10), std::make_pair(9u, 11),
                                           std::make_pair(0u, 0), std::make_pair(3u, 0),
                                           std::make_pair(10u, 0), std::make_pair(0xFFFFFFFFu, 0)));

// --- the singleton over a real socket ------------------------------------------------------

struct Heard {
    RuxSdkClientType type;
    SdkClientBase::SdkStatus status;
    std::string blob;
    bool onSdkThread;
};

struct ServerBlob {
    RuxSdkType type;
    std::string blob;
    unsigned long peer;
};

class SdkClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        rux::ipc::ConnectOptions options;
        options.socketPath = path;
        options.maxAttempts = 3;
        options.retryDelay = 1ms;
        SdkClient::setConnectOptions(options);
    }
    void TearDown() override {
        for (int t = 4; t <= 11; ++t) SdkClient::destroyInstance(type(t));
        server.stop();
        SdkClient::setConnectOptions({});
    }

    SdkClientBase::Listener listenerFor(RuxSdkClientType t) {
        return [this, t](SdkClientBase::SdkStatus status, const Bytes& blob) {
            auto sdk = SdkClient::instance();
            heard.put(
                {t, status, std::string(blob.begin(), blob.end()), sdk && sdk->onSdkThread()});
        };
    }
    static std::shared_ptr<SdkClientEvent> event(RuxSdkClientType t, const std::string& blob) {
        return std::make_shared<SdkClientEvent>(t, Bytes(blob.begin(), blob.end()));
    }
    std::shared_ptr<SdkClient> join(int t, const std::string& blob) {
        return SdkClient::getInstance(type(t), listenerFor(type(t)), event(type(t), blob));
    }
    Heard heardAt(size_t i) { return heard.get().at(i); }

    LogCapture log;
    const std::string path = rux::test::uniqueSocketPath("rux-sdkclient");
    Inbox<Heard> heard;
    Inbox<ServerBlob> blobs;
    Inbox<RuxIpcServerClient> connected;
    RuxIpcServer server{
        RuxIpcServer::Callbacks{[this](const RuxIpcServerClient& c) { connected.put(c); },
                                [this](const RuxIpcServerClient& c, RuxSdkType t, Bytes b) {
                                    blobs.put({t, std::string(b.begin(), b.end()),
                                               static_cast<unsigned long>(c.peerProcessId())});
                                },
                                nullptr, nullptr}};
};

TEST_F(SdkClientTest, FirstEventConnectsReportsServiceUpAndReachesTheService) {
    ASSERT_TRUE(server.start(path));
    auto sdk = join(4, "hello");
    ASSERT_TRUE(sdk);
    EXPECT_EQ(SdkClient::instance(), sdk);
    ASSERT_TRUE(blobs.waitFor(1));
    const ServerBlob b = blobs.get()[0];
    EXPECT_EQ(b.blob, "hello");
    EXPECT_EQ(static_cast<uint32_t>(b.type), 4u);
    EXPECT_EQ(b.peer, 101ul);

    ASSERT_TRUE(heard.waitFor(1));
    EXPECT_EQ(heardAt(0).status, SdkClientBase::SERVICE_UP);
    EXPECT_TRUE(heardAt(0).onSdkThread);
    EXPECT_TRUE(sdk->isConnected(type(4)));
    EXPECT_TRUE(log.contains("SdkClient new Instance created"));
    EXPECT_TRUE(log.contains("handleConnectionStatus: 1 type: 4"));
}

TEST_F(SdkClientTest, ReplyOfWireTypeSixReachesTheListenerOfTypeSevenOnTheReceiverThread) {
    ASSERT_TRUE(server.start(path));
    ASSERT_TRUE(join(7, "q"));
    ASSERT_TRUE(blobs.waitFor(1));
    EXPECT_EQ(static_cast<uint32_t>(blobs.get()[0].type), 6u);
    ASSERT_TRUE(connected.waitFor(1));
    ASSERT_TRUE(heard.waitFor(1));  // SERVICE_UP
    ASSERT_TRUE(connected.get()[0].sendBlob(static_cast<RuxSdkType>(6), Bytes{'r', 'e'}));
    ASSERT_TRUE(heard.waitFor(2));
    const Heard h = heardAt(1);
    EXPECT_EQ(h.type, type(7));
    EXPECT_EQ(h.status, SdkClientBase::RESPONSE);
    EXPECT_EQ(h.blob, "re");
    EXPECT_FALSE(h.onSdkThread);
}

TEST_F(SdkClientTest, TypesSixAndEightShareOneSession) {
    ASSERT_TRUE(server.start(path));
    auto sdk = join(6, "six");
    ASSERT_TRUE(sdk);
    ASSERT_TRUE(blobs.waitFor(1));
    ASSERT_EQ(join(8, "eight"), sdk);
    ASSERT_TRUE(blobs.waitFor(2));
    EXPECT_EQ(blobs.get()[1].blob, "eight");
    EXPECT_EQ(blobs.get()[1].peer, 108ul);
    EXPECT_EQ(server.clients().size(), 1u);
    EXPECT_EQ(connected.size(), 1u);
    EXPECT_EQ(sdk->sessionFor(type(6)), sdk->sessionFor(type(8)));
}

TEST_F(SdkClientTest, NullEventWhileAnInstanceRunsFailsAndRegistersNothing) {
    ASSERT_TRUE(server.start(path));
    auto sdk = join(4, "a");
    ASSERT_TRUE(sdk);
    EXPECT_EQ(SdkClient::getInstance(type(5), listenerFor(type(5)), nullptr), nullptr);
    EXPECT_TRUE(log.contains("Instance and atomic bool miss match."));
    EXPECT_FALSE(sdk->hasClientType(type(5)));
    ASSERT_TRUE(heard.waitFor(1));  // SERVICE_UP of 4
    heard.clear();
    sdk->notifyServiceDown();
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heardAt(0).type, type(4));
}

TEST_F(SdkClientTest, RetiringOneOfTwoTypesKeepsTheInstanceAndItsThread) {
    ASSERT_TRUE(server.start(path));
    auto sdk = join(4, "a");
    ASSERT_EQ(join(5, "b"), sdk);
    ASSERT_TRUE(blobs.waitFor(2));
    SdkClient::destroyInstance(type(5));
    EXPECT_EQ(SdkClient::instance(), sdk);
    EXPECT_TRUE(sdk->isRunning());
    EXPECT_FALSE(sdk->hasClientType(type(5)));

    sdk->postEvent(event(type(4), "still"));
    ASSERT_TRUE(blobs.waitFor(3));
    EXPECT_EQ(blobs.get()[2].blob, "still");

    SdkClient::destroyInstance(type(4));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
    EXPECT_TRUE(log.contains("sdkThread loop END"));
    SdkClient::destroyInstance(type(4));
    EXPECT_TRUE(log.contains("instance already destroyed"));
}

TEST_F(SdkClientTest, NoServiceGivesServiceDownOnTheSdkThreadAfterTheAttempts) {
    auto sdk = join(4, "nobody");
    ASSERT_TRUE(sdk);
    ASSERT_TRUE(heard.waitFor(1));
    EXPECT_EQ(heardAt(0).status, SdkClientBase::SERVICE_DOWN);
    EXPECT_TRUE(heardAt(0).onSdkThread);
    ASSERT_TRUE(log.waitForText("IsConnected: 0"));
    EXPECT_EQ(rux::test::countEndingWith(log, "Connect ret: -1"), 3u);
    EXPECT_FALSE(sdk->isConnected(type(4)));
}

TEST_F(SdkClientTest, LostSessionGivesServiceDownAndTheNextEventReconnects) {
    ASSERT_TRUE(server.start(path));
    auto sdk = join(4, "one");
    ASSERT_TRUE(blobs.waitFor(1));
    ASSERT_TRUE(heard.waitFor(1));  // SERVICE_UP
    ASSERT_EQ(connected.size(), 1u);
    connected.get()[0].disconnect();
    ASSERT_TRUE(heard.waitFor(2));
    EXPECT_EQ(heardAt(1).status, SdkClientBase::SERVICE_DOWN);
    EXPECT_FALSE(heardAt(1).onSdkThread);  // the receiver thread

    sdk->postEvent(event(type(4), "two"));
    ASSERT_TRUE(blobs.waitFor(2));
    EXPECT_EQ(blobs.get()[1].blob, "two");
    EXPECT_EQ(connected.size(), 2u);
    ASSERT_TRUE(heard.waitFor(3));
    EXPECT_EQ(heardAt(2).status, SdkClientBase::SERVICE_UP);
}

// A connect that would try for a very long time is cut short by the teardown, silently:
// without that, this test would run into its CTest timeout.
TEST_F(SdkClientTest, RetiringTheLastTypeCutsShortAConnectInProgress) {
    rux::ipc::ConnectOptions options;
    options.socketPath = path;
    options.maxAttempts = 1000000;
    options.retryDelay = 1ms;
    SdkClient::setConnectOptions(options);
    auto sdk = join(4, "never");
    ASSERT_TRUE(log.waitForText("Connect ret: -1"));
    SdkClient::destroyInstance(type(4));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
    EXPECT_EQ(heard.size(), 0u);  // no SERVICE_DOWN for a connect that was called off
    EXPECT_FALSE(log.contains("Max retry reached"));
}

TEST_F(SdkClientTest, MalformedSendBlobMessageIsDroppedBeforeAnyListener) {
    ASSERT_TRUE(server.start(path));
    ASSERT_TRUE(join(4, "x"));
    ASSERT_TRUE(connected.waitFor(1));
    ASSERT_TRUE(heard.waitFor(1));  // SERVICE_UP
    // msgId 5 with a payload too short to hold the 4-byte client kind.
    ASSERT_TRUE(connected.get()[0].sendFrame(0, 5, Bytes{1, 2}));
    ASSERT_TRUE(connected.get()[0].sendBlob(static_cast<RuxSdkType>(4), Bytes{'o', 'k'}));
    ASSERT_TRUE(heard.waitFor(2));
    EXPECT_EQ(heard.size(), 2u);
    EXPECT_EQ(heardAt(1).blob, "ok");
}

}  // namespace
