// DiagCmdProcessor: log packets and the registered command handler.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "LogTestSupport.h"

namespace {

using rux::DiagCmdProcessor;

class DiagCmdProcessorTest : public rux::test::LogSeamsTest {
protected:
    void TearDown() override {
        DiagCmdProcessor::getInstance()->initialize(nullptr);
        LogSeamsTest::TearDown();
    }
};

// A packet of code 0x1E15 is always 528 bytes: a 516-byte payload of 4 zero bytes and at
// most 512 bytes of the line, zero-padded; nothing goes out when the code is off or the
// packet cannot be had.
TEST_F(DiagCmdProcessorTest, PacketPayloadCarriesAtMost512BytesOfTheLine) {
    std::string line;
    for (size_t i = 0; i < 600; ++i) line += static_cast<char>('a' + i % 26);
    const size_t lengths[] = {0, 1, 511, 512, 513, 600};
    for (size_t length : lengths)
        DiagCmdProcessor::getInstance()->writeToDiag(line.substr(0, length));
    rux::platform::diagFailNextAllocs(1);
    DiagCmdProcessor::getInstance()->writeToDiag("one");
    rux::platform::diagSetLogCodeEnabled(DiagCmdProcessor::kLogCode, false);
    DiagCmdProcessor::getInstance()->writeToDiag("two");
    const auto packets = rux::platform::diagPackets();
    ASSERT_EQ(packets.size(), std::size(lengths));
    for (size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].code, 0x1E15);
        EXPECT_EQ(packets[i].bytes.size(), 528u);
        std::vector<uint8_t> expected(516, 0);
        std::copy_n(line.begin(), std::min<size_t>(lengths[i], 512), expected.begin() + 4);
        EXPECT_EQ(packets[i].payload(), expected) << lengths[i];
    }
}

// A non-empty request reaches the callback and its result is logged; a missing or
// throwing callback is a failure; an empty request never reaches it. No response.
TEST_F(DiagCmdProcessorTest, HandlerPassesTheRequestAndLogsTheResult) {
    std::vector<uint8_t> seen;
    auto processor = DiagCmdProcessor::getInstance();
    uint8_t request[] = {0x4B, 0x12, 0x89, 0x00};
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(request, 4), nullptr);  // no callback yet
    processor->initialize([&](uint8_t* r, uint16_t length, std::vector<uint8_t>& response) {
        seen.assign(r, r + length);
        response = {9, 8, 7};
        return true;
    });
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(request, 0), nullptr);
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(nullptr, 3), nullptr);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(request, 4), nullptr);
    EXPECT_EQ(seen, std::vector<uint8_t>(request, request + 4));
    processor->initialize([](uint8_t*, uint16_t, std::vector<uint8_t>& response) -> bool {
        response.resize(5);
        throw std::runtime_error("decoder broke");
    });
    EXPECT_EQ(DiagCmdProcessor::diagCmdHandler(request, 1), nullptr);
    EXPECT_EQ(capture_.rows(),
              (std::vector<std::string>{"3/(null): Rux-Diag: retVal: 0, size: 0",
                                        "3/(null): Rux-Diag: retVal: 1, size: 3",
                                        "3/(null): Rux-Diag: retVal: 0, size: 5"}));
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
