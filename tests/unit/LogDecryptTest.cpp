// Reading encrypted log files back: the decoding of rux-logdecrypt attacked with
// damaged and truncated files, and the tool itself end to end (keygen, a logging
// process, decryption).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "LogDecrypt.h"
#include "LogTestSupport.h"
#include "log/CryptoUtil.h"
#include "log/Log.h"
#include "log/LogFileFormat.h"
#include "log/LogSeams.h"
#include "rux/platform/host.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

struct Built {
    Bytes file;
    std::vector<size_t> offsets;  // where each record starts
};

// A log file made the way the library makes one: header, then one record per line.
Built buildFile(const std::vector<std::string>& lines) {
    rux::CryptoUtil crypto;
    Bytes key, header;
    EXPECT_TRUE(crypto.initializeRsaEncryption(
        key, header,
        Bytes(rux::test::testKeys().publicPem.begin(), rux::test::testKeys().publicPem.end())));
    Built built{header, {}};
    for (const auto& line : lines) {
        Bytes cipher, iv, tag;
        EXPECT_TRUE(crypto.encryptMsg2(Bytes(line.begin(), line.end()), key, cipher, iv, tag));
        built.offsets.push_back(built.file.size());
        const Bytes record = rux::logfile::encodeRecord(iv, tag, cipher);
        built.file.insert(built.file.end(), record.begin(), record.end());
    }
    return built;
}

struct Outcome {
    std::vector<std::string> lines;
    std::vector<std::pair<size_t, std::string>> problems;
};

Outcome decrypt(const Bytes& file,
                const std::string& privatePem = rux::test::testKeys().privatePem) {
    rux::CryptoUtil key;
    EXPECT_TRUE(key.createRSA(privatePem, 0));
    Outcome out;
    const auto result = rux::tools::decryptLogFile(
        file, key, [&](const std::string& l) { out.lines.push_back(l); },
        [&](size_t offset, const std::string& what) { out.problems.emplace_back(offset, what); });
    EXPECT_EQ(result.lines, out.lines.size());
    EXPECT_EQ(result.problems, out.problems.size());
    return out;
}

const std::vector<std::string> kLines = {"alpha", "", "gamma line with more text"};

// The whole file reads back in order; a cut file up to the record the cut falls in.
TEST(LogDecryptTest, EveryTruncationIsReportedAtTheRecordItCuts) {
    const auto built = buildFile(kLines);
    for (size_t cut = 0; cut <= built.file.size(); ++cut) {
        const Bytes truncated(built.file.begin(), built.file.begin() + static_cast<long>(cut));
        const auto out = decrypt(truncated);
        if (cut < rux::logfile::kHeaderSize) {
            ASSERT_EQ(out.problems.size(), 1u) << cut;
            EXPECT_EQ(out.problems[0].first, 0u);
            EXPECT_NE(out.problems[0].second.find("header truncated"), std::string::npos);
            continue;
        }
        size_t complete = 0;
        while (complete < built.offsets.size() &&
               (complete + 1 < built.offsets.size() ? built.offsets[complete + 1]
                                                    : built.file.size()) <= cut)
            ++complete;
        EXPECT_EQ(out.lines, std::vector<std::string>(kLines.begin(), kLines.begin() + complete))
            << cut;
        const bool atBoundary = complete == built.offsets.size() || built.offsets[complete] == cut;
        if (atBoundary) {
            EXPECT_TRUE(out.problems.empty()) << cut;
        } else {
            ASSERT_EQ(out.problems.size(), 1u) << cut;
            EXPECT_EQ(out.problems[0].first, built.offsets[complete]) << cut;
            EXPECT_NE(out.problems[0].second.find("truncated"), std::string::npos) << cut;
        }
    }
}

