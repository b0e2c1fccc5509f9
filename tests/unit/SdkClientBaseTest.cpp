// SdkClientBase with a stand-in for the IPC binding (FakeBinding records connects and
// sends and can be told to fail them), over a real EventManager and a real SDK thread:
// which of local reply, reconnect, send and cleanup an event leads to, when the loop
// ends, and who hears SERVICE_UP and SERVICE_DOWN.
#include <android/log.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
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

constexpr RuxSdkClientType kFour = rux::sdk::RUX_SDK_CLIENT_REQUEST;
constexpr RuxSdkClientType kFive = rux::sdk::RUX_SDK_CLIENT_5;
constexpr RuxSdkClientType kSeven = rux::sdk::RUX_SDK_CLIENT_7;

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

struct Heard {
    RuxSdkClientType type;
    SdkClientBase::SdkStatus status;
    std::string blob;
    bool onSdkThread;
};

class SdkClientBaseTest : public ::testing::Test {
protected:
    SdkClientBase::Listener listenerFor(RuxSdkClientType type) {
        return [this, type](SdkClientBase::SdkStatus status, const Bytes& blob) {
            heard.put({type, status, std::string(blob.begin(), blob.end()), sdk.onSdkThread()});
        };
    }
    void registerType(RuxSdkClientType type, bool withListener = true) {
        sdk.addClientType(type);
        if (withListener) sdk.setClientListener(type, listenerFor(type));
    }
    static std::shared_ptr<SdkClientEvent> event(RuxSdkClientType type, const std::string& blob,
                                                 bool toClient = false, bool cleanup = false) {
        auto ev = std::make_shared<SdkClientEvent>(type, Bytes(blob.begin(), blob.end()), toClient);
        ev->cleanup = cleanup;
        return ev;
    }
    // Posts a local reply for `type` (which has a listener) and waits until it has been
    // heard: everything posted before it has been handled by then.
    void drain(RuxSdkClientType type) {
        const size_t before = heard.size();
        sdk.postEvent(event(type, "marker", true));
        ASSERT_TRUE(heard.waitFor(before + 1));
    }

    LogCapture log;
    Inbox<Heard> heard;  // outlives the SDK thread, which sdk joins
    FakeBinding sdk;
};

TEST_F(SdkClientBaseTest, LocalReplyGoesToTheListenerOnTheSdkThreadWithoutTheService) {
    registerType(kFour);
    ASSERT_TRUE(sdk.start(kFour, event(kFour, "local", true)));
    ASSERT_TRUE(heard.waitFor(1));
    const Heard h = heard.get()[0];
    EXPECT_EQ(h.type, kFour);
    EXPECT_EQ(h.status, SdkClientBase::RESPONSE);
    EXPECT_EQ(h.blob, "local");
    EXPECT_TRUE(h.onSdkThread);
    EXPECT_TRUE(sdk.calls.get().empty());
    EXPECT_EQ(log.findEndingWith("sendClient").priority, 3);  // SdkLog writes debug lines
}

TEST_F(SdkClientBaseTest, LocalReplyWithoutListenerFallsThroughToTheSendPath) {
    registerType(kFour);
    registerType(kFive, /*withListener=*/false);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFive, "orphan", true));
    drain(kFour);
    EXPECT_EQ(sdk.calls.get(), (std::vector<std::string>{"connect:5", "send:5:orphan"}));
    EXPECT_TRUE(log.contains("Reconnect client"));
}

TEST_F(SdkClientBaseTest, DisconnectedTypeReconnectsOnceThenSends) {
    registerType(kFour);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFour, "first"));
    sdk.postEvent(event(kFour, "second"));
    drain(kFour);
    EXPECT_EQ(sdk.calls.get(),
              (std::vector<std::string>{"connect:4", "send:4:first", "send:4:second"}));
    EXPECT_EQ(rux::test::countEndingWith(log, "Reconnect client"), 1u);
}

TEST_F(SdkClientBaseTest, FailedConnectSendsNothingAndReportsNothingHere) {
    sdk.connectSucceeds = false;
    registerType(kFour);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFour, "lost"));
    drain(kFour);
    EXPECT_EQ(sdk.calls.get(), (std::vector<std::string>{"connect:4"}));
    ASSERT_EQ(heard.size(), 1u);  // only the marker
}

TEST_F(SdkClientBaseTest, FailedSendReportsSendFailedToTheSendingTypeOnly) {
    sdk.sendSucceeds = false;
    registerType(kFour);
    registerType(kFive);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFive, "x"));
    ASSERT_TRUE(heard.waitFor(1));
    const Heard h = heard.get()[0];
    EXPECT_EQ(h.type, kFive);
    EXPECT_EQ(h.status, SdkClientBase::SEND_FAILED);
    EXPECT_EQ(h.blob, "");
    EXPECT_TRUE(h.onSdkThread);
}

TEST_F(SdkClientBaseTest, CleanupOfADisconnectedTypeNeitherReconnectsNorSendsAndEndsTheLoop) {
    registerType(kFour);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFour, "", false, /*cleanup=*/true));
    ASSERT_TRUE(log.waitForText("sdkThread loop END"));
    EXPECT_TRUE(sdk.calls.get().empty());
    EXPECT_FALSE(sdk.isRunning());
    EXPECT_FALSE(sdk.hasClientType(kFour));
    EXPECT_TRUE(sdk.join());
}

