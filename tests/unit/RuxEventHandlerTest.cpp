// RuxEventHandler over a real EventManager: one wake-up drains everything queued, in
// order, including what handleEvent posts; many producers at once; hand-back of the
// eventfd.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "sdk/RuxEventHandler.h"

namespace {

using rux::utils::EventManager;
using rux::utils::RuxTimer;
using Event = std::shared_ptr<int>;

class Recorder : public rux::utils::RuxEventHandler<Event> {
public:
    Recorder(RuxTimer* timer, EventManager* em) : RuxEventHandler(timer, em, "Recorder") {}
    ~Recorder() override { detachFromLoop(); }  // may be destroyed while the loop runs
    int fd() const { return mFd; }
    void post(int v) { postEvent(std::make_shared<int>(v)); }
    std::function<void(int)> inside;  // extra work inside handleEvent (loop thread)
    rux::test::Inbox<int> handled;

protected:
    void handleEvent(Event ev) override {
        if (inside) inside(*ev);
        handled.put(*ev);
    }
};

class RuxEventHandlerTest : public ::testing::Test {
protected:
    // Passes on this thread give up after the deadline instead of hanging.
    RuxEventHandlerTest() {
        timer_.addTimedCallback(
            10000, [](void*) { return 0; }, nullptr);
    }
    void pass() { em_.processEvents(&timer_); }
    rux::test::LogCapture capture_;
    RuxTimer timer_;
    EventManager em_;
};

// One wake-up drains everything queued, including
// what handleEvent posts on the way; a throw loses only its own event.
TEST_F(RuxEventHandlerTest, OneWakeDrainsEveryQueuedEventInOrderPastAThrow) {
    Recorder rec(&timer_, &em_);
    rec.inside = [&](int v) {
        if (v != 1) return;
        rec.post(10);
        rec.post(11);
        throw std::runtime_error("boom");
    };
    for (int v : {1, 2, 3}) rec.post(v);
    EXPECT_TRUE(rec.handled.get().empty());
    capture_.clear();
    pass();
    EXPECT_EQ(rec.handled.get(), (std::vector<int>{2, 3, 10, 11}));
    EXPECT_EQ(capture_.matching("RuxEventHandler cb start").size(), 1u);
    const auto err = capture_.findEndingWith("RuxEventHandler: handleEvent threw: boom");
    EXPECT_EQ(err.priority, ANDROID_LOG_ERROR) << capture_.dump();
}

// Producers on many threads while the loop runs on its own; every event arrives once,
// each producer's events in the order it posted them. Then the handler is destroyed
// on this thread while the loop waits, and the loop closes its eventfd.
TEST_F(RuxEventHandlerTest, ManyProducersAtOnce) {
    constexpr int kProducers = 8, kPerProducer = 400;
    auto rec = std::make_unique<Recorder>(&timer_, &em_);
    std::atomic<bool> stop{false};
    std::thread loop([&] {
        while (!stop) em_.processEvents(nullptr);
    });
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) rec->post(p * kPerProducer + i);
        });
    for (auto& t : producers) t.join();
    ASSERT_TRUE(rec->handled.waitFor(kProducers * kPerProducer));
    const auto handled = rec->handled.get();
    EXPECT_EQ(handled.size(), static_cast<size_t>(kProducers * kPerProducer));
    std::vector<int> next(kProducers, 0);
    for (int v : handled) EXPECT_EQ(v % kPerProducer, next[v / kPerProducer]++) << v;

    const int fd = rec->fd();
    rec.reset();
    EXPECT_TRUE(capture_.waitForText("Closed " + std::to_string(fd)));
    stop = true;
    em_.wake();
    loop.join();
    EXPECT_EQ(em_.getNumRegisteredFds(), 0);
}

}  // namespace
