// Log::init and release: the configuration properties, the dumper and timer threads,
// dump requests and the diagnostic command, diagnostic-map records.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "LogTestSupport.h"
#include "log/DiagCmdProcessor.h"
#include "log/Log.h"
#include "log/LogSeams.h"
#include "rux/platform/host.h"
#include "rux/rux_log.h"

namespace {

using rux::log::Log;
using rux::test::LogCapture;
using namespace std::chrono_literals;

constexpr const char* kLogging = "persist.vendor.data.rux.logging";

class LogInitTest : public ::testing::Test {
protected:
    void SetUp() override {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
        rux::platform::clearProperties();
        rux::log::setLogRoot(root_.path());                  // no configuration: no files
        rux::log::setPluginPath(root_.path() + "/none.so");  // no plug-in
        rux::log::setTimerPeriod(std::chrono::hours(1));     // the timer stays quiet
    }
    void TearDown() override {
        Log::getInstance().release();
        rux::platform::clearProperties();
        rux::platform::diagReset();
        rux::log::setLogRoot("");
        rux::log::setPluginPath("");
        rux::log::setTimerPeriod(30s);
    }

    static std::vector<std::string> packetTexts(const std::string& needle = "") {
        std::vector<std::string> out;
        for (const auto& p : rux::platform::diagPackets()) {
            const auto payload = p.payload();
            std::string text(payload.begin() + 4, payload.end());
            text = text.substr(0, text.find('\0'));
            if (text.find(needle) != std::string::npos) out.push_back(text);
        }
        return out;
    }

    size_t completions(const std::string& type) const {
        return capture_.matching("Dump completed, request type: " + type + ",").size();
    }

    static void sendCommand(std::vector<uint8_t> request) {
        ASSERT_TRUE(rux::platform::diagDeliverCommand(
            rux::DiagCmdProcessor::kSubsystemId, rux::DiagCmdProcessor::kSubsystemCmd,
            request.data(), static_cast<uint16_t>(request.size())));
    }

