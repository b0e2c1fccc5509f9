// RuxTimer: time arithmetic, timeout rounding, the re-arm rules, ordering, removal and
// the id counter, driven by a fake clock so that every expectation is exact.
#include <android/log.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "event/RuxTimer.h"

namespace {

using rux::test::LogCapture;
using rux::utils::IRuxTimerMonitor;
using rux::utils::RuxTimer;

constexpr long kNsPerMs = 1000000L;

struct FakeClock {
    timespec now{5000, 0};
    int failWith = 0;  // errno to fail with, 0: works

    RuxTimer::Clock fn() {
        return [this](timespec& out) {
            if (failWith != 0) {
                errno = failWith;
                return false;
            }
            out = now;
            return true;
        };
    }
    void advanceMs(int64_t ms) { RuxTimer::addDelayToTimeval(ms, now); }
    void advanceNs(long ns) {
        RuxTimer::addTimeSpec(timespec{now.tv_sec, now.tv_nsec}, timespec{0, ns}, now);
    }
};

// A callback that records each call and answers with the next scripted value
// (then -1 once the script is used up).
struct Script {
    std::vector<int> answers;
    std::vector<timespec> calledAt;
    FakeClock* clock = nullptr;
    int64_t advanceInsideMs = 0;  // the callback's own run time on the fake clock

