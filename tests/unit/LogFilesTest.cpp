// Encrypted log files through Log::init: configuration, review and pruning of the
// files already there, naming, rotation, the record layout, and the header checked
// with the openssl command-line tool.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "LogTestSupport.h"
#include "log/CryptoUtil.h"
#include "log/Log.h"
#include "log/LogSeams.h"
#include "rux/platform/host.h"

namespace {

using rux::log::Log;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

class LogFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        rux::platform::diagReset();  // diagnostic channel off: files only
        rux::platform::clearProperties();
        rux::log::setLogRoot(root_.path());
        rux::log::setPluginPath(root_.path() + "/none.so");
        rux::log::setTimerPeriod(std::chrono::hours(1));
        fs::create_directories(mainDir());
    }
    void TearDown() override {
        Log::getInstance().release();
        rux::platform::clearProperties();
        rux::log::setLogRoot("");
        rux::log::setPluginPath("");
        rux::log::setTimerPeriod(std::chrono::seconds(30));
    }

    std::string mainDir() const { return root_.path() + "/main"; }
    std::string logFile(int index) const {
        return mainDir() + "/rux_log_p0_0" + std::to_string(index);
    }
    void configure(uint64_t maxRecords = 30000, uint64_t maxFiles = 10) {
        rux::test::writeConfig(root_.path(), maxRecords, maxFiles, rux::test::testKeys().publicPem);
    }
    // The session key of a log file, unwrapped with the test's private key.
    static Bytes sessionKey(const Bytes& file) {
        rux::CryptoUtil reader;
        EXPECT_TRUE(reader.createRSA(rux::test::testKeys().privatePem, 0));
        Bytes key;
        reader.decryptWithRSAPrivKey(Bytes(file.begin(), file.begin() + 256), key);
        return key;
    }
    static std::vector<std::string> lines(const Bytes& file) {
        const Bytes key = sessionKey(file);
        std::vector<std::string> out;
        rux::CryptoUtil crypto;
        for (const auto& r : rux::test::recordsOf(file)) {
            Bytes plain;
            EXPECT_TRUE(crypto.decryptMsg(r.cipher, r.iv, r.tag, key, plain));
            out.emplace_back(plain.begin(), plain.end());
        }
        return out;
    }
    std::vector<std::string> filesInMain() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(mainDir()))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    rux::test::TempDir root_;
    LogCapture capture_;
};

// No configuration, or one whose key does not read: no encryption and no file.
TEST_F(LogFilesTest, WithoutAUsableConfigurationNoFileIsWritten) {
    for (bool withBadKey : {false, true}) {
        if (withBadKey)
            rux::test::writeConfig(root_.path(), 5000, 5, "-----BEGIN PUBLIC KEY-----\nAAAA\n");
        Log::getInstance().init("rux");
        RUX_LOG(4, "RUX", "nothing on disk");
        EXPECT_FALSE(Log::getInstance().encryptionActive()) << withBadKey;
        EXPECT_EQ(capture_.findEndingWith("C-Logging Init failed").priority, withBadKey ? 6 : -1);
        EXPECT_TRUE(filesInMain().empty());
        Log::getInstance().release();
    }
}

TEST_F(LogFilesTest, ConfigurationValuesAreClamped) {
    struct Case {
        uint64_t records, files, wantRecords, wantFiles;
    } cases[] = {{100, 0, 3000, 3}, {1000000, 200, 30000, 10}, {4321, 7, 4321, 7}};
    for (const auto& c : cases) {
        configure(c.records, c.files);
        Log::getInstance().init("rux");
        EXPECT_EQ(Log::getInstance().maxRecordsPerFile(), c.wantRecords);
        EXPECT_EQ(Log::getInstance().maxFiles(), c.wantFiles);
        Log::getInstance().release();
    }
}

