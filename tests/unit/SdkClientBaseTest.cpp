// SdkClientBase with a stand-in for the IPC binding (FakeBinding records connects and
// sends and can be told to fail them), over a real EventManager and a real SDK thread:
// which of local reply, reconnect, send and cleanup an event leads to, when the loop
// ends, and who hears SERVICE_UP and SERVICE_DOWN.
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
#include "sdk/SdkClientBase.h"

namespace {

using rux::sdk::RuxSdkClientType;
using rux::sdk::SdkClientBase;
using rux::sdk::SdkClientEvent;
using rux::test::Inbox;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

RuxSdkClientType type(int t) {
    return static_cast<RuxSdkClientType>(t);
}

struct LoopParts {
    rux::utils::RuxTimer timer;
    rux::utils::EventManager eventManager;
};

// The IPC side of the SDK core, faked: "connect:T" and "send:T:<blob>" are recorded in
// order; a connect succeeds unless told otherwise, a send as told.
class FakeBinding : private LoopParts, public SdkClientBase {
public:
    FakeBinding() : SdkClientBase(&timer, &eventManager) {}
    ~FakeBinding() override {
        stopThread();
        detachFromLoop();
    }

    void connectRuxSdkClient(RuxSdkClientType type) override {
        calls.put("connect:" + std::to_string(type));
        std::lock_guard<std::mutex> lock(mMutex);
        if (connectSucceeds) mConnected.insert(type);
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
    SdkClientBase::Listener listenerFor(RuxSdkClientType t) {
        return [this, t](SdkClientBase::SdkStatus status, const Bytes& blob) {
            heard.put(rux::test::heardLine(t, status, blob, sdk.onSdkThread()));
        };
    }
    void registerType(RuxSdkClientType t, bool withListener = true) {
        sdk.addClientType(t);
        if (withListener) sdk.setClientListener(t, listenerFor(t));
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
    EXPECT_EQ(rux::test::countEndingWith(log, "Reconnect client"), c.reconnects);
    EXPECT_EQ(sdk.isRunning(), !ends);
    for (int t : types) EXPECT_EQ(sdk.hasClientType(type(t)), !cleaned.count(t)) << t;
    EXPECT_NE(log.findEndingWith(c.line).priority, -1);
    for (const auto& line : log.matching("|RuxSdk|"))  // SdkLog writes debug lines
        EXPECT_EQ(line.priority, 3) << line.text;
    // Stopping joins the thread, whether the loop has ended or still runs.
    EXPECT_TRUE(sdk.join());
    EXPECT_FALSE(sdk.isRunning());
    EXPECT_TRUE(log.contains("sdkThread loop END"));
}

INSTANTIATE_TEST_SUITE_P(Events, SdkClientBaseScenarioTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SdkClientBaseTest, EventHandledWhileNotRunningIsDroppedWithItsLine) {
    registerType(type(4));
    sdk.handleEvent(event("4<early"));
    EXPECT_EQ(heard.size(), 0u);
    EXPECT_TRUE(sdk.calls.get().empty());
    EXPECT_NE(log.findEndingWith("handleEvent called while thread not running").priority, -1);
}

// A local reply for a type without a listener leaves an empty listener entry behind;
// SERVICE_DOWN skips it with a line and still reaches the others.
TEST_F(SdkClientBaseTest, ServiceDownSkipsAnEmptyListenerEntryWithItsLine) {
    registerType(type(4));
    registerType(type(5), /*withListener=*/false);
    ASSERT_TRUE(sdk.start(type(4), nullptr));
    sdk.postEvent(event("5<"));
    sdk.postEvent(event("4<marker"));  // heard once the event before it has been handled
    ASSERT_TRUE(heard.waitFor(1));
    heard.clear();
    sdk.notifyServiceDown();
    EXPECT_EQ(heard.get(), Lines{"4 SERVICE_DOWN"});
    EXPECT_NE(log.findEndingWith("No listener for RuxSdkClientType 5; SERVICE_DOWN not delivered")
                  .priority,
              -1);
}

TEST_F(SdkClientBaseTest, ServiceUpReachesOnlyTheNamedTypeAndServiceDownEveryOneInTypeOrder) {
    for (int t : {7, 4, 5}) registerType(type(t));
    sdk.notifyServiceUp(type(5));
    sdk.notifyServiceUp(type(8));  // no listener: nothing, and no entry is made
    sdk.notifyServiceDown();
    EXPECT_EQ(heard.get(),
              (Lines{"5 SERVICE_UP", "4 SERVICE_DOWN", "5 SERVICE_DOWN", "7 SERVICE_DOWN"}));
    EXPECT_FALSE(log.contains("No listener for RuxSdkClientType 8"));
}

TEST_F(SdkClientBaseTest, ReceivedBlobGoesToItsTypeOrIsDroppedWithAnError) {
    registerType(type(4));
    sdk.notifyReceivedBlob(type(4), Bytes{'o', 'k'});
    sdk.notifyReceivedBlob(type(5), Bytes{'n', 'o'});
    EXPECT_EQ(heard.get(), Lines{"4 RESPONSE ok"});
    EXPECT_TRUE(log.contains("Send response RESPONSE 4"));
    const auto error = log.findEndingWith(
        "RuxSdkClientType 5 is not registered with this client. Should never occur!");
    EXPECT_EQ(error.priority, ANDROID_LOG_ERROR);
}

}  // namespace