TEST_F(SdkClientBaseTest, CleanupOfAConnectedTypeSendsItsBlobFirst) {
    registerType(kFour);
    sdk.setConnected(kFour);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFour, "bye", false, /*cleanup=*/true));
    ASSERT_TRUE(log.waitForText("sdkThread loop END"));
    EXPECT_EQ(sdk.calls.get(), (std::vector<std::string>{"send:4:bye"}));
}

TEST_F(SdkClientBaseTest, CleanupOfOneOfTwoTypesKeepsTheLoopRunning) {
    registerType(kFour);
    registerType(kFive);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFour, "", false, /*cleanup=*/true));
    drain(kFive);  // still handled after the cleanup of 4
    EXPECT_TRUE(sdk.isRunning());
    EXPECT_FALSE(sdk.hasClientType(kFour));
    EXPECT_TRUE(sdk.hasClientType(kFive));

    sdk.postEvent(event(kFive, "", false, /*cleanup=*/true));
    ASSERT_TRUE(log.waitForText("sdkThread loop END"));
    EXPECT_FALSE(sdk.isRunning());
}

TEST_F(SdkClientBaseTest, EventHandledWhileNotRunningIsDroppedWithItsLine) {
    registerType(kFour);
    sdk.handleEvent(event(kFour, "early", true));
    EXPECT_EQ(heard.size(), 0u);
    EXPECT_TRUE(sdk.calls.get().empty());
    EXPECT_NE(log.findEndingWith("handleEvent called while thread not running").priority, -1);
}

TEST_F(SdkClientBaseTest, ServiceDownReachesEveryListenerInTypeOrder) {
    registerType(kSeven);
    registerType(kFour);
    registerType(kFive);
    sdk.notifyServiceDown();
    ASSERT_EQ(heard.size(), 3u);
    std::vector<RuxSdkClientType> order;
    for (const Heard& h : heard.get()) {
        EXPECT_EQ(h.status, SdkClientBase::SERVICE_DOWN);
        order.push_back(h.type);
    }
    EXPECT_EQ(order, (std::vector<RuxSdkClientType>{kFour, kFive, kSeven}));
}

// A local reply for a type without a listener leaves an empty listener entry behind;
// SERVICE_DOWN skips it with a line and still reaches the others.
TEST_F(SdkClientBaseTest, ServiceDownSkipsAnEmptyListenerEntryWithItsLine) {
    registerType(kFour);
    registerType(kFive, /*withListener=*/false);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFive, "", true));
    drain(kFour);
    heard.clear();
    sdk.notifyServiceDown();
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard.get()[0].type, kFour);
    EXPECT_NE(log.findEndingWith("No listener for RuxSdkClientType 5; SERVICE_DOWN not delivered")
                  .priority,
              -1);
}

TEST_F(SdkClientBaseTest, ServiceUpReachesOnlyTheNamedType) {
    registerType(kFour);
    registerType(kFive);
    sdk.notifyServiceUp(kFive);
    sdk.notifyServiceUp(kSeven);  // no listener: nothing, and no entry is made
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard.get()[0].type, kFive);
    EXPECT_EQ(heard.get()[0].status, SdkClientBase::SERVICE_UP);
    heard.clear();
    sdk.notifyServiceDown();
    EXPECT_EQ(heard.size(), 2u);
    EXPECT_FALSE(log.contains("No listener for RuxSdkClientType 7"));
}

TEST_F(SdkClientBaseTest, ReceivedBlobGoesToItsTypeOrIsDroppedWithAnError) {
    registerType(kFour);
    sdk.notifyReceivedBlob(kFour, Bytes{'o', 'k'});
    sdk.notifyReceivedBlob(kFive, Bytes{'n', 'o'});
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard.get()[0].blob, "ok");
    EXPECT_EQ(heard.get()[0].status, SdkClientBase::RESPONSE);
    EXPECT_TRUE(log.contains("Send response RESPONSE 4"));
    const auto error = log.findEndingWith(
        "RuxSdkClientType 5 is not registered with this client. Should never occur!");
    EXPECT_EQ(error.priority, ANDROID_LOG_ERROR);
}

TEST_F(SdkClientBaseTest, ListenerThatThrowsDoesNotEndTheSdkThread) {
    registerType(kFour);
    sdk.setClientListener(
        kFive, [](SdkClientBase::SdkStatus, const Bytes&) { throw std::runtime_error("boom"); });
    sdk.addClientType(kFive);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    sdk.postEvent(event(kFive, "", true));
    drain(kFour);
    EXPECT_TRUE(sdk.isRunning());
    EXPECT_NE(log.findEndingWith("listener threw: boom").priority, -1);
}

TEST_F(SdkClientBaseTest, StoppingARunningLoopJoinsTheThread) {
    registerType(kFour);
    ASSERT_TRUE(sdk.start(kFour, nullptr));
    drain(kFour);
    EXPECT_TRUE(sdk.join());
    EXPECT_FALSE(sdk.isRunning());
    EXPECT_TRUE(log.contains("sdkThread loop END"));
}

}  // namespace
