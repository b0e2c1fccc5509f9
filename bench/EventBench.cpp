// Event loop costs.
//
//   (a) RuxTimer: one add (due at once) followed by the processEvents that pops and
//       runs it, with 10, 1,000 and 100,000 other events queued behind it. Baseline:
//       the same push + pop on a bare std::priority_queue of the same elements.
//   (b) Cross-thread latency: a post from this thread to handleEvent() on a loop
//       thread running EventManager::processEvents, which answers on an eventfd this
//       thread blocks on. Baseline: the same ping-pong over two bare eventfds between
//       two threads. The last line is "ratio handler/eventfd: X.XX" (round trip).
//
// Run: build (RelWithDebInfo is the default) and start ./bench/event_bench. Debug
// lines of the loop are filtered out as on a device at its default log level.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <queue>
#include <string>
#include <thread>
#include <vector>

#include "event/EventManager.h"
#include "event/RuxTimer.h"
#include "sdk/RuxEventHandler.h"

namespace {

using rux::utils::EventManager;
using rux::utils::RuxEventHandler;
using rux::utils::RuxTimer;

int finished(void*) {
    return -1;
}

void BM_TimerAddThenPop(benchmark::State& state) {
    RuxTimer timer;
    for (int64_t i = 0; i < state.range(0); ++i)
        timer.addTimedCallback(3600 * 1000 + i, finished, nullptr);  // an hour away
    for (auto _ : state) {
        timer.addTimedCallback(0, finished, nullptr);
        benchmark::DoNotOptimize(timer.processEvents());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerAddThenPop)->Arg(10)->Arg(1000)->Arg(100000);

void BM_BareHeapPushThenPop(benchmark::State& state) {
    std::priority_queue<RuxTimer::TimedEvent, std::vector<RuxTimer::TimedEvent>,
                        RuxTimer::TimedEventCmp>
        heap;
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    for (int64_t i = 0; i < state.range(0); ++i) {
        RuxTimer::TimedEvent ev;
        ev.expiry = now;
        RuxTimer::addDelayToTimeval(3600 * 1000 + i, ev.expiry);
        heap.push(ev);
    }
    RuxTimer::TimedEvent due;
    due.expiry = now;
    for (auto _ : state) {
        heap.push(due);
        benchmark::DoNotOptimize(heap.top());
        heap.pop();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BareHeapPushThenPop)->Arg(10)->Arg(1000)->Arg(100000);

uint64_t readCount(int fd) {
    uint64_t v = 0;
    if (read(fd, &v, sizeof(v)) != static_cast<ssize_t>(sizeof(v))) return 0;
    return v;
}

void writeCount(int fd) {
    const uint64_t one = 1;
    if (write(fd, &one, sizeof(one)) != static_cast<ssize_t>(sizeof(one))) std::abort();
}

// Answers each event on `replyFd`, from the loop thread.
class Echo : public RuxEventHandler<std::shared_ptr<int>> {
public:
    Echo(EventManager* em, int replyFd) : RuxEventHandler(nullptr, em, "Echo"), mReply(replyFd) {}

protected:
    void handleEvent(std::shared_ptr<int>) override { writeCount(mReply); }

private:
    int mReply;
};

void BM_HandlerPingPong(benchmark::State& state) {
    EventManager em;
    const int reply = eventfd(0, 0);  // blocking: this thread sleeps on it
    auto echo = std::make_unique<Echo>(&em, reply);
    std::atomic<bool> stop{false};
    std::thread loop([&] {
        while (!stop.load(std::memory_order_relaxed)) em.processEvents(nullptr);
    });
    auto ev = std::make_shared<int>(0);
    for (auto _ : state) {
        echo->postEvent(ev);
        benchmark::DoNotOptimize(readCount(reply));
    }
    stop = true;
    em.wake();
    loop.join();
    echo.reset();
    em.processEvents(nullptr);  // carries out the handler's removal, closing its eventfd
    close(reply);
}
BENCHMARK(BM_HandlerPingPong)->UseRealTime();

void BM_BareEventfdPingPong(benchmark::State& state) {
    const int ping = eventfd(0, 0);
    const int pong = eventfd(0, 0);
    std::thread peer([&] {
        for (;;) {
            const uint64_t v = readCount(ping);
            if (v != 1) break;  // 2: stop
            writeCount(pong);
        }
    });
    for (auto _ : state) {
        writeCount(ping);
        benchmark::DoNotOptimize(readCount(pong));
    }
    const uint64_t two = 2;
    if (write(ping, &two, sizeof(two)) != static_cast<ssize_t>(sizeof(two))) std::abort();
    peer.join();
    close(ping);
    close(pong);
}
BENCHMARK(BM_BareEventfdPingPong)->UseRealTime();

// Prints as usual and remembers each benchmark's time per iteration.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    RecordingReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                mNsPerIteration[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    double ns(const std::string& name) const {
        auto it = mNsPerIteration.find(name);
        return it == mNsPerIteration.end() ? 0.0 : it->second;
    }

private:
    std::map<std::string, double> mNsPerIteration;
};

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    for (const char* n : {"10", "1000", "100000"}) {
        const double timer = reporter.ns(std::string("BM_TimerAddThenPop/") + n);
        const double heap = reporter.ns(std::string("BM_BareHeapPushThenPop/") + n);
        if (timer > 0 && heap > 0)
            std::printf("ratio timer/heap at %s queued: %.2f\n", n, timer / heap);
    }
    const double handler = reporter.ns("BM_HandlerPingPong/real_time");
    const double bare = reporter.ns("BM_BareEventfdPingPong/real_time");
    if (handler > 0 && bare > 0) std::printf("ratio handler/eventfd: %.2f\n", handler / bare);
    return 0;
}
