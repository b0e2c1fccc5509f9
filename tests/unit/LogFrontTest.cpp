// The log fronts (SdkLog::print and the Log singleton) before Log::init: the prefixed
// text, the record line, who reads a line, and dump requests past the queue threshold.
#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>

#include "LogTestSupport.h"
#include "log/LogFormat.h"
#include "log/SdkLog.h"

namespace {

using rux::log::Log;
using rux::test::diagTexts;

std::string formatted(const char* tag, const char* file, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    char out[rux::log::kLineBufferSize];
    const size_t n = rux::log::formatMessage(out, tag, file, "f", line, format, args);
    va_end(args);
    return std::string(out, n);
}

// "|tag|<file's base name>::function:line " and the text, formatted as one ("%" in the
// prefix converts too), cut at 511 characters.
TEST(LogFormatTest, MessageIsThePrefixedFormatFormatted) {
    const std::string longTag(600, 't'), longText(700, 'z');
    const struct {
        const char *tag, *file;
        int line;
        const char* format;
        std::string expected;
    } cases[] = {
        {"RUX", "a/b/Log.cpp", 12, "n=%d s=%s", "|RUX|Log::f:12 n=7 s=x"},
        {"RUX", "d.d/a.tar.gz", -3, "", "|RUX|a.tar::f:-3 "},
        {"RUX", "d.d/Makefile", 0, "plain", "|RUX|Makefile::f:0 plain"},
        {"R%dX", "", 1, "s=%s", "|R7X|::f:1 s=x"},
        {nullptr, nullptr, 0, nullptr, "||::f:0 "},
        {longTag.c_str(), "Log.cpp", 5, "%d", ("|" + longTag).substr(0, 511)},
        {"RUX", "Log.cpp", 1, longText.c_str(), ("|RUX|Log::f:1 " + longText).substr(0, 511)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(formatted(c.tag, c.file, c.line, c.format, 7, "x"), c.expected) << c.expected;
}

// "<date> <time>.<ms> <pid> <tid> <letter> RUX : <message>", as snprintf would write it.
TEST(LogRecordTest, LineLayout) {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::string z(600, 'z'), at = "2025-05-24 13:02:11.";
    const struct {
        int level, pid;
        unsigned long tid;
        long usec;
        bool dmap;
        std::string message, expected;
    } rows[] = {
        {4, 1234, 1240, 45999, false, "m", at + "045  1234  1240 I RUX : m"},
        {6, 1234, 1240, 45999, true, "m", at + "045  1234  1240 E DMAP : m"},
        {7, 123456, 1234567, 999999, false, "m", at + "999 123456 1234567 F RUX : m"},
        {9, -1, 0, -5000, false, std::string("ab\0cd", 5), at + "-05    -1     0 X RUX : ab"},
        {2, 1, 1, 0, false, z, (at + "000     1     1 V RUX : " + z).substr(0, 511)},
    };
    rux::test::LogCapture capture;
    Log::LogRecord r;
    for (const auto& row : rows) {
        r.timestamp = {1748091731, row.usec};  // 2025-05-24 13:02:11 UTC
        r.level = row.level, r.pid = row.pid, r.tid = row.tid, r.isDmap = row.dmap;
        r.message = row.message;
        EXPECT_EQ(r.getDiagEntry(), row.expected);
    }
    r.timestamp.tv_sec = LLONG_MAX;  // cannot be converted: no line, and a line saying so
    EXPECT_EQ(r.getDiagEntry(), "");
    EXPECT_EQ(capture.findEndingWith("Unable to obtain valid time").priority, 2);
}

class LogFrontTest : public rux::test::LogSeamsTest {
protected:
    static void enableCode(bool on) {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, on);
    }
};

// Who reads a line decides what is made of it: the Android log (liblog's minimum
// priority), the diagnostic channel (its log code), both, or nobody. SdkLog writes at
// debug priority without a tag whatever the level, to the Android log only.
TEST_F(LogFrontTest, ALineReachesExactlyItsReaders) {
    const struct {
        bool sdkFront;
        int minimum;
        bool codeEnabled;
        int level;
        int androidPriority;  // -1: no Android log line
    } cases[] = {
        {false, ANDROID_LOG_INFO, true, 3, -1},  {false, ANDROID_LOG_INFO, false, 3, -1},
        {false, ANDROID_LOG_INFO, false, 4, 4},  {false, ANDROID_LOG_VERBOSE, true, 2, 2},
        {false, ANDROID_LOG_FATAL, true, 6, -1}, {true, ANDROID_LOG_INFO, true, 6, -1},
        {true, ANDROID_LOG_DEBUG, true, 6, 3},
    };
    const size_t queued = Log::getInstance().queuedRecords();
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        capture_.clear();
        enableCode(c.codeEnabled);
        {
            rux::test::MinimumPriority minimum(c.minimum);
            if (c.sdkFront)
                rux::SdkLog::print(c.level, "Mavo", "sdk/MavoClient.cpp", "set", 42, "n %d", 1);
            else
                Log::getInstance().addLogRecord(c.level, "RUX", "a/Log.cpp", "f", 7, "n %d", 1);
        }
        std::vector<std::string> expected, got = capture_.rows();  // no init: no tag
        if (c.androidPriority >= 0)
            expected.push_back(
                std::to_string(c.androidPriority) +
                (c.sdkFront ? "/(null): |Mavo|MavoClient::set:42 n 1" : "/: |RUX|Log::f:7 n 1"));
        char ids[64];
        std::snprintf(ids, sizeof ids, " %5d %5d %c RUX : |RUX|Log::f:7 n 1", getpid(),
                      static_cast<int>(gettid()), "XXVDIWEF"[c.level]);
        if (c.codeEnabled && !c.sdkFront) expected.push_back(ids);
        for (const auto& t : diagTexts()) got.push_back(t.substr(23));
        EXPECT_EQ(got, expected);
    }
    EXPECT_EQ(Log::getInstance().queuedRecords(), queued);  // unbuffered: straight to the channel
}

TEST_F(LogFrontTest, SdkLogFormatsItsTextASecondTimeAndModuleDebugHasItsOwnPrefix) {
    // "%%" left by the first formatting becomes "%"; other conversions stay as text.
    rux::SdkLog::print(3, "T", "F.cpp", "f", 1, "%s|%d%%", "50%% and %s", 9);
    Log::getInstance().logModuleDebug("step %d", 3);
    EXPECT_EQ(capture_.rows(), (std::vector<std::string>{"3/(null): |T|F::f:1 50% and %s|9%",
                                                         "3/: | ruxLog | step 3"}));
    EXPECT_TRUE(diagTexts().empty());  // logModuleDebug makes no record
}

// A child process's records carry its own process and thread ids, not its parent's.
TEST_F(LogFrontTest, RecordsOfAForkedChildCarryItsOwnIds) {
    RUX_LOG(4, "RUX", "parent");  // the parent's ids are in use from here on
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        enableCode(true);
        RUX_LOG(4, "RUX", "child");
        char ids[48];
        std::snprintf(ids, sizeof ids, " %5d %5d I RUX : ", getpid(), static_cast<int>(gettid()));
        const auto texts = diagTexts();
        _exit(texts.size() == 1 && texts[0].find(ids) != std::string::npos ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Past the threshold every front asks the dumper for a dump, even for a line nobody
// reads; printToAdb queues its record whatever the configuration.
TEST_F(LogFrontTest, EveryFrontAsksForADumpPastTheQueueThreshold) {
    Log& log = Log::getInstance();
    size_t requests = log.pendingDumpRequests();
    while (log.queuedRecords() < Log::kQueueDumpThreshold + 1) RUX_ADB_LOG(4, "RUX", "fill");
    EXPECT_EQ(log.pendingDumpRequests(), requests);  // the queue holds 3000: none yet
    EXPECT_TRUE(diagTexts().empty());                // the dumper sends queued records
    const struct {
        bool codeEnabled;
        int minimum;
        std::function<void()> log;
    } fronts[] = {
        {true, ANDROID_LOG_VERBOSE, [] { RUX_ADB_LOG(4, "RUX", "adb %d", 7); }},
        {true, ANDROID_LOG_VERBOSE, [] { RUX_LOG(4, "RUX", "record"); }},
        {false, ANDROID_LOG_VERBOSE, [] { RUX_LOG(4, "RUX", "Android log only"); }},
        {false, ANDROID_LOG_INFO, [] { RUX_LOG(3, "RUX", "unread"); }},
        {true, ANDROID_LOG_VERBOSE, [&] { log.dMapLog(4, "map record"); }},
        {false, ANDROID_LOG_VERBOSE, [&] { log.dMapLog(4, "map line nobody reads"); }},
    };
    for (const auto& f : fronts) {
        enableCode(f.codeEnabled);
        rux::test::MinimumPriority minimum(f.minimum);
        f.log();
        EXPECT_EQ(log.pendingDumpRequests(), ++requests) << &f - fronts;
    }
    EXPECT_EQ(log.queuedRecords(), Log::kQueueDumpThreshold + 2);
    EXPECT_TRUE(capture_.contains("adb 7")) << capture_.dump();
    EXPECT_FALSE(capture_.contains("unread"));
}

}  // namespace