    rux::test::TempDir root_;
    LogCapture capture_;
};

TEST(PropertyGetInt32Test, ParsingRules) {
    struct Case {
        const char* value;  // null: unset
        int32_t expected;
    } cases[] = {
        {nullptr, -7},
        {"", -7},
        {"42", 42},
        {"0x1F", 31},
        {"017", 15},
        {"12abc", 12},  // trailing text is ignored
        {"abc", -7},    // no digits
        {"-5", -5},
        {"2147483647", INT32_MAX},
        {"2147483648", -7},  // above 0x7FFFFFFF
        {"0xFFFFFFFF", -7},
        {"99999999999999999999", -7},  // ERANGE
        {"-2147483648", INT32_MIN},
        {"-2147483649", INT32_MAX},     // below the minimum: the low 32 bits
        {"-99999999999999999999", -7},  // ERANGE
    };
    for (const auto& c : cases) {
        rux::platform::clearProperties();
        if (c.value) rux::platform::setProperty("test.int", c.value);
        EXPECT_EQ(property_get_int32("test.int", -7), c.expected) << (c.value ? c.value : "unset");
    }
    rux::platform::setProperty("test.int", "5");
    EXPECT_EQ(property_get_int32(nullptr, -7), -7);
    rux::platform::clearProperties();
}

// The two properties, the flags they set, and which levels of diagnostic-map records
// reach the channel (always at once, even when other records are buffered).
TEST_F(LogInitTest, PropertiesSetTheFlagsAndFilterDiagnosticMapRecords) {
    struct Case {
        const char* logging;  // null: unset
        const char* perms;    // null: unset
        bool buffered, dmapDebugOff, dmapOff, groupWritable;
        std::string levelsSent;  // of 3, 4 and 6
    } cases[] = {
        {nullptr, nullptr, false, false, false, false, "346"},
        {"0", "true", false, false, false, true, "346"},
        {"1", "0", true, false, false, false, "346"},
        {"2", "maybe", false, true, false, false, "46"},
        {"3", nullptr, true, true, false, false, "46"},
        {"4", nullptr, false, true, true, false, ""},
        {"0x7", nullptr, true, true, true, false, ""},
        {"junk", nullptr, false, false, false, false, "346"},
    };
    for (const auto& c : cases) {
        const std::string name =
            std::string(c.logging ? c.logging : "unset") + "/" + (c.perms ? c.perms : "unset");
        rux::platform::clearProperties();
        if (c.logging) rux::platform::setProperty(kLogging, c.logging);
        if (c.perms) rux::platform::setProperty("persist.vendor.data.rux.log_perms", c.perms);
        Log::getInstance().init("rux");
        EXPECT_TRUE(Log::getInstance().initialized()) << name;
        EXPECT_EQ(Log::getInstance().bufferedDiag(), c.buffered) << name;
        EXPECT_EQ(Log::getInstance().dmapDebugOff(), c.dmapDebugOff) << name;
        EXPECT_EQ(Log::getInstance().dmapOff(), c.dmapOff) << name;
        EXPECT_EQ(Log::getInstance().groupWritable(), c.groupWritable) << name;

        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
        const size_t queued = Log::getInstance().queuedRecords();
        std::string sent;
        for (int level : {3, 4, 6}) {
            Log::getInstance().dMapLog(level, "dmap entry " + std::to_string(level));
            if (!packetTexts(" DMAP : dmap entry " + std::to_string(level)).empty())
                sent += std::to_string(level);
        }
        EXPECT_EQ(sent, c.levelsSent) << name;
        EXPECT_EQ(Log::getInstance().queuedRecords(), queued) << name;
        Log::getInstance().release();
        EXPECT_FALSE(Log::getInstance().initialized()) << name;
    }
    // Without the plug-in's alog these records never reach the Android log.
    EXPECT_FALSE(capture_.contains("dmap entry"));
}

// Through the host process's entry of rux/rux_log.h, as a host calls it.
TEST_F(LogInitTest, InitRegistersTheCommandAndLogsTheVersionOnce) {
    rux::Log::getInstance().init("first");
    rux::Log::getInstance().init("second");  // only the tag changes
    EXPECT_TRUE(Log::getInstance().initialized());
    EXPECT_EQ(Log::getInstance().tag(), "second");
    EXPECT_EQ(rux::platform::diagInitCount(), 1);
    const auto version = capture_.matching("version RUX-20250524-d9c57ad5");
    ASSERT_EQ(version.size(), 1u) << capture_.dump();
    EXPECT_EQ(version[0].tag, "first");
    EXPECT_EQ(capture_.findEndingWith("cannot open libruxalog.so").priority, 6);

    const auto tables = rux::platform::diagTables();
    ASSERT_EQ(tables.size(), 1u);
    const auto& t = tables[0];
    EXPECT_EQ(std::vector<int>({t.delay_flag, t.cmd_code, t.subsys_id, t.count, t.proc_id,
                                t.entries[0].first_cmd_code, t.entries[0].last_cmd_code}),
              std::vector<int>({0, 0x00FF, 18, 1, 0, 137, 137}));
    EXPECT_EQ(t.entries[0].handler, &rux::DiagCmdProcessor::diagCmdHandler);
    rux::Log::getInstance().release();
    EXPECT_FALSE(Log::getInstance().initialized());
}

TEST_F(LogInitTest, UnbufferedRecordsNeverEnterTheQueue) {
    Log::getInstance().init("rux");
    const size_t queued = Log::getInstance().queuedRecords();
    RUX_LOG(4, "RUX", "straight %d", 1);
    EXPECT_EQ(Log::getInstance().queuedRecords(), queued);
    EXPECT_EQ(packetTexts("straight 1").size(), 1u);
}

TEST_F(LogInitTest, BufferedRecordsWaitForADumpWhichACommandRequests) {
    rux::platform::setProperty(kLogging, "1");
    Log::getInstance().init("rux");
    for (int i = 0; i < 3; ++i) RUX_LOG(4, "RUX", "held %d", i);
    EXPECT_TRUE(packetTexts("held").empty());

    sendCommand({0x01});
    // Without a plug-in decoding fails, and the 64-byte response is left as it was.
    EXPECT_EQ(capture_.findEndingWith("Rux-Diag: retVal: 0, size: 64").tag, LogCapture::kNullTag);
    ASSERT_TRUE(capture_.waitForText("Dump completed, request type: USER_COMMAND, elapsed time = "))
        << capture_.dump();
    const auto held = packetTexts("held");
    ASSERT_EQ(held.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(held[i].find(" I RUX : |RUX|LogInitTest::TestBody:"), std::string::npos);
    EXPECT_NE(held[2].find("held 2"), std::string::npos);
    EXPECT_EQ(capture_.findEndingWith("outputlen:64 ").priority, 3);
}

// Buffered, a record is made even when neither the Android log nor the channel reads
// the line now: the dumper sends it later.
TEST_F(LogInitTest, BufferedRecordsAreMadeForLinesNobodyElseReads) {
    rux::platform::setProperty(kLogging, "1");
    Log::getInstance().init("rux");
    rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, false);
    const size_t queued = Log::getInstance().queuedRecords();
    {
        rux::test::MinimumPriority minimum(ANDROID_LOG_INFO);
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "kept for later");
    }
    EXPECT_EQ(Log::getInstance().queuedRecords(), queued + 1);
    EXPECT_FALSE(capture_.contains("kept for later"));
}

