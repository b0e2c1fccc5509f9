// Reading encrypted log files back: the decoding of rux-logdecrypt (a library function)
// attacked in-process with every truncation and a flipped byte at every offset, and
// the tool itself once end to end (keygen, a logging process, decryption, arguments).
#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

#include "LogDecrypt.h"
#include "LogTestSupport.h"

namespace {

using rux::test::Bytes;
namespace fs = std::filesystem;

const std::vector<std::string> kLines = {"alpha", "", "gamma line with more text"};

// A log file made the way the library makes one, and where each record starts.
struct Built {
    Bytes file;
    std::vector<size_t> offsets;
};
Built buildFile() {
    rux::CryptoUtil crypto;
    const std::string& pem = rux::test::testKeys().publicPem;
    Built built;
    Bytes key;
    EXPECT_TRUE(crypto.initializeRsaEncryption(key, built.file, rux::test::bytesOf(pem)));
    for (const auto& line : kLines) {
        Bytes cipher, iv, tag;
        EXPECT_TRUE(crypto.encryptMsg2(rux::test::bytesOf(line), key, cipher, iv, tag));
        built.offsets.push_back(built.file.size());
        const Bytes record = rux::logfile::encodeRecord(iv, tag, cipher);
        built.file.insert(built.file.end(), record.begin(), record.end());
    }
    return built;
}

using Problems = std::vector<std::pair<size_t, std::string>>;
struct Outcome {
    std::vector<std::string> lines;
    Problems problems;
};
Outcome decrypt(const Bytes& file, rux::CryptoUtil& key) {
    rux::test::MinimumPriority silent(ANDROID_LOG_SILENT);  // what failed is in the outcome
    Outcome out;
    const auto result = rux::tools::decryptLogFile(
        file, key, [&](const std::string& l) { out.lines.push_back(l); },
        [&](size_t offset, const std::string& what) { out.problems.emplace_back(offset, what); });
    EXPECT_EQ(result.lines, out.lines.size());
    EXPECT_EQ(result.problems, out.problems.size());
    return out;
}

class LogDecryptTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(key_.createRSA(rux::test::testKeys().privatePem, 0)); }
    const Built built_ = buildFile();
    rux::CryptoUtil key_;
};

// The whole file reads back in order; a cut file up to the record the cut falls in,
// and that record is reported at its offset.
TEST_F(LogDecryptTest, EveryTruncationIsReportedAtTheRecordItCuts) {
    const auto& offsets = built_.offsets;
    for (size_t cut = 0; cut <= built_.file.size(); ++cut) {
        SCOPED_TRACE(cut);
        const auto out = decrypt(Bytes(built_.file.begin(), built_.file.begin() + cut), key_);
        size_t complete = 0;  // records wholly before the cut
        while (complete < kLines.size() &&
               (complete + 1 < kLines.size() ? offsets[complete + 1] : built_.file.size()) <= cut)
            ++complete;
        Problems problems;
        if (cut < rux::logfile::kHeaderSize)
            problems = {{0, "header truncated: " + std::to_string(cut) + " of 512 bytes"}};
        else if (complete < kLines.size() && offsets[complete] != cut)
            problems = {
                {offsets[complete], cut == offsets[complete] + 1
                                        ? "record truncated: length field cut"
                                        : "record truncated: body shorter than its length"}};
        EXPECT_EQ(out.lines, std::vector<std::string>(kLines.begin(), kLines.begin() + complete));
        EXPECT_EQ(out.problems, problems);
    }
}

// A flipped byte in the wrapped key loses the file, as does the wrong key; one in the
// zero tail of the header nothing; one in a record that record only (the others still
// read), unless it hits the length field, after which nothing can be found.
TEST_F(LogDecryptTest, AFlippedByteDamagesOnlyItsRecordOrTheHeader) {
    const Problems headerDamaged = {
        {0, "header damaged: the session key does not decrypt with this private key"}};
    const size_t wrapped = static_cast<size_t>(key_.privateKeySize());
    for (size_t at = 0; at < built_.file.size(); ++at) {
        SCOPED_TRACE(at);
        Bytes damaged = built_.file;
        damaged[at] ^= 0x20;
        const auto out = decrypt(damaged, key_);
        size_t hit = 0;
        while (hit + 1 < kLines.size() && built_.offsets[hit + 1] <= at) ++hit;
        auto lines = kLines;
        Problems problems;
        if (at < wrapped) {
            lines.clear();
            problems = headerDamaged;
        } else if (at >= built_.offsets[hit] + 2) {
            lines.erase(lines.begin() + static_cast<long>(hit));
            problems = {{built_.offsets[hit], "record damaged: GCM tag does not verify"}};
        } else if (at >= rux::logfile::kHeaderSize) {
            ASSERT_FALSE(out.problems.empty());
            EXPECT_EQ(out.problems[0].first, built_.offsets[hit]);
            continue;
        }
        EXPECT_EQ(out.lines, lines);
        EXPECT_EQ(out.problems, problems);
    }
    std::string otherPrivate, otherPublic;
    ASSERT_TRUE(rux::CryptoUtil::generateRsaKeyPair(1024, otherPrivate, otherPublic));
    rux::CryptoUtil other;
    ASSERT_TRUE(other.createRSA(otherPrivate, 0));
    const auto out = decrypt(built_.file, other);
    EXPECT_TRUE(out.lines.empty());
    EXPECT_EQ(out.problems, headerDamaged);
}