TEST(LogDecryptTest, AFlippedByteDamagesOnlyItsRecordOrTheHeader) {
    const auto built = buildFile(kLines);
    for (size_t at = 0; at < built.file.size(); ++at) {
        Bytes damaged = built.file;
        damaged[at] ^= 0x20;
        const auto out = decrypt(damaged);
        if (at < 256) {  // the wrapped session key
            ASSERT_EQ(out.problems.size(), 1u) << at;
            EXPECT_NE(out.problems[0].second.find("header damaged"), std::string::npos);
            EXPECT_TRUE(out.lines.empty());
            continue;
        }
        if (at < rux::logfile::kHeaderSize) {  // the zero tail is not read
            EXPECT_EQ(out.lines, kLines) << at;
            continue;
        }
        size_t hit = 0;
        while (hit + 1 < built.offsets.size() && built.offsets[hit + 1] <= at) ++hit;
        ASSERT_FALSE(out.problems.empty()) << at;
        EXPECT_EQ(out.problems[0].first, built.offsets[hit]) << at;
        const bool lengthByte = at < built.offsets[hit] + 2;
        if (!lengthByte) {
            // The tag fails, the reader skips the record and goes on with the others.
            EXPECT_EQ(out.problems.size(), 1u) << at;
            EXPECT_NE(out.problems[0].second.find("GCM tag does not verify"), std::string::npos);
            auto expected = kLines;
            expected.erase(expected.begin() + static_cast<long>(hit));
            EXPECT_EQ(out.lines, expected) << at;
        }
    }
}

TEST(LogDecryptTest, AWrongPrivateKeyIsReportedOnce) {
    std::string otherPrivate, otherPublic;
    ASSERT_TRUE(rux::CryptoUtil::generateRsaKeyPair(2048, otherPrivate, otherPublic));
    const auto out = decrypt(buildFile(kLines).file, otherPrivate);
    EXPECT_TRUE(out.lines.empty());
    ASSERT_EQ(out.problems.size(), 1u);
    EXPECT_NE(out.problems[0].second.find("does not decrypt with this private key"),
              std::string::npos);
}

// --- the command-line tool ------------------------------------------------------

struct ToolRun {
    int status;
    std::string output;  // stdout and stderr
};