    static int run(void* self) {
        auto* s = static_cast<Script*>(self);
        s->calledAt.push_back(s->clock->now);
        if (s->advanceInsideMs) s->clock->advanceMs(s->advanceInsideMs);
        const size_t i = s->calledAt.size() - 1;
        return i < s->answers.size() ? s->answers[i] : -1;
    }
};

class RuxTimerTest : public ::testing::Test {
protected:
    FakeClock clock_;
    RuxTimer timer_{nullptr, clock_.fn()};
    LogCapture capture_;
};

std::string ts(const timespec& t) {
    return std::to_string(t.tv_sec) + "s" + std::to_string(t.tv_nsec) + "ns";
}

TEST(RuxTimeSpecTest, AddDelayCarriesOnceAndLeavesNegativeDelaysUnnormalised) {
    struct Case {
        timespec start;
        int64_t ms;
        timespec expected;
    } cases[] = {
        {{10, 0}, 0, {10, 0}},
        {{10, 0}, 1500, {11, 500 * kNsPerMs}},
        {{10, 600 * kNsPerMs}, 400, {11, 0}},
        {{10, 999999999}, 1, {11, kNsPerMs - 1}},
        {{10, 500 * kNsPerMs}, 2750, {13, 250 * kNsPerMs}},
        {{10, 500 * kNsPerMs}, -700, {10, -200 * kNsPerMs}},
        {{10, 0}, -2000, {8, 0}},
    };
    for (const auto& c : cases) {
        timespec t = c.start;
        RuxTimer::addDelayToTimeval(c.ms, t);
        EXPECT_EQ(ts(t), ts(c.expected)) << ts(c.start) << " + " << c.ms << "ms";
    }
}

TEST(RuxTimeSpecTest, AddSubAndCompare) {
    timespec out{};
    EXPECT_TRUE(RuxTimer::addTimeSpec({1, 600000000}, {2, 500000000}, out));
    EXPECT_EQ(ts(out), ts({4, 100000000}));
    EXPECT_TRUE(RuxTimer::subTimeSpec({4, 100000000}, {2, 500000000}, out));
    EXPECT_EQ(ts(out), ts({1, 600000000}));
    EXPECT_TRUE(RuxTimer::subTimeSpec({2, 0}, {3, 1}, out));
    EXPECT_EQ(ts(out), ts({-2, 999999999}));

    struct Case {
        timespec a, b;
        int expected;
    } cases[] = {
        {{1, 0}, {1, 0}, 0},         {{1, 1}, {1, 0}, 1},   {{1, 0}, {1, 1}, -1},
        {{2, 0}, {1, 999999999}, 1}, {{-1, 5}, {0, 0}, -1}, {{10, -200}, {10, 0}, -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RuxTimer::cmpTimeSpec(c.a, c.b), c.expected) << ts(c.a) << " vs " << ts(c.b);
}

TEST_F(RuxTimerTest, TimeoutIsRoundedUpToWholeMilliseconds) {
    EXPECT_EQ(timer_.timeUntilNextEvent(), -1);  // empty queue

    struct Case {
        int64_t delayMs;
        long elapsedNs;  // how far the clock moved after the add
        int expected;
    } cases[] = {
        {1, kNsPerMs - 1, 1},  // 1 ns left
        {1, kNsPerMs, 0},      // exactly due
        {1, kNsPerMs + 1, 0},  // overdue
        {2, kNsPerMs - 1, 2},  // 1 ms + 1 ns left
        {1500, 0, 1500},
        {1500, 1, 1500},  // 1499.999999 ms left
        {0, 0, 0},
        {INT64_C(1) << 40, 0, INT_MAX},  // far-off events wait INT_MAX at a time
    };
    for (const auto& c : cases) {
        RuxTimer timer(nullptr, clock_.fn());
        ASSERT_GT(timer.addTimedCallback(c.delayMs, Script::run, nullptr), 0);
        const timespec saved = clock_.now;
        clock_.advanceNs(c.elapsedNs);
        EXPECT_EQ(timer.timeUntilNextEvent(), c.expected)
            << "delay " << c.delayMs << "ms, " << c.elapsedNs << "ns elapsed";
        clock_.now = saved;
    }
}

// What the callback's return value does to the next run: the time to the next call
// right after each run, and the period kept afterwards.
TEST_F(RuxTimerTest, ReturnValueDecidesTheReArm) {
    struct Case {
        const char* name;
        int first;           // answer of the first run
        int expectedNext;    // timeUntilNextEvent() after it, -1: gone
        int expectedPeriod;  // time to the run after the second (which answers 0)
        const char* warning;
        int64_t runMs = 0;  // each run's own time; the next is measured from its return
    } cases[] = {
        {"zero keeps the period", 0, 100, 100, nullptr},
        {"zero, measured from the return", 0, 100, 100, nullptr, 30},
        {"positive sets a new period", 250, 250, 250, nullptr},
        {"minus one ends the timer", -1, -1, -1, nullptr},
        {"below minus one keeps the period", -5, 100, 100, "Invalid delay (-5), using 100 instead"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        capture_.clear();
        RuxTimer timer(nullptr, clock_.fn());
        Script script{{c.first, 0}, {}, &clock_, c.runMs};
        ASSERT_GT(timer.addTimedCallback(100, Script::run, &script), 0);
        clock_.advanceMs(100);
        EXPECT_EQ(timer.processEvents(), c.expectedNext);
        EXPECT_EQ(script.calledAt.size(), 1u);
        EXPECT_EQ(timer.timeUntilNextEvent(), c.expectedNext);
        if (c.expectedNext > 0) {
            clock_.advanceMs(c.expectedNext);
            EXPECT_EQ(timer.processEvents(), c.expectedPeriod);
            EXPECT_EQ(script.calledAt.size(), 2u);
        }
        if (c.warning) {
            const auto warn = capture_.matching("Invalid delay");
            ASSERT_EQ(warn.size(), 1u) << capture_.dump();
            EXPECT_EQ(warn[0].text, c.warning);
            EXPECT_EQ(warn[0].priority, ANDROID_LOG_WARN);
            EXPECT_EQ(warn[0].tag, LogCapture::kNullTag);
        } else {
            EXPECT_FALSE(capture_.contains("Invalid delay")) << capture_.dump();
        }
    }
}

TEST_F(RuxTimerTest, ZeroDelayCallbackReturningZeroRunsAgainInTheSamePass) {
    Script script{{0, 0, 0, 0, -1}, {}, &clock_};
    ASSERT_GT(timer_.addTimedCallback(0, Script::run, &script), 0);
    EXPECT_EQ(timer_.processEvents(), -1);
    EXPECT_EQ(script.calledAt.size(), 5u);
    EXPECT_EQ(timer_.size(), 0u);
}

TEST_F(RuxTimerTest, DueEventsRunInExpiryOrder) {
    std::vector<int> delays(64);
    std::iota(delays.begin(), delays.end(), 1);
    delays.push_back(32);  // two events due at the same instant both run
    std::shuffle(delays.begin(), delays.end(), std::mt19937(7));
    struct Rec {
        std::vector<int>* order;
        int delay;
        static int run(void* self) {
            auto* r = static_cast<Rec*>(self);
            r->order->push_back(r->delay);
            return -1;
        }
    };
    std::vector<int> order;
    std::vector<Rec> recs;
    recs.reserve(delays.size());
    for (int d : delays) {
        recs.push_back({&order, d});
        ASSERT_GT(timer_.addTimedCallback(d * 10, Rec::run, &recs.back()), 0);
    }
    EXPECT_EQ(timer_.timeUntilNextEvent(), 10);
    clock_.advanceMs(325);  // everything up to 320 ms is due
    EXPECT_EQ(timer_.processEvents(), 5);
    std::vector<int> expected(32);
    std::iota(expected.begin(), expected.end(), 1);
    expected.push_back(32);
    EXPECT_EQ(order, expected);
    EXPECT_EQ(timer_.size(), 32u);
}

// Ids count from 1 and wrap from 0x7FFFFFFE to 1, so an id can be in the queue twice.
TEST_F(RuxTimerTest, IdsWrapAndRemoveDropsEveryEventWithThatIdOnly) {
    Script keep{{}, {}, &clock_}, drop{{}, {}, &clock_};
    ASSERT_EQ(timer_.addTimedCallback(10, Script::run, &drop), 1);
    ASSERT_EQ(timer_.addTimedCallback(20, Script::run, &keep), 2);
    timer_.setLastTimerId(0x7FFFFFFD);
    ASSERT_EQ(timer_.addTimedCallback(25, Script::run, &keep), 0x7FFFFFFE);
    ASSERT_EQ(timer_.addTimedCallback(30, Script::run, &drop), 1);
    timer_.removeTimedCallback(12345);  // unknown: no change
    EXPECT_EQ(timer_.size(), 4u);
    timer_.removeTimedCallback(1);
    EXPECT_EQ(timer_.size(), 2u);
    EXPECT_EQ(timer_.timeUntilNextEvent(), 20);
    clock_.advanceMs(30);
    timer_.processEvents();
    EXPECT_EQ(keep.calledAt.size(), 2u);
    EXPECT_EQ(drop.calledAt.size(), 0u);
}

TEST_F(RuxTimerTest, CallbackMayRemoveAndAddTimersOnItsOwnQueue) {
    struct Ctx {
        RuxTimer* timer;
        int victim = 0;
        int victimRuns = 0;
        int addedRuns = 0;
        static int victimRun(void* self) {
            ++static_cast<Ctx*>(self)->victimRuns;
            return -1;
        }
        static int added(void* self) {
            ++static_cast<Ctx*>(self)->addedRuns;
            return -1;
        }
        static int first(void* self) {
            auto* c = static_cast<Ctx*>(self);
            c->timer->removeTimedCallback(c->victim);
            EXPECT_GT(c->timer->addTimedCallback(0, added, c), 0);
            return -1;
        }
    } ctx{&timer_};
    timer_.addTimedCallback(5, Ctx::first, &ctx);
    ctx.victim = timer_.addTimedCallback(6, Ctx::victimRun, &ctx);
    clock_.advanceMs(6);  // both due; the earlier one removes the other
    EXPECT_EQ(timer_.processEvents(), -1);
    EXPECT_EQ(ctx.victimRuns, 0);
    EXPECT_EQ(ctx.addedRuns, 1);  // added from inside, due at once: same pass
}

TEST_F(RuxTimerTest, FailuresReturnMinusOneWithTheirLogLine) {
    EXPECT_EQ(timer_.addTimedCallback(10, nullptr, nullptr), -1);
    clock_.failWith = EINVAL;
    EXPECT_EQ(timer_.addTimedCallback(10, Script::run, nullptr), -1);
    clock_.failWith = 0;
    ASSERT_GT(timer_.addTimedCallback(10, Script::run, nullptr), 0);
    clock_.failWith = EINVAL;
    EXPECT_EQ(timer_.timeUntilNextEvent(), -1);

    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 3u) << capture_.dump();
    EXPECT_EQ(lines[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(lines[0].text, "addTimedCallback failed; cannot have NULL callback function");
    EXPECT_EQ(lines[1].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[1].text, "addTimedCallback failed; clock_gettime(): Invalid argument");
    EXPECT_EQ(lines[2].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[2].text, "timeUntilNextCallback failed; clock_gettime(): Invalid argument");
    for (const auto& l : lines) EXPECT_EQ(l.tag, LogCapture::kNullTag);
}

TEST_F(RuxTimerTest, MonitorHearsOnlyOfANewHead) {
    struct Monitor : IRuxTimerMonitor {
        int calls = 0;
        void onTimerQueueHeadChanged() override { ++calls; }
    } monitor;
    RuxTimer timer(&monitor, clock_.fn());
    timer.addTimedCallback(100, Script::run, nullptr);
    EXPECT_EQ(monitor.calls, 1);
    timer.addTimedCallback(200, Script::run, nullptr);  // behind the head
    EXPECT_EQ(monitor.calls, 1);
    timer.addTimedCallback(50, Script::run, nullptr);
    EXPECT_EQ(monitor.calls, 2);
}

TEST_F(RuxTimerTest, LogPrintsBannerCountAndNextTime) {
    timer_.addTimedCallback(42, Script::run, nullptr);
    timer_.addTimedCallback(99, Script::run, nullptr);
    timer_.log();
    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 3u) << capture_.dump();
    EXPECT_EQ(lines[0].text, "RuxTimer " + std::string(43, '*'));
    EXPECT_EQ(lines[1].text, "    items queued: 2");
    EXPECT_EQ(lines[2].text, "    next item in: 42ms");
    for (const auto& l : lines) EXPECT_EQ(l.priority, ANDROID_LOG_DEBUG);
}

}  // namespace
