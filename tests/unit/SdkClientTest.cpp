// The SDK core: SdkClientBase over a fake IPC binding with a real event loop and SDK
// thread, and SdkClient, the singleton, against the serving side of the transport.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "SdkTestSupport.h"
#include "ipc/RuxIpcServer.h"
#include "sdk/SdkBase.h"
#include "sdk/SdkClient.h"

namespace {

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
using Lines = std::vector<std::string>;

RuxSdkClientType type(int t) {
    return static_cast<RuxSdkClientType>(t);
}

// What a listener heard, and whether on the SDK thread: "5 SERVICE_UP @sdk", "4 RESPONSE ok".
std::string heardLine(int type, int status, const Bytes& blob, bool onSdkThread) {
    static const char* const kNames[] = {"RESPONSE", "SEND_FAILED", "SERVICE_DOWN", "SERVICE_UP",
                                         "NOT_SENT"};
    std::string s = std::to_string(type) + " " + kNames[status];
    if (!blob.empty()) s += " " + std::string(blob.begin(), blob.end());
    return onSdkThread ? s + " @sdk" : s;
}

struct LoopParts {
    rux::utils::RuxTimer timer;
    rux::utils::EventManager eventManager;
};

// Records "connect:T" and "send:T:<blob>" in order; either can be told to fail.
class FakeBinding : private LoopParts, public SdkClientBase {
public:
    FakeBinding() : SdkClientBase(&timer, &eventManager) {}
    ~FakeBinding() override {
        stopThread();
        detachFromLoop();
    }
    void connectRuxSdkClient(RuxSdkClientType type) override {
        calls.put("connect:" + std::to_string(type));
        if (connectSucceeds) setConnected(type);
    }
    bool isConnected(RuxSdkClientType type) override {
        std::lock_guard<std::mutex> lock(mMutex);
        return mConnected.count(type) != 0;
    }
    bool sendBlobToService(RuxSdkClientType type, Bytes blob) override {
        calls.put("send:" + std::to_string(type) + ":" + std::string(blob.begin(), blob.end()));
        return sendSucceeds;
    }
    void setConnected(RuxSdkClientType type) {
        std::lock_guard<std::mutex> lock(mMutex);
        mConnected.insert(type);
    }
    bool join() { return stopThread(); }

