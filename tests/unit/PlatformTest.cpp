// The host backends of the device seam: properties and the diagnostic channel.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "rux/platform/diag.h"
#include "rux/platform/host.h"

namespace {

using rux::platform::clearProperties;
using rux::platform::setProperty;

class PropertiesTest : public ::testing::Test {
protected:
    void SetUp() override {
        clearProperties();
        path_ = ::testing::TempDir() + "props_" + std::to_string(getpid());
        std::ofstream(path_) << "# comment\n"
                             << "persist.a = 17\n"
                             << "persist.b=yes\n"
                             << "not a property line\n"
                             << "persist.a=18\n";
        setenv("RUX_PROPERTY_FILE", path_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("RUX_PROPERTY_FILE");
        clearProperties();
        std::remove(path_.c_str());
    }
    static std::string get(const char* key, const char* def) {
        char value[PROPERTY_VALUE_MAX];
        std::memset(value, 'x', sizeof value);
        const int n = property_get(key, value, def);
        EXPECT_EQ(static_cast<size_t>(n), std::strlen(value));
        return value;
    }
    std::string path_;
};

TEST_F(PropertiesTest, FileValuesAreTrimmedAndTheLastOneWins) {
    EXPECT_EQ(get("persist.a", "d"), "18");
    EXPECT_EQ(get("persist.missing", "dflt"), "dflt");
    EXPECT_EQ(get("persist.missing", nullptr), "");
    EXPECT_EQ(get(nullptr, "d"), "d");
}

TEST_F(PropertiesTest, ValuesSetByTestsWinOverTheFile) {
    setProperty("persist.a", "99");
    EXPECT_EQ(get("persist.a", ""), "99");
    rux::platform::unsetProperty("persist.a");
    EXPECT_EQ(get("persist.a", ""), "18");
}

TEST_F(PropertiesTest, LongValuesAreCutToTheBufferSize) {
    setProperty("persist.long", std::string(200, 'v'));
    EXPECT_EQ(get("persist.long", ""), std::string(PROPERTY_VALUE_MAX - 1, 'v'));
}

TEST_F(PropertiesTest, BoolParsing) {
    struct Case {
        const char* value;
        int8_t withFalseDefault;
        int8_t withTrueDefault;
    } cases[] = {
        {"1", 1, 1},    {"y", 1, 1},   {"yes", 1, 1}, {"on", 1, 1},  {"true", 1, 1},
        {"0", 0, 0},    {"n", 0, 0},   {"no", 0, 0},  {"off", 0, 0}, {"false", 0, 0},
        {"TRUE", 0, 1}, {"2", 0, 1},   {"", 0, 1},
    };
    for (const auto& c : cases) {
        setProperty("persist.flag", c.value);
        EXPECT_EQ(property_get_bool("persist.flag", 0), c.withFalseDefault) << c.value;
        EXPECT_EQ(property_get_bool("persist.flag", 1), c.withTrueDefault) << c.value;
    }
    EXPECT_EQ(property_get_bool("persist.b", 0), 1);  // from the file
    EXPECT_EQ(property_get_bool("persist.unset", 1), 1);
}

class HostDiagTest : public ::testing::Test {
protected:
    void SetUp() override { rux::platform::diagReset(); }
    void TearDown() override { rux::platform::diagReset(); }
};

TEST_F(HostDiagTest, CodesAreDisabledUntilEnabled) {
    EXPECT_EQ(rux_diag_log_enabled(7701), 0);
    rux::platform::diagSetLogCodeEnabled(7701, true);
    EXPECT_EQ(rux_diag_log_enabled(7701), 1);
    EXPECT_EQ(rux_diag_log_enabled(7702), 0);
}

TEST_F(HostDiagTest, CommittedPacketsAreRecordedWithTheirPayload) {
    auto* p = static_cast<uint8_t*>(rux_diag_log_alloc(7701, 20));
    ASSERT_NE(p, nullptr);
    std::memcpy(p + RUX_DIAG_PACKET_HEADER_SIZE, "abcdefgh", 8);
    rux_diag_log_commit(p);
    rux_diag_log_commit(reinterpret_cast<void*>(0x1234));  // not a packet of ours: ignored
    auto packets = rux::platform::diagPackets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].code, 7701);
    EXPECT_EQ(packets[0].bytes.size(), 20u);
    const auto payload = packets[0].payload();
    EXPECT_EQ(std::string(payload.begin(), payload.end()), "abcdefgh");
}

TEST_F(HostDiagTest, AllocationsFailWhenTold) {
    rux::platform::diagFailNextAllocs(1);
    EXPECT_EQ(rux_diag_log_alloc(1, 16), nullptr);
    void* p = rux_diag_log_alloc(1, 16);
    EXPECT_NE(p, nullptr);
    rux_diag_log_commit(p);
    EXPECT_EQ(rux_diag_log_alloc(1, 4), nullptr);  // smaller than the header
}

uint16_t gSeenLength = 0;
void* recordingHandler(void*, uint16_t length) {
    gSeenLength = length;
    return nullptr;
}

TEST_F(HostDiagTest, CommandsReachTheMatchingEntry) {
    static const rux_diag_cmd_entry_t entries[] = {{0x89, 0x89, recordingHandler}};
    const rux_diag_cmd_table_t table = {0, 0xFF, 0x12, 1, 0, entries};
    rux_diag_register_table(&table);
    uint8_t req[5] = {};
    EXPECT_FALSE(rux::platform::diagDeliverCommand(0x12, 0x88, req, sizeof req));
    EXPECT_FALSE(rux::platform::diagDeliverCommand(0x13, 0x89, req, sizeof req));
    EXPECT_TRUE(rux::platform::diagDeliverCommand(0x12, 0x89, req, sizeof req));
    EXPECT_EQ(gSeenLength, 5);
}

TEST_F(HostDiagTest, PacketsAreAppendedToTheDiagFile) {
    const std::string path = ::testing::TempDir() + "diag_" + std::to_string(getpid());
    std::remove(path.c_str());
    setenv("RUX_DIAG_FILE", path.c_str(), 1);
    rux::platform::diagReset();              // the variable is read at load and at reset
    EXPECT_EQ(rux_diag_log_enabled(42), 1);  // every code is wanted when a file is named
    auto* p = static_cast<uint8_t*>(rux_diag_log_alloc(42, RUX_DIAG_PACKET_HEADER_SIZE + 6));
    std::memcpy(p + RUX_DIAG_PACKET_HEADER_SIZE, "hi\n\0\0\0", 6);
    rux_diag_log_commit(p);
    unsetenv("RUX_DIAG_FILE");
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "code=42 hi\\x0a");
    std::remove(path.c_str());
}

}  // namespace
