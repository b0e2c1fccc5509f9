// Log::init and release: the properties, the dumper and timer threads, dump requests,
// diagnostic-map records, and the optional log plug-in "libruxalog.so".
#include <android/log.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "LogTestSupport.h"
#include "rux/rux_log.h"

namespace {

using rux::log::Log;
using rux::test::diagTexts;

constexpr const char* kLogging = "persist.vendor.data.rux.logging";

class LogInitTest : public rux::test::LogSeamsTest {
protected:
    // Log::init under these logging and permission properties (null: unset).
    static void initWith(const char* logging, const char* perms = nullptr) {
        rux::platform::clearProperties();
        if (logging) rux::platform::setProperty(kLogging, logging);
        if (perms) rux::platform::setProperty("persist.vendor.data.rux.log_perms", perms);
        Log::getInstance().init("rux");
    }
};

// The two properties, the flags they set, and which levels of diagnostic-map records
// reach the channel (always at once, even when other records are buffered).
TEST_F(LogInitTest, PropertiesSetTheFlagsAndFilterDiagnosticMapRecords) {
    const struct {
        const char *logging, *perms;  // null: unset
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
    Log& log = Log::getInstance();
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.logging ? c.logging : "unset") + "/" + (c.perms ? c.perms : ""));
        initWith(c.logging, c.perms);
        EXPECT_EQ(
            std::vector<bool>({log.initialized(), log.bufferedDiag(), log.dmapDebugOff(),
                               log.dmapOff(), log.groupWritable()}),
            std::vector<bool>({true, c.buffered, c.dmapDebugOff, c.dmapOff, c.groupWritable}));
        const size_t queued = log.queuedRecords();
        std::string sent;
        for (int level : {3, 4, 6}) {
            const std::string text = "dmap entry " + std::to_string((&c - cases) * 10 + level);
            log.dMapLog(level, text);
            if (!diagTexts(" DMAP : " + text).empty()) sent += std::to_string(level);
        }
        EXPECT_EQ(sent, c.levelsSent);
        EXPECT_EQ(log.queuedRecords(), queued);
        log.release();
        EXPECT_FALSE(log.initialized());
    }
    // Without the plug-in's alog these records never reach the Android log.
    EXPECT_FALSE(capture_.contains("dmap entry"));
}

// Through the host process's entry of rux/rux_log.h, as a host calls it.
TEST_F(LogInitTest, InitRegistersTheCommandAndLogsTheVersionOnce) {
    rux::Log::getInstance().init("first");
    rux::Log::getInstance().init("second");  // only the tag changes
    EXPECT_EQ(Log::getInstance().tag(), "second");
    EXPECT_EQ(rux::platform::diagInitCount(), 1);
    const auto version = capture_.matching("version RUX-20250524-d9c57ad5");
    ASSERT_EQ(version.size(), 1u) << capture_.dump();
    EXPECT_EQ(version[0].tag, "first");
    rux::Log::getInstance().release();
    EXPECT_FALSE(Log::getInstance().initialized());
    Log::getInstance().init(nullptr);  // reported, and taken as ""
    EXPECT_EQ(Log::getInstance().tag(), "");
    EXPECT_EQ(capture_.findEndingWith("init without a tag").priority, 6);
}

// Buffered, every record waits for a dump (even one nobody else reads now). Release
// ends the dumper without sending them, and a second release leaves nothing behind that
// would stop the next init's dumper; a diagnostic command, or a crash, asks for a dump.
TEST_F(LogInitTest, BufferedRecordsWaitThroughReleaseForTheDumpACommandRequests) {
    initWith("1");
    for (int i = 0; i < 3; ++i) RUX_LOG(4, "RUX", "held %d", i);
    rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, false);
    {
        rux::test::MinimumPriority minimum(ANDROID_LOG_INFO);
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "held 3, unread");
    }
    rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
    Log::getInstance().release();
    Log::getInstance().release();
    EXPECT_TRUE(diagTexts("held").empty());
    EXPECT_FALSE(capture_.contains("unread"));

    Log::getInstance().init("rux");
    uint8_t command = 0x01;
    ASSERT_TRUE(rux::platform::diagDeliverCommand(18, 137, &command, 1));
    ASSERT_TRUE(capture_.waitForText("Dump completed, request type: USER_COMMAND, elapsed time = "))
        << capture_.dump();
    const auto held = diagTexts("held");
    ASSERT_EQ(held.size(), 4u);
    EXPECT_NE(held[3].find(" D RUX : |RUX|LogInitTest::TestBody:"), std::string::npos);
    RUX_LOG(4, "RUX", "held 4");
    Log::getInstance().addDumpRequest(rux::log::CRASH_DETECTED);
    ASSERT_TRUE(capture_.waitForText("request type: CRASH_DETECTED")) << capture_.dump();
    EXPECT_EQ(diagTexts("held").size(), 5u);
    Log::getInstance().release();
    EXPECT_EQ(capture_.matching("request type: USER_COMMAND").size(), 1u);
}

