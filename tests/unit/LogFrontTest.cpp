// The two log fronts (SdkLog::print and the Log singleton) before Log::init: prefix,
// formatting limits, priorities, record lines and the diagnostic-channel path.
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "log/DiagCmdProcessor.h"
#include "log/Log.h"
#include "log/LogFormat.h"
#include "log/SdkLog.h"
#include "rux/platform/host.h"

namespace {

using rux::log::Log;
using rux::test::LogCapture;

class LogFrontTest : public ::testing::Test {
protected:
    void SetUp() override {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
    }
    void TearDown() override { rux::platform::diagReset(); }

    static std::string payloadText(const rux::platform::DiagPacket& p) {
        const auto payload = p.payload();
        EXPECT_EQ(payload.size(), rux::DiagCmdProcessor::kPayloadSize);
        EXPECT_EQ(std::vector<uint8_t>(payload.begin(), payload.begin() + 4),
                  std::vector<uint8_t>(4, 0));
        std::string text(payload.begin() + 4, payload.end());
        return text.substr(0, text.find('\0'));
    }

    LogCapture capture_;
};

TEST(LogFormatTest, BaseNameDropsDirectoryAndExtension) {
    struct Case {
        const char* file;
        const char* base;
    } cases[] = {
        {"/src/utils/logUtil/Log.cpp", "Log"},
        {"Log.cpp", "Log"},
        {"a/b/RuxIpcSession.cpp", "RuxIpcSession"},
        {"dir.d/archive.tar.gz", "archive.tar"},
        {"dir.d/Makefile", "Makefile"},
        {"", ""},
        {nullptr, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(rux::log::baseName(c.file), c.base) << (c.file ? c.file : "(null)");
}

std::string formatted(const char* tag, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    char out[rux::log::kLineBufferSize];
    const size_t n = rux::log::formatMessage(out, tag, "a/b/Log.cpp", "f", line, format, args);
    va_end(args);
    return std::string(out, n);
}

// The text is the prefixed format formatted as one: a "%" in the prefix converts too.
TEST(LogFormatTest, MessageIsThePrefixedFormatFormatted) {
    const std::string longTag(600, 't');
    struct Case {
        const char* tag;
        int line;
        const char* format;
        std::string expected;
    } cases[] = {
        {"RUX", 12, "plain", "|RUX|Log::f:12 plain"},
        {"RUX", 12, "n=%d s=%s", "|RUX|Log::f:12 n=7 s=x"},
        {"RUX", -3, "", "|RUX|Log::f:-3 "},
        {"R%dX", 1, "s=%s", "|R7X|Log::f:1 s=x"},
        {nullptr, 0, nullptr, "||Log::f:0 "},
        {longTag.c_str(), 5, "%d", ("|" + longTag).substr(0, 511)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(formatted(c.tag, c.line, c.format, 7, "x"), c.expected) << c.expected;
}

TEST_F(LogFrontTest, MessagesAreCutAt511Characters) {
    const std::string longText(700, 'z');
    Log::getInstance().addLogRecord(4, "RUX", "Log.cpp", "f", 1, "%s", longText.c_str());
    SDK_LOG(4, "RuxSdk", "%s", longText.c_str());
    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 2u);
    const std::string prefix = "|RUX|Log::f:1 ";
    EXPECT_EQ(lines[0].text, prefix + std::string(511 - prefix.size(), 'z'));
    EXPECT_EQ(lines[1].text.size(), 511u);

    // The diagnostic record line is cut to 511 characters as well, its own prefix included.
    const auto packets = rux::platform::diagPackets();
    ASSERT_EQ(packets.size(), 1u);
    const std::string entry = payloadText(packets[0]);
    EXPECT_EQ(entry.size(), 511u);
    EXPECT_NE(entry.find(" I RUX : |RUX|Log::f:1 zzz"), std::string::npos) << entry;
}

TEST_F(LogFrontTest, RecordLineLayout) {
    setenv("TZ", "UTC", 1);
    tzset();
    Log::LogRecord r;
    r.message = "|RUX|RuxIpcSession::send:88 sent";
    r.pid = 1234;
    r.tid = 1240;
    r.timestamp.tv_sec = 1748091731;  // 2025-05-24 13:02:11 UTC
    r.timestamp.tv_usec = 45999;
    const char letters[] = "XXVDIWEF";
    for (int level = 0; level <= 7; ++level) {
        r.level = level;
        EXPECT_EQ(r.getDiagEntry(), std::string("2025-05-24 13:02:11.045  1234  1240 ") +
                                        letters[level] + " RUX : " + r.message);
    }
    r.level = 4;
    r.isDmap = true;
    EXPECT_EQ(r.getDiagEntry(),
              "2025-05-24 13:02:11.045  1234  1240 I DMAP : |RUX|RuxIpcSession::send:88 sent");

    // Ids and milliseconds of any width and sign; the message ends at a zero byte.
    struct Fields {
        int pid;
        unsigned long tid;
        long usec;
        std::string message;
        const char* expected;
    } rows[] = {
        {7, 3, 0, "m", "2025-05-24 13:02:11.000     7     3 I RUX : m"},
        {123456, 1234567, 999999, "m", "2025-05-24 13:02:11.999 123456 1234567 I RUX : m"},
        {-1, 0, -5000, "m", "2025-05-24 13:02:11.-05    -1     0 I RUX : m"},
        {1234, 1240, 45999, std::string("ab\0cd", 5),
         "2025-05-24 13:02:11.045  1234  1240 I RUX : ab"},
    };
    r.isDmap = false;
    for (const auto& row : rows) {
        r.pid = row.pid;
        r.tid = row.tid;
        r.timestamp.tv_usec = row.usec;
        r.message = row.message;
        EXPECT_EQ(r.getDiagEntry(), row.expected);
    }
}

// Who reads a line decides what is made of it: the Android log (liblog's minimum
// priority), the diagnostic channel (its log code), both, or nobody.
TEST_F(LogFrontTest, ALineReachesExactlyItsReaders) {
    struct Case {
        const char* name;
        bool sdkFront;  // SdkLog::print (debug priority, Android log only) or addLogRecord
        int minimum;    // liblog's minimum priority
        bool codeEnabled;
        int level;
        bool androidLine;
        bool packet;
    } cases[] = {
        {"debug, info minimum, code on", false, ANDROID_LOG_INFO, true, 3, false, true},
        {"debug, info minimum, code off", false, ANDROID_LOG_INFO, false, 3, false, false},
        {"info, info minimum, code off", false, ANDROID_LOG_INFO, false, 4, true, false},
        {"verbose, verbose minimum, code off", false, ANDROID_LOG_VERBOSE, false, 2, true, false},
        {"error, fatal minimum, code on", false, ANDROID_LOG_FATAL, true, 6, false, true},
        {"sdk, info minimum", true, ANDROID_LOG_INFO, true, 6, false, false},
        {"sdk, debug minimum", true, ANDROID_LOG_DEBUG, true, 6, true, false},
    };
    for (const auto& c : cases) {
        capture_.clear();
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, c.codeEnabled);
        {
            rux::test::MinimumPriority minimum(c.minimum);
            if (c.sdkFront)
                SDK_LOG(c.level, "RuxSdk", "line %s", c.name);
            else
                RUX_LOG(c.level, "RUX", "line %s", c.name);
        }
        EXPECT_EQ(capture_.contains(c.name), c.androidLine) << c.name;
        const auto packets = rux::platform::diagPackets();
        ASSERT_EQ(packets.size(), c.packet ? 1u : 0u) << c.name;
        if (c.packet) {
            const std::string entry = payloadText(packets[0]);
            EXPECT_NE(entry.find(std::string(" ") + "XXVDIWEF"[c.level] + " RUX : |RUX|"),
                      std::string::npos)
                << entry;
            EXPECT_NE(entry.find(std::string("line ") + c.name), std::string::npos) << entry;
        }
    }
}

// A child process's records carry its own process and thread ids, not its parent's.
TEST_F(LogFrontTest, RecordsOfAForkedChildCarryItsOwnIds) {
    RUX_LOG(4, "RUX", "parent");  // the parent's ids are in use from here on
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
        RUX_LOG(4, "RUX", "child");
        const auto packets = rux::platform::diagPackets();
        char ids[48];
        std::snprintf(ids, sizeof ids, " %5d %5d I RUX : ", getpid(), static_cast<int>(gettid()));
        const auto payload = packets.size() == 1 ? packets[0].payload() : std::vector<uint8_t>();
        const std::string text(payload.begin(), payload.end());
        _exit(text.find(ids) != std::string::npos ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(LogFrontTest, ATimeThatCannotBeConvertedGivesAnEmptyLineAndALogLine) {
    Log::LogRecord r;
    r.level = 4;
    r.message = "m";
    r.timestamp.tv_sec = LLONG_MAX;
    EXPECT_EQ(r.getDiagEntry(), "");
    const auto line = capture_.findEndingWith("Unable to obtain valid time");
    EXPECT_EQ(line.priority, 2) << capture_.dump();
    EXPECT_TRUE(rux::platform::diagPackets().empty());  // an empty entry is never sent
}

// The record carries the caller's process and thread ids and its level as a letter.
TEST_F(LogFrontTest, WithoutInitRecordsGoStraightToTheDiagnosticChannel) {
    const size_t queued = Log::getInstance().queuedRecords();
    RUX_LOG(5, "RUX", "peer %s gone", "svc");
    EXPECT_EQ(Log::getInstance().queuedRecords(), queued);
    const auto packets = rux::platform::diagPackets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].code, 7701);
    const std::string entry = payloadText(packets[0]);
    char expected[96];
    std::snprintf(expected, sizeof expected,
                  " %5d %5d W RUX : |RUX|LogFrontTest::TestBody:", getpid(),
                  static_cast<int>(gettid()));
    EXPECT_NE(entry.find(expected), std::string::npos) << entry;
    EXPECT_NE(entry.find(" peer svc gone"), std::string::npos) << entry;
}

TEST_F(LogFrontTest, AddLogRecordWritesThePrefixedLineWithTheLogTag) {
    Log::getInstance().addLogRecord(6, "RUX", "/build/utils/logUtil/Log.cpp", "init", 225,
                                    "cannot open libruxalog.so");
    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 1u) << capture_.dump();
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(lines[0].tag, "");  // the tag given to Log::init; none yet
    EXPECT_EQ(lines[0].text, "|RUX|Log::init:225 cannot open libruxalog.so");
}

TEST_F(LogFrontTest, SdkLogAlwaysWritesAtDebugPriorityWithoutTag) {
    for (int level : {2, 4, 6, 7}) {
        capture_.clear();
        rux::SdkLog::print(level, "MavoClient", "sdk/client/src/MavoClient.cpp", "setHstState", 42,
                           "transaction %d", 7);
        const auto lines = capture_.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].priority, 3) << level;
        EXPECT_EQ(lines[0].tag, LogCapture::kNullTag);
        EXPECT_EQ(lines[0].text, "|MavoClient|MavoClient::setHstState:42 transaction 7");
    }
    EXPECT_TRUE(rux::platform::diagPackets().empty());  // Android log only
}

