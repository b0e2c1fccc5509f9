// log_bench: what a log call costs.
//
//   build/bench/log_bench [--benchmark_min_time=1] [--benchmark_repetitions=5]
//
// - A line nobody will read: a debug line through both fronts (Log::addLogRecord and
//   SdkLog::print) with liblog at its host default (info and above), the diagnostic
//   code disabled, records not buffered and encryption off. Printed in ns per call.
// - Log::addLogRecord of a line the Android log takes (liblog's logger replaced by one
//   that drops the text, so the figure is the library's part), with log-file
//   encryption off and on, against a bare AES-256-GCM encryption of the same record
//   line with a fresh IV (the baseline), and for comparison the same with the context
//   keyed once. Prints the ratios at the end.
// Each benchmark runs five times; the figures are the medians (CPU time).
// Files go to a scratch folder under /tmp.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "log/CryptoUtil.h"
#include "log/Log.h"
#include "log/LogFileFormat.h"
#include "log/LogSeams.h"
#include "log/SdkLog.h"

namespace {

std::map<std::string, double> gRates;  // items per second, by benchmark name

std::string gRoot;

void noLogger(const struct __android_logger_data*, const char*) {}

// A record line as the library builds it for `RUX_LOG(4, "RUX", "bench record %d", i)`.
std::string sampleLine(int i) {
    rux::log::Log::LogRecord r;
    r.init(4, "|RUX|LogBench::addLogRecord:42 bench record " + std::to_string(i));
    return r.getDiagEntry();
}

// Bare AES-256-GCM of one record line per iteration with a fresh random IV. Keyed once,
// only the IV is set per line: what a bare program that encrypts many lines under one
// key would do, shown for comparison (the goal is against the other).
void aesGcmOfALine(benchmark::State& state, bool keyedOnce) {
    unsigned char key[32];
    RAND_bytes(key, sizeof key);
    const std::string line = sampleLine(12345);
    std::vector<unsigned char> cipher(line.size()), iv(12), tag(16);
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    if (keyedOnce) {
        EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr);
        EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, 12, nullptr);
        EVP_EncryptInit_ex(ctx, nullptr, nullptr, key, nullptr);
    }
    for (auto _ : state) {
        RAND_bytes(iv.data(), 12);
        int len = 0, fin = 0;
        if (keyedOnce) {
            EVP_EncryptInit_ex(ctx, nullptr, nullptr, nullptr, iv.data());
        } else {
            EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr);
            EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, 12, nullptr);
            EVP_EncryptInit_ex(ctx, nullptr, nullptr, key, iv.data());
        }
        EVP_EncryptUpdate(ctx, cipher.data(), &len,
                          reinterpret_cast<const unsigned char*>(line.data()),
                          static_cast<int>(line.size()));
        EVP_EncryptFinal_ex(ctx, cipher.data() + len, &fin);
        EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, 16, tag.data());
        benchmark::DoNotOptimize(tag.data());
    }
    EVP_CIPHER_CTX_free(ctx);
    state.SetItemsProcessed(state.iterations());
}

void BM_AesGcmBaseline(benchmark::State& state) {
    aesGcmOfALine(state, false);
}
void BM_AesGcmKeyedBaseline(benchmark::State& state) {
    aesGcmOfALine(state, true);
}

void BM_UnseenLine(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "unseen record %d", ++i);
    state.SetItemsProcessed(state.iterations());
}

void BM_UnseenSdkLine(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) SDK_LOG(ANDROID_LOG_DEBUG, "RuxSdk", "unseen line %d", ++i);
    state.SetItemsProcessed(state.iterations());
}

void BM_AddLogRecordPlain(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) RUX_LOG(4, "RUX", "bench record %d", ++i);
    state.SetItemsProcessed(state.iterations());
}