// --- the command-line tool ------------------------------------------------------

struct ToolRun {
    int status;
    std::string output;  // stdout and stderr
};
ToolRun runTool(const std::string& args) {
    ToolRun run{-1, {}};
    FILE* pipe = popen((std::string(RUX_LOGDECRYPT_TOOL) + " " + args + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

class LogDecryptToolTest : public rux::test::LogSeamsTest {};

TEST_F(LogDecryptToolTest, KeygenThenLoggingThenDecryptionAndBadArguments) {
    const std::string dir = root_.path(), keys = dir + "/new/keys";
    const ToolRun gen = runTool("keygen --bits 2048 --max-records 5000 --max-files 4 -o " + keys);
    ASSERT_EQ(gen.status, 0) << gen.output;
    EXPECT_NE(gen.output.find("wrote " + keys + "/rux_log_config"), std::string::npos);
    struct stat st {};
    ASSERT_EQ(stat((keys + "/rux_log_private.pem").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    const Bytes publicPem = rux::test::readBytes(keys + "/rux_log_public.pem");
    EXPECT_EQ(rux::test::readBytes(keys + "/rux_log_config"),
              rux::logfile::encodeConfig({5000, 4, publicPem}));

    // A logging process with that configuration installed.
    fs::create_directories(dir + "/config");
    fs::copy_file(keys + "/rux_log_config", dir + "/config/rux_log_config");
    rux::log::Log::getInstance().init("rux");
    ASSERT_TRUE(rux::log::Log::getInstance().encryptionActive());
    RUX_LOG(4, "RUX", "round %s", "trip");
    rux::log::Log::getInstance().dMapLog(6, "map entry 100%");
    rux::log::Log::getInstance().release();

    // A damaged copy is reported with file and offset, the rest still printed.
    const std::string file = dir + "/main/rux_log_p0_00", copy = dir + "/damaged";
    Bytes damaged = rux::test::readBytes(file);
    const auto records = rux::test::recordsOf(damaged);
    ASSERT_EQ(records.size(), 3u);
    const size_t second = 512 + 2 + 28 + records[0].cipher.size();
    damaged[second + 40] ^= 1;
    rux::test::writeBytes(copy, damaged);
    const ToolRun run = runTool("-k " + keys + "/rux_log_private.pem " + copy + " " + file);
    EXPECT_EQ(run.status, 1);
    // The copy's two lines, its problem, then the file's three lines, in that order.
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 6) << run.output;
    const std::string parts[] = {
        copy + ": offset " + std::to_string(second) + ": record damaged: GCM tag does not verify",
        " I RUX : |RUX|Log::printVersion:", " I RUX : |RUX|LogDecryptTest::TestBody:",
        " round trip\n", " E DMAP : map entry 100%\n"};
    for (size_t part = 0, at = 0; part < std::size(parts); ++part) {
        at = run.output.find(parts[part], at);
        ASSERT_NE(at, std::string::npos) << parts[part] << "\n" << run.output;
    }

    // Command lines that end with status 2, and what they say.
    rux::test::writeBytes(dir + "/key.pem", {'n', 'o'});
    const std::pair<std::string, std::string> bad[] = {
        {"", "give the private key (-k)"},
        {"-k /nonexistent/key.pem x", "/nonexistent/key.pem"},
        {"-k " + dir + "/key.pem " + dir + "/key.pem", dir + "/key.pem: not an RSA private key"},
        {"-k " + keys + "/rux_log_private.pem " + dir,
         "rux-logdecrypt: " + dir + ": cannot read: Is a directory"},
        {"keygen --max-files 11 -o " + dir + "/k2", "--max-files"},
        {"keygen --max-records 100 -o " + dir + "/k2", "--max-records"},
        {"keygen -o " + keys, keys + "/rux_log_private.pem exists"},
    };
    for (const auto& [args, says] : bad) {
        const ToolRun r = runTool(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(r.output.find(says), std::string::npos) << args << ": " << r.output;
    }
    EXPECT_EQ(rux::test::readBytes(keys + "/rux_log_public.pem"), publicPem);  // not overwritten
}

}  // namespace