TEST_F(LogInitTest, TheTimerAsksForADumpEveryPeriod) {
    rux::log::setTimerPeriod(std::chrono::milliseconds(5));
    Log::getInstance().init("rux");
    ASSERT_TRUE(capture_.waitForText("request type: LOGGING_TIMER_EXPIRED")) << capture_.dump();
    capture_.clear();
    ASSERT_TRUE(capture_.waitForText("request type: LOGGING_TIMER_EXPIRED")) << capture_.dump();
}

TEST_F(LogInitTest, InitAndReleaseRaceWithLoggersSafely) {
    rux::log::setTimerPeriod(std::chrono::milliseconds(1));
    rux::platform::setProperty(kLogging, "1");
    constexpr int kPerThread = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kPerThread; ++i) {
                RUX_LOG(3, "RUX", "worker %d", t);
                Log::getInstance().dMapLog(4, "worker map");
            }
        });
    threads.emplace_back([] {
        for (int i = 0; i < 20; ++i) Log::getInstance().init("other");
    });
    for (int i = 0; i < 20; ++i) {
        Log::getInstance().init("rux");
        Log::getInstance().release();
    }
    for (auto& t : threads) t.join();
    Log::getInstance().release();
    EXPECT_FALSE(Log::getInstance().initialized());
    EXPECT_EQ(capture_.matching("worker ").size(), 3u * kPerThread);
    EXPECT_EQ(diagTexts(" DMAP : worker map").size(), 3u * kPerThread);
}

// --- the plug-in ---------------------------------------------------------------

std::string plugin(const char* variant) {
    return std::string(RUX_TEST_PLUGIN_DIR) + "/" + variant + "/libruxalog.so";
}
bool sigusr1IsOurs() {
    struct sigaction current {};
    sigaction(SIGUSR1, nullptr, &current);
    return current.sa_handler == &rux::log::eintrTestHandler &&
           (current.sa_flags & SA_RESTART) == 0;
}

// Each plug-in's missing entry is reported (through its own alog once that is in
// place) and whatever entries did load are used. Only a complete one decodes commands
// and installs a SIGUSR1 handler without SA_RESTART (so it interrupts blocking calls),
// which the timer thread reports. The missing one last drops the entries again.
TEST_F(LogInitTest, ThePluginTakesOverWhatItHasAndAMissingPartIsReported) {
    const struct {
        std::string path;
        const char* line;  // at error priority; null: none
        const char* tag;   // of later lines too
        bool complete, persistSetting;
    } cases[] = {
        {plugin("full"), nullptr, "alog:rux", true, true},
        {plugin("noalog"), "cannot find main function", "rux", false, false},
        {plugin("nodecode"), "cannot find debug cmd function", "alog:rux", false, true},
        {root_.path() + "/absent/libruxalog.so", "cannot open libruxalog.so", "rux", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        capture_.clear();
        signal(SIGUSR1, SIG_DFL);
        rux::log::setPluginPath(c.path);
        Log::getInstance().init("rux");
        EXPECT_EQ(capture_.findEndingWith(c.line ? c.line : "\n").priority, c.line ? 6 : -1);
        EXPECT_EQ(capture_.matching("version RUX-")[0].tag, c.tag);
        RUX_LOG(5, "RUX", "after init");
        const auto after = capture_.matching("after init");  // never on both consoles
        ASSERT_EQ(after.size(), 1u);
        EXPECT_EQ(std::to_string(after[0].priority) + "/" + after[0].tag,
                  "5/" + std::string(c.tag));
        EXPECT_EQ(sigusr1IsOurs(), c.complete);
        std::vector<uint8_t> decoded, out;
        uint8_t request[] = {1, 2, 3}, setting = 7;
        EXPECT_EQ(Log::getInstance().decodeBuff(request, 3, decoded), c.complete);
        EXPECT_EQ(decoded, c.complete ? std::vector<uint8_t>({3, 2, 1}) : std::vector<uint8_t>(64));
        EXPECT_EQ(Log::getInstance().getPersistSetting(setting, out), c.persistSetting);
        EXPECT_EQ(std::string(out.begin(), out.end()), c.persistSetting ? "setting-7" : "");
        if (!c.complete) {
            Log::getInstance().release();
            continue;
        }
        Log::getInstance().dMapLog(4, "mapped");
        EXPECT_EQ(capture_.findEndingWith("mapped").tag, "alog:DMAP");
        setting = 0;  // nothing written: the 50 bytes stay
        EXPECT_TRUE(Log::getInstance().getPersistSetting(setting, out));
        EXPECT_EQ(out.size(), 50u);
        raise(SIGUSR1);
        EXPECT_TRUE(capture_.waitForText("Received signal 10")) << capture_.dump();
        Log::getInstance().release();
    }
    EXPECT_EQ(Log::ruxDecodeBuffer.load(), nullptr);
    EXPECT_EQ(Log::_libalog_handle.load(), nullptr);
    signal(SIGUSR1, SIG_DFL);
}

}  // namespace
