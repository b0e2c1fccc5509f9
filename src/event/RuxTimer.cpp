#include "event/RuxTimer.h"

#include <android/log.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <climits>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace rux::utils {

namespace {

constexpr long kNsPerSec = 1000000000L;
constexpr long kNsPerMs = 1000000L;
constexpr int kMaxTimerId = 0x7FFFFFFF;  // never handed out: the counter wraps to 1

}  // namespace

RuxTimer::RuxTimer(IRuxTimerMonitor* monitor, Clock clock)
    : monitor(monitor), mClock(clock ? std::move(clock) : Clock(bootClock)) {}

bool RuxTimer::bootClock(timespec& now) {
    return clock_gettime(CLOCK_BOOTTIME, &now) == 0;
}

uint64_t RuxTimer::getQTimerCount() {
#if defined(__aarch64__)
    uint64_t count;
    asm volatile("mrs %0, cntvct_el0" : "=r"(count));
    return count;
#elif defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * kNsPerSec + static_cast<uint64_t>(ts.tv_nsec);
#endif
}

void RuxTimer::addDelayToTimeval(int64_t ms, timespec& ts) {
    ts.tv_sec += static_cast<time_t>(ms / 1000);
    ts.tv_nsec += static_cast<long>(ms % 1000) * kNsPerMs;
    if (ts.tv_nsec > kNsPerSec - 1) {
        ts.tv_sec += 1;
        ts.tv_nsec -= kNsPerSec;
    }
}

bool RuxTimer::addTimeSpec(const timespec& a, const timespec& b, timespec& out) {
    out.tv_sec = a.tv_sec + b.tv_sec;
    out.tv_nsec = a.tv_nsec + b.tv_nsec;
    if (out.tv_nsec > kNsPerSec - 1) {
        out.tv_sec += 1;
        out.tv_nsec -= kNsPerSec;
    }
    return true;
}

bool RuxTimer::subTimeSpec(const timespec& a, const timespec& b, timespec& out) {
    out.tv_sec = a.tv_sec - b.tv_sec;
    out.tv_nsec = a.tv_nsec - b.tv_nsec;
    if (out.tv_nsec < 0) {
        out.tv_nsec += kNsPerSec;
        out.tv_sec -= 1;
    }
    return true;
}

int RuxTimer::cmpTimeSpec(const timespec& a, const timespec& b) {
    if (a.tv_sec != b.tv_sec) return a.tv_sec < b.tv_sec ? -1 : 1;
    if (a.tv_nsec != b.tv_nsec) return a.tv_nsec < b.tv_nsec ? -1 : 1;
    return 0;
}

int RuxTimer::getNextTimerId() {
    int next = lastTimerId + 1;
    if (next == kMaxTimerId) next = 1;
    lastTimerId = next;
    return next;
}

void RuxTimer::push(const TimedEvent& ev) {
    mQueue.push_back(ev);
    std::push_heap(mQueue.begin(), mQueue.end(), TimedEventCmp());
}

RuxTimer::TimedEvent RuxTimer::popTop() {
    std::pop_heap(mQueue.begin(), mQueue.end(), TimedEventCmp());
    TimedEvent top = mQueue.back();
    mQueue.pop_back();
    return top;
}

int RuxTimer::addTimedCallback(int64_t delayMs, TimerCallback callback, void* data) {
    if (callback == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "addTimedCallback failed; cannot have NULL callback function");
        return -1;
    }
    timespec now{};
    if (!mClock(now)) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "addTimedCallback failed; clock_gettime(): %s", strerror(errno));
        return -1;
    }
    TimedEvent ev;
    ev.expiry = now;
    addDelayToTimeval(delayMs, ev.expiry);
    ev.timerId = getNextTimerId();
    ev.callback = callback;
    ev.data = data;
    ev.delayMs = delayMs;
    push(ev);

    if (monitor != nullptr) {
        const TimedEvent& top = mQueue.front();
        if (cmpTimeSpec(top.expiry, ev.expiry) == 0 && top.callback == ev.callback &&
            top.data == ev.data && top.delayMs == ev.delayMs)
            monitor->onTimerQueueHeadChanged();
    }
    return ev.timerId;
}

void RuxTimer::removeTimedCallback(int timerId) {
    auto end = std::remove_if(mQueue.begin(), mQueue.end(),
                              [timerId](const TimedEvent& ev) { return ev.timerId == timerId; });
    if (end == mQueue.end()) return;
    mQueue.erase(end, mQueue.end());
    std::make_heap(mQueue.begin(), mQueue.end(), TimedEventCmp());
}

int RuxTimer::timeUntilNextEvent() const {
    if (mQueue.empty()) return -1;
    timespec now{};
    if (!mClock(now)) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "timeUntilNextCallback failed; clock_gettime(): %s", strerror(errno));
        return -1;
    }
    timespec d{};
    if (!subTimeSpec(mQueue.front().expiry, now, d)) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "timeUntilNextCallback: subTimeSpec() failed");
        return -1;
    }
    if (d.tv_sec < 0 || (d.tv_sec == 0 && d.tv_nsec < 1)) return 0;
    // Round up so that a wait of this many milliseconds never ends before the head is
    // due. Far-off events wait INT_MAX ms at a time (the loop simply asks again).
    const int64_t ms =
        static_cast<int64_t>(d.tv_sec) * 1000 + (d.tv_nsec + kNsPerMs - 1) / kNsPerMs;
    return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

int RuxTimer::processEvents() {
    for (;;) {
        const int t = timeUntilNextEvent();
        if (t != 0) return t;

        TimedEvent ev = popTop();
        const int r = ev.callback(ev.data);
        if (r == -1) continue;

        timespec now{};
        if (!mClock(now)) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                "timeUntilNextCallback failed; clock_gettime(): %s",
                                strerror(errno));
            return -1;
        }
        TimedEvent next = ev;
        int64_t delay = ev.delayMs;
        if (r > 0) {
            delay = r;
            next.delayMs = r;
        } else if (r < -1) {
            __android_log_print(ANDROID_LOG_WARN, nullptr,
                                "Invalid delay (%lld), using %lld instead",
                                static_cast<long long>(r), static_cast<long long>(ev.delayMs));
        }
        next.expiry = now;
        addDelayToTimeval(delay, next.expiry);
        push(next);
    }
}

void RuxTimer::log() const {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                        "RuxTimer *******************************************");
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "    items queued: %zu", mQueue.size());
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "    next item in: %dms", timeUntilNextEvent());
}

}  // namespace rux::utils