TEST_F(LogInitTest, AZeroLengthCommandCausesNoDump) {
    rux::platform::setProperty(kLogging, "1");
    Log::getInstance().init("rux");
    uint8_t byte = 1;
    ASSERT_TRUE(rux::platform::diagDeliverCommand(18, 137, &byte, 0));
    ASSERT_TRUE(rux::platform::diagDeliverCommand(18, 137, nullptr, 4));
    EXPECT_FALSE(capture_.contains("Rux-Diag"));
    sendCommand({0xFF, 0x00});
    Log::getInstance().release();  // the dumper handles every request posted before
    EXPECT_EQ(completions("USER_COMMAND"), 1u) << capture_.dump();
}

TEST_F(LogInitTest, TheTimerAsksForADumpEveryPeriod) {
    rux::log::setTimerPeriod(5ms);
    Log::getInstance().init("rux");
    EXPECT_TRUE(capture_.waitFor([](const std::vector<rux::test::LogLine>& lines) {
        return std::count_if(lines.begin(), lines.end(), [](const auto& l) {
                   return l.text.find("request type: LOGGING_TIMER_EXPIRED") != std::string::npos;
               }) >= 2;
    })) << capture_.dump();
    EXPECT_EQ(capture_.matching("request type: LOGGING_TIMER_EXPIRED")[0].priority, 3);
}

TEST_F(LogInitTest, ReleaseWithRecordsQueuedEndsTheDumperWithoutSendingThem) {
    rux::platform::setProperty(kLogging, "1");
    Log::getInstance().init("rux");
    for (int i = 0; i < 5; ++i) RUX_LOG(4, "RUX", "left %d", i);
    const size_t queued = Log::getInstance().queuedRecords();
    Log::getInstance().release();
    EXPECT_FALSE(Log::getInstance().initialized());
    EXPECT_TRUE(packetTexts("left").empty());
    EXPECT_EQ(Log::getInstance().queuedRecords(), queued);
    EXPECT_FALSE(capture_.contains("Dump completed"));

    // A new init runs a new dumper, which sends them on the next request.
    Log::getInstance().init("rux");
    Log::getInstance().addDumpRequest(rux::log::CRASH_DETECTED);
    ASSERT_TRUE(capture_.waitForText("request type: CRASH_DETECTED")) << capture_.dump();
    EXPECT_EQ(packetTexts("left").size(), 5u);
}

TEST_F(LogInitTest, ReleaseBeforeInitDoesNotStopTheNextDumper) {
    Log::getInstance().release();
    Log::getInstance().release();
    Log::getInstance().init("rux");
    Log::getInstance().addDumpRequest(rux::log::BUFFER_IS_FULL);
    EXPECT_TRUE(capture_.waitForText("request type: BUFFER_IS_FULL")) << capture_.dump();
}

TEST_F(LogInitTest, NullTagIsReportedAndTreatedAsEmpty) {
    Log::getInstance().init(nullptr);
    EXPECT_EQ(Log::getInstance().tag(), "");
    EXPECT_EQ(capture_.findEndingWith("init without a tag").priority, 6);
    EXPECT_TRUE(Log::getInstance().initialized());
}

TEST_F(LogInitTest, InitAndReleaseRaceWithLoggersSafely) {
    rux::log::setTimerPeriod(1ms);
    rux::platform::setProperty(kLogging, "1");
    constexpr int kPerThread = 300;
    std::vector<std::thread> loggers;
    for (int t = 0; t < 3; ++t) {
        loggers.emplace_back([t] {
            for (int i = 0; i < kPerThread; ++i) {
                RUX_LOG(3, "RUX", "worker %d", t);
                Log::getInstance().dMapLog(4, "worker map");
            }
        });
    }
    std::thread other([] {
        for (int i = 0; i < 20; ++i) Log::getInstance().init("other");
    });
    for (int i = 0; i < 20; ++i) {
        Log::getInstance().init("rux");
        Log::getInstance().release();
    }
    other.join();
    for (auto& t : loggers) t.join();
    Log::getInstance().release();
    EXPECT_FALSE(Log::getInstance().initialized());
    EXPECT_EQ(capture_.matching("worker ").size(), 3u * kPerThread);
    EXPECT_EQ(packetTexts(" DMAP : worker map").size(), 3u * kPerThread);
}

}  // namespace
