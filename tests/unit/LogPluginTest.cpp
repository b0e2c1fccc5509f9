// The optional log plug-in "libruxalog.so", loaded at Log::init: test builds with all
// three entries, without "alog" and without "decodeBuffer".
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "LogTestSupport.h"
#include "log/DiagCmdProcessor.h"
#include "log/Log.h"
#include "log/LogSeams.h"
#include "rux/platform/host.h"

namespace {

using rux::log::Log;
using rux::test::LogCapture;

std::string plugin(const char* variant) {
    return std::string(RUX_TEST_PLUGIN_DIR) + "/" + variant + "/libruxalog.so";
}

bool sigusr1IsOurs() {
    struct sigaction current {};
    sigaction(SIGUSR1, nullptr, &current);
    return current.sa_handler == &rux::log::eintrTestHandler &&
           (current.sa_flags & SA_RESTART) == 0;
}

class LogPluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        signal(SIGUSR1, SIG_DFL);
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(rux::DiagCmdProcessor::kLogCode, true);
        rux::platform::clearProperties();
        rux::log::setLogRoot(root_.path());
        rux::log::setTimerPeriod(std::chrono::hours(1));
    }
    void TearDown() override {
        Log::getInstance().release();
        rux::log::setPluginPath(root_.path() + "/none.so");
        Log::getInstance().init("rux");  // drops the plug-in's entries
        Log::getInstance().release();
        signal(SIGUSR1, SIG_DFL);
        rux::log::setPluginPath("");
        rux::log::setLogRoot("");
        rux::log::setTimerPeriod(std::chrono::seconds(30));
        rux::platform::diagReset();
    }
    void initWith(const std::string& path) {
        rux::log::setPluginPath(path);
        Log::getInstance().init("rux");
    }

    rux::test::TempDir root_;
    LogCapture capture_;
};

TEST_F(LogPluginTest, ACompletePluginTakesOverTheConsoleAndDecodesCommands) {
    initWith(plugin("full"));
    ASSERT_NE(Log::rux_alog_fn.load(), nullptr);
    RUX_LOG(5, "RUX", "to the plug-in");
    const auto line = capture_.findEndingWith("to the plug-in");
    EXPECT_EQ(line.tag, "alog:rux");
    EXPECT_EQ(line.priority, 5);
    EXPECT_EQ(capture_.matching("to the plug-in").size(), 1u);  // not the Android log as well
    EXPECT_EQ(capture_.matching("version RUX-")[0].tag, "alog:rux");

    // Diagnostic-map records go to alog under "DMAP".
    Log::getInstance().dMapLog(4, "mapped");
    EXPECT_EQ(capture_.findEndingWith("mapped").tag, "alog:DMAP");

    std::vector<uint8_t> out;
    uint8_t request[] = {1, 2, 3};
    EXPECT_TRUE(Log::getInstance().decodeBuff(request, 3, out));
    EXPECT_EQ(out, (std::vector<uint8_t>{3, 2, 1}));
    EXPECT_TRUE(capture_.contains("outputlen:3 "));
    uint8_t refused[] = {0xFF};
    EXPECT_FALSE(Log::getInstance().decodeBuff(refused, 1, out));

    uint8_t setting = 7;
    EXPECT_TRUE(Log::getInstance().getPersistSetting(setting, out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "setting-7");
    setting = 0;  // nothing written: the 50 bytes stay
    EXPECT_TRUE(Log::getInstance().getPersistSetting(setting, out));
    EXPECT_EQ(out.size(), 50u);

    ASSERT_TRUE(rux::platform::diagDeliverCommand(18, 137, request, 3));
    EXPECT_TRUE(capture_.contains("Rux-Diag: retVal: 1, size: 3")) << capture_.dump();
    EXPECT_TRUE(capture_.waitForText("Dump completed, request type: USER_COMMAND"));
}

TEST_F(LogPluginTest, SigusrInterruptsBlockingCallsAndIsLogged) {
    initWith(plugin("full"));
    ASSERT_TRUE(sigusr1IsOurs());
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::promise<int> result;
    auto future = result.get_future();
    std::thread reader([&] {
        char c;
        const ssize_t n = read(fds[0], &c, 1);
        result.set_value(n < 0 ? errno : 0);
    });
    // The signal may land before the reader blocks; send it until read gives up.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (future.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready &&
           std::chrono::steady_clock::now() < deadline)
        pthread_kill(reader.native_handle(), SIGUSR1);
    if (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        ASSERT_EQ(write(fds[1], "x", 1), 1);  // unblock before failing
    }
    reader.join();
    EXPECT_EQ(future.get(), EINTR);
    close(fds[0]);
    close(fds[1]);
    EXPECT_TRUE(capture_.waitForText("Received signal 10")) << capture_.dump();
}

// A plug-in without "alog", one without "decodeBuffer", and none at all: each is reported
// (through the plug-in's own alog once that is in place), SIGUSR1 is left alone, commands
// are never decoded, and whatever entries did load are used.
TEST_F(LogPluginTest, AnIncompleteOrMissingPluginIsReportedAndWhatLoadedIsUsed) {
    const struct {
        std::string path;
        const char* line;
        const char* tag;  // of that line and of later log lines
        bool persistSetting;
    } cases[] = {
        {plugin("noalog"), "cannot find main function", "rux", false},
        {plugin("nodecode"), "cannot find debug cmd function", "alog:rux", true},
        {root_.path() + "/absent/libruxalog.so", "cannot open libruxalog.so", "rux", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        capture_.clear();
        initWith(c.path);
        const auto line = capture_.findEndingWith(c.line);
        EXPECT_EQ(line.priority, 6) << capture_.dump();
        EXPECT_EQ(line.tag, c.tag);
        EXPECT_EQ(Log::rux_alog_fn.load() != nullptr, std::string(c.tag) == "alog:rux");
        EXPECT_EQ(Log::ruxGetPersistSetting.load() != nullptr, c.persistSetting);
        EXPECT_EQ(Log::ruxDecodeBuffer.load(), nullptr);
        EXPECT_FALSE(sigusr1IsOurs());
        RUX_LOG(4, "RUX", "after init");
        EXPECT_EQ(capture_.findEndingWith("after init").tag, c.tag);
        std::vector<uint8_t> out;
        uint8_t request[] = {1, 2};
        EXPECT_FALSE(Log::getInstance().decodeBuff(request, 2, out));
        uint8_t setting = 3;
        EXPECT_EQ(Log::getInstance().getPersistSetting(setting, out), c.persistSetting);
        if (c.persistSetting) {
            EXPECT_EQ(std::string(out.begin(), out.end()), "setting-3");
        }
        Log::getInstance().release();
    }
    EXPECT_EQ(Log::_libalog_handle.load(), nullptr);  // after the missing one
}

}  // namespace
