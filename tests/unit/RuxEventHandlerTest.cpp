// RuxEventHandler over a real EventManager: one wake-up drains everything queued, in
// order, including what handleEvent posts; the count and the queue stay paired when
// the eventfd misbehaves; many producers at once; hand-back of the eventfd.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "LogCapture.h"
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
    std::vector<int> handled() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mHandled;
    }
    bool waitForCount(size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, std::chrono::seconds(10), [&] { return mHandled.size() >= n; });
    }
    std::function<void(int)> inside;  // extra work inside handleEvent (loop thread)

protected:
    void handleEvent(Event ev) override {
        if (inside) inside(*ev);
        std::lock_guard<std::mutex> lock(mMutex);
        mHandled.push_back(*ev);
        mCond.notify_all();
    }
    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<int> mHandled;
};

class RuxEventHandlerTest : public ::testing::Test {
protected:
    // Passes on this thread give up after the deadline instead of hanging.
    RuxEventHandlerTest() {
        timer_.addTimedCallback(
            10000, [](void*) { return 0; }, nullptr);
    }
    void pass() { em_.processEvents(&timer_); }
    void writeCount(int fd, uint64_t value) {
        ASSERT_EQ(write(fd, &value, sizeof(value)), static_cast<ssize_t>(sizeof(value)));
    }
    rux::test::LogCapture capture_;
    RuxTimer timer_;
    EventManager em_;
};

// Construction registers the eventfd; one wake-up drains everything queued, including
// what handleEvent posts on the way; a throw loses only its own event.
TEST_F(RuxEventHandlerTest, OneWakeDrainsEveryQueuedEventInOrderPastAThrow) {
    Recorder rec(&timer_, &em_);
    EXPECT_EQ(em_.getNumRegisteredFds(), 1);
    EXPECT_TRUE(em_.isApprovedFd(rec.fd()));
    rec.inside = [&](int v) {
        if (v != 1) return;
        rec.post(10);
        rec.post(11);
        throw std::runtime_error("boom");
    };
    for (int v : {1, 2, 3}) rec.post(v);
    EXPECT_TRUE(rec.handled().empty());
    capture_.clear();
    pass();
    EXPECT_EQ(rec.handled(), (std::vector<int>{2, 3, 10, 11}));
    EXPECT_EQ(capture_.matching("RuxEventHandler cb start").size(), 1u);
    const auto err = capture_.findEndingWith("RuxEventHandler: handleEvent threw: boom");
    EXPECT_EQ(err.priority, ANDROID_LOG_ERROR) << capture_.dump();
}

// A count nobody queued is reported and left for the next wake; a post whose signal
// cannot be written (the counter is full) stays queued for the next wake.
TEST_F(RuxEventHandlerTest, CountAndQueueStayPairedWhenTheEventfdMisbehaves) {
    Recorder rec(&timer_, &em_);
    writeCount(rec.fd(), 2);  // two wake-ups nobody queued
    rec.post(5);
    capture_.clear();
    pass();
    EXPECT_EQ(rec.handled(), std::vector<int>{5});
    const std::string more =
        "More fd reads than queue events. SHOULD NEVER HAPPEN. fd=" + std::to_string(rec.fd());
    EXPECT_EQ(capture_.findEndingWith(more).priority, ANDROID_LOG_ERROR) << capture_.dump();
    capture_.clear();
    pass();  // one count remains, and the next drain meets it again
    EXPECT_EQ(capture_.matching(more).size(), 1u);

    writeCount(rec.fd(), UINT64_C(0xfffffffffffffffe));
    capture_.clear();
    rec.post(7);
    const std::string full =
        "Error in writing rv: -1, error: Resource temporarily unavailable, for fd[" +
        std::to_string(rec.fd()) + "]";
    EXPECT_EQ(capture_.findEndingWith(full).priority, ANDROID_LOG_ERROR) << capture_.dump();
    pass();
    EXPECT_EQ(rec.handled(), (std::vector<int>{5, 7}));
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
    ASSERT_TRUE(rec->waitForCount(kProducers * kPerProducer));
    const auto handled = rec->handled();
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