TEST_F(LogFrontTest, SdkLogFormatsItsTextASecondTime) {
    // "%%" left by the first formatting becomes "%"; other conversions stay as text.
    rux::SdkLog::print(3, "T", "F.cpp", "f", 1, "%s|%d%%", "50%% and %s", 9);
    ASSERT_EQ(capture_.lines().size(), 1u);
    EXPECT_EQ(capture_.lines()[0].text, "|T|F::f:1 50% and %s|9%");
}

TEST_F(LogFrontTest, LogModuleDebugAndVersion) {
    Log::getInstance().logModuleDebug("step %d", 3);
    Log::getInstance().printVersion();
    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, 3);
    EXPECT_EQ(lines[0].text, "| ruxLog | step 3");
    EXPECT_EQ(lines[1].priority, 4);
    EXPECT_EQ(lines[1].text.rfind("|RUX|Log::printVersion:", 0), 0u) << lines[1].text;
    EXPECT_NE(lines[1].text.find(" version RUX-20250524-d9c57ad5"), std::string::npos);
    EXPECT_EQ(rux::platform::diagPackets().size(), 1u);  // logModuleDebug makes no record
}

TEST_F(LogFrontTest, PrintToAdbQueuesEveryRecordAndAsksForADumpPastTheThreshold) {
    Log& log = Log::getInstance();
    const size_t startQueued = log.queuedRecords();
    const size_t startRequests = log.pendingDumpRequests();
    ASSERT_LE(startQueued, Log::kQueueDumpThreshold);
    while (log.queuedRecords() < Log::kQueueDumpThreshold + 1) RUX_ADB_LOG(4, "RUX", "fill");
    EXPECT_EQ(log.pendingDumpRequests(), startRequests);  // the queue holds 3000: none yet
    RUX_ADB_LOG(4, "RUX", "over");
    RUX_ADB_LOG(4, "RUX", "over");
    EXPECT_EQ(log.pendingDumpRequests(), startRequests + 2);
    EXPECT_EQ(log.queuedRecords(), Log::kQueueDumpThreshold + 3);
    EXPECT_TRUE(rux::platform::diagPackets().empty());  // the dumper sends queued records
    EXPECT_EQ(capture_.findEndingWith("over").priority, 4);
    {
        // A line that nobody reads still asks for the dump.
        rux::test::MinimumPriority minimum(ANDROID_LOG_INFO);
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, false);
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "unread");
    }
    EXPECT_EQ(log.pendingDumpRequests(), startRequests + 3);
    EXPECT_EQ(log.queuedRecords(), Log::kQueueDumpThreshold + 3);
    EXPECT_FALSE(capture_.contains("unread"));
}

