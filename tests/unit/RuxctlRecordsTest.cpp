// ruxctl's JSON records, checked on the bytes the library receives: each row is a JSON
// text and the fields it must set, as (offset, value, width) over an otherwise zero
// record. Offsets are those of rux/rux_client.h on LP64. Records whose lists sit behind
// pointers are checked as the record (pointers cleared) followed by each list.
// Also: the errors a bad record gets, and enum names.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "EnumNames.h"
#include "RecordJson.h"

namespace {

using namespace ruxctl;
using Bytes = std::vector<uint8_t>;

template <typename T>
Bytes bytesOf(const T* data, size_t count) {
    const auto* p = reinterpret_cast<const uint8_t*>(data);
    return Bytes(p, p + count * sizeof(T));
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The converters under test, each giving the bytes the library would read.
using Convert = std::function<Bytes(const Json&)>;

const Convert kDataStall = [](const Json& j) {
    return bytesOf(dataStallParamsFromJson(j).get(), 1);
};
const Convert kLteCells = [](const Json& j) {
    const auto cells = lteDubiousCellsFromJson(j);
    return bytesOf(cells.data(), cells.size());
};
const Convert kNrCells = [](const Json& j) {
    const auto cells = nrDubiousCellsFromJson(j);
    return bytesOf(cells.data(), cells.size());
};
// The record with its list pointers checked and cleared, then the two lists.
template <typename Info, typename A, typename B>
Bytes withLists(Info& info, const A*& aPointer, const std::vector<A>& a, const B*& bPointer,
                const std::vector<B>& b) {
    EXPECT_EQ(aPointer, a.empty() ? nullptr : a.data());
    EXPECT_EQ(bPointer, b.empty() ? nullptr : b.data());
    aPointer = nullptr;
    bPointer = nullptr;
    return bytesOf(&info, 1) + bytesOf(a.data(), a.size()) + bytesOf(b.data(), b.size());
}

const Convert kBarring = [](const Json& j) {
    const auto r = cellBarringInfoFromJson(j);
    return withLists(r->info, r->info.lte_cells, r->lteCells, r->info.nr_cells, r->nrCells);
};
const Convert kPreferred = [](const Json& j) {
    const auto r = preferredCellListFromJson(j);
    return withLists(r->info, r->info.cells, r->cells, r->info.cells2, r->cells2);
};
const Convert kCellList = [](const Json& j) { return bytesOf(cellListInfoFromJson(j).get(), 1); };
const Convert kDubiousV2 = [](const Json& j) {
    return bytesOf(dubiousCellInfoV2FromJson(j).get(), 1);
};

struct Field {
    size_t offset;
    int64_t value;  // written little-endian, its low `width` bytes
    size_t width;
};

struct RecordRow {
    const char* name;
    Convert convert;
    std::string json;
    size_t size;
    std::vector<Field> fields;
};
void PrintTo(const RecordRow& r, std::ostream* os) {
    *os << r.name;
}

// "" when equal, else the first offset that differs: "offset 12: 05, want ff".
std::string difference(const Bytes& got, const Bytes& want) {
    const auto at = std::mismatch(got.begin(), got.end(), want.begin(), want.end());
    if (at.first == got.end() && at.second == want.end()) return "";
    char line[64];
    std::snprintf(line, sizeof line, "offset %td: %02x, want %02x", at.first - got.begin(),
                  at.first == got.end() ? -1 : *at.first,
                  at.second == want.end() ? -1 : *at.second);
    return line;
}

class RecordBytesTest : public ::testing::TestWithParam<RecordRow> {};

TEST_P(RecordBytesTest, SetsExactlyTheseFieldsAndZeroesTheRest) {
    const auto& row = GetParam();
    Bytes want(row.size, 0);
    for (const auto& f : row.fields)
        for (size_t b = 0; b < f.width; ++b)
            want.at(f.offset + b) = static_cast<uint8_t>(static_cast<uint64_t>(f.value) >> (8 * b));
    const Bytes got = row.convert(Json::parse(row.json));
    EXPECT_EQ(difference(got, want), "");
}

constexpr int64_t kNotGiven = 0xFFFFFFFF;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Records, RecordBytesTest, ::testing::Values(
    RecordRow{"DataStall", kDataStall,
        R"({"traffic_direction": "DOWNLINK", "flag": true, "application_type": "gaming",
            "param1": 5, "param2": -1, "param3": 0, "param4": 2147483647})", 28,
        {{0, 1, 4}, {4, 1, 1}, {8, 5, 4}, {12, 5, 4}, {16, -1, 4}, {24, 2147483647, 4}}},
    RecordRow{"DataStallThresholdsLeftOutAreNoValue", kDataStall, "{}", 28,
        {{12, -1, 4}, {16, -1, 4}, {20, -1, 4}, {24, -1, 4}}},
    RecordRow{"LteCells", kLteCells,
        R"([{"mcc": 310, "mnc": 260, "mnc_includes_pcs_digit": true, "band": 66, "freq": 66486,
             "pci": 503, "aux_value": 7, "cell_identity": 268435455}, {"mcc": 1}])", 2 * 28,
        {{0, 310, 2}, {2, 260, 2}, {4, 1, 1}, {8, 66, 4}, {12, 66486, 4}, {16, 503, 2}, {20, 7, 4},
         {24, 268435455, 4}, {28, 1, 2}}},
    RecordRow{"NrCells", kNrCells,
        R"([{"mcc": 999, "mnc": 99, "band": 78, "freq": 636666, "pci": 1007, "aux_value": 1,
             "cell_identity": 68719476735, "scs": "NR5G_SCS_30"}])", 40,
        {{0, 999, 2}, {2, 99, 2}, {8, 78, 4}, {12, 636666, 4}, {16, 1007, 2}, {20, 1, 4},
         {24, 68719476735, 8}, {32, 1, 4}}},
    RecordRow{"CellBarring", kBarring,
        R"({"value": 18446744073709551615, "lte_cells": [{"mcc": 1}],
            "nr_cells": [{"scs": 4}, {"pci": 65535}]})", 40 + 28 + 2 * 40,
        {{0, -1, 8}, {8, 1, 1}, {24, 2, 1}, {40, 1, 2}, {68 + 32, 4, 4}, {108 + 16, 65535, 2}}},
    RecordRow{"PreferredCells", kPreferred,
        R"({"value": 9, "cells2": [{}], "cells": [{
              "cell_info": {"plmn": {"mcc": 310, "mnc": 410}, "cell_identity": 4294967296,
                            "band": 3, "freq": 1850, "pci": 12},
              "param1": 77, "flag1": true, "flag3": 1, "location": {"latitude": -1, "longitude": 2}}]})",
        32 + 48 + 48,
        {{0, 9, 4}, {4, 1, 1}, {16, 1, 1}, {32, 310, 2}, {34, 410, 2}, {40, 4294967296, 8},
         {48, 3, 4}, {52, 1850, 4}, {56, 12, 4}, {64, 77, 4}, {68, 1, 1}, {70, 1, 1}, {72, -1, 4},
         {76, 2, 4}}},
    // The first entry leaves the valid flags to what it gives; the second sets them.
    RecordRow{"CellList", kCellList,
        R"({"mitigation_type": "INFO", "flag": 1,
            "lte_cell_list": [{
              "cell_info": {"plmn": {"mcc": 1, "mnc": 2, "mnc_includes_pcs_digit": 1},
                            "cell_identity": 3, "band": 4, "freq": 5, "pci": 6},
              "param1": 7, "flag2": false, "param3": 8, "param4": 9, "common_flag": 1,
              "location": {"latitude": 10, "longitude": 11}, "hdr_value3": 12,
              "shared_plmn": [{"mcc": 13}, {"mnc": 14}]}],
            "nr_cell_list": [{"common_valid": 1, "hdr_valid": 0, "hdr_value1": 15}]})", 5136,
        {{0, 2, 4}, {4, 1, 1}, {5, 1, 1},
         // lte_cell_list[0] from 8
         {8, 1, 2}, {10, 2, 2}, {12, 1, 1}, {16, 3, 8}, {24, 4, 4}, {28, 5, 4}, {32, 6, 4},
         {40, 7, 4}, {48, 8, 4}, {52, 9, 4}, {56, 1, 1}, {60, kNotGiven, 4}, {64, 1, 1},
         {68, 10, 4}, {72, 11, 4}, {76, 1, 1}, {80, kNotGiven, 4}, {84, kNotGiven, 4},
         {88, 12, 4}, {92, 1, 1}, {93, 2, 1}, {94, 13, 2}, {102, 14, 2},
         // nr_cell_list_len, then nr_cell_list[0] from 2576
         {2568, 1, 1}, {2608, kNotGiven, 4}, {2612, kNotGiven, 4}, {2624, 1, 1},
         {2628, kNotGiven, 4}, {2648, 15, 4}, {2652, kNotGiven, 4}}},
    RecordRow{"DubiousCellsV2", kDubiousV2,
        R"({"slot": "third", "lte_cell_list": [{
              "plmn": {"mcc": 310, "mnc": 260}, "cell_identity": 5, "band": 66, "freq": 1,
              "pci": 2, "scs": "NR5G_SCS_60", "band_list": [1, 66, 255]}]})", 10768,
        {{0, 2, 4}, {4, 1, 1}, {5, 1, 1}, {8, 310, 2}, {10, 260, 2}, {16, 5, 8}, {24, 66, 4},
         {28, 1, 4}, {32, 2, 4}, {36, 2, 4}, {40, 3, 1}, {44, 1, 4}, {48, 66, 4}, {52, 255, 4}}}),
    [](const ::testing::TestParamInfo<RecordRow>& info) { return std::string(info.param.name); });
