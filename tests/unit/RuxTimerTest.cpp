// RuxTimer driven by a fake clock, so that every expectation is exact. The clock starts 50 ms
// before a whole second: most expiries carry into the next one and most waits borrow from it.
#include <android/log.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "LogCapture.h"
#include "event/RuxTimer.h"

namespace {

using rux::utils::RuxTimer;

constexpr long kNsPerMs = 1000000L;

struct FakeClock {
    timespec now{5000, 950 * kNsPerMs};
    bool operator()(timespec& out) const {
        out = now;
        return true;
    }
    void advanceNs(long ns) { RuxTimer::addTimeSpec(timespec{now}, timespec{0, ns}, now); }
};

// Counts its runs and answers with the next scripted value (then -1); each run takes
// `runMs` of the fake clock, when it has one.
struct Script {
    std::vector<int> answers;
    FakeClock* clock = nullptr;
    int64_t runMs = 0;
    size_t calls = 0;
    static int run(void* self) {
        auto* s = static_cast<Script*>(self);
        if (s->clock != nullptr) RuxTimer::addDelayToTimeval(s->runMs, s->clock->now);
        return ++s->calls <= s->answers.size() ? s->answers[s->calls - 1] : -1;
    }
};

class RuxTimerTest : public ::testing::Test {
protected:
    FakeClock clock_;
    RuxTimer timer_{nullptr, std::ref(clock_)};
    rux::test::LogCapture capture_;
};

TEST_F(RuxTimerTest, TimeoutIsRoundedUpToWholeMilliseconds) {
    EXPECT_EQ(timer_.timeUntilNextEvent(), -1);  // empty queue
    timespec exact = clock_.now;
    RuxTimer::addDelayToTimeval(50, exact);  // lands on a whole second: carried, never 1e9 ns
    EXPECT_EQ(std::make_pair(exact.tv_sec, exact.tv_nsec), std::make_pair(time_t{5001}, 0L));
    const struct {
        int64_t delayMs;
        long elapsedNs;  // how far the clock moved after the add
        int expected;
    } cases[] = {
        {1, kNsPerMs - 1, 1},           {1, 5 * kNsPerMs, 0}, {1000, 0, 1000},
        {2, kNsPerMs - 1, 2},           {1500, 1, 1500},      {0, 0, 0},
        {INT64_C(1) << 40, 0, INT_MAX},
    };
    for (const auto& c : cases) {
        FakeClock clock;
        RuxTimer timer(nullptr, std::ref(clock));
        ASSERT_GT(timer.addTimedCallback(c.delayMs, Script::run, nullptr), 0);
        clock.advanceNs(c.elapsedNs);
        EXPECT_EQ(timer.timeUntilNextEvent(), c.expected) << c.delayMs << "ms, " << c.elapsedNs;
    }
}

// What the first run's answer does: the time to the next run right after it, measured
// from the callback's return, and again after a second run that answers 0.
TEST_F(RuxTimerTest, ReturnValueDecidesTheReArm) {
    const struct {
        int first;
        int expectedNext;  // -1: gone
        int64_t runMs;
        bool warns;
    } cases[] = {
        {0, 100, 0, false}, {0, 100, 30, false}, {250, 250, 0, false},
        {-1, -1, 0, false}, {-5, 100, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        capture_.clear();
        RuxTimer timer(nullptr, std::ref(clock_));
        Script script{{c.first, 0}, &clock_, c.runMs};
        ASSERT_GT(timer.addTimedCallback(100, Script::run, &script), 0);
        RuxTimer::addDelayToTimeval(100, clock_.now);
        EXPECT_EQ(timer.processEvents(), c.expectedNext);
        if (c.expectedNext > 0) {
            RuxTimer::addDelayToTimeval(c.expectedNext, clock_.now);
            EXPECT_EQ(timer.processEvents(), c.expectedNext);
        }
        EXPECT_EQ(script.calls, c.expectedNext > 0 ? 2u : 1u);
        const auto warn = capture_.findEndingWith("Invalid delay (-5), using 100 instead");
        EXPECT_EQ(warn.priority, c.warns ? ANDROID_LOG_WARN : -1) << capture_.dump();
    }
}

// Due events run in expiry order; two at the same instant both run.
TEST_F(RuxTimerTest, DueEventsRunInExpiryOrder) {
    static std::vector<int> order;
    auto run = [](void* delay) {
        order.push_back(*static_cast<int*>(delay));
        return -1;
    };
    int delays[] = {70, 30, 10, 60, 20, 30, 50, 40};
    for (int& d : delays) ASSERT_GT(timer_.addTimedCallback(d, run, &d), 0);
    EXPECT_EQ(timer_.timeUntilNextEvent(), 10);
    RuxTimer::addDelayToTimeval(45, clock_.now);  // everything up to 40 ms is due
    EXPECT_EQ(timer_.processEvents(), 5);
    EXPECT_EQ(order, (std::vector<int>{10, 20, 30, 30, 40}));
}

// Ids count from 1 and wrap from 0x7FFFFFFE to 1, so an id can be in the queue twice:
// removal drops every event with that id, and only those.
TEST_F(RuxTimerTest, IdsWrapAndRemoveDropsEveryEventWithThatIdOnly) {
    Script keep, drop;
    ASSERT_EQ(timer_.addTimedCallback(10, Script::run, &drop), 1);
    ASSERT_EQ(timer_.addTimedCallback(20, Script::run, &keep), 2);
    timer_.setLastTimerId(0x7FFFFFFD);
    ASSERT_EQ(timer_.addTimedCallback(25, Script::run, &keep), 0x7FFFFFFE);
    ASSERT_EQ(timer_.addTimedCallback(30, Script::run, &drop), 1);
    timer_.removeTimedCallback(1);
    EXPECT_EQ(timer_.timeUntilNextEvent(), 20);
    RuxTimer::addDelayToTimeval(30, clock_.now);
    timer_.processEvents();
    EXPECT_EQ(std::make_pair(keep.calls, drop.calls), std::make_pair(size_t{2}, size_t{0}));
}

// A null callback is refused with its warning; the monitor hears of each add that
// becomes the head of the queue.
TEST_F(RuxTimerTest, NullCallbackIsRefusedAndTheMonitorHearsOfANewHead) {
    EXPECT_EQ(timer_.addTimedCallback(10, nullptr, nullptr), -1);
    EXPECT_EQ(capture_.rows(),
              std::vector<std::string>{
                  "5/(null): addTimedCallback failed; cannot have NULL callback function"});
    struct Monitor : rux::utils::IRuxTimerMonitor {
        const RuxTimer* timer = nullptr;
        std::vector<size_t> queueSizes;  // at each call
        void onTimerQueueHeadChanged() override { queueSizes.push_back(timer->size()); }
    } monitor;
    RuxTimer timer(&monitor, std::ref(clock_));
    monitor.timer = &timer;
    for (int delay : {100, 200, 50}) timer.addTimedCallback(delay, Script::run, nullptr);
    EXPECT_EQ(monitor.queueSizes, (std::vector<size_t>{1, 3}));  // the second add is behind
}

}  // namespace