void BM_AddLogRecordEncrypted(benchmark::State& state) {
    static const bool ready = [] {
        std::string privatePem, publicPem;
        rux::CryptoUtil::generateRsaKeyPair(2048, privatePem, publicPem);
        rux::logfile::Config config;
        config.publicKeyPem.assign(publicPem.begin(), publicPem.end());
        std::filesystem::create_directories(gRoot + "/config");
        std::ofstream(gRoot + "/config/rux_log_config", std::ios::binary)
            .write(reinterpret_cast<const char*>(rux::logfile::encodeConfig(config).data()),
                   static_cast<std::streamsize>(9 + config.publicKeyPem.size()));
        rux::log::setLogRoot(gRoot);
        rux::log::setPluginPath(gRoot + "/none.so");
        rux::log::Log::getInstance().init("rux");
        return rux::log::Log::getInstance().encryptionActive();
    }();
    if (!ready) {
        state.SkipWithError("log encryption did not start");
        return;
    }
    int i = 0;
    for (auto _ : state) RUX_LOG(4, "RUX", "bench record %d", ++i);
    state.SetItemsProcessed(state.iterations());
}

class RateReporter : public benchmark::ConsoleReporter {
public:
    // The median of the repetitions where there are several, else the one run.
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs) {
            auto it = run.counters.find("items_per_second");
            if (it == run.counters.end()) continue;
            if (run.aggregate_name == "median" || run.aggregate_name.empty())
                gRates[run.run_name.function_name] = it->second;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

BENCHMARK(BM_UnseenLine);
BENCHMARK(BM_UnseenSdkLine);
BENCHMARK(BM_AesGcmBaseline);
BENCHMARK(BM_AesGcmKeyedBaseline);
BENCHMARK(BM_AddLogRecordPlain);
BENCHMARK(BM_AddLogRecordEncrypted);  // last: it turns encryption on for the process

int main(int argc, char** argv) {
    char pattern[] = "/tmp/rux_log_bench.XXXXXX";
    if (mkdtemp(pattern) == nullptr) return 1;
    gRoot = pattern;
    __android_log_set_logger(noLogger);
    // Five repetitions of each, reported by their median, unless told otherwise.
    std::vector<char*> args(argv, argv + argc);
    std::string repetitions = "--benchmark_repetitions=5";
    std::string aggregates = "--benchmark_report_aggregates_only=true";
    bool repetitionsGiven = false;
    for (int i = 1; i < argc; ++i)
        repetitionsGiven |= std::string(argv[i]).rfind("--benchmark_repetitions", 0) == 0;
    if (!repetitionsGiven) {
        args.push_back(repetitions.data());
        args.push_back(aggregates.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    rux::log::Log::getInstance().release();
    std::filesystem::remove_all(gRoot);

    const std::pair<const char*, const char*> unseen[] = {
        {"BM_UnseenLine", "addLogRecord"}, {"BM_UnseenSdkLine", "SdkLog::print"}};
    for (const auto& [name, front] : unseen) {
        if (gRates[name] > 0)
            std::cout << "unseen line, " << front << ": " << 1e9 / gRates[name]
                      << " ns per call (goal <= 100 ns)\n";
    }
    const double base = gRates["BM_AesGcmBaseline"];
    const double keyed = gRates["BM_AesGcmKeyedBaseline"];
    const double plain = gRates["BM_AddLogRecordPlain"];
    const double enc = gRates["BM_AddLogRecordEncrypted"];
    if (base > 0 && keyed > 0 && plain > 0 && enc > 0) {
        std::cout << "\nrecords/s: bare AES-256-GCM " << static_cast<long>(base) << " (keyed once "
                  << static_cast<long>(keyed) << "), addLogRecord plain "
                  << static_cast<long>(plain) << ", addLogRecord encrypted "
                  << static_cast<long>(enc) << "\n"
                  << "ratio encrypted/plain addLogRecord: " << enc / plain << "\n"
                  << "ratio encrypted addLogRecord/bare AES-GCM: " << enc / base
                  << " (goal >= 0.5)\n"
                  << "ratio encrypted addLogRecord/bare AES-GCM keyed once: " << enc / keyed
                  << "\n";
    }
    return 0;
}
