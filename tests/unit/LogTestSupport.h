// Helpers of the logging-backend tests: a scratch log root, a cached RSA key pair, file
// bytes, diagnostic packet texts, and a fixture pointing Log::init at the scratch root.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "log/CryptoUtil.h"
#include "log/DiagCmdProcessor.h"
#include "log/Log.h"
#include "log/LogFileFormat.h"
#include "log/LogSeams.h"
#include "rux/platform/host.h"

namespace rux::test {

using Bytes = std::vector<uint8_t>;

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/rux_log_test.XXXXXX";
        path_ = mkdtemp(pattern) ? pattern : "";
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct KeyPair {
    std::string privatePem, publicPem;
};

// One pair per test process. 1024 bits: generating keys and the RSA operations on every
// truncated or damaged copy of a file are the slow part; the format holds any size.
inline const KeyPair& testKeys() {
    static const KeyPair keys = [] {
        KeyPair k;
        rux::CryptoUtil::generateRsaKeyPair(1024, k.privatePem, k.publicPem);
        return k;
    }();
    return keys;
}

inline Bytes bytesOf(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

inline Bytes readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
}

// <root>/config/rux_log_config with the given values and public key.
inline void writeConfig(const std::string& root, uint64_t maxRecords, uint64_t maxFiles,
                        const std::string& publicPem = testKeys().publicPem) {
    std::filesystem::create_directories(root + "/config");
    rux::logfile::Config config{maxRecords, maxFiles, bytesOf(publicPem)};
    writeBytes(root + "/config/rux_log_config", rux::logfile::encodeConfig(config));
}

// The records of a log file's bytes (after the header), as parsed; stops at a fault.
inline std::vector<rux::logfile::Record> recordsOf(const Bytes& file) {
    std::vector<rux::logfile::Record> out;
    rux::logfile::Record r;
    for (size_t at = rux::logfile::kHeaderSize, next = 0;
         rux::logfile::parseRecord(file, at, r, next) == rux::logfile::ParseStatus::kOk; at = next)
        out.push_back(r);
    return out;
}

// The lines the diagnostic channel received that contain `needle`: each packet's
// payload after its four zero bytes, up to the zero padding.
inline std::vector<std::string> diagTexts(const std::string& needle = "") {
    std::vector<std::string> out;
    for (const auto& p : rux::platform::diagPackets()) {
        const auto payload = p.payload();
        const std::string text(payload.begin() + 4,
                               std::find(payload.begin() + 4, payload.end(), 0));
        if (text.find(needle) != std::string::npos) out.push_back(text);
    }
    return out;
}

// Log::init finds its configuration under a scratch root, no plug-in and a quiet timer;
// the channel takes records. Everything is put back afterwards.
class LogSeamsTest : public ::testing::Test {
protected:
    void SetUp() override {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
        rux::platform::clearProperties();
        rux::log::setLogRoot(root_.path());
        rux::log::setPluginPath(root_.path() + "/none.so");
        rux::log::setTimerPeriod(std::chrono::hours(1));
    }
    void TearDown() override {
        rux::log::Log::getInstance().release();
        rux::platform::clearProperties();
        rux::platform::diagReset();
        rux::log::setLogRoot("");
        rux::log::setPluginPath("");
        rux::log::setTimerPeriod(std::chrono::seconds(30));
    }

    TempDir root_;
    LogCapture capture_;
};

}  // namespace rux::test
