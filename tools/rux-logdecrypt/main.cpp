// rux-logdecrypt: prints the record lines of encrypted log files, and provisions
// encrypted logging.
//
//   rux-logdecrypt -k rux_log_private.pem rux_log_p0_00 rux_log_p0_01 ...
//   rux-logdecrypt keygen -o DIR [--bits 3072] [--max-records 30000] [--max-files 10]
//
// Exit status: 0 all records read, 1 some record or header damaged or truncated (each
// reported on stderr with file and byte offset), 2 bad arguments or unreadable input.
#include <android/log.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "LogDecrypt.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace {

bool readFile(const std::string& path, std::vector<uint8_t>& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

bool writeFile(const std::string& path, const std::string& bytes, mode_t mode) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail() && ::chmod(path.c_str(), mode) == 0;
}

int decrypt(const std::string& keyPath, const std::vector<std::string>& files) {
    std::vector<uint8_t> pem;
    if (!readFile(keyPath, pem)) {
        std::cerr << "rux-logdecrypt: " << keyPath << ": cannot read the private key\n";
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
        if (!readFile(path, bytes)) {
            std::cerr << "rux-logdecrypt: " << path << ": cannot read\n";
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

int keygen(const std::string& dir, int bits, uint64_t maxRecords, uint64_t maxFiles) {
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
    const std::string privatePath = dir + "/rux_log_private.pem";
    const std::string publicPath = dir + "/rux_log_public.pem";
    const std::string configPath = dir + "/rux_log_config";
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

    auto* gen = app.add_subcommand("keygen", "write a new key pair and a configuration file");
    std::string dir;
    int bits = 3072;
    uint64_t maxRecords = rux::logfile::kMaxMaxRecords;
    uint64_t maxFiles = rux::logfile::kMaxMaxFiles;
    gen->add_option("-o,--out-dir", dir, "folder for the keys and rux_log_config")
        ->required()
        ->check(CLI::ExistingDirectory);
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

    if (*gen) return keygen(dir, bits, maxRecords, maxFiles);
    if (keyPath.empty() || files.empty()) {
        std::cerr << "rux-logdecrypt: give the private key (-k) and at least one log file\n"
                  << app.help();
        return 2;
    }
    return decrypt(keyPath, files);
}