// clang-format on

std::string entries(const char* entry, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += std::string(i ? "," : "") + entry;
    return "[" + out + "]";
}

struct ErrorRow {
    Convert convert;
    std::string json;
    const char* error;
};

TEST(RecordErrorsTest, NameTheFieldAndWhatIsWrongWithIt) {
    const ErrorRow rows[] = {
        {kLteCells, R"([{"mcc": 65536}])", "[0].mcc: 65536 does not fit an unsigned 16-bit field"},
        {kLteCells, R"([{"mcc": 1, "mnx": 2}])", "[0].mnx: unknown field"},
        {kNrCells, R"([{"cell_identity": -1}])",
         "[0].cell_identity: -1 does not fit an unsigned 64-bit field"},
        {kBarring, R"({"lte_cells": {}})", "lte_cells: wants a list, got {}"},
        {kBarring, R"({"lte_cells": [{"aux_value": "7"}]})",
         "lte_cells[0].aux_value: wants an integer, got \"7\""},
        {kPreferred, "[]", "record: wants an object, got []"},
        {kDataStall, R"({"flag": 2})", "flag: wants true, false, 0 or 1, got 2"},
        {kDataStall, R"({"traffic_direction": "SIDEWAYS"})",
         "traffic_direction: unknown traffic_direction_e value 'SIDEWAYS' (one of "
         "TRAFFIC_DIRECTION_UPLINK, TRAFFIC_DIRECTION_DOWNLINK, or a number)"},
        {kCellList, R"({"lte_cell_list": )" + entries("{}", 21) + "}",
         "lte_cell_list: holds at most 20 entries, got 21"},
        {kCellList, R"({"nr_cell_list": [{"shared_plmn": )" + entries("{}", 7) + "}]}",
         "nr_cell_list[0].shared_plmn: holds at most 6 entries, got 7"},
        {kDubiousV2, R"({"nr_cell_list": [{"band_list": )" + entries("1", 33) + "}]}",
         "nr_cell_list[0].band_list: holds at most 32 entries, got 33"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.json);
        try {
            row.convert(Json::parse(row.json));
            ADD_FAILURE() << "accepted";
        } catch (const RecordError& e) {
            EXPECT_STREQ(e.what(), row.error);
        }
    }
}

