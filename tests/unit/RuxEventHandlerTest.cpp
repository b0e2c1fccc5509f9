// RuxEventHandler over a real EventManager: one wake-up drains everything queued, in
// order, including what handleEvent posts; the count and the queue stay paired when
// the eventfd misbehaves; many producers at once; hand-back of the eventfd.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "sdk/RuxEventHandler.h"

namespace {

using rux::test::LogCapture;
using rux::utils::EventManager;
using rux::utils::RuxEventHandler;
using rux::utils::RuxTimer;
using namespace std::chrono_literals;

using Event = std::shared_ptr<int>;

class Recorder : public RuxEventHandler<Event> {
public:
    Recorder(RuxTimer* timer, EventManager* em) : RuxEventHandler(timer, em, "Recorder") {}
    // May be destroyed while the loop runs on another thread.
    ~Recorder() override { detachFromLoop(); }

    int fd() const { return mFd; }
    std::vector<int> handled() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mHandled;
    }
    bool waitForCount(size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, 10s, [&] { return mHandled.size() >= n; });
    }

    std::function<void(int)> inside;  // extra work inside handleEvent (loop thread)

protected:
    void handleEvent(Event ev) override {
        if (inside) inside(*ev);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mHandled.push_back(*ev);
        }
        mCond.notify_all();
    }

private:
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

    static std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2))) {
        char buf[256];
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(buf, sizeof(buf), fmt, ap);
        va_end(ap);
        return buf;
    }
    size_t count(const std::string& text) {
        size_t n = 0;
        for (const auto& l : capture_.lines()) n += l.text == text;
        return n;
    }
    void writeCount(int fd, uint64_t value) {
        ASSERT_EQ(write(fd, &value, sizeof(value)), static_cast<ssize_t>(sizeof(value)));
    }

    LogCapture capture_;
    RuxTimer timer_;
    EventManager em_;
};

