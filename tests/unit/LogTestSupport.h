// Helpers shared by the logging-backend tests: a scratch folder standing in for the
// device's log root, a cached RSA key pair, the configuration file and file ages.
#pragma once

#include <stdlib.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace rux::test {

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
    std::string privatePem;
    std::string publicPem;
};

// One 2048-bit pair per test process: generating keys is the slow part.
inline const KeyPair& testKeys() {
    static const KeyPair keys = [] {
        KeyPair k;
        rux::CryptoUtil::generateRsaKeyPair(2048, k.privatePem, k.publicPem);
        return k;
    }();
    return keys;
}

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline void writeText(const std::string& path, const std::string& text) {
    writeBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

// <root>/config/rux_log_config with the given values and public key.
inline void writeConfig(const std::string& root, uint64_t maxRecords, uint64_t maxFiles,
                        const std::string& publicPem) {
    std::filesystem::create_directories(root + "/config");
    rux::logfile::Config config;
    config.maxRecordsPerFile = maxRecords;
    config.maxFiles = maxFiles;
    config.publicKeyPem.assign(publicPem.begin(), publicPem.end());
    writeBytes(root + "/config/rux_log_config", rux::logfile::encodeConfig(config));
}

// Creates `path` (empty) with a modification time `ageSeconds` in the past.
inline void makeFileAged(const std::string& path, int ageSeconds) {
    writeText(path, "old");
    timespec times[2];
    clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= ageSeconds;
    times[1] = times[0];
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

// The records of a log file's bytes (after the header), as parsed; stops at a fault.
inline std::vector<rux::logfile::Record> recordsOf(const std::vector<uint8_t>& file) {
    std::vector<rux::logfile::Record> out;
    size_t offset = rux::logfile::kHeaderSize;
    rux::logfile::Record r;
    size_t next = 0;
    while (rux::logfile::parseRecord(file, offset, r, next) == rux::logfile::ParseStatus::kOk) {
        out.push_back(r);
        offset = next;
    }
    return out;
}

}  // namespace rux::test
