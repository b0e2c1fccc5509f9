// request_bench: what a request costs through librux_client.so, against the bare
// topology of the same threads and hand-offs, measured in the same run.
//
//   build/bench/request_bench [--rounds 5] [--latency-requests 2000]
//                             [--throughput-requests 20000]
//
// Both talk to one service process of the benchmark's own (MiniService.h) over a Unix
// socket; the bare topology is BareClient.h. Each round measures, library and bare one
// right after the other for each figure (which goes first alternates by round):
//   - one request at a time: from the call to the caller resumed by the callback
//     (p50, p99);
//   - 64 requests in flight from one caller, and from four callers sharing the 64:
//     requests per second;
//   - CPU time of this process per request at 64 in flight, one caller.
// The end prints the median of the rounds for each figure, and for each ratio
// library/bare the median of the rounds' ratios.
//
// The Android log: the lines the library writes (at liblog's host default, info and
// above: the two error lines per received message) cost what writing them costs on
// the device, where liblog hands each line to the log daemon with one system call. By
// default the benchmark installs a liblog logger that does just that, one write(2) of
// the line to /dev/null. `--android-log stderr` keeps liblog's host logger instead
// (stderr sent to /dev/null), which adds a getpid, a gettid and the time formatting per
// line.
#include <android/log.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BareClient.h"
#include "MiniService.h"
#include "rux/rux_client.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kDeadline = std::chrono::seconds(10);

// Where every completion lands, library or bare: the same work in both callbacks.
struct Completions {
    std::mutex lock;
    std::condition_variable changed;
    long completed = 0;  // guarded by lock
    long issued = 0;     // guarded by lock
    int inFlight = 0;    // guarded by lock
    long failed = 0;     // guarded by lock

    void done(int status) {
        {
            std::lock_guard<std::mutex> guard(lock);
            ++completed;
            --inFlight;
            if (status != 0) ++failed;
        }
        changed.notify_all();
    }
    void reset() {
        std::lock_guard<std::mutex> guard(lock);
        completed = issued = failed = 0;
        inFlight = 0;
    }
} gDone;

void libraryDone(int, status_e status) { gDone.done(status); }
void bareDone(int, int status) { gDone.done(status); }

void onStatus(status_e) {}

using Issue = std::function<bool()>;

[[noreturn]] void fail(const char* what) {
    std::printf("request_bench: %s\n", what);
    std::fflush(stdout);
    _exit(1);
}

double percentile(std::vector<double> v, double q) {
    std::sort(v.begin(), v.end());
    const size_t i = std::min(v.size() - 1, static_cast<size_t>(q * static_cast<double>(v.size())));
    return v[i];
}

double median(std::vector<double> v) { return percentile(std::move(v), 0.5); }

struct Latency {
    double p50us = 0;
    double p99us = 0;
};

Latency measureLatency(const Issue& issue, int requests) {
    gDone.reset();
    std::vector<double> us;
    us.reserve(static_cast<size_t>(requests));
    for (int i = 0; i < requests; ++i) {
        const auto start = Clock::now();
        {
            std::lock_guard<std::mutex> guard(gDone.lock);
            ++gDone.inFlight;
        }
        if (!issue()) fail("a request was refused");
        std::unique_lock<std::mutex> guard(gDone.lock);
        if (!gDone.changed.wait_for(guard, kDeadline, [&] { return gDone.completed > i; }))
            fail("no answer within 10 s");
        guard.unlock();
        us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return {percentile(us, 0.5), percentile(us, 0.99)};
}

double cpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

struct Throughput {
    double perSecond = 0;
    double cpuUsPerRequest = 0;
};

// `callers` threads keep `window` requests in flight between them until `requests`
// have been answered.
Throughput measureThroughput(const Issue& issue, int callers, int window, long requests) {
    gDone.reset();
    const double cpuStart = cpuSeconds();
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < callers; ++c) {
        threads.emplace_back([&] {
            pthread_setname_np(pthread_self(), "caller");
            for (;;) {
                {
                    std::unique_lock<std::mutex> guard(gDone.lock);
                    if (!gDone.changed.wait_for(guard, kDeadline,
                                                [&] { return gDone.inFlight < window; }))
                        fail("no answer within 10 s");
                    if (gDone.issued >= requests) return;
                    ++gDone.issued;
                    ++gDone.inFlight;
                }
                if (!issue()) fail("a request was refused");
            }
        });
    }
    for (auto& t : threads) t.join();
    {
        std::unique_lock<std::mutex> guard(gDone.lock);
        if (!gDone.changed.wait_for(guard, kDeadline, [&] { return gDone.completed >= requests; }))
            fail("no answer within 10 s");
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpu = cpuSeconds() - cpuStart;
    return {static_cast<double>(requests) / seconds, cpu * 1e6 / static_cast<double>(requests)};
}

struct Round {
    Latency latency;
    Throughput one;   // 64 in flight, one caller
    Throughput four;  // 64 in flight, four callers
};

struct Options {
    int rounds = 5;
    int latencyRequests = 2000;
    long throughputRequests = 20000;
    bool stderrLog = false;
};

constexpr const char* kUsage =
    "usage: request_bench [--rounds N] [--latency-requests N] [--throughput-requests N] "
    "[--android-log device|stderr]";

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--android-log") {
            const std::string sink = argv[i + 1];
            if (sink != "device" && sink != "stderr") fail(kUsage);
            o.stderrLog = sink == "stderr";
            continue;
        }
        const long value = std::strtol(argv[i + 1], nullptr, 10);
        if (value <= 0) fail("values must be positive");
        if (name == "--rounds")
            o.rounds = static_cast<int>(value);
        else if (name == "--latency-requests")
            o.latencyRequests = static_cast<int>(value);
        else if (name == "--throughput-requests")
            o.throughputRequests = value;
        else
            fail(kUsage);
    }
    if (argc % 2 == 0) fail(kUsage);
    return o;
}

