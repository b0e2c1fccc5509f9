// RuxTimer: time arithmetic, timeout rounding, the re-arm rules, ordering, removal and
// the id counter, driven by a fake clock so that every expectation is exact.
#include <android/log.h>
#include <gtest/gtest.h>

#include <climits>

#include "LogCapture.h"
#include "event/RuxTimer.h"

namespace {

using rux::utils::RuxTimer;

constexpr long kNsPerMs = 1000000L;

struct FakeClock {
    timespec now{5000, 0};
    RuxTimer::Clock fn() {
        return [this](timespec& out) {
            out = now;
            return true;
        };
    }
    void advanceNs(long ns) { RuxTimer::addTimeSpec(timespec{now}, timespec{0, ns}, now); }
};

// A callback that counts its runs and answers with the next scripted value (then -1),
// taking `runMs` of the fake clock itself.
struct Script {
    std::vector<int> answers;
    FakeClock* clock = nullptr;
    int64_t runMs = 0;
    size_t calls = 0;
    static int run(void* self) {
        auto* s = static_cast<Script*>(self);
        RuxTimer::addDelayToTimeval(s->runMs, s->clock->now);
        return ++s->calls <= s->answers.size() ? s->answers[s->calls - 1] : -1;
    }
};

TEST(RuxTimeSpecTest, AddDelayCarriesIntoSecondsOnce) {
    const struct {
        timespec start;
        int64_t ms;
        timespec expected;
    } delays[] = {
        {{10, 0}, 1500, {11, 500 * kNsPerMs}},
        {{10, 600 * kNsPerMs}, 400, {11, 0}},
        {{10, 999999999}, 1, {11, kNsPerMs - 1}},
        {{10, 500 * kNsPerMs}, 2750, {13, 250 * kNsPerMs}},
    };
    for (const auto& c : delays) {
        timespec t = c.start;
        RuxTimer::addDelayToTimeval(c.ms, t);
        EXPECT_EQ(std::make_pair(t.tv_sec, t.tv_nsec),
                  std::make_pair(c.expected.tv_sec, c.expected.tv_nsec))
            << c.start.tv_sec << "s" << c.start.tv_nsec << "ns + " << c.ms << "ms";
    }
}

class RuxTimerTest : public ::testing::Test {
protected:
    FakeClock clock_;
    RuxTimer timer_{nullptr, clock_.fn()};
    rux::test::LogCapture capture_;
};

TEST_F(RuxTimerTest, TimeoutIsRoundedUpToWholeMilliseconds) {
    EXPECT_EQ(timer_.timeUntilNextEvent(), -1);  // empty queue
    const struct {
        int64_t delayMs;
        long elapsedNs;  // how far the clock moved after the add
        int expected;
    } cases[] = {
        {1, kNsPerMs - 1, 1},           {1, kNsPerMs, 0}, {1, kNsPerMs + 1, 0},
        {2, kNsPerMs - 1, 2},           {1500, 1, 1500},  {0, 0, 0},
        {INT64_C(1) << 40, 0, INT_MAX},
    };
    for (const auto& c : cases) {
        RuxTimer timer(nullptr, clock_.fn());
        ASSERT_GT(timer.addTimedCallback(c.delayMs, Script::run, nullptr), 0);
        const timespec saved = clock_.now;
        clock_.advanceNs(c.elapsedNs);
        EXPECT_EQ(timer.timeUntilNextEvent(), c.expected) << c.delayMs << "ms, " << c.elapsedNs;
        clock_.now = saved;
    }
}

// What the callback's return value does to the next run: the time to the next call
// right after each run (measured from the callback's return), and the period kept.
TEST_F(RuxTimerTest, ReturnValueDecidesTheReArm) {
    const struct {
        int first;           // answer of the first run
        int expectedNext;    // timeUntilNextEvent() after it, -1: gone
        int expectedPeriod;  // time to the run after the second (which answers 0)
        int64_t runMs;
        bool warns;
    } cases[] = {
        {0, 100, 100, 0, false}, {0, 100, 100, 30, false}, {250, 250, 250, 0, false},
        {-1, -1, -1, 0, false},  {-5, 100, 100, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        capture_.clear();
        RuxTimer timer(nullptr, clock_.fn());
        Script script{{c.first, 0}, &clock_, c.runMs};
        ASSERT_GT(timer.addTimedCallback(100, Script::run, &script), 0);
        RuxTimer::addDelayToTimeval(100, clock_.now);
        EXPECT_EQ(timer.processEvents(), c.expectedNext);
        EXPECT_EQ(timer.timeUntilNextEvent(), c.expectedNext);
        if (c.expectedNext > 0) {
            RuxTimer::addDelayToTimeval(c.expectedNext, clock_.now);
            EXPECT_EQ(timer.processEvents(), c.expectedPeriod);
        }
        EXPECT_EQ(script.calls, c.expectedNext > 0 ? 2u : 1u);
        const auto warn = capture_.findEndingWith("Invalid delay (-5), using 100 instead");
        EXPECT_EQ(warn.priority, c.warns ? ANDROID_LOG_WARN : -1) << capture_.dump();
    }
    Script zero{{0, 0, 0, 0, -1}, &clock_};  // due at once and answering 0: again at once
    ASSERT_GT(timer_.addTimedCallback(0, Script::run, &zero), 0);
    EXPECT_EQ(timer_.processEvents(), -1);
    EXPECT_EQ(zero.calls, 5u);
}

// Due events run in expiry order (two at the same instant both run); a callback may
// remove a due one and add one due at once, which runs in the same pass.
TEST_F(RuxTimerTest, DueEventsRunInExpiryOrderAndMayChangeTheQueue) {
    struct Rec {
        std::vector<int>* order;
        int delay;
    };
    auto run = [](void* r) {
        return static_cast<Rec*>(r)->order->push_back(static_cast<Rec*>(r)->delay), -1;
    };
    std::vector<int> order;
    std::vector<Rec> recs;
    for (int d : {70, 30, 10, 60, 20, 30, 50, 40}) recs.push_back({&order, d});
    for (Rec& r : recs) ASSERT_GT(timer_.addTimedCallback(r.delay, run, &r), 0);
    EXPECT_EQ(timer_.timeUntilNextEvent(), 10);
    RuxTimer::addDelayToTimeval(45, clock_.now);  // everything up to 40 ms is due
    EXPECT_EQ(timer_.processEvents(), 5);
    EXPECT_EQ(order, (std::vector<int>{10, 20, 30, 30, 40}));
    EXPECT_EQ(timer_.size(), 3u);

    struct Ctx {
        RuxTimer* timer;
        int victim, victimRuns, addedRuns;
    } ctx{&timer_, 0, 0, 0};
    auto first = [](void* p) {
        auto* c = static_cast<Ctx*>(p);
        c->timer->removeTimedCallback(c->victim);
        c->timer->addTimedCallback(
            0, [](void* q) { return ++static_cast<Ctx*>(q)->addedRuns, -1; }, c);
        return -1;
    };
    timer_.addTimedCallback(5, first, &ctx);
    ctx.victim = timer_.addTimedCallback(
        6, [](void* p) { return ++static_cast<Ctx*>(p)->victimRuns, -1; }, &ctx);
    RuxTimer::addDelayToTimeval(10, clock_.now);  // both due; the earlier removes the other
    timer_.processEvents();
    EXPECT_EQ(ctx.victimRuns, 0);
    EXPECT_EQ(ctx.addedRuns, 1);  // added from inside, due at once: same pass
}

// Ids count from 1 and wrap from 0x7FFFFFFE to 1, so an id can be in the queue twice:
// removal drops every event with that id, and only those.
TEST_F(RuxTimerTest, IdsWrapAndRemoveDropsEveryEventWithThatIdOnly) {
    Script keep{{}, &clock_}, drop{{}, &clock_};
    ASSERT_EQ(timer_.addTimedCallback(10, Script::run, &drop), 1);
    ASSERT_EQ(timer_.addTimedCallback(20, Script::run, &keep), 2);
    timer_.setLastTimerId(0x7FFFFFFD);
    ASSERT_EQ(timer_.addTimedCallback(25, Script::run, &keep), 0x7FFFFFFE);
    ASSERT_EQ(timer_.addTimedCallback(30, Script::run, &drop), 1);
    timer_.removeTimedCallback(12345);
    EXPECT_EQ(timer_.size(), 4u);
    timer_.removeTimedCallback(1);
    EXPECT_EQ(timer_.size(), 2u);
    EXPECT_EQ(timer_.timeUntilNextEvent(), 20);
    RuxTimer::addDelayToTimeval(30, clock_.now);
    timer_.processEvents();
    EXPECT_EQ(keep.calls, 2u);
    EXPECT_EQ(drop.calls, 0u);
}

// A null callback is refused with its warning; the monitor hears of each add that
// becomes the head of the queue.
TEST_F(RuxTimerTest, NullCallbackIsRefusedAndTheMonitorHearsOfANewHead) {
    EXPECT_EQ(timer_.addTimedCallback(10, nullptr, nullptr), -1);
    EXPECT_EQ(capture_.rows(),
              std::vector<std::string>{
                  "5/(null): addTimedCallback failed; cannot have NULL callback function"});
    struct Monitor : rux::utils::IRuxTimerMonitor {
        int calls = 0;
        void onTimerQueueHeadChanged() override { ++calls; }
    } monitor;
    RuxTimer timer(&monitor, clock_.fn());
    std::vector<int> heads;
    for (int delay : {100, 200, 50}) {  // the second is behind the head
        timer.addTimedCallback(delay, Script::run, nullptr);
        heads.push_back(monitor.calls);
    }
    EXPECT_EQ(heads, (std::vector<int>{1, 1, 2}));
}

}  // namespace
