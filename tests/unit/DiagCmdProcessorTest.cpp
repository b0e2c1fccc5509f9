// DiagCmdProcessor: log packets and the registered command handler.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "log/DiagCmdProcessor.h"
#include "rux/platform/host.h"

namespace {

using rux::DiagCmdProcessor;
using rux::test::LogCapture;

class DiagCmdProcessorTest : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override {
        DiagCmdProcessor::getInstance()->initialize(nullptr);
        rux::platform::diagReset();
    }
    static void reset() {
        rux::platform::diagReset();
        rux::platform::diagSetLogCodeEnabled(DiagCmdProcessor::kLogCode, true);
    }
    LogCapture capture_;
};

// A packet of code 0x1E15 is always 528 bytes: a 516-byte payload of 4 zero bytes and at
// most 512 bytes of the line, zero-padded; nothing goes out when the code is off or the
// packet cannot be had.
TEST_F(DiagCmdProcessorTest, PacketPayloadCarriesAtMost512BytesOfTheLine) {
    for (size_t length : {0u, 1u, 100u, 511u, 512u, 513u, 600u}) {
        reset();
        std::string line;
        for (size_t i = 0; i < length; ++i) line += static_cast<char>('a' + i % 26);
        DiagCmdProcessor::getInstance()->writeToDiag(line);
        const auto packets = rux::platform::diagPackets();
        ASSERT_EQ(packets.size(), 1u) << length;
        EXPECT_EQ(packets[0].code, 0x1E15);
        EXPECT_EQ(packets[0].bytes.size(), 528u);
        std::vector<uint8_t> expected(516, 0);
        std::copy(line.begin(), line.begin() + static_cast<long>(std::min<size_t>(length, 512)),
                  expected.begin() + 4);
        EXPECT_EQ(packets[0].payload(), expected) << length;
    }
    rux::platform::diagFailNextAllocs(1);
    DiagCmdProcessor::getInstance()->writeToDiag("one");
    rux::platform::diagSetLogCodeEnabled(DiagCmdProcessor::kLogCode, false);
    DiagCmdProcessor::getInstance()->writeToDiag("two");
    EXPECT_EQ(rux::platform::diagPackets().size(), 1u);  // the 600 bytes' only
}

TEST_F(DiagCmdProcessorTest, HandlerPassesTheRequestAndLogsTheResult) {
    std::vector<uint8_t> seen;
    DiagCmdProcessor::getInstance()->initialize(
        [&](uint8_t* request, uint16_t length, std::vector<uint8_t>& response) {
            seen.assign(request, request + length);
            response = {9, 8, 7};
            return true;
        });
    uint8_t request[] = {0x4B, 0x12, 0x89, 0x00};
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(request, sizeof request), nullptr);
    EXPECT_EQ(seen, std::vector<uint8_t>(request, request + 4));
    const auto line = capture_.findEndingWith("Rux-Diag: retVal: 1, size: 3");
    EXPECT_EQ(line.priority, 3) << capture_.dump();
    EXPECT_EQ(line.tag, LogCapture::kNullTag);
}

TEST_F(DiagCmdProcessorTest, AMissingOrThrowingCallbackReportsFailure) {
    uint8_t byte = 1;
    DiagCmdProcessor::getInstance()->initialize(nullptr);
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(&byte, 1), nullptr);
    DiagCmdProcessor::getInstance()->initialize(
        [](uint8_t*, uint16_t, std::vector<uint8_t>& response) -> bool {
            response.resize(5);
            throw std::runtime_error("decoder broke");
        });
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(&byte, 1), nullptr);
    const auto lines = capture_.lines();
    ASSERT_EQ(lines.size(), 2u) << capture_.dump();
    EXPECT_EQ(lines[0].text, "Rux-Diag: retVal: 0, size: 0");
    EXPECT_EQ(lines[1].text, "Rux-Diag: retVal: 0, size: 5");
}

TEST_F(DiagCmdProcessorTest, EmptyRequestsNeverReachTheCallback) {
    int calls = 0;
    DiagCmdProcessor::getInstance()->initialize(
        [&](uint8_t*, uint16_t, std::vector<uint8_t>&) { return ++calls > 0; });
    uint8_t byte = 1;
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(&byte, 0), nullptr);
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(nullptr, 3), nullptr);
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();
}

TEST_F(DiagCmdProcessorTest, InitializeRegistersTheTableEachTime) {
    DiagCmdProcessor::getInstance()->initialize(nullptr);
    EXPECT_EQ(rux::platform::diagInitCount(), 1);
    ASSERT_EQ(rux::platform::diagTables().size(), 1u);
    int calls = 0;
    DiagCmdProcessor::getInstance()->initialize(
        [&](uint8_t*, uint16_t, std::vector<uint8_t>&) { return ++calls > 0; });
    uint8_t byte = 1;
    EXPECT_FALSE(rux::platform::diagDeliverCommand(18, 136, &byte, 1));  // not our command
    EXPECT_FALSE(rux::platform::diagDeliverCommand(17, 137, &byte, 1));
    EXPECT_TRUE(rux::platform::diagDeliverCommand(18, 137, &byte, 1));
    EXPECT_EQ(calls, 1);
}

TEST_F(DiagCmdProcessorTest, CallbackCanBeReplacedWhileCommandsArrive) {
    std::atomic<int> calls{0};
    auto count = [&](uint8_t*, uint16_t, std::vector<uint8_t>&) { return calls.fetch_add(1) >= 0; };
    DiagCmdProcessor::getInstance()->initialize(count);
    std::thread commands([] {
        uint8_t byte = 1;
        for (int i = 0; i < 200; ++i) DiagCmdProcessor::diagCmdHandler(&byte, 1);
    });
    for (int i = 0; i < 50; ++i) DiagCmdProcessor::getInstance()->initialize(count);
    commands.join();
    EXPECT_EQ(calls.load(), 200);
}

}  // namespace