ToolRun runTool(const std::string& args) {
    const std::string command = std::string(RUX_LOGDECRYPT_TOOL) + " " + args + " 2>&1";
    ToolRun run{-1, {}};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

class LogDecryptToolTest : public ::testing::Test {
protected:
    void TearDown() override {
        rux::log::Log::getInstance().release();
        rux::log::setLogRoot("");
        rux::log::setPluginPath("");
    }
    rux::test::TempDir dir_;
    rux::test::LogCapture capture_;
};

TEST_F(LogDecryptToolTest, KeygenThenLoggingThenDecryptionRoundTrip) {
    const std::string keys = dir_.path() + "/keys";
    fs::create_directories(keys);
    const ToolRun gen = runTool("keygen --bits 2048 --max-records 5000 --max-files 4 -o " + keys);
    ASSERT_EQ(gen.status, 0) << gen.output;
    struct stat st {};
    ASSERT_EQ(stat((keys + "/rux_log_private.pem").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    const auto config = rux::logfile::decodeConfig(rux::test::readBytes(keys + "/rux_log_config"));
    EXPECT_EQ(config.maxRecordsPerFile, 5000u);
    EXPECT_EQ(config.maxFiles, 4u);
    const Bytes publicPem = rux::test::readBytes(keys + "/rux_log_public.pem");
    EXPECT_EQ(config.publicKeyPem, publicPem);

    // A logging process with that configuration installed.
    const std::string root = dir_.path() + "/root";
    fs::create_directories(root + "/config");
    fs::copy_file(keys + "/rux_log_config", root + "/config/rux_log_config");
    rux::log::setLogRoot(root);
    rux::log::setPluginPath(root + "/none.so");
    rux::log::Log::getInstance().init("rux");
    ASSERT_TRUE(rux::log::Log::getInstance().encryptionActive());
    RUX_LOG(4, "RUX", "round %s", "trip");
    rux::log::Log::getInstance().dMapLog(6, "map entry 100%");
    rux::log::Log::getInstance().release();

    const std::string file = root + "/main/rux_log_p0_00";
    const ToolRun run = runTool("-k " + keys + "/rux_log_private.pem " + file);
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = run.output.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(run.output.substr(start, nl - start));
    ASSERT_EQ(lines.size(), 3u) << run.output;
    EXPECT_NE(lines[0].find(" I RUX : |RUX|Log::printVersion:"), std::string::npos);
    EXPECT_NE(lines[1].find(" I RUX : |RUX|LogDecryptTest::TestBody:"), std::string::npos);
    EXPECT_NE(lines[1].find(" round trip"), std::string::npos);
    EXPECT_NE(lines[2].find(" E DMAP : map entry 100%"), std::string::npos) << lines[2];

    // A damaged copy: reported with file and offset, the rest still printed.
    Bytes damaged = rux::test::readBytes(file);
    const auto records = rux::test::recordsOf(damaged);
    ASSERT_EQ(records.size(), 3u);
    const size_t second = 512 + 2 + 28 + records[0].cipher.size();
    damaged[second + 40] ^= 1;
    const std::string copy = dir_.path() + "/damaged";
    rux::test::writeBytes(copy, damaged);
    const ToolRun bad = runTool("-k " + keys + "/rux_log_private.pem " + copy + " " + file);
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.output.find(copy + ": offset " + std::to_string(second) +
                              ": record damaged: GCM tag does not verify"),
              std::string::npos)
        << bad.output;
    EXPECT_NE(bad.output.find("map entry 100%"), std::string::npos);
}

// Command lines and what they end with. "$D" stands for the test's folder, which holds
// a key pair in keys/ and a file that is not a key.
struct ToolCase {
    const char* name;
    std::string args;
    int status;
    std::string output;         // a text the output holds
    bool keysReplaced = false;  // keys/ holds a new pair afterwards
};
void PrintTo(const ToolCase& c, std::ostream* os) {
    *os << c.name;
}

class LogDecryptArgsTest : public LogDecryptToolTest,
                           public ::testing::WithParamInterface<ToolCase> {};

std::string expand(std::string text, const std::string& dir) {
    for (size_t at; (at = text.find("$D")) != std::string::npos;) text.replace(at, 2, dir);
    return text;
}

TEST_P(LogDecryptArgsTest, EndsWithItsStatusAndSaysWhy) {
    const auto& c = GetParam();
    const std::string keys = dir_.path() + "/keys";
    fs::create_directories(keys);
    rux::test::writeText(keys + "/rux_log_private.pem", rux::test::testKeys().privatePem);
    rux::test::writeText(keys + "/rux_log_public.pem", rux::test::testKeys().publicPem);
    rux::test::writeText(dir_.path() + "/key.pem", "not a key");

    const ToolRun run = runTool(expand(c.args, dir_.path()));
    EXPECT_EQ(run.status, c.status) << run.output;
    EXPECT_NE(run.output.find(expand(c.output, dir_.path())), std::string::npos) << run.output;
    const auto privatePem = rux::test::readBytes(keys + "/rux_log_private.pem");
    EXPECT_EQ(privatePem != Bytes(rux::test::testKeys().privatePem.begin(),
                                  rux::test::testKeys().privatePem.end()),
              c.keysReplaced);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, LogDecryptArgsTest,
    ::testing::Values(
        ToolCase{"Nothing", "", 2, "give the private key (-k)"},
        ToolCase{"MissingKey", "-k /nonexistent/key.pem somefile", 2, "/nonexistent/key.pem"},
        ToolCase{"NotAKey", "-k $D/key.pem $D/key.pem", 2, "$D/key.pem: not an RSA private key"},
        ToolCase{"FolderAsLogFile", "-k $D/keys/rux_log_private.pem $D", 2,
                 "rux-logdecrypt: $D: cannot read: Is a directory"},
        ToolCase{"TooManyFiles", "keygen --max-files 11 -o $D/new", 2, "--max-files"},
        ToolCase{"TooFewRecords", "keygen --max-records 100 -o $D/new", 2, "--max-records"},
        ToolCase{"KeygenCreatesTheFolder", "keygen --bits 2048 -o $D/new/deeper", 0,
                 "wrote $D/new/deeper/rux_log_config"},
        ToolCase{"KeygenKeepsAnExistingKey", "keygen --bits 2048 -o $D/keys", 2,
                 "$D/keys/rux_log_private.pem exists"},
        ToolCase{"KeygenForceReplacesIt", "keygen --bits 2048 --force -o $D/keys", 0,
                 "wrote $D/keys/rux_log_private.pem", true}),
    [](const ::testing::TestParamInfo<ToolCase>& info) { return std::string(info.param.name); });

}  // namespace