    Inbox<std::string> calls;
    bool connectSucceeds = true;  // set before start()
    bool sendSucceeds = true;     // set before start()

private:
    std::mutex mMutex;
    std::set<RuxSdkClientType> mConnected;
};

class SdkClientBaseTest : public ::testing::Test {
protected:
    void registerType(RuxSdkClientType t, bool withListener = true) {
        sdk.addClientType(t);
        if (!withListener) return;
        sdk.setClientListener(t, [this, t](SdkClientBase::SdkStatus status, const Bytes& blob) {
            heard.put(heardLine(t, status, blob, sdk.onSdkThread()));
        });
    }
    // "4>blob" goes to the service, "4<blob" is a local reply, "4!blob" a cleanup.
    static std::shared_ptr<SdkClientEvent> event(const std::string& text) {
        auto ev = std::make_shared<SdkClientEvent>(
            type(text[0] - '0'), Bytes(text.begin() + 2, text.end()), text[1] == '<');
        ev->cleanup = text[1] == '!';
        return ev;
    }
    LogCapture log;
    Inbox<std::string> heard;  // outlives the SDK thread, which sdk joins
    FakeBinding sdk;
};

struct Scenario {
    const char* name;
    // "4": type 4 with a listener; "5-": without one; "5x": with one that throws;
    // "4+": already connected; "noconnect", "nosend": the binding fails those.
    const char* setup;
    const char* events;  // posted in this order, see event()
    const char* calls;   // what reached the binding, in order
    const char* heard;   // what the listeners heard, the drain marker left out
    size_t reconnects;
    const char* line;  // a line the case writes, "" for none
};
void PrintTo(const Scenario& c, std::ostream* os) {
    *os << c.name;
}

const Scenario kScenarios[] = {
    {"LocalReplyGoesToTheListenerOnTheSdkThreadWithoutTheService", "4", "4<local", "",
     "4 RESPONSE local @sdk", 0, "sendClient"},
    {"LocalReplyWithoutListenerFallsThroughToTheSendPath", "4 5-", "5<orphan",
     "connect:5 send:5:orphan", "", 1, ""},
    {"DisconnectedTypeReconnectsOnceThenSends", "4", "4>first 4>second",
     "connect:4 send:4:first send:4:second", "", 1, ""},
    {"FailedConnectSendsNothingAndGivesTheBlobBack", "4 noconnect", "4>lost", "connect:4",
     "4 NOT_SENT lost @sdk", 1, ""},
    {"FailedSendReportsSendFailedToTheSendingTypeOnly", "4 5 nosend", "5>x", "connect:5 send:5:x",
     "5 SEND_FAILED @sdk", 1, ""},
    {"ListenerThatThrowsDoesNotEndTheSdkThread", "4 5x", "5<", "", "", 0, "listener threw: boom"},
    {"CleanupOfADisconnectedTypeNeitherReconnectsNorSendsAndEndsTheLoop", "4", "4!", "", "", 0,
     "cleanup"},
    {"CleanupOfAConnectedTypeSendsItsBlobFirst", "4+", "4!bye", "send:4:bye", "", 0, "cleanup"},
    {"CleanupOfOneOfTwoTypesKeepsTheLoopRunning", "4 5", "4!", "", "", 0, "cleanup"},
};

class SdkClientBaseScenarioTest : public SdkClientBaseTest,
                                  public ::testing::WithParamInterface<Scenario> {};

TEST_P(SdkClientBaseScenarioTest, LeadsToTheseCallsAndReports) {
    const Scenario& c = GetParam();
    std::set<int> types, cleaned;
    std::istringstream setup(c.setup), events(c.events);
    for (std::string w; setup >> w;) {
        if (w == "noconnect" || w == "nosend") {
            (w == "nosend" ? sdk.sendSucceeds : sdk.connectSucceeds) = false;
            continue;
        }
        const RuxSdkClientType t = type(w[0] - '0');
        types.insert(t);
        registerType(t, w.find('-') == std::string::npos);
        if (w.find('+') != std::string::npos) sdk.setConnected(t);
        if (w.find('x') != std::string::npos)
            sdk.setClientListener(t, [](SdkClientBase::SdkStatus, const Bytes&) {
                throw std::runtime_error("boom");
            });
    }
    ASSERT_TRUE(sdk.start(type(4), nullptr));
    for (std::string e; events >> e;) {
        sdk.postEvent(event(e));
        if (e[1] == '!') cleaned.insert(e[0] - '0');
    }
    const bool ends = cleaned == types;
    std::string expectedHeard = c.heard;
    if (ends) {
        ASSERT_TRUE(log.waitForText("sdkThread loop END"));
    } else {
        // A local reply for a type still there: once heard, every event has been handled.
        const std::string marker = cleaned.count(4) ? "5" : "4";
        sdk.postEvent(event(marker + "<marker"));
        expectedHeard += (expectedHeard.empty() ? "" : ", ") + marker + " RESPONSE marker @sdk";
        ASSERT_TRUE(heard.waitFor(std::count(expectedHeard.begin(), expectedHeard.end(), ',') + 1));
    }
    EXPECT_EQ(rux::test::join(sdk.calls.get(), " "), c.calls);
    EXPECT_EQ(rux::test::join(heard.get(), ", "), expectedHeard);
    EXPECT_EQ(log.matching("Reconnect client").size(), c.reconnects);
    EXPECT_EQ(sdk.isRunning(), !ends);
    for (int t : types) EXPECT_EQ(sdk.hasClientType(type(t)), !cleaned.count(t)) << t;
    EXPECT_NE(log.findEndingWith(c.line).priority, -1);
    // Stopping joins the thread, whether the loop has ended or still runs.
    EXPECT_TRUE(sdk.join());
    EXPECT_FALSE(sdk.isRunning());
    EXPECT_TRUE(log.contains("sdkThread loop END"));
}

INSTANTIATE_TEST_SUITE_P(Events, SdkClientBaseScenarioTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

// SERVICE_UP reaches only the named type, SERVICE_DOWN every one in type order; a received
// blob goes to its type or is dropped with an error.
TEST_F(SdkClientBaseTest, NoticesAndBlobsReachTheirListeners) {
    for (int t : {7, 4, 5}) registerType(type(t));
    sdk.notifyServiceUp(type(5));
    sdk.notifyServiceUp(type(8));  // no listener: nothing, and no entry is made
    sdk.notifyServiceDown();
    sdk.notifyReceivedBlob(type(4), Bytes{'o', 'k'});
    sdk.notifyReceivedBlob(type(6), Bytes{'n', 'o'});
    EXPECT_EQ(heard.get(), (Lines{"5 SERVICE_UP", "4 SERVICE_DOWN", "5 SERVICE_DOWN",
                                  "7 SERVICE_DOWN", "4 RESPONSE ok"}));
    EXPECT_FALSE(log.contains("No listener for RuxSdkClientType 8"));
    const auto error = log.findEndingWith(
        "RuxSdkClientType 6 is not registered with this client. Should never occur!");
    EXPECT_EQ(error.priority, ANDROID_LOG_ERROR);
}

// A set-up that fails is told once: -3 to the second callback if it is set, else 2 to the first.
Lines gSetUpFailures;
void firstFailed(int s) { gSetUpFailures.push_back("first " + std::to_string(s)); }
void secondFailed(int s) { gSetUpFailures.push_back("second " + std::to_string(s)); }
struct SetUpReporter : rux::sdk::SdkBase {
    explicit SetUpReporter(bool second) {
        mSetupFailedCallback = firstFailed;
        if (second) mSetupFailedCallbackV2 = secondFailed;
    }
    void blobListener(SdkStatus, const Bytes&) override {}
};

TEST(SdkBaseTest, FailedSetUpIsToldToOneCallbackWithItsOwnValue) {
    for (bool second : {true, false}) {
        rux::sdk::failNextThreadStart();
        EXPECT_EQ(SetUpReporter(second).createSdkInstance(type(4), nullptr, nullptr), nullptr);
    }
    EXPECT_EQ(gSetUpFailures, (Lines{"second -3", "first 2"}));
}

// Client types -1 to 12 as "<process id>/<wire type>", and wire types 0 to 10 and the
// largest one back: not the inverse, as 6 and 8 have no wire type of their own.
TEST(SdkClientTablesTest, ClientTypesMapToProcessIdAndWireTypeAndWireTypesBack) {
    std::vector<std::string> toWire, toClient;
    for (int t = -1; t <= 12; ++t)
        toWire.push_back(std::to_string(SdkClient::convertSdkTypeToProcessId(type(t))) + "/" +
                         std::to_string(SdkClient::convertSdkTypeToIpc(type(t))));
    for (uint32_t wire : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 0xFFFFFFFFu})
        toClient.push_back(std::to_string(SdkClient::convertSdkTypeToSdk(RuxSdkType(wire))));
    EXPECT_EQ(rux::test::join(toWire, " "), "108/0 108/0 108/0 108/0 108/0 101/4 102/5 108/0 "
                                            "104/6 108/0 105/7 106/8 107/9 108/0");
    EXPECT_EQ(rux::test::join(toClient, " "), "0 0 0 0 4 5 7 9 10 11 0 0");
}

class SdkClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        SdkClient::setConnectOptions(rux::test::quickConnect(path));
        ASSERT_TRUE(server.start(path));
    }
    void TearDown() override {
        for (int t = 4; t <= 11; ++t) SdkClient::destroyInstance(type(t));
        server.stop();
        SdkClient::setConnectOptions({});
    }
    std::shared_ptr<SdkClient> join(int t, const std::string& first) {
        auto listener = [this, t](SdkClientBase::SdkStatus status, const Bytes& blob) {
            auto sdk = SdkClient::instance();
            heard.put(heardLine(t, status, blob, sdk && sdk->onSdkThread()));
        };
        auto event = std::make_shared<SdkClientEvent>(type(t), Bytes(first.begin(), first.end()));
        return SdkClient::getInstance(type(t), listener, event);
    }
    // Joins with a first blob and waits until the service has it and SERVICE_UP is heard.
    std::shared_ptr<SdkClient> joinConnected(int t, const std::string& blob) {
        const size_t nBlobs = blobs.get().size(), nHeard = heard.get().size();
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

// Each type's first event connects its process's session (6 and 8 share one), which
// reports SERVICE_UP on the SDK thread; replies come back by wire type, a malformed one is
// dropped. The instance and its thread stay until the last type retires.
TEST_F(SdkClientTest, TypesConnectOnDemandTradeBlobsByWireTypeAndRetire) {
    auto sdk = joinConnected(4, "hello");
    ASSERT_TRUE(sdk);
    EXPECT_EQ(SdkClient::instance(), sdk);
    EXPECT_TRUE(sdk->isConnected(type(4)));
    EXPECT_EQ(joinConnected(7, "q"), sdk);
    EXPECT_EQ(joinConnected(6, "six"), sdk);
    EXPECT_EQ(join(8, "eight"), sdk);
    ASSERT_TRUE(blobs.waitFor(4));
    EXPECT_EQ(blobs.get(), (Lines{"4 from 101: hello", "6 from 104: q", "0 from 108: six",
                                  "0 from 108: eight"}));
    EXPECT_EQ(server.clients().size(), 3u);
    EXPECT_EQ(sdk->sessionFor(type(6)), sdk->sessionFor(type(8)));

    const RuxIpcServerClient peer104 = connected.get().at(1);
    ASSERT_EQ(static_cast<int>(peer104.peerProcessId()), 104);
    ASSERT_TRUE(peer104.sendFrame(0, 5, Bytes{1, 2}));  // too short for the client kind
    ASSERT_TRUE(peer104.sendBlob(static_cast<RuxSdkType>(6), Bytes{'r', 'e'}));
    const std::string big(20000, 'x');  // more than the receiver reads ahead
    ASSERT_TRUE(peer104.sendBlob(static_cast<RuxSdkType>(6), Bytes(big.begin(), big.end())));
    ASSERT_TRUE(heard.waitFor(5));
    EXPECT_EQ(heard.get(), (Lines{"4 SERVICE_UP @sdk", "7 SERVICE_UP @sdk", "6 SERVICE_UP @sdk",
                                  "7 RESPONSE re", "7 RESPONSE " + big}));

    SdkClient::destroyInstance(type(7));
    EXPECT_EQ(SdkClient::instance(), sdk);
    EXPECT_TRUE(sdk->isRunning());
    for (int t : {4, 6, 8}) SdkClient::destroyInstance(type(t));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
}

// A connect that would try for a very long time is cut short by the teardown, silently.
TEST_F(SdkClientTest, RetiringTheLastTypeCutsShortAConnectInProgress) {
    SdkClient::setConnectOptions(
        rux::test::quickConnect(rux::test::uniqueSocketPath("rux-nobody"), 1000000));
    auto sdk = join(4, "never");
    ASSERT_TRUE(log.waitForText("Connect ret: -1"));
    SdkClient::destroyInstance(type(4));
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_FALSE(sdk->isRunning());
    EXPECT_TRUE(heard.get().empty());  // no SERVICE_DOWN for a connect that was called off
    EXPECT_FALSE(log.contains("Max retry reached"));
}

}  // namespace
