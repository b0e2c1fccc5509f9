// rux-logdecrypt: prints the record lines of encrypted log files, and provisions
// encrypted logging.
//
//   rux-logdecrypt -k rux_log_private.pem rux_log_p0_00 rux_log_p0_01 ...
//   rux-logdecrypt keygen -o DIR [--force] [--bits 3072] [--max-records 30000] [--max-files 10]
//
// Exit status: 0 all records read, 1 some record or header damaged or truncated (each
// reported on stderr with file and byte offset), 2 bad arguments or unreadable input.
// Files are read and written with plain system calls: a failure is a message and an
// exit status, never an exception.
#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "LogDecrypt.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace {

// The whole file, or the reason it cannot be read (a folder reads as EISDIR).
bool readFile(const std::string& path, std::vector<uint8_t>& out, std::string& why) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        why = std::strerror(errno);
        return false;
    }
    out.clear();
    uint8_t chunk[65536];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) why = std::strerror(errno);
        if (n <= 0) {
            ::close(fd);
            return n == 0;
        }
        out.insert(out.end(), chunk, chunk + n);
    }
}

// Created with `mode` from the start, so the private key is never readable by others.
bool writeFile(const std::string& path, const std::string& bytes, mode_t mode) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) return false;
    bool ok = ::fchmod(fd, mode) == 0;
    for (size_t done = 0; ok && done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += static_cast<size_t>(n);
    }
    return ::close(fd) == 0 && ok;
}

int decrypt(const std::string& keyPath, const std::vector<std::string>& files) {
    std::vector<uint8_t> pem;
    std::string why;
    if (!readFile(keyPath, pem, why)) {
        std::cerr << "rux-logdecrypt: " << keyPath << ": cannot read the private key: " << why
                  << '\n';
        return 2;
    }
    rux::CryptoUtil key;
    if (!key.createRSA(std::string(pem.begin(), pem.end()), 0)) {
        std::cerr << "rux-logdecrypt: " << keyPath << ": not an RSA private key in PEM form\n";
        return 2;
    }
    int status = 0;
    for (const auto& path : files) {
        std::vector<uint8_t> bytes;
        if (!readFile(path, bytes, why)) {
            std::cerr << "rux-logdecrypt: " << path << ": cannot read: " << why << '\n';
            status = 2;
            continue;
        }
        const auto result = rux::tools::decryptLogFile(
            bytes, key, [](const std::string& line) { std::cout << line << '\n'; },
            [&](size_t offset, const std::string& what) {
                std::cout.flush();
                std::cerr << "rux-logdecrypt: " << path << ": offset " << offset << ": " << what
                          << '\n';
            });
        if (result.problems != 0 && status == 0) status = 1;
    }
    std::cout.flush();
    return status;
}

int keygen(const std::string& dir, bool force, int bits, uint64_t maxRecords, uint64_t maxFiles) {
    const std::string privatePath = dir + "/rux_log_private.pem";
    const std::string publicPath = dir + "/rux_log_public.pem";
    const std::string configPath = dir + "/rux_log_config";
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (error) {
        std::cerr << "rux-logdecrypt: cannot create " << dir << ": " << error.message() << '\n';
        return 2;
    }
    // Logs written with a key pair can only ever be read with its private key.
    for (const auto& key : {privatePath, publicPath}) {
        if (!force && ::access(key.c_str(), F_OK) == 0) {
            std::cerr << "rux-logdecrypt: " << key << " exists; logs written for it need its "
                      << "private key. Use --force to replace the key pair.\n";
            return 2;
        }
    }
    std::string privatePem, publicPem;
    if (!rux::CryptoUtil::generateRsaKeyPair(bits, privatePem, publicPem)) {
        std::cerr << "rux-logdecrypt: RSA key generation failed\n";
        return 2;
    }
    rux::logfile::Config config;
    config.maxRecordsPerFile = maxRecords;
    config.maxFiles = maxFiles;
    config.publicKeyPem.assign(publicPem.begin(), publicPem.end());
    const auto configBytes = rux::logfile::encodeConfig(config);
    if (!writeFile(privatePath, privatePem, 0600) || !writeFile(publicPath, publicPem, 0644) ||
        !writeFile(configPath, std::string(configBytes.begin(), configBytes.end()), 0644)) {
        std::cerr << "rux-logdecrypt: cannot write into " << dir << '\n';
        return 2;
    }
    std::cout << "wrote " << privatePath << " (keep it off the device)\n"
              << "wrote " << publicPath << '\n'
              << "wrote " << configPath << " (" << maxRecords << " records per file, "
              << maxFiles << " files)\n"
              << "install it as /data/vendor/rux_logs/config/rux_log_config\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Decrypts librux_client log files; 'keygen' provisions encrypted logging."};
    std::string keyPath;
    std::vector<std::string> files;
    bool verbose = false;
    app.add_option("-k,--key", keyPath, "RSA private key (PEM)")->check(CLI::ExistingFile);
    app.add_option("files", files, "encrypted log files, oldest first");
    app.add_flag("-v,--verbose", verbose, "also show the library's own log lines");

    app.set_version_flag("--version", std::string("rux-logdecrypt ") + RUX_VERSION);

    auto* gen = app.add_subcommand("keygen", "write a new key pair and a configuration file");
    std::string dir;
    bool force = false;
    int bits = 3072;
    uint64_t maxRecords = rux::logfile::kMaxMaxRecords;
    uint64_t maxFiles = rux::logfile::kMaxMaxFiles;
    gen->add_option("-o,--out-dir", dir, "folder for the keys and rux_log_config (created)")
        ->required();
    gen->add_flag("-f,--force", force, "replace a key pair already in the folder");
    gen->add_option("--bits", bits, "RSA key size")
        ->check(CLI::IsMember({2048, 3072, 4096}));
    gen->add_option("--max-records", maxRecords, "records per log file")
        ->check(CLI::Range(rux::logfile::kMinMaxRecords, rux::logfile::kMaxMaxRecords));
    gen->add_option("--max-files", maxFiles, "log files kept")
        ->check(CLI::Range(rux::logfile::kMinMaxFiles, rux::logfile::kMaxMaxFiles));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? 0 : 2;
    }
    if (!verbose) __android_log_set_minimum_priority(ANDROID_LOG_SILENT);

    if (*gen) return keygen(dir, force, bits, maxRecords, maxFiles);
    if (keyPath.empty() || files.empty()) {
        std::cerr << "rux-logdecrypt: give the private key (-k) and at least one log file\n"
                  << app.help();
        return 2;
    }
    return decrypt(keyPath, files);
}