TEST(EnumNamesTest, TakeEveryFormOfANameAndAnyNumber) {
    struct Row {
        const EnumTable& table;
        const char* text;
        std::optional<int> value;
    };
    const Row rows[] = {
        {kHstState, "RUX_HST_STATE_NOT_SET", RUX_HST_STATE_NOT_SET},
        {kHstState, "hst_state_not_set", RUX_HST_STATE_NOT_SET},
        {kHstState, "Not_Set", RUX_HST_STATE_NOT_SET},
        {kHstState, "99", 99},
        {kTxConcurrency, "-1", RUX_TX_CONCURRENCY_INVALID},
        {kNr5gScsType, "15", 15},  // a number, not RUX_NR5G_SCS_15
        {kNr5gScsType, "nr5g_scs_15", RUX_NR5G_SCS_15},
        {kStatusV2, "NOT_SUPPORTED", RUX_STATUS_V2_NOT_SUPPORTED},
        {kSlotId, "2147483648", std::nullopt},
        {kSlotId, "1x", std::nullopt},
        {kSlotId, "SLOT_ID_", std::nullopt},
        {kSlotId, "", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(parseEnum(row.table, row.text), row.value) << row.text;
    EXPECT_EQ(enumName(kStatus, RUX_STATUS_INVALID_SLOT), "RUX_STATUS_INVALID_SLOT");
    EXPECT_EQ(enumName(kStatus, 8), std::nullopt);
}

}  // namespace
