// The cell converters, one table: what each writes on the wire for sample cells (field
// placement, the not-given marker), each limit at n and n + 1, each check against the
// next one in its order, and the lines each leaves in the log.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "CellRecords.h"
#include "SdkTestSupport.h"
#include "client/CellConversions.h"

namespace {

using namespace rux::client;
using namespace rux::test;

template <typename Req>
struct Converted {
    int status;
    Req req;
};

// "0: <request bytes>" or the failure alone.
template <typename Req>
std::string bytes(const Converted<Req>& c) {
    return c.status != 0 ? std::to_string(c.status) : "0: " + hex(c.req.SerializeAsString());
}

// What was sent: cells per list, "+" between lists.
std::string count(int first) { return std::to_string(first); }
std::string count(int first, int second) { return count(first) + "+" + count(second); }
std::string cells(const VexProto::SetLteDubiousCellListReq& r) {
    return count(r.lte_cell_list_size());
}
std::string cells(const VexProto::SetNrDubiousCellListReq& r) {
    return count(r.nr_cell_list_size());
}
std::string cells(const VexProto::SetCellBarringInfoReq& r) {
    return count(r.lte_cell_list_size(), r.nr_cell_list_size());
}
std::string cells(const VexProto::SetPreferredCellListReq& r) {
    return count(r.cell_list_size(), r.cell_list2_size());
}
std::string cells(const VexProto::SendDataStallParametersReq& r) { return count(r.has_params()); }
std::string cells(const VexProto::SetCellListInfoReq& r) {
    return count(r.set_cell_list_info().lte_cell_list_size(),
                 r.set_cell_list_info().nr_cell_list_size());
}
std::string cells(const VexProto::SetDubiousCellListV2Req& r) {
    return count(r.set_dubious_cell_list_v2().lte_cell_list_size(),
                 r.set_dubious_cell_list_v2().nr_cell_list_size());
}

// "0 sent <cells>" or the failure alone.
template <typename Req>
std::string sent(const Converted<Req>& c) {
    return c.status != 0 ? std::to_string(c.status) : "0 sent " + cells(c.req);
}

template <typename Cell, typename Change>
std::vector<Cell> withAt(std::vector<Cell> cells, size_t i, Change change) {
    change(cells.at(i));
    return cells;
}

auto lte(slot_id_e slot, unsigned long count, const lte_dubious_cell_info_s* cells) {
    Converted<VexProto::SetLteDubiousCellListReq> c{};
    c.status = convertLteDubiousCellListToProto(c.req, slot, count, cells);
    return c;
}
auto lte(slot_id_e slot, const std::vector<lte_dubious_cell_info_s>& cells) {
    return lte(slot, cells.size(), cells.data());
}
auto nr(slot_id_e slot, const std::vector<nr_dubious_cell_info_s>& cells) {
    Converted<VexProto::SetNrDubiousCellListReq> c{};
    c.status = convertNrDubiousCellListToProto(c.req, slot, cells.size(), cells.data());
    return c;
}
auto barring(slot_id_e slot, const std::vector<lte_dubious_cell_info_s>& lteCells,
             const std::vector<nr_dubious_cell_info_s>& nrCells, bool nullLists = false) {
    const cell_barring_info_s info{0x100000002ull, static_cast<uint8_t>(lteCells.size()),
                                   nullLists ? nullptr : lteCells.data(),
                                   static_cast<uint8_t>(nrCells.size()),
                                   nullLists ? nullptr : nrCells.data()};
    Converted<VexProto::SetCellBarringInfoReq> c{};
    c.status = convertSetCellBarringInfoReqToProto(c.req, slot, &info);
    return c;
}
auto preferred(slot_id_e slot, const std::vector<preferred_cell_info_s>& first,
               const std::vector<preferred_cell_info_s>& second, bool nullLists = false) {
    const preferred_cell_list_s list{
        9, static_cast<uint8_t>(first.size()), nullLists ? nullptr : first.data(),
        static_cast<uint8_t>(second.size()), nullLists ? nullptr : second.data()};
    Converted<VexProto::SetPreferredCellListReq> c{};
    c.status = convertSetPreferredCellListReqToProto(c.req, slot, &list);
    return c;
}
auto dataStall(slot_id_e slot, data_stall_params_s params) {
    Converted<VexProto::SendDataStallParametersReq> c{};
    c.status = convertDataStallParamsToProto(c.req, slot, &params);
    return c;
}
const data_stall_params_s kStall{
    RUX_TRAFFIC_DIRECTION_DOWNLINK, true, RUX_APPLICATION_TYPE_GAMING, -1, 0, 7, 300};
auto cellList(uint8_t lteLen, uint8_t nrLen, const cell_list_entry_s& cell = {},
              const std::function<void(set_cell_list_info_s&)>& change = {}) {
    static set_cell_list_info_s info;  // 5 KiB
    info = {RUX_CELL_MITIGATION_INFO, 1, lteLen, {}, nrLen, {}};
    for (auto& c : info.lte_cell_list) c = cell;
    for (auto& c : info.nr_cell_list) c = cell;
    if (change) change(info);
    Converted<VexProto::SetCellListInfoReq> c{};
    c.status = convertSetCellListInfoReqToProto(c.req, info);
    return c;
}
auto v2(const std::function<void(dubious_cell_info_v2_s&)>& change) {
    static dubious_cell_info_v2_s info;  // 10 KiB
    info = {};
    info.slot = RUX_SLOT_ID_SECOND;
    info.lte_list_valid = info.nr_list_valid = 1;
    info.lte_cell_list_len = info.nr_cell_list_len = 1;
    for (auto& c : info.lte_cell_list) c = sampleV2Cell();
    for (auto& c : info.nr_cell_list) c = sampleV2Cell();
    change(info);
    Converted<VexProto::SetDubiousCellListV2Req> c{};
    c.status = convertSetDubiousCellListV2ReqToProto(c.req, info);
    return c;
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
const auto kBadScs = [](nr_dubious_cell_info_s& c) { c.scs = static_cast<nr5g_scs_type_e>(5); };
const lte_dubious_cell_info_s kLte = sampleLteCell();
const nr_dubious_cell_info_s kNr = sampleNrCell();
const preferred_cell_info_s kPref = samplePreferredCell();

// clang-format off
const Case kCases[] = {
    // --- field placement and markers, on bytes ---
    {"LteCellFields", [] { return bytes(lte(RUX_SLOT_ID_SECOND, {kLte})); },
     "0: 08 02 12 17 0A 08 08 B6 02 10 84 02 18 01 10 BC D6 68 18 7A 20 BA 0E 28 65 30 07", ""},
    {"NrCellFields", [] { return bytes(nr(RUX_SLOT_ID_THIRD, {kNr})); },
     "0: 08 03 12 1D 0A 06 08 B7 02 10 E0 03 10 81 80 80 80 90 01 18 95 02 20 A0 AA 26 28 F4 "
     "03 30 01 38 09", ""},
    {"BarringFields", [] { return bytes(barring(kFirst, {kLte}, {kNr})); },
     "0: 08 01 10 82 80 80 80 10 1A 17 0A 08 08 B6 02 10 84 02 18 01 10 BC D6 68 18 7A 20 BA "
     "0E 28 65 30 07 22 1D 0A 06 08 B7 02 10 E0 03 10 81 80 80 80 90 01 18 95 02 20 A0 AA 26 "
     "28 F4 03 30 01 38 09", ""},
    {"PreferredFields", [] { return bytes(preferred(kFirst, {kPref}, {})); },
     "0: 08 01 10 09 1A 31 0A 18 0A 08 08 B8 02 10 92 04 18 01 10 89 CF 95 9A 12 18 A2 01 20 "
     "A8 14 28 2A 10 4D 18 01 28 01 32 0F 08 FF FF FF FF FF FF FF FF FF 01 10 80 89 7A", ""},
    {"DataStallFields", [] { return bytes(dataStall(RUX_SLOT_ID_SECOND, kStall)); },
     "0: 08 02 12 16 08 02 10 01 18 05 20 FF FF FF FF FF FF FF FF FF 01 30 07 38 AC 02", ""},
    {"DataStallUnknownApplicationIsSentAsUnspecified",
     [] { return bytes(dataStall(kFirst, with(kStall, [](auto& p) {
         p.application_type = static_cast<application_type_e>(8); }))); },
     "0: 08 01 12 14 08 02 10 01 20 FF FF FF FF FF FF FF FF FF 01 30 07 38 AC 02",
     "Request received for unknown Application type"},
    {"CellListEveryValueGiven", [] { return bytes(cellList(1, 0, sampleListedCell())); },
     "0: 0A 68 08 02 10 01 1A 62 0A 12 0A 06 08 B9 02 10 D4 02 10 2A 18 7D 20 EE 28 28 AD 02 "
     "10 01 18 0B 20 01 28 01 30 21 38 2C 42 40 08 01 12 15 08 01 10 37 18 01 22 0D 08 FD FF "
     "FF FF FF FF FF FF FF 01 10 04 18 01 22 0E 08 01 10 42 18 01 20 FE FF FF FF 0F 28 58 28 "
     "01 32 11 0A 08 08 BA 02 10 96 01 18 01 0A 05 08 BB 02 10 14", ""},
    {"CellListNotGivenValuesAreLeftOutAndSharedPlmnsUnreadWithoutTheirFlag",
     [] { return bytes(cellList(0, 1, with(sampleListedCell(), [](auto& c) {
         c.param1 = c.flag2 = c.common_value = c.hdr_value1 = c.hdr_value2 = RUX_VALUE_NOT_GIVEN;
         c.shared_plmn_valid = 0;
         c.shared_plmn_len = 7; }))); },
     "0: 0A 3B 08 02 10 01 22 35 0A 12 0A 06 08 B9 02 10 D4 02 10 2A 18 7D 20 EE 28 28 AD 02 "
     "30 21 38 2C 42 1B 08 01 12 11 18 01 22 0D 08 FD FF FF FF FF FF FF FF FF 01 10 04 18 01 "
     "22 02 28 58", ""},
    {"CellListUnknownMitigationIsSentAsDubious",
     [] { return bytes(cellList(0, 0, {}, [](auto& i) {
         i.mitigation_type = static_cast<cell_mitigation_type_e>(0); })); },
     "0: 0A 02 10 01", "Unknown Cell Mitigation Type"},
    {"DubiousV2Fields", [] { return bytes(v2([](auto&) {})); },
     "0: 0A 3C 08 02 10 01 1A 18 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 02 18 7A 20 64 28 05 3A "
     "03 01 AC 02 20 01 2A 1A 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 12 18 7A 20 64 28 05 30 02 "
     "42 03 01 AC 02", ""},
    {"DubiousV2UnknownScsIsSentAsInvalidAndAClearFlagLeavesItsListUnread",
     [] { return bytes(v2([](auto& i) { i.lte_list_valid = 0; i.lte_cell_list_len = 40;
         i.nr_cell_list[0].scs = static_cast<nr5g_scs_type_e>(-2); })); },
     "0: 0A 29 08 02 20 01 2A 23 0A 05 08 BC 02 10 0A 10 89 CF 95 9A 12 18 7A 20 64 28 05 30 "
     "FF FF FF FF FF FF FF FF FF 01 42 03 01 AC 02", "Request received for UNKNOWN SCS type"},

    // --- the older family: cut to the limit, checked in order ---
    {"LteThirtyTwoSent", [] { return sent(lte(kFirst, copies(32, kLte))); }, "0 sent 32", ""},
    {"LteFortyCutToThirtyTwoAndTheRestUnread",
     [] { return sent(lte(kFirst, withAt(copies(40, kLte), 32, kMcc1000))); }, "0 sent 32",
     "lte list of 40 cells: the first 32 are sent"},
    {"LteMcc999Accepted",
     [] { return sent(lte(kFirst, {with(kLte, [](auto& c) { c.mcc = c.mnc = 999; })})); },
     "0 sent 1", ""},
    {"LteMcc1000Refused", [] { return sent(lte(kFirst, {kLte, with(kLte, kMcc1000)})); }, "1",
     "lte cell 1: mcc 1000 or mnc 260 above 999"},
    {"LteMnc1000Refused", [] { return sent(lte(kFirst, {with(kLte, kMnc1000)})); }, "1",
     "lte cell 0: mcc 310 or mnc 1000 above 999"},
    {"LteMissingListBeforeSlot", [] { return sent(lte(kBadSlot, 2, nullptr)); }, "1",
     "lte list: 2 cells but no list"},
    {"LteSlotBeforeCells", [] { return sent(lte(kBadSlot, {with(kLte, kMcc1000)})); }, "7",
     kSlotLine},
    {"NrThirtyThreeCutToThirtyTwo", [] { return sent(nr(kFirst, copies(33, kNr))); },
     "0 sent 32", "nr list of 33 cells: the first 32 are sent"},
    {"NrUnknownScsRefused", [] { return sent(nr(kFirst, {with(kNr, kBadScs)})); }, "1",
     "Request received for UNKNOWN SCS type"},
    {"NrMccBeforeScs", [] { return sent(nr(kFirst, {with(with(kNr, kBadScs), kMcc1000)})); },
     "1", "nr cell 0: mcc 1000 or mnc 480 above 999"},
    {"BarringNullRecord", [] { Converted<VexProto::SetCellBarringInfoReq> c{};
         c.status = convertSetCellBarringInfoReqToProto(c.req, kFirst, nullptr); return sent(c); },
     "1", "cell barring info is null"},
    {"BarringMissingNrListBeforeLteAndSlot",
     [] { return sent(barring(kBadSlot, {kLte}, {kNr}, true)); }, "1",
     "nr list: 1 cells but no list"},
    {"BarringSlotBeforeCells", [] { return sent(barring(kBadSlot, {}, {with(kNr, kMcc1000)})); },
     "7", kSlotLine},
    {"BarringNrCellsBeforeLteCells",
     [] { return sent(barring(kFirst, {with(kLte, kMcc1000)}, {with(kNr, kMnc1000)})); },
     "1", "nr cell 0: mcc 311 or mnc 1000 above 999"},
    {"BarringEachListCutToThirtyTwo",
     [] { return sent(barring(kFirst, copies(33, kLte), copies(32, kNr))); },
     "0 sent 32+32", "lte list of 33 cells: the first 32 are sent"},
    {"PreferredNullRecord", [] { Converted<VexProto::SetPreferredCellListReq> c{};
         c.status = convertSetPreferredCellListReqToProto(c.req, kFirst, nullptr);
         return sent(c); },
     "1", "preferred cell list is null"},
    {"PreferredMissingSecondListBeforeFirstAndSlot",
     [] { return sent(preferred(kBadSlot, {kPref}, {kPref}, true)); }, "1",
     "second list: 1 cells but no list"},
    {"PreferredSlotBeforeCells",
     [] { const auto bad = with(kPref, [](auto& c) { c.cell_info.plmn.mcc = 1000; });
          return sent(preferred(kBadSlot, {bad}, {})); },
     "7", kSlotLine},
    {"PreferredSecondListBeforeFirst",
     [] { const auto bad = with(kPref, [](auto& c) { c.cell_info.plmn.mnc = 1000; });
          return sent(preferred(kFirst, {bad}, {kPref, bad})); },
     "1", "second cell 1: mcc 312 or mnc 1000 above 999"},
    {"PreferredEachListCutToSixtyFour",
     [] { return sent(preferred(kFirst, copies(64, kPref), copies(65, kPref))); },
     "0 sent 64+64", "second list of 65 cells: the first 64 are sent"},
    {"DataStallNullRecord", [] { Converted<VexProto::SendDataStallParametersReq> c{};
         c.status = convertDataStallParamsToProto(c.req, kFirst, nullptr); return sent(c); },
     "1", "data stall params are null"},
    {"DataStallThresholdsOfMinusOneAccepted",
     [] { return sent(dataStall(kFirst, with(kStall, [](auto& p) {
         p.param1 = p.param2 = p.param3 = p.param4 = -1; }))); }, "0 sent 1", ""},
    {"DataStallThresholdBelowMinusOneBeforeSlot",
     [] { return sent(dataStall(kBadSlot, with(kStall, [](auto& p) { p.param4 = -2; }))); },
     "1", "param4 is -2, below -1"},
    {"DataStallSlotBeforeTrafficDirection",
     [] { return sent(dataStall(kBadSlot, with(kStall, [](auto& p) {
         p.traffic_direction = static_cast<traffic_direction_e>(2); }))); }, "7", kSlotLine},
    {"DataStallUnknownTrafficDirectionRefused",
     [] { return sent(dataStall(kFirst, with(kStall, [](auto& p) {
         p.traffic_direction = static_cast<traffic_direction_e>(-1); }))); },
     "1", "Request received for unknown Traffic Direction type"},

    // --- the cell-list family: refused over the limit ---
    {"CellListTwentyAndTwentySent",
     [] { return sent(cellList(20, 20)); },
     "0 sent 20+20", ""},
    {"CellListTwentyOneLteRefused", [] { return sent(cellList(21, 0)); }, "-2",
     "greater than MAX_SIZE_CELL_LIST!"},
    {"CellListTwentyOneNrRefused", [] { return sent(cellList(0, 21)); }, "-2",
     "greater than MAX_SIZE_CELL_LIST!"},
    {"CellListSixSharedPlmnsSent",
     [] { auto c = cellList(1, 0, with(sampleListedCell(), [](auto& c) { c.shared_plmn_len = 6; }));
          return sent(c) + " with " + count(c.req.set_cell_list_info().lte_cell_list(0).property()
                                                .rs().shared_plmn_size()); },
     "0 sent 1+0 with 6", ""},
    {"CellListSevenSharedPlmnsOnALaterCellRefused",
     [] { return sent(cellList(1, 2, sampleListedCell(),
                               [](auto& i) { i.nr_cell_list[1].shared_plmn_len = 7; })); },
     "-2", "greater than MAX_SIZE_SHARED_PLMN!"},
    {"DubiousV2BadSlot", [] { return sent(v2([](auto& i) { i.slot = kBadSlot; })); }, "-2",
     kSlotLine + "\ninvalid proto slot"},
    {"DubiousV2ThirtyTwoLteSent",
     [] { return sent(v2([](auto& i) { i.lte_cell_list_len = 32; i.nr_list_valid = 0; })); },
     "0 sent 32+0", ""},
    {"DubiousV2ThirtyThreeLteRefused",
     [] { return sent(v2([](auto& i) { i.lte_cell_list_len = 33; })); },
     "-2", "lte len greater than MAX_DUBIOUS_CELLS!"},
    {"DubiousV2ThirtyTwoBandsSent",
     [] { auto c = v2([](auto& i) { i.lte_cell_list[0].band_count = 32; });
          return sent(c) + " with " + count(c.req.set_dubious_cell_list_v2().lte_cell_list(0)
                                                .aux_values_size()); },
     "0 sent 1+1 with 32", ""},
    {"DubiousV2ThirtyThreeBandsRefused",
     [] { return sent(v2([](auto& i) { i.lte_cell_list[0].band_count = 33; })); }, "-2",
     "invalid lte parameters"},
    {"DubiousV2LteBeforeNr",
     [] { return sent(v2([](auto& i) { i.lte_cell_list[0].plmn.mcc = 1000;
                                       i.nr_cell_list_len = 33; })); },
     "-2", "invalid lte parameters"},
    {"DubiousV2ThirtyThreeNrRefused",
     [] { return sent(v2([](auto& i) { i.nr_cell_list_len = 33; })); },
     "-2", "nr len greater than MAX_DUBIOUS_CELLS!"},
    {"DubiousV2NrMnc1000Refused",
     [] { return sent(v2([](auto& i) { i.nr_cell_list[0].plmn.mnc = 1000; })); }, "-2",
     "invalid nr parameters"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, CellConversionsTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