TEST(LogBufferTest, HexDumpFormatAndPieces) {
    EXPECT_EQ(Log::formatBuffer("buf", {0x0a, 0xff, 0x00}),
              std::vector<std::string>{"buf: len[3][0xa, 0xff, 0x0, ]"});
    std::string whole = "big: len[100][";
    for (int i = 0; i < 100; ++i) whole += "0xab, ";
    whole += "]";
    const auto pieces = Log::formatBuffer("big", std::vector<uint8_t>(100, 0xab));
    ASSERT_EQ(pieces.size(), 5u);  // 616 characters
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(pieces[i], whole.substr(150 * i, 150));
    EXPECT_EQ(pieces[4], whole.substr(600));
}

TEST(LogBufferTest, DumpRequestNames) {
    const std::pair<int, const char*> names[] = {
        {rux::log::BUFFER_IS_FULL, "BUFFER_IS_FULL"},
        {rux::log::USER_COMMAND, "USER_COMMAND"},
        {rux::log::LOGGING_TIMER_EXPIRED, "LOGGING_TIMER_EXPIRED"},
        {rux::log::CRASH_DETECTED, "CRASH_DETECTED"},
        {rux::log::SHUTDOWN, "SHUTDOWN"},
        {5, "UNKNOWN"},
        {-1, "UNKNOWN"}};
    for (const auto& [type, name] : names) EXPECT_STREQ(rux::log::dumpRequestName(type), name);
}

TEST_F(LogFrontTest, ConcurrentLoggersKeepEachThreadsOrder) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kPerThread; ++i) RUX_LOG(4, "RUX", "t%d n%d", t, i);
        });
    }
    for (auto& th : threads) th.join();
    const auto packets = rux::platform::diagPackets();
    ASSERT_EQ(packets.size(), static_cast<size_t>(kThreads * kPerThread));
    std::vector<int> next(kThreads, 0);
    for (const auto& p : packets) {
        const std::string text = payloadText(p);
        int t = -1, n = -1;
        ASSERT_EQ(std::sscanf(text.substr(text.rfind(" t")).c_str(), " t%d n%d", &t, &n), 2);
        EXPECT_EQ(n, next[t]++) << text;
    }
    // The Android log saw the same lines in the same order as the channel.
    EXPECT_EQ(capture_.lines().size(), static_cast<size_t>(kThreads * kPerThread));
}

}  // namespace
