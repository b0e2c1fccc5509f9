// SdkClient: its client-type tables, and the singleton against the real serving side of
// the transport (RuxIpcServer on a Unix socket): connect on demand, SendBlobMessages
// both ways, shared sessions, service loss and reconnect, and teardown.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "SdkTestSupport.h"
#include "ipc/RuxIpcServer.h"
#include "sdk/SdkClient.h"

namespace {

using rux::ipc::RuxIpcServer;
using rux::ipc::RuxIpcServerClient;
using rux::ipc::RuxSdkType;
using rux::sdk::RuxSdkClientType;
using rux::sdk::SdkClient;
using rux::sdk::SdkClientBase;
using rux::test::Inbox;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

RuxSdkClientType type(int t) {
    return static_cast<RuxSdkClientType>(t);
}

TEST(SdkClientTablesTest, ClientTypesMapToProcessIdAndWireTypeAndWireTypesBack) {
    const struct {
        int clientType;
        unsigned long processId;
        uint32_t wireType;
    } toWire[] = {{4, 101, 4},  {5, 102, 5},  {6, 108, 0}, {7, 104, 6}, {8, 108, 0},  {9, 105, 7},
                  {10, 106, 8}, {11, 107, 9}, {0, 108, 0}, {3, 108, 0}, {12, 108, 0}, {-1, 108, 0}};
    for (const auto& r : toWire) {
        EXPECT_EQ(SdkClient::convertSdkTypeToProcessId(type(r.clientType)), r.processId)
            << r.clientType;
        EXPECT_EQ(static_cast<uint32_t>(SdkClient::convertSdkTypeToIpc(type(r.clientType))),
                  r.wireType)
            << r.clientType;
    }
    // Not the inverse of the table above: 6 and 8 have no wire type of their own.
    const std::pair<uint32_t, int> toClient[] = {{4, 4},  {5, 5}, {6, 7}, {7, 9},  {8, 10},
                                                 {9, 11}, {0, 0}, {3, 0}, {10, 0}, {0xFFFFFFFF, 0}};
    for (const auto& [wire, clientType] : toClient)
        EXPECT_EQ(SdkClient::convertSdkTypeToSdk(static_cast<RuxSdkType>(wire)), clientType)
            << wire;
}

// --- the singleton over a real socket ------------------------------------------------------

class SdkClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        useSocket(path, 3);
        ASSERT_TRUE(server.start(path));
    }
    void TearDown() override {
        for (int t = 4; t <= 11; ++t) SdkClient::destroyInstance(type(t));
        server.stop();
        SdkClient::setConnectOptions({});
    }
    static void useSocket(const std::string& socketPath, int attempts) {
        rux::ipc::ConnectOptions options;
        options.socketPath = socketPath;
        options.maxAttempts = attempts;
        options.retryDelay = 1ms;
        SdkClient::setConnectOptions(options);
    }
    static std::shared_ptr<rux::sdk::SdkClientEvent> event(int t, const std::string& blob) {
        return std::make_shared<rux::sdk::SdkClientEvent>(type(t), Bytes(blob.begin(), blob.end()));
    }
    std::shared_ptr<SdkClient> join(int t, const std::string& blob) {
        auto listener = [this, t](SdkClientBase::SdkStatus status, const Bytes& blob) {
            auto sdk = SdkClient::instance();
            heard.put(rux::test::heardLine(t, status, blob, sdk && sdk->onSdkThread()));
        };
        return SdkClient::getInstance(type(t), listener, event(t, blob));
    }
    // Joins with a first blob and waits until the service has it and SERVICE_UP is heard.
    std::shared_ptr<SdkClient> joinConnected(int t, const std::string& blob) {
        const size_t nBlobs = blobs.size(), nHeard = heard.size();
        auto sdk = join(t, blob);
        EXPECT_TRUE(sdk && blobs.waitFor(nBlobs + 1) && heard.waitFor(nHeard + 1));
        return sdk;
    }

    LogCapture log;
    const std::string path = rux::test::uniqueSocketPath("rux-sdkclient");
    Inbox<std::string> heard;
    Inbox<std::string> blobs;  // "<wire type> from <peer process id>: <blob>"
    Inbox<RuxIpcServerClient> connected;
    RuxIpcServer server{RuxIpcServer::Callbacks{
        [this](const RuxIpcServerClient& c) { connected.put(c); },
        [this](const RuxIpcServerClient& c, RuxSdkType t, Bytes b) {
            blobs.put(std::to_string(t) + " from " + std::to_string(c.peerProcessId()) + ": " +
                      std::string(b.begin(), b.end()));
        },
        nullptr, nullptr}};
};

TEST_F(SdkClientTest, FirstEventConnectsReportsServiceUpAndReachesTheService) {
    auto sdk = joinConnected(4, "hello");
    ASSERT_TRUE(sdk);
    EXPECT_EQ(SdkClient::instance(), sdk);
    EXPECT_EQ(blobs.get(), Lines{"4 from 101: hello"});
    EXPECT_EQ(heard.get(), Lines{"4 SERVICE_UP @sdk"});
    EXPECT_TRUE(sdk->isConnected(type(4)));
    EXPECT_TRUE(log.contains("SdkClient new Instance created"));
    EXPECT_TRUE(log.contains("handleConnectionStatus: 1 type: 4"));
}

