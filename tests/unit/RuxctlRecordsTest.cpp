// ruxctl's JSON records in one table: a JSON text and the fields it sets over an otherwise
// zero record (offsets of rux/rux_client.h on LP64; lists behind pointers follow the record,
// its pointers cleared), or the error it gets.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

#include "RecordJson.h"

namespace {

using namespace ruxctl;
using Bytes = std::vector<uint8_t>;

// The bytes of `count` objects at `data`, appended to `to`.
template <typename T>
Bytes bytesOf(const T* data, size_t count = 1, Bytes to = {}) {
    const auto* p = reinterpret_cast<const uint8_t*>(data);
    to.insert(to.end(), p, p + count * sizeof(T));
    return to;
}

// The converters under test, each giving the bytes the library would read.
using Convert = std::function<Bytes(const Json&)>;
const Convert kDataStall = [](const Json& j) { return bytesOf(dataStallParamsFromJson(j).get()); };
const Convert kCellList = [](const Json& j) { return bytesOf(cellListInfoFromJson(j).get()); };
const Convert kCellsV2 = [](const Json& j) { return bytesOf(dubiousCellInfoV2FromJson(j).get()); };
// The record with its list pointers checked and cleared, then the two lists.
template <typename R, typename A, typename B>
Bytes withLists(R& r, const A*& a, const std::vector<A>& as, const B*& b,
                const std::vector<B>& bs) {
    EXPECT_TRUE(a == (as.empty() ? nullptr : as.data()) && b == (bs.empty() ? nullptr : bs.data()));
    a = nullptr;
    b = nullptr;
    return bytesOf(bs.data(), bs.size(), bytesOf(as.data(), as.size(), bytesOf(&r)));
}
const Convert kBarring = [](const Json& j) {
    const auto r = cellBarringInfoFromJson(j);
    return withLists(r->info, r->info.lte_cells, r->lteCells, r->info.nr_cells, r->nrCells);
};
const Convert kPreferred = [](const Json& j) {
    const auto r = preferredCellListFromJson(j);
    return withLists(r->info, r->info.cells, r->cells, r->info.cells2, r->cells2);
};

// {offset, value, width}: the value written little-endian, its low `width` bytes.
using Field = std::array<int64_t, 3>;
struct RecordRow {
    Convert convert;
    std::string json;
    size_t size;                  // of the bytes, when accepted
    std::vector<Field> fields;    // set in them
    const char* error = nullptr;  // else the RecordError
};

constexpr int64_t kNotGiven = 0xFFFFFFFF;

TEST(RecordsTest, SetExactlyTheFieldsGivenOrNameTheFieldInError) {
    // clang-format off
    const RecordRow rows[] = {
        // Its lists hold the entries of the two dubious-cell arrays.
        {kBarring, R"({"value": 18446744073709551615, "lte_cells": [{"mcc": 310, "mnc": 260,
            "mnc_includes_pcs_digit": true, "band": 66, "freq": 66486, "pci": 503, "aux_value": 7,
            "cell_identity": 268435455}], "nr_cells": [{"mcc": 999, "mnc": 99, "band": 78,
            "freq": 636666, "pci": 1007, "aux_value": 1, "cell_identity": 68719476735,
            "scs": "NR5G_SCS_30"}, {"pci": 65535}]})", 40 + 28 + 2 * 40,
         {{0, -1, 8}, {8, 1, 1}, {24, 2, 1}, {40, 310, 2}, {42, 260, 2}, {44, 1, 1}, {48, 66, 4},
          {52, 66486, 4}, {56, 503, 2}, {60, 7, 4}, {64, 268435455, 4}, {68, 999, 2}, {70, 99, 2},
          {76, 78, 4}, {80, 636666, 4}, {84, 1007, 2}, {88, 1, 4}, {92, 68719476735, 8},
          {100, 1, 4}, {108 + 16, 65535, 2}}},
        {kPreferred, R"({"value": 9, "cells2": [{}], "cells": [{"cell_info": {"plmn": {"mcc": 310,
            "mnc": 410}, "cell_identity": 4294967296, "band": 3, "freq": 1850, "pci": 12},
            "param1": 77, "flag1": true, "flag3": 1,
            "location": {"latitude": -1, "longitude": 2}}]})", 32 + 48 + 48,
         {{0, 9, 4}, {4, 1, 1}, {16, 1, 1}, {32, 310, 2}, {34, 410, 2}, {40, 4294967296, 8},
          {48, 3, 4}, {52, 1850, 4}, {56, 12, 4}, {64, 77, 4}, {68, 1, 1}, {70, 1, 1}, {72, -1, 4},
          {76, 2, 4}}},
        // The first entry leaves the valid flags to what it gives; the second sets them.
        {kCellList, R"({"mitigation_type": "INFO", "flag": 1, "lte_cell_list": [{"cell_info":
            {"plmn": {"mcc": 1, "mnc": 2, "mnc_includes_pcs_digit": 1}, "cell_identity": 3,
            "band": 4, "freq": 5, "pci": 6}, "param1": 7, "flag2": false, "param3": 8, "param4": 9,
            "common_flag": 1, "location": {"latitude": 10, "longitude": 11}, "hdr_value3": 12,
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
        {kCellsV2, R"({"slot": "third", "lte_cell_list": [{"plmn": {"mcc": 310, "mnc": 260},
            "cell_identity": 5, "band": 66, "freq": 1, "pci": 2, "scs": "NR5G_SCS_60",
            "band_list": [1, 66, 255]}]})", 10768,
         {{0, 2, 4}, {4, 1, 1}, {5, 1, 1}, {8, 310, 2}, {10, 260, 2}, {16, 5, 8}, {24, 66, 4},
          {28, 1, 4}, {32, 2, 4}, {36, 2, 4}, {40, 3, 1}, {44, 1, 4}, {48, 66, 4}, {52, 255, 4}}},
        {kBarring, R"({"lte_cells": [{"mcc": 65536}]})", 0, {},
         "lte_cells[0].mcc: 65536 does not fit an unsigned 16-bit field"},
        {kDataStall, R"({"traffic_direction": "SIDEWAYS"})", 0, {}, "traffic_direction: unknown "
         "traffic_direction_e value 'SIDEWAYS' (one of TRAFFIC_DIRECTION_UPLINK, "
         "TRAFFIC_DIRECTION_DOWNLINK, or a number)"},
        {kCellList, Json{{"lte_cell_list", Json::array_t(21, Json::object())}}.dump(), 0, {},
         "lte_cell_list: holds at most 20 entries, got 21"}, };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.json);
        try {
            const Bytes got = row.convert(Json::parse(row.json));
            EXPECT_EQ(row.error, nullptr) << "accepted";
            Bytes want(row.size, 0);
            for (const auto& [offset, value, width] : row.fields)
                for (int64_t b = 0; b < width; ++b)
                    want.at(offset + b) =
                        static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * b));
            const auto at = std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first;
            EXPECT_EQ(got.size(), want.size());
            EXPECT_EQ(at - got.begin(), got.end() - got.begin()) << "the first difference";
        } catch (const RecordError& e) {
            EXPECT_STREQ(e.what(), row.error);
        }
    }
}

}  // namespace
