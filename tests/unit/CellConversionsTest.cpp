// The cell converters, one table: the bytes for sample cells, each limit at n and n + 1,
// each check against the next one in its order, and the lines each leaves in the log.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "SdkTestSupport.h"
#include "client/CellConversions.h"

namespace {

using namespace rux::client;
using namespace rux::test;

// One sample of each cell type, every field a different value.
const lte_dubious_cell_info_s kLte{310, 260, 1, 122, 1850, 101, 7, 0x1A2B3C};
const nr_dubious_cell_info_s kNr{311, 480, 0, 277, 628000, 500, 9, 0x900000001ull, RUX_NR5G_SCS_30};
const preferred_cell_info_s kPref{
    {{312, 530, 1}, 0x123456789ull, 162, 2600, 42}, 77, true, false, true, {-1, 2000000}};
// Every optional value given (one as 0xFFFFFFFE, the largest value that is not the
// marker), each section's flag set, two shared PLMNs; fields in the header's order.
const cell_list_entry_s kListed{{{313, 340, 0}, 42, 125, 5230, 301}, 11, 2, 33, 44, 1, 55, 1,
                                {-3, 4}, 1, 66, RUX_VALUE_NOT_GIVEN - 1, 88, 1, 2,
                                {{314, 150, 1}, {315, 20, 0}}};
// Bands 1 and 300; the LTE list sends 32 bits of the identity.
const dubious_cell_v2_s kV2Cell{{316, 10, 0}, 0x123456789ull, 122, 100, 5, RUX_NR5G_SCS_60, 2, {1, 300}};

// `record` changed by `change`: with(kLte, [](auto& c) { c.mcc = 1000; }).
template <typename Record, typename Change>
Record with(Record record, Change change) {
    change(record);
    return record;
}

// A conversion's status, the request's bytes and what each list of it got.
struct Outcome {
    int status;
    std::string bytes, cells;
};
template <typename Req, typename Fill, typename Cells>
Outcome convert(Fill fill, Cells cells) {
    Req req;
    const int status = fill(req);
    return {status, hex(req.SerializeAsString()), cells(req)};
}
std::string count(int first) { return std::to_string(first); }
std::string count(int first, int second) { return count(first) + "+" + count(second); }
// "0: <bytes>" or "0 sent <cells>", or the failure alone.
std::string bytes(const Outcome& o) { return o.status ? count(o.status) : "0: " + o.bytes; }
std::string sent(const Outcome& o) { return o.status ? count(o.status) : "0 sent " + o.cells; }

Outcome lte(slot_id_e slot, unsigned long n, const lte_dubious_cell_info_s* cells) {
    return convert<VexProto::SetLteDubiousCellListReq>(
        [&](auto& r) { return convertLteDubiousCellListToProto(r, slot, n, cells); },
        [](auto& r) { return count(r.lte_cell_list_size()); });
}
Outcome lte(slot_id_e slot, const std::vector<lte_dubious_cell_info_s>& cells) {
    return lte(slot, cells.size(), cells.data());
}
Outcome nr(slot_id_e slot, const std::vector<nr_dubious_cell_info_s>& cells) {
    return convert<VexProto::SetNrDubiousCellListReq>(
        [&](auto& r) {
            return convertNrDubiousCellListToProto(r, slot, cells.size(), cells.data());
        },
        [](auto& r) { return count(r.nr_cell_list_size()); });
}
// Null lists keep their counts; `info` false passes no record at all.
Outcome barring(slot_id_e slot, const std::vector<lte_dubious_cell_info_s>& lteCells,
                const std::vector<nr_dubious_cell_info_s>& nrCells, bool lists = true,
                bool info = true) {
    const cell_barring_info_s record{
        0x100000002ull, static_cast<uint8_t>(lteCells.size()), lists ? lteCells.data() : nullptr,
        static_cast<uint8_t>(nrCells.size()), lists ? nrCells.data() : nullptr};
    return convert<VexProto::SetCellBarringInfoReq>(
        [&](auto& r) {
            return convertSetCellBarringInfoReqToProto(r, slot, info ? &record : nullptr);
        },
        [](auto& r) { return count(r.lte_cell_list_size(), r.nr_cell_list_size()); });
}
Outcome preferred(slot_id_e slot, const std::vector<preferred_cell_info_s>& first,
                  const std::vector<preferred_cell_info_s>& second, bool lists = true,
                  bool info = true) {
    const preferred_cell_list_s record{
        9, static_cast<uint8_t>(first.size()), lists ? first.data() : nullptr,
        static_cast<uint8_t>(second.size()), lists ? second.data() : nullptr};
    return convert<VexProto::SetPreferredCellListReq>(
        [&](auto& r) {
            return convertSetPreferredCellListReqToProto(r, slot, info ? &record : nullptr);
        },
        [](auto& r) { return count(r.cell_list_size(), r.cell_list2_size()); });
}
const data_stall_params_s kStall{
    RUX_TRAFFIC_DIRECTION_DOWNLINK, true, RUX_APPLICATION_TYPE_GAMING, -1, 0, 7, 300};
Outcome dataStall(slot_id_e slot, const data_stall_params_s* params) {
    return convert<VexProto::SendDataStallParametersReq>(
        [&](auto& r) { return convertDataStallParamsToProto(r, slot, params); },
        [](auto& r) { return count(r.has_params()); });
}
template <typename Change>
Outcome dataStallWith(slot_id_e slot, Change change) {
    const data_stall_params_s params = with(kStall, change);
    return dataStall(slot, &params);
}
// Shared PLMNs of the first LTE cell after the counts.
Outcome cellList(uint8_t lteLen, uint8_t nrLen, const cell_list_entry_s& cell = {},
                 const std::function<void(set_cell_list_info_s&)>& change = {}) {
    static set_cell_list_info_s info;  // 5 KiB
    info = {RUX_CELL_MITIGATION_INFO, 1, lteLen, {}, nrLen, {}};
    for (auto& c : info.lte_cell_list) c = cell;
    for (auto& c : info.nr_cell_list) c = cell;
    if (change) change(info);
    return convert<VexProto::SetCellListInfoReq>(
        [](auto& r) { return convertSetCellListInfoReqToProto(r, info); },
        [](auto& r) {
            const auto& m = r.set_cell_list_info();
            return count(m.lte_cell_list_size(), m.nr_cell_list_size()) +
                   (m.lte_cell_list_size() ? " with " + count(m.lte_cell_list(0).property()
                                                                  .rs().shared_plmn_size())
                                           : "");
        });
}
// One sample cell in each list, slot second; bands of the first LTE cell after the counts.
Outcome v2(const std::function<void(dubious_cell_info_v2_s&)>& change) {
    static dubious_cell_info_v2_s info;  // 10 KiB
    info = {};
    info.slot = RUX_SLOT_ID_SECOND;
    info.lte_list_valid = info.nr_list_valid = 1;
    info.lte_cell_list_len = info.nr_cell_list_len = 1;
    for (auto& c : info.lte_cell_list) c = kV2Cell;
    for (auto& c : info.nr_cell_list) c = kV2Cell;
    change(info);
    return convert<VexProto::SetDubiousCellListV2Req>(
        [](auto& r) { return convertSetDubiousCellListV2ReqToProto(r, info); },
        [](auto& r) {
            const auto& m = r.set_dubious_cell_list_v2();
            return count(m.lte_cell_list_size(), m.nr_cell_list_size()) +
                   (m.lte_cell_list_size() ? " with " + count(m.lte_cell_list(0).aux_values_size())
                                           : "");
        });
}

struct Case {
    const char* name;
    std::function<std::string()> run;
    std::string expected;
    std::string log;  // every line the conversion wrote, without prefixes
};
void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

class CellConversionsTest : public ::testing::TestWithParam<Case> {};

TEST_P(CellConversionsTest, ConvertsOrRefusesWithItsLogLines) {
    LogCapture capture;
    EXPECT_EQ(GetParam().run(), GetParam().expected);
    EXPECT_EQ(loggedTexts(capture), GetParam().log);
}

constexpr auto kFirst = RUX_SLOT_ID_FIRST;
constexpr auto kBadSlot = static_cast<slot_id_e>(3);
const std::string kSlotLine = "Request received on UNKNOWN SlotId type";
const auto kMcc1000 = [](auto& c) { c.mcc = 1000; };
const auto kMnc1000 = [](auto& c) { c.mnc = 1000; };
const auto kPlmn999 = [](auto& c) { c.mcc = c.mnc = 999; };
const auto kBadScs = [](nr_dubious_cell_info_s& c) { c.scs = static_cast<nr5g_scs_type_e>(5); };
// clang-format off
const Case kCases[] = {
    // --- field placement and markers, on bytes ---
    {"LteCellFields", [] { return bytes(lte(RUX_SLOT_ID_SECOND, {kLte})); },
     "0: 08 02 12 17 0A 08 08 B6 02 10 84 02 18 01 10 BC D6 68 18 7A 20 BA 0E 28 65 30 07", ""},
    {"NrCellFields", [] { return bytes(nr(RUX_SLOT_ID_THIRD, {kNr})); },
     "0: 08 03 12 1D 0A 06 08 B7 02 10 E0 03 10 81 80 80 80 90 01 18 95 02 20 A0 AA 26 28 F4 "
     "03 30 01 38 09", ""},
    {"BarringFields", [] { return bytes(barring(kFirst, {{}}, {{}})); },
     "0: 08 01 10 82 80 80 80 10 1A 02 0A 00 22 02 0A 00", ""},
    {"PreferredFields", [] { return bytes(preferred(kFirst, {kPref}, {})); },
     "0: 08 01 10 09 1A 31 0A 18 0A 08 08 B8 02 10 92 04 18 01 10 89 CF 95 9A 12 18 A2 01 20 "
     "A8 14 28 2A 10 4D 18 01 28 01 32 0F 08 FF FF FF FF FF FF FF FF FF 01 10 80 89 7A", ""},
    {"DataStallFields", [] { return bytes(dataStall(RUX_SLOT_ID_SECOND, &kStall)); },
     "0: 08 02 12 16 08 02 10 01 18 05 20 FF FF FF FF FF FF FF FF FF 01 30 07 38 AC 02", ""},
    {"CellListEveryValueGiven", [] { return bytes(cellList(1, 0, kListed)); },
     "0: 0A 68 08 02 10 01 1A 62 0A 12 0A 06 08 B9 02 10 D4 02 10 2A 18 7D 20 EE 28 28 AD 02 "
     "10 01 18 0B 20 01 28 01 30 21 38 2C 42 40 08 01 12 15 08 01 10 37 18 01 22 0D 08 FD FF "
     "FF FF FF FF FF FF FF 01 10 04 18 01 22 0E 08 01 10 42 18 01 20 FE FF FF FF 0F 28 58 28 "
     "01 32 11 0A 08 08 BA 02 10 96 01 18 01 0A 05 08 BB 02 10 14", ""},
    {"CellListNotGivenValuesAreLeftOutAndSharedPlmnsUnreadWithoutTheirFlag",
     [] { return bytes(cellList(0, 1, with(kListed, [](auto& c) {
         c.param1 = c.flag2 = c.common_value = c.hdr_value1 = c.hdr_value2 = RUX_VALUE_NOT_GIVEN;
         c.shared_plmn_valid = 0;
         c.shared_plmn_len = 7; }))); },
     "0: 0A 3B 08 02 10 01 22 35 0A 12 0A 06 08 B9 02 10 D4 02 10 2A 18 7D 20 EE 28 28 AD 02 "
     "30 21 38 2C 42 1B 08 01 12 11 18 01 22 0D 08 FD FF FF FF FF FF FF FF FF 01 10 04 18 01 "
     "22 02 28 58", ""},
    {"DubiousV2Fields", [] { return bytes(v2([](auto&) {})); },
     "0: 0A 3C 08 02 10 01 1A 18 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 02 18 7A 20 64 28 05 3A "
     "03 01 AC 02 20 01 2A 1A 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 12 18 7A 20 64 28 05 30 02 "
     "42 03 01 AC 02", ""},
    {"DubiousV2UnknownScsIsSentAsInvalidAndAClearFlagLeavesItsListUnread",
     [] { return bytes(v2([](auto& i) { i.lte_list_valid = 0; i.lte_cell_list_len = 40;
         i.nr_cell_list[0].scs = static_cast<nr5g_scs_type_e>(-2); })); },
     "0: 0A 29 08 02 20 01 2A 23 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 12 18 7A 20 64 28 05 30 "
     "FF FF FF FF FF FF FF FF FF 01 42 03 01 AC 02", "Request received for UNKNOWN SCS type"},

    // --- limits at n and n + 1, and each check before the next; one row per converter ---
    {"LteCutToThirtyTwoThenCheckedInOrder", [] { auto forty = std::vector(40, kLte);
         forty[32].mcc = 1000;  // past the limit: never read
         return join({sent(lte(kFirst, std::vector(32, kLte))), sent(lte(kFirst, forty)),
                      sent(lte(kFirst, {with(kLte, kPlmn999)})),
                      sent(lte(kFirst, {kLte, with(kLte, kMcc1000)})),
                      sent(lte(kBadSlot, 2, nullptr)),
                      sent(lte(kBadSlot, {with(kLte, kMcc1000)}))}); },
     "0 sent 32; 0 sent 32; 0 sent 1; 1; 1; 7",
     "lte list of 40 cells: the first 32 are sent\nlte cell 1: mcc 1000 or mnc 260 above 999\n"
     "lte list: 2 cells but no list\n" + kSlotLine},
    {"NrUnknownScsRefusedAfterThePlmn", [] {
         return join({sent(nr(kFirst, {with(kNr, kBadScs)})),
                      sent(nr(kFirst, {with(with(kNr, kBadScs), kMcc1000)}))}); },
     "1; 1", "Request received for UNKNOWN SCS type\nnr cell 0: mcc 1000 or mnc 480 above 999"},
    {"BarringChecksInOrderNrFirstAndCutToThirtyTwo", [] {
         return join({sent(barring(kFirst, {}, {}, true, false)),
                      sent(barring(kBadSlot, {kLte}, {kNr}, false)),
                      sent(barring(kBadSlot, {}, {with(kNr, kMcc1000)})),
                      sent(barring(kFirst, {with(kLte, kMcc1000)}, {with(kNr, kMnc1000)})),
                      sent(barring(kFirst, std::vector(32, kLte), std::vector(33, kNr)))}); },
     "1; 1; 7; 1; 0 sent 32+32",
     "cell barring info is null\nnr list: 1 cells but no list\n" + kSlotLine +
     "\nnr cell 0: mcc 311 or mnc 1000 above 999\nnr list of 33 cells: the first 32 are sent"},
    {"PreferredChecksInOrderSecondListFirstAndCutToSixtyFour", [] {
         const auto bad = with(kPref, [](auto& c) { c.cell_info.plmn.mnc = 1000; });
         return join({sent(preferred(kFirst, {}, {}, true, false)),
                      sent(preferred(kBadSlot, {kPref}, {kPref}, false)),
                      sent(preferred(kBadSlot, {bad}, {})),
                      sent(preferred(kFirst, {bad}, {kPref, bad})),
                      sent(preferred(kFirst, std::vector(64, kPref), std::vector(65, kPref)))}); },
     "1; 1; 7; 1; 0 sent 64+64",
     "preferred cell list is null\nsecond list: 1 cells but no list\n" + kSlotLine +
     "\nsecond cell 1: mcc 312 or mnc 1000 above 999\n"
     "second list of 65 cells: the first 64 are sent"},
    {"DataStallChecksInOrder", [] {
         const auto direction = [](int d) { return [d](auto& p) {
             p.traffic_direction = static_cast<traffic_direction_e>(d); }; };
         return join({sent(dataStall(kFirst, nullptr)),
                      sent(dataStallWith(kFirst, [](auto& p) { p.param2 = p.param3 = -1; })),
                      sent(dataStallWith(kBadSlot, [](auto& p) { p.param4 = -2; })),
                      sent(dataStallWith(kBadSlot, direction(2))),
                      sent(dataStallWith(kFirst, direction(-1)))}); },
     "1; 0 sent 1; 1; 7; 1",
     "data stall params are null\nparam4 is -2, below -1\n" + kSlotLine +
     "\nRequest received for unknown Traffic Direction type"},
    {"CellListRefusedOverTwentyCellsOrSixSharedPlmns", [] {
         const auto shared = [](uint8_t n) {
             return with(kListed, [n](auto& c) { c.shared_plmn_len = n; }); };
         return join({sent(cellList(20, 20)), sent(cellList(21, 0)), sent(cellList(0, 21)),
                      sent(cellList(1, 0, shared(6))),
                      sent(cellList(1, 2, kListed,
                                    [&](auto& i) { i.nr_cell_list[1] = shared(7); }))}); },
     "0 sent 20+20 with 0; -2; -2; 0 sent 1+0 with 6; -2",
     "greater than MAX_SIZE_CELL_LIST!\ngreater than MAX_SIZE_CELL_LIST!\n"
     "greater than MAX_SIZE_SHARED_PLMN!"},
    {"DubiousV2RefusedOverThirtyTwoCellsOrBandsLteFirst", [] {
         return join({sent(v2([](auto& i) { i.slot = kBadSlot; })),
                      sent(v2([](auto& i) { i.lte_cell_list_len = 32;
                                            i.lte_cell_list[0].band_count = 32; })),
                      sent(v2([](auto& i) { i.lte_cell_list_len = 33; })),
                      sent(v2([](auto& i) { i.lte_cell_list[0].band_count = 33; })),
                      sent(v2([](auto& i) { i.lte_cell_list[0].plmn.mcc = 1000;
                                            i.nr_cell_list_len = 33; })),
                      sent(v2([](auto& i) { i.nr_cell_list_len = 33; })),
                      sent(v2([](auto& i) { i.nr_cell_list[0].plmn.mnc = 1000; }))}); },
     "-2; 0 sent 32+1 with 32; -2; -2; -2; -2; -2",
     kSlotLine + "\ninvalid proto slot\nlte len greater than MAX_DUBIOUS_CELLS!\n"
     "invalid lte parameters\ninvalid lte parameters\nnr len greater than MAX_DUBIOUS_CELLS!\n"
     "invalid nr parameters"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, CellConversionsTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