// One round: each measurement for the library and then for the bare topology (the
// other way round every other round), so that the two of a pair run seconds apart.
void measureRound(const Issue& library, const Issue& bare, bool libraryFirst, const Options& o,
                  Round& lib, Round& base) {
    auto both = [&](const auto& measure) {
        if (libraryFirst) {
            measure(library, lib);
            measure(bare, base);
        } else {
            measure(bare, base);
            measure(library, lib);
        }
    };
    both([&](const Issue& issue, Round& r) {
        r.latency = measureLatency(issue, o.latencyRequests);
    });
    both([&](const Issue& issue, Round& r) {
        r.one = measureThroughput(issue, 1, 64, o.throughputRequests);
    });
    both([&](const Issue& issue, Round& r) {
        r.four = measureThroughput(issue, 4, 64, o.throughputRequests);
    });
    if (gDone.failed != 0) fail("a request completed with a failure status");
}

int gLogSink = -1;

// One system call per line, as the device's liblog makes to the log daemon.
void deviceLikeLogger(const struct __android_logger_data*, const char* message) {
    (void)::write(gLogSink, message, std::strlen(message));
}

void printRow(const char* what, double library, double bare, double ratio, const char* goal) {
    std::printf("%-44s %12.1f %12.1f %8.2fx   %s\n", what, library, bare, ratio, goal);
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const Options options = parse(argc, argv);

    char folder[] = "/tmp/rux_request_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) fail("cannot create a scratch folder");
    const std::string path = std::string(folder) + "/rux.sock";
    rux::bench::MiniService service;  // forked before any thread exists
    if (!service.start(path)) fail("cannot start the service");

    const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const int savedStderr = ::dup(2);
    ::dup2(devNull, 2);
    gLogSink = devNull;
    if (!options.stderrLog) __android_log_set_logger(deviceLikeLogger);
    std::printf("Android log: %s\n", options.stderrLog ? "liblog's stderr logger"
                                                       : "one write(2) per line, as on the device");

    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    register_rux_client(onStatus);  // the first request below waits for the connect
    rux::bench::BareClient bare;
    if (!bare.connect(path)) fail("the bare client did not connect");

    const Issue library = [] { return set_hst_state(RUX_HST_STATE_SET, libraryDone) > 0; };
    const Issue baseline = [&bare] { return bare.setHstState(1, bareDone) > 0; };
    {
        Round warmLib, warmBase;  // warm-up, not reported
        const Options warm{1, 500, 5000, options.stderrLog};
        measureRound(library, baseline, true, warm, warmLib, warmBase);
    }

    std::vector<Round> lib(options.rounds), base(options.rounds);
    std::printf("round   p50 lib/bare us   p99 lib/bare us   1 caller lib/bare req/s   "
                "4 callers lib/bare req/s   CPU lib/bare us/req\n");
    for (int r = 0; r < options.rounds; ++r) {
        measureRound(library, baseline, r % 2 == 0, options, lib[r], base[r]);
        const Round& l = lib[r];
        const Round& b = base[r];
        std::printf("%5d   %6.1f / %-6.1f   %6.1f / %-6.1f   %8.0f / %-8.0f       %8.0f / %-8.0f"
                    "        %6.1f / %-6.1f\n",
                    r + 1, l.latency.p50us, b.latency.p50us, l.latency.p99us, b.latency.p99us,
                    l.one.perSecond, b.one.perSecond, l.four.perSecond, b.four.perSecond,
                    l.one.cpuUsPerRequest, b.one.cpuUsPerRequest);
    }
    deregister_rux_client();
    ::dup2(savedStderr, 2);

    // Each figure's median over the rounds, and the median of the rounds' ratios (the
    // two of a round ran seconds apart, so their ratio is steadier than a ratio of
    // medians on a busy machine).
    auto row = [&](const char* what, double (*field)(const Round&), const char* goal) {
        std::vector<double> l, b, ratio;
        for (int r = 0; r < options.rounds; ++r) {
            l.push_back(field(lib[r]));
            b.push_back(field(base[r]));
            ratio.push_back(field(lib[r]) / field(base[r]));
        }
        printRow(what, median(l), median(b), median(ratio), goal);
    };
    std::printf("\nmedians of %d interleaved rounds                library         bare    ratio\n",
                options.rounds);
    row(
        "one at a time, call to caller resumed, p50 us",
        [](const Round& r) { return r.latency.p50us; }, "goal <= 1.2x");
    row(
        "one at a time, call to caller resumed, p99 us",
        [](const Round& r) { return r.latency.p99us; }, "goal <= 1.5x");
    row(
        "64 in flight, one caller, req/s", [](const Round& r) { return r.one.perSecond; },
        "goal >= 0.8x");
    row(
        "64 in flight, four callers, req/s", [](const Round& r) { return r.four.perSecond; },
        "goal >= 0.8x");
    row(
        "CPU per request, 64 in flight, us", [](const Round& r) { return r.one.cpuUsPerRequest; },
        "goal <= 2x");
    return 0;
}
