// RuxTimer: the queue of timed callbacks that the SDK event loop runs.
//
// A binary min-heap of TimedEvent ordered by absolute expiry on CLOCK_BOOTTIME, so
// time spent in suspend counts. A callback's return value decides what happens next:
//   -1        finished, not re-armed;
//    0        re-armed with its current period;
//   >0        re-armed after that many milliseconds, which become its period;
//   < -1      logged as invalid and re-armed with its current period.
// Re-arming is measured from the moment the callback returned.
//
// Threads: none of its own and no lock. Every operation runs on the thread that runs
// the event loop; a callback may add or remove timers on the same queue (the running
// event is already off the heap).
//
// Test seams: the clock is a constructor argument (CLOCK_BOOTTIME by default), and
// setLastTimerId() places the id counter anywhere, e.g. just before its wrap.
#pragma once

#include <time.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace rux::utils {

// Told when an add puts a new event at the head of the queue. The SDK builds its
// timer without one; the loop is re-entered by its own timeout or by a wake.
class IRuxTimerMonitor {
public:
    virtual void onTimerQueueHeadChanged() = 0;

protected:
    ~IRuxTimerMonitor() = default;
};

class RuxTimer {
public:
    using TimerCallback = int (*)(void* data);
    // Fills `now` and returns true, or returns false with errno set.
    using Clock = std::function<bool(timespec& now)>;

    struct TimedEvent {
        int timerId = 0;
        timespec expiry{};  // absolute, on the queue's clock
        TimerCallback callback = nullptr;
        void* data = nullptr;
        int64_t delayMs = 0;  // period used when the callback returns 0
    };

    // a after b when a expires later: the earliest expiry is the heap's top. Equal
    // expiries are not ordered further.
    struct TimedEventCmp {
        bool operator()(const TimedEvent& a, const TimedEvent& b) const {
            return cmpTimeSpec(a.expiry, b.expiry) == 1;
        }
    };

    explicit RuxTimer(IRuxTimerMonitor* monitor = nullptr, Clock clock = bootClock);

    RuxTimer(const RuxTimer&) = delete;
    RuxTimer& operator=(const RuxTimer&) = delete;

    // Queues `callback(data)` to run `delayMs` from now (0: due at once). Returns the
    // timer id, or -1 for a null callback or a clock failure.
    int addTimedCallback(int64_t delayMs, TimerCallback callback, void* data);
    // Drops every queued event with this id; an unknown id changes nothing.
    void removeTimedCallback(int timerId);
    // Runs every due callback, re-arming as they ask. Returns what
    // timeUntilNextEvent() returns afterwards (never 0).
    int processEvents();
    // Milliseconds until the head is due, rounded up; 0 when it is due, -1 when the
    // queue is empty or the clock fails. Capped at INT_MAX.
    int timeUntilNextEvent() const;
    // Three debug lines: a banner, the queue length, the time to the next event.
    void log() const;
    // 1, 2, ..., 0x7FFFFFFE, then 1 again. Wrapped ids are not checked against ids
    // still queued.
    int getNextTimerId();

    size_t size() const { return mQueue.size(); }
    // Test seam: the next id handed out is `id` + 1 (or 1 after 0x7FFFFFFE).
    void setLastTimerId(int id) { lastTimerId = id; }

    // The processor's free-running virtual counter, read from the hardware. Not used
    // by the queue.
    static uint64_t getQTimerCount();

    // Adds `ms` in place, carrying once into seconds. A negative delay leaves a
    // negative nanosecond part as it is.
    static void addDelayToTimeval(int64_t ms, timespec& ts);
    static bool addTimeSpec(const timespec& a, const timespec& b, timespec& out);
    // out = a - b, borrowing once.
    static bool subTimeSpec(const timespec& a, const timespec& b, timespec& out);
    // -1, 0 or 1 as a is earlier than, equal to or later than b.
    static int cmpTimeSpec(const timespec& a, const timespec& b);

    // The default clock: clock_gettime(CLOCK_BOOTTIME).
    static bool bootClock(timespec& now);

private:
    void push(const TimedEvent& ev);
    TimedEvent popTop();

    std::vector<TimedEvent> mQueue;  // heap under TimedEventCmp
    IRuxTimerMonitor* monitor;
    int lastTimerId = 0;
    Clock mClock;
};

}  // namespace rux::utils
