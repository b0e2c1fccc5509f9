// Encrypted log files through Log::init: configuration, review and pruning of the
// files already there, naming and rotation. What a record holds is read back by the
// decrypt tool's test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>

#include "LogTestSupport.h"

namespace {

using rux::log::Log;
using rux::test::readBytes;
namespace fs = std::filesystem;

class LogFilesTest : public rux::test::LogSeamsTest {
protected:
    void SetUp() override {
        LogSeamsTest::SetUp();
        rux::platform::diagReset();  // files only
        fs::create_directories(mainDir());
    }
    std::string mainDir() const { return root_.path() + "/main"; }
    std::string logFile(int index) const {
        return mainDir() + "/rux_log_p0_0" + std::to_string(index);
    }
    std::vector<std::string> filesInMain() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(mainDir()))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
};

// A configuration whose key does not read: no encryption and no file.
TEST_F(LogFilesTest, WithoutAUsableKeyNoFileIsWritten) {
    rux::test::writeConfig(root_.path(), 5000, 5, "-----BEGIN PUBLIC KEY-----\n");
    Log::getInstance().init("rux");
    RUX_LOG(4, "RUX", "nothing on disk");
    EXPECT_FALSE(Log::getInstance().encryptionActive());
    EXPECT_EQ(capture_.findEndingWith("C-Logging Init failed").priority, 6);
    EXPECT_TRUE(filesInMain().empty());
}

TEST_F(LogFilesTest, ReviewOfTheFilesAlreadyThere) {
    const struct {
        std::vector<std::pair<std::string, int>> files;  // name, age in seconds
        int expectedIndex;
        std::vector<std::string> remaining;  // the new file included
    } cases[] = {
        // Of four, none stale, the three newest stay; the next index follows the newest.
        {{{"04", 5}, {"03", 10}, {"02", 20}, {"01", 30}}, 5, {"02", "03", "04", "05"}},
        {{{"06", 10}, {"02", 7200}}, 7, {"06", "07"}},      // the stale one goes
        {{{"09", 30}, {"08", 60}}, 0, {"00", "08", "09"}},  // after 9 comes 0
        {{{"013", 1}}, 4, {"013", "04"}},                   // only the last digit counts
        // Configuration and trace files, and others, are left alone.
        {{{"trace", 1}, {"01", 9000}, {"unrelated", 9000}}, 2, {"02", "trace", "unrelated"}},
    };
    rux::test::writeConfig(root_.path(), 30000, 10);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expectedIndex);
        fs::remove_all(mainDir());
        fs::create_directories(mainDir());
        auto name = [](const std::string& n) {
            return n == "unrelated" ? n : (n == "trace" ? "rux_log_" : "rux_log_p0_") + n;
        };
        timespec times[2];
        for (const auto& [file, age] : c.files) {
            const std::string path = mainDir() + "/" + name(file);
            rux::test::writeBytes(path, {'o'});
            clock_gettime(CLOCK_REALTIME, &times[0]);
            times[0].tv_sec -= age;
            times[1] = times[0];
            utimensat(AT_FDCWD, path.c_str(), times, 0);
        }
        Log::getInstance().init("rux");
        EXPECT_EQ(Log::getInstance().fileIndex(), c.expectedIndex);
        EXPECT_EQ(Log::getInstance().currentFileName(), logFile(c.expectedIndex));
        std::vector<std::string> expected;
        for (const auto& n : c.remaining) expected.push_back(name(n));
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(filesInMain(), expected);
        Log::getInstance().release();
    }
}

// The configured 100 records and 0 files are clamped to 3000 and 3. File 00 takes
// max + 2 records (the version line and the one that rotates count in it);
// files 00..02 fill, the next rotation names 03, deletes 00 and starts counting from
// 0 again, so the one after reuses 01. Files are group-writable when asked.
TEST_F(LogFilesTest, RotationAtMaxRecordsWrapsAtMaxFiles) {
    const mode_t oldMask = umask(022);
    rux::platform::setProperty("persist.vendor.data.rux.log_perms", "1");
    rux::test::writeConfig(root_.path(), 100, 0);
    Log::getInstance().init("rux");
    EXPECT_EQ(Log::getInstance().currentFileName(), logFile(0));
    EXPECT_EQ(Log::getInstance().maxRecordsPerFile(), 3000u);
    EXPECT_EQ(Log::getInstance().maxFiles(), 3u);
    struct stat st {};
    ASSERT_EQ(stat(logFile(0).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);
    umask(oldMask);
    int logged = 0;
    auto logUntil = [&](const std::string& name) {
        for (; logged < 20000 && Log::getInstance().currentFileName() != name; ++logged)
            RUX_LOG(3, "RUX", "record %d", logged);
    };
    logUntil(logFile(1));
    EXPECT_EQ(logged, 3001);
    EXPECT_EQ(Log::getInstance().recordsInFile(), 1);  // the record that rotated counts here
    EXPECT_EQ(readBytes(logFile(1)).size(), 512u);     // header only so far
    EXPECT_EQ(rux::test::recordsOf(readBytes(logFile(0))).size(), 3002u);

    logUntil(logFile(3));
    EXPECT_EQ(Log::getInstance().fileIndex(), 0);
    EXPECT_EQ(filesInMain(),
              (std::vector<std::string>{"rux_log_p0_01", "rux_log_p0_02", "rux_log_p0_03"}));
    logUntil(logFile(1));
    ASSERT_EQ(Log::getInstance().currentFileName(), logFile(1));
    EXPECT_EQ(readBytes(logFile(1)).size(), 512u);  // started afresh
    EXPECT_EQ(rux::test::recordsOf(readBytes(logFile(3))).size(), 3001u);
}

// Other tags write to the other folder; while running, a new tag only changes the tag.
TEST_F(LogFilesTest, OtherTagsUseTheOtherFolder) {
    rux::test::writeConfig(root_.path(), 30000, 10);
    Log::getInstance().init("rux");
    Log::getInstance().init("modem");
    EXPECT_EQ(Log::getInstance().currentFileName(), logFile(0));
    EXPECT_EQ(Log::getInstance().getFileTag(), "modem");
    Log::getInstance().release();
    Log::getInstance().init("modem");
    EXPECT_EQ(Log::getInstance().currentFileName(), root_.path() + "/other/rux_log_modem_00");
    EXPECT_TRUE(fs::exists(Log::getInstance().currentFileName()));
}

}  // namespace