// The first file: a 512-byte header whose session key the openssl tool unwraps, then
// the records in order, each under a fresh IV.
TEST_F(LogFilesTest, FirstFileHoldsTheHeaderAndTheRecordsInOrder) {
    configure();
    Log::getInstance().init("rux");
    ASSERT_TRUE(Log::getInstance().encryptionActive());
    EXPECT_EQ(Log::getInstance().currentFileName(), logFile(0));
    RUX_LOG(4, "RUX", "first %s", "line");
    Log::getInstance().dMapLog(4, "map line");
    EXPECT_EQ(Log::getInstance().recordsInFile(), 3);
    const size_t before = rux::test::readBytes(logFile(0)).size();
    Log::getInstance().encryptLogMsg("x", logFile(0));
    Log::getInstance().encryptLogMsg("same", logFile(0));
    Log::getInstance().encryptLogMsg("same", logFile(0));

    // Read before decrypting: decryption logs, and its lines would be encrypted too.
    const Bytes file = rux::test::readBytes(logFile(0));
    ASSERT_EQ(file.size(), before + 31 + 2 * 34);
    EXPECT_EQ(Bytes(file.begin() + 256, file.begin() + 512), Bytes(256, 0));
    EXPECT_EQ(file[before], 29);  // L = 12 + 16 + 1, little-endian
    EXPECT_EQ(file[before + 1], 0);
    const auto records = rux::test::recordsOf(file);
    ASSERT_EQ(records.size(), 6u);
    EXPECT_NE(records[4].iv, records[5].iv);
    EXPECT_NE(records[4].cipher, records[5].cipher);
    const auto text = lines(file);
    ASSERT_EQ(text.size(), 6u);
    EXPECT_NE(text[0].find(" I RUX : |RUX|Log::printVersion:"), std::string::npos) << text[0];
    EXPECT_NE(text[1].find(" I RUX : |RUX|LogFilesTest::TestBody:"), std::string::npos);
    EXPECT_NE(text[1].find(" first line"), std::string::npos);
    EXPECT_NE(text[2].find(" I DMAP : map line"), std::string::npos) << text[2];
    EXPECT_EQ(std::vector<std::string>(text.begin() + 3, text.end()),
              (std::vector<std::string>{"x", "same", "same"}));

    const std::string dir = root_.path();
    rux::test::writeBytes(dir + "/wrapped", Bytes(file.begin(), file.begin() + 256));
    rux::test::writeText(dir + "/private.pem", rux::test::testKeys().privatePem);
    const std::string command = "openssl pkeyutl -decrypt -inkey " + dir +
                                "/private.pem -pkeyopt rsa_padding_mode:oaep -in " + dir +
                                "/wrapped -out " + dir + "/session.key 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    EXPECT_EQ(rux::test::readBytes(dir + "/session.key"), sessionKey(file));
}

TEST_F(LogFilesTest, ReviewOfTheFilesAlreadyThere) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, int>> files;  // name, age in seconds
        int expectedIndex;
        std::vector<std::string> remaining;  // besides the new file
    } cases[] = {
        {"four files: the three newest stay",
         {{"rux_log_p0_04", 5},
          {"rux_log_p0_03", 10},
          {"rux_log_p0_02", 20},
          {"rux_log_p0_01", 4000}},
         5,
         {"rux_log_p0_02", "rux_log_p0_03", "rux_log_p0_04"}},
        {"two files: the stale one goes",
         {{"rux_log_p0_06", 10}, {"rux_log_p0_02", 7200}},
         7,
         {"rux_log_p0_06"}},
        {"a newest file ending in 9 wraps to 0",
         {{"rux_log_p0_09", 30}, {"rux_log_p0_08", 60}},
         0,
         {"rux_log_p0_08", "rux_log_p0_09"}},
        {"only the last digit counts", {{"rux_log_p0_013", 1}}, 4, {"rux_log_p0_013"}},
        {"configuration and trace files are left alone",
         {{"rux_log_trace", 1}, {"rux_log_p0_01", 9000}, {"unrelated", 9000}},
         2,
         {"rux_log_trace", "unrelated"}},
    };
    for (const auto& c : cases) {
        fs::remove_all(mainDir());
        fs::create_directories(mainDir());
        for (const auto& [name, age] : c.files)
            rux::test::makeFileAged(mainDir() + "/" + name, age);
        configure();
        Log::getInstance().init("rux");
        EXPECT_EQ(Log::getInstance().fileIndex(), c.expectedIndex) << c.name;
        EXPECT_EQ(Log::getInstance().currentFileName(), logFile(c.expectedIndex)) << c.name;
        auto expected = c.remaining;
        const std::string fresh = "rux_log_p0_0" + std::to_string(c.expectedIndex);
        if (std::find(expected.begin(), expected.end(), fresh) == expected.end())
            expected.push_back(fresh);
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(filesInMain(), expected) << c.name;
        Log::getInstance().release();
    }
}