// Construction registers the eventfd; one wake-up then drains everything queued.
TEST_F(RuxEventHandlerTest, OneWakeDispatchesEveryQueuedEventInOrder) {
    capture_.clear();
    Recorder rec(&timer_, &em_);
    EXPECT_EQ(em_.getNumRegisteredFds(), 1);
    EXPECT_TRUE(em_.isApprovedFd(rec.fd()));
    ASSERT_FALSE(capture_.lines().empty());
    EXPECT_EQ(capture_.lines().front().text, "RuxEventHandler ctor");
    EXPECT_EQ(count(format("RuxEventHandler: ctor fd[%d] name[Recorder] addr[%p]", rec.fd(),
                           static_cast<void*>(&rec))),
              1u)
        << capture_.dump();

    std::vector<Event> events = {std::make_shared<int>(1), std::make_shared<int>(2),
                                 std::make_shared<int>(3)};
    capture_.clear();
    for (auto& e : events) rec.postEvent(e);
    EXPECT_TRUE(rec.handled().empty());
    pass();
    EXPECT_EQ(rec.handled(), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(count("RuxEventHandler cb start"), 1u);
    EXPECT_EQ(count("RuxEventHandler cb end"), 1u);
    const void* self = &rec;
    for (auto& e : events) {
        EXPECT_EQ(count(format("Wakelock evt start %p %p", self, static_cast<void*>(e.get()))), 1u)
            << capture_.dump();
        EXPECT_EQ(count(format("Wakelock evt end %p %p", self, static_cast<void*>(e.get()))), 1u);
    }
    EXPECT_EQ(count(format("RuxEventHandler postEvent start for fd[%d]", rec.fd())), 3u);
    for (const auto& l : capture_.lines()) EXPECT_EQ(l.tag, LogCapture::kNullTag);
}

// What handleEvent posts goes out in the same drain; a throw loses only its own event.
TEST_F(RuxEventHandlerTest, PostsFromHandleEventGoOutInTheSameDrainPastAThrow) {
    Recorder rec(&timer_, &em_);
    rec.inside = [&](int v) {
        if (v != 1) return;
        rec.postEvent(std::make_shared<int>(10));
        rec.postEvent(std::make_shared<int>(11));
        throw std::runtime_error("boom");
    };
    rec.postEvent(std::make_shared<int>(1));
    rec.postEvent(std::make_shared<int>(2));
    capture_.clear();
    pass();
    EXPECT_EQ(rec.handled(), (std::vector<int>{2, 10, 11}));
    EXPECT_EQ(count("RuxEventHandler cb start"), 1u);
    const auto err = capture_.findEndingWith("RuxEventHandler: handleEvent threw: boom");
    EXPECT_EQ(err.priority, ANDROID_LOG_ERROR) << capture_.dump();
}

TEST_F(RuxEventHandlerTest, CountWithoutAnEventIsReportedAndLeftAlone) {
    Recorder rec(&timer_, &em_);
    writeCount(rec.fd(), 2);  // two wake-ups nobody queued
    rec.postEvent(std::make_shared<int>(5));
    capture_.clear();
    pass();
    EXPECT_EQ(rec.handled(), std::vector<int>{5});
    const auto err = capture_.findEndingWith(
        format("More fd reads than queue events. SHOULD NEVER HAPPEN. fd=%d", rec.fd()));
    EXPECT_EQ(err.priority, ANDROID_LOG_ERROR) << capture_.dump();
    // Left for the next wake: one count remains, and the next drain meets it again.
    capture_.clear();
    pass();
    EXPECT_EQ(capture_.matching("More fd reads than queue events").size(), 1u);
    EXPECT_EQ(rec.handled(), std::vector<int>{5});
}

TEST_F(RuxEventHandlerTest, FailedSignalLeavesTheEventQueuedForTheNextWake) {
    Recorder rec(&timer_, &em_);
    writeCount(rec.fd(), UINT64_C(0xfffffffffffffffe));  // the counter is full
    capture_.clear();
    rec.postEvent(std::make_shared<int>(7));
    const auto err = capture_.findEndingWith(format(
        "Error in writing rv: -1, error: Resource temporarily unavailable, for fd[%d]", rec.fd()));
    EXPECT_EQ(err.priority, ANDROID_LOG_ERROR) << capture_.dump();
    pass();
    EXPECT_EQ(rec.handled(), std::vector<int>{7});
}

// Producers on many threads while the loop runs on its own; every event arrives once,
// each producer's events in the order it posted them. Then the handler is destroyed
// on this thread while the loop waits, and the loop closes its eventfd.
TEST_F(RuxEventHandlerTest, ManyProducersAtOnce) {
    constexpr int kProducers = 8;
    constexpr int kPerProducer = 400;
    auto rec = std::make_unique<Recorder>(&timer_, &em_);
    std::atomic<bool> stop{false};
    std::thread loop([&] {
        while (!stop) em_.processEvents(nullptr);
    });
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i)
                rec->postEvent(std::make_shared<int>(p * kPerProducer + i));
        });
    for (auto& t : producers) t.join();
    ASSERT_TRUE(rec->waitForCount(kProducers * kPerProducer));

    const auto handled = rec->handled();
    EXPECT_EQ(handled.size(), static_cast<size_t>(kProducers * kPerProducer));
    std::vector<int> next(kProducers, 0);
    for (int v : handled) {
        const int p = v / kPerProducer;
        EXPECT_EQ(v % kPerProducer, next[p]) << "producer " << p;
        next[p] = v % kPerProducer + 1;
    }
    for (int p = 0; p < kProducers; ++p) EXPECT_EQ(next[p], kPerProducer);

    const int fd = rec->fd();
    rec.reset();
    EXPECT_TRUE(capture_.waitForText(format("Closed %d", fd)));
    EXPECT_TRUE(capture_.contains("dtor"));
    stop = true;
    em_.wake();
    loop.join();
    EXPECT_EQ(em_.getNumRegisteredFds(), 0);
}

}  // namespace