TEST_F(SdkClientTest, ReplyOfWireTypeSixReachesTheListenerOfTypeSevenOnTheReceiverThread) {
    ASSERT_TRUE(joinConnected(7, "q"));
    EXPECT_EQ(blobs.get(), Lines{"6 from 104: q"});
    ASSERT_TRUE(connected.waitFor(1));
    ASSERT_TRUE(connected.get()[0].sendBlob(static_cast<RuxSdkType>(6), Bytes{'r', 'e'}));
    ASSERT_TRUE(heard.waitFor(2));
    EXPECT_EQ(heard.get(), (Lines{"7 SERVICE_UP @sdk", "7 RESPONSE re"}));
}

TEST_F(SdkClientTest, TypesSixAndEightShareOneSession) {
    auto sdk = joinConnected(6, "six");
    ASSERT_TRUE(sdk);
    ASSERT_EQ(join(8, "eight"), sdk);
    ASSERT_TRUE(blobs.waitFor(2));
    EXPECT_EQ(blobs.get()[1], "0 from 108: eight");
    EXPECT_EQ(server.clients().size(), 1u);
    EXPECT_EQ(connected.size(), 1u);
    EXPECT_EQ(sdk->sessionFor(type(6)), sdk->sessionFor(type(8)));
}

TEST_F(SdkClientTest, NullEventWhileAnInstanceRunsFailsAndRegistersNothing) {
    auto sdk = joinConnected(4, "a");
    ASSERT_TRUE(sdk);
    EXPECT_EQ(SdkClient::getInstance(
                  type(5), [](auto, auto&) {}, nullptr),
              nullptr);
    EXPECT_TRUE(log.contains("Instance and atomic bool miss match."));
    EXPECT_FALSE(sdk->hasClientType(type(5)));
    heard.clear();
    sdk->notifyServiceDown();
    EXPECT_EQ(heard.get(), Lines{"4 SERVICE_DOWN"});
}

TEST_F(SdkClientTest, RetiringOneOfTwoTypesKeepsTheInstanceAndItsThread) {
    // Both join before the first connect is done, as the service's first clients do.
    auto sdk = join(4, "a");
    ASSERT_EQ(join(5, "b"), sdk);
    ASSERT_TRUE(blobs.waitFor(2));
    SdkClient::destroyInstance(type(5));
    EXPECT_EQ(SdkClient::instance(), sdk);
    EXPECT_TRUE(sdk->isRunning());
    EXPECT_FALSE(sdk->hasClientType(type(5)));

    sdk->postEvent(event(4, "still"));
    ASSERT_TRUE(blobs.waitFor(3));
    EXPECT_EQ(blobs.get()[2], "4 from 101: still");

    SdkClient::destroyInstance(type(4));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
    EXPECT_TRUE(log.contains("sdkThread loop END"));
    SdkClient::destroyInstance(type(4));
    EXPECT_TRUE(log.contains("instance already destroyed"));
}

TEST_F(SdkClientTest, NoServiceGivesServiceDownOnTheSdkThreadAfterTheAttempts) {
    useSocket(rux::test::uniqueSocketPath("rux-nobody"), 3);
    auto sdk = join(4, "nobody");
    ASSERT_TRUE(sdk);
    ASSERT_TRUE(heard.waitFor(2));
    EXPECT_EQ(heard.get(), (Lines{"4 SERVICE_DOWN @sdk", "4 NOT_SENT nobody @sdk"}));
    ASSERT_TRUE(log.waitForText("IsConnected: 0"));
    EXPECT_EQ(rux::test::countEndingWith(log, "Connect ret: -1"), 3u);
    EXPECT_FALSE(sdk->isConnected(type(4)));
}

TEST_F(SdkClientTest, LostSessionGivesServiceDownAndTheNextEventReconnects) {
    auto sdk = joinConnected(4, "one");
    ASSERT_EQ(connected.size(), 1u);
    connected.get()[0].disconnect();
    ASSERT_TRUE(heard.waitFor(2));
    sdk->postEvent(event(4, "two"));
    ASSERT_TRUE(blobs.waitFor(2));
    EXPECT_EQ(blobs.get()[1], "4 from 101: two");
    EXPECT_EQ(connected.size(), 2u);
    ASSERT_TRUE(heard.waitFor(3));
    // SERVICE_DOWN comes from the receiver thread.
    EXPECT_EQ(heard.get(), (Lines{"4 SERVICE_UP @sdk", "4 SERVICE_DOWN", "4 SERVICE_UP @sdk"}));
}

// A connect that would try for a very long time is cut short by the teardown, silently:
// without that, this test would run into its CTest timeout.
TEST_F(SdkClientTest, RetiringTheLastTypeCutsShortAConnectInProgress) {
    useSocket(rux::test::uniqueSocketPath("rux-nobody"), 1000000);
    auto sdk = join(4, "never");
    ASSERT_TRUE(log.waitForText("Connect ret: -1"));
    SdkClient::destroyInstance(type(4));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
    EXPECT_EQ(heard.size(), 0u);  // no SERVICE_DOWN for a connect that was called off
    EXPECT_FALSE(log.contains("Max retry reached"));
}

TEST_F(SdkClientTest, MalformedSendBlobMessageIsDroppedBeforeAnyListener) {
    ASSERT_TRUE(joinConnected(4, "x"));
    ASSERT_TRUE(connected.waitFor(1));
    // msgId 5 with a payload too short to hold the 4-byte client kind.
    ASSERT_TRUE(connected.get()[0].sendFrame(0, 5, Bytes{1, 2}));
    ASSERT_TRUE(connected.get()[0].sendBlob(static_cast<RuxSdkType>(4), Bytes{'o', 'k'}));
    ASSERT_TRUE(heard.waitFor(2));
    EXPECT_EQ(heard.get(), (Lines{"4 SERVICE_UP @sdk", "4 RESPONSE ok"}));
}

}  // namespace
