// Reading encrypted log files back: the decoding of rux-logdecrypt (a library function)
// attacked in-process with every truncation and a flipped byte at every offset, and
// the tool itself once end to end (keygen, a logging process, decryption, arguments).
#include <android/log.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

#include "LogDecrypt.h"
#include "LogTestSupport.h"

namespace {

using rux::test::Bytes;
namespace fs = std::filesystem;

// The long line's record length needs both bytes of the length field.
const std::vector<std::string> kLines = {"alpha", "", std::string(300, 'w'), "gamma"};

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

// What decoding gives: the lines, and the problems with their offsets.
using Problems = std::vector<std::pair<size_t, std::string>>;
using Outcome = std::pair<std::vector<std::string>, Problems>;
Outcome decrypt(const Bytes& file, rux::CryptoUtil& key) {
    rux::test::MinimumPriority silent(ANDROID_LOG_SILENT);  // what failed is in the outcome
    Outcome out;
    const auto result = rux::tools::decryptLogFile(
        file, key, [&](const std::string& l) { out.first.push_back(l); },
        [&](size_t offset, const std::string& what) { out.second.emplace_back(offset, what); });
    EXPECT_EQ(std::make_pair(result.lines, result.problems),
              std::make_pair(out.first.size(), out.second.size()));
    EXPECT_EQ(ERR_peek_error(), 0u);  // every failure leaves libcrypto's error queue empty
    return out;
}

// At every offset of a file, a cut and a flipped byte. A cut file reads up to the
// record the cut falls in, which is reported at its offset. A flipped byte in the
// wrapped key loses the file, in the header's zero tail
// nothing, in a record that record only, unless it hits the length field, after which
// nothing can be found.
TEST(LogDecryptTest, EveryCutAndFlippedByteIsReportedWhereItIs) {
    const auto& [file, offsets] = buildFile();
    rux::CryptoUtil key;
    ASSERT_TRUE(key.createRSA(rux::test::testKeys().privatePem, 0));
    const Problems headerDamaged = {
        {0, "header damaged: the session key does not decrypt with this private key"}};
    EXPECT_EQ(decrypt(file, key), Outcome(kLines, {}));
    for (size_t at = 0; at < file.size(); ++at) {
        SCOPED_TRACE(at);
        size_t hit = 0;  // the record `at` falls in, when past the header
        while (hit + 1 < kLines.size() && offsets[hit + 1] <= at) ++hit;
        const size_t record = offsets[hit];
        const bool inHeader = at < rux::logfile::kHeaderSize;
        Outcome cut({kLines.begin(), kLines.begin() + (inHeader ? 0 : hit)}, {});
        if (inHeader)
            cut.second = {{0, "header truncated: " + std::to_string(at) + " of 512 bytes"}};
        else if (at != record)
            cut.second = {{record, at == record + 1
                                       ? "record truncated: length field cut"
                                       : "record truncated: body shorter than its length"}};
        EXPECT_EQ(decrypt(Bytes(file.begin(), file.begin() + at), key), cut);

        Bytes damaged = file;
        damaged[at] ^= 0x20;
        const auto out = decrypt(damaged, key);
        Outcome flipped(kLines, {});
        if (at < static_cast<size_t>(key.privateKeySize())) {
            flipped = {{}, headerDamaged};
        } else if (at >= record + 2) {
            flipped.first.erase(flipped.first.begin() + static_cast<long>(hit));
            flipped.second = {{record, "record damaged: GCM tag does not verify"}};
        } else if (!inHeader) {
            ASSERT_FALSE(out.second.empty());
            EXPECT_EQ(out.second[0].first, record);
            continue;
        }
        EXPECT_EQ(out, flipped);
    }
}

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
    damaged[rux::logfile::kHeaderSize + 20] ^= 1;  // the first record's tag
    rux::test::writeBytes(copy, damaged);
    const ToolRun run = runTool("-k " + keys + "/rux_log_private.pem " + copy + " " + file);
    EXPECT_EQ(run.status, 1);
    // The copy's problem and two lines, then the file's three lines, in that order.
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 6) << run.output;
    const std::string parts[] = {copy + ": offset 512: record damaged: GCM tag does not verify",
                                 " I RUX : |RUX|Log::printVersion:",
                                 " I RUX : |RUX|LogDecryptTest::TestBody:", " round trip\n",
                                 " E DMAP : map entry 100%\n"};
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