TEST_F(LogFilesTest, OtherTagsUseTheOtherFolder) {
    fs::create_directories(root_.path() + "/other");
    configure();
    Log::getInstance().init("modem");
    EXPECT_EQ(Log::getInstance().getFileTag(), "modem");
    EXPECT_EQ(Log::getInstance().currentFileName(), root_.path() + "/other/rux_log_modem_00");
    EXPECT_TRUE(fs::exists(root_.path() + "/other/rux_log_modem_00"));
}

TEST_F(LogFilesTest, TheFirstFileReceivesMaxRecordsPlusTwo) {
    configure(3000, 10);
    Log::getInstance().init("rux");
    ASSERT_EQ(Log::getInstance().recordsInFile(), 1);  // the version line
    int logged = 0;
    while (Log::getInstance().currentFileName() == logFile(0) && logged < 4000) {
        RUX_LOG(3, "RUX", "record %d", logged);
        ++logged;
    }
    EXPECT_EQ(logged, 3001);
    EXPECT_EQ(Log::getInstance().currentFileName(), logFile(1));
    EXPECT_EQ(Log::getInstance().recordsInFile(), 1);  // the record that rotated counts here
    EXPECT_EQ(rux::test::readBytes(logFile(1)).size(), 512u);  // header only so far
    RUX_LOG(3, "RUX", "into the second file");
    const Bytes firstFile = rux::test::readBytes(logFile(0));
    const Bytes secondFile = rux::test::readBytes(logFile(1));
    const auto first = lines(firstFile);
    ASSERT_EQ(first.size(), 3002u);
    EXPECT_NE(first.back().find("record 3000"), std::string::npos) << first.back();
    const auto second = lines(secondFile);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_NE(second[0].find("into the second file"), std::string::npos);
}

TEST_F(LogFilesTest, RotationWrapsAtMaxFiles) {
    configure(3000, 3);
    Log::getInstance().init("rux");
    // Files 00, 01 and 02 fill up; the next rotation names file 03, deletes 00 and
    // starts counting again, so the one after reuses 01.
    auto logUntil = [](const std::string& name) {
        for (int i = 0; i < 20000 && Log::getInstance().currentFileName() != name; ++i)
            RUX_LOG(3, "RUX", "filler");
    };
    logUntil(logFile(3));
    ASSERT_EQ(Log::getInstance().currentFileName(), logFile(3));
    EXPECT_EQ(Log::getInstance().fileIndex(), 0);
    EXPECT_EQ(filesInMain(),
              (std::vector<std::string>{"rux_log_p0_01", "rux_log_p0_02", "rux_log_p0_03"}));
    logUntil(logFile(1));
    ASSERT_EQ(Log::getInstance().currentFileName(), logFile(1));
    EXPECT_EQ(rux::test::readBytes(logFile(1)).size(), 512u);  // started afresh
    EXPECT_EQ(rux::test::recordsOf(rux::test::readBytes(logFile(3))).size(), 3001u);
}

TEST_F(LogFilesTest, GroupWritableFiles) {
    const mode_t old = umask(022);
    rux::platform::setProperty("persist.vendor.data.rux.log_perms", "1");
    configure();
    Log::getInstance().init("rux");
    struct stat st {};
    ASSERT_EQ(stat(logFile(0).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);
    umask(old);
}

}  // namespace
