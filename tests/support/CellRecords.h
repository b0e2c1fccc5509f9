// Cell records for the tests of the cell requests and the cell-list feedback: one sample
// of each cell type, every field a different value so a field in the wrong place shows,
// and a one-line rendering of the feedback record an indication callback receives.
#pragma once

#include <string>
#include <vector>

#include "rux/rux_client.h"

namespace rux::test {

inline lte_dubious_cell_info_s sampleLteCell() {
    return {310, 260, 1, 122, 1850, 101, 7, 0x1A2B3C};
}

inline nr_dubious_cell_info_s sampleNrCell() {
    return {311, 480, 0, 277, 628000, 500, 9, 0x900000001ull, RUX_NR5G_SCS_30};
}

inline preferred_cell_info_s samplePreferredCell() {
    return {{{312, 530, 1}, 0x123456789ull, 162, 2600, 42}, 77, true, false, true, {-1, 2000000}};
}

// Every optional value given (one as 0xFFFFFFFE, the largest value that is not the
// marker), two shared PLMNs.
inline cell_list_entry_s sampleListedCell() {
    cell_list_entry_s c{};
    c.cell_info = {{313, 340, 0}, 42, 125, 5230, 301};
    c.param1 = 11;
    c.flag2 = 2;
    c.param3 = 33;
    c.param4 = 44;
    c.common_valid = 1;
    c.common_value = 55;
    c.common_flag = 1;
    c.location = {-3, 4};
    c.hdr_valid = 1;
    c.hdr_value1 = 66;
    c.hdr_value2 = RUX_VALUE_NOT_GIVEN - 1;
    c.hdr_value3 = 88;
    c.shared_plmn_valid = 1;
    c.shared_plmn_len = 2;
    c.shared_plmn[0] = {314, 150, 1};
    c.shared_plmn[1] = {315, 20, 0};
    return c;
}

inline dubious_cell_v2_s sampleV2Cell() {
    dubious_cell_v2_s c{};
    c.plmn = {316, 10, 0};
    c.cell_identity = 0x123456789ull;
    c.band = 122;
    c.freq = 100;
    c.pci = 5;
    c.scs = RUX_NR5G_SCS_60;
    c.band_count = 2;
    c.band_list[0] = 1;
    c.band_list[1] = 300;
    return c;
}

template <typename Cell>
std::vector<Cell> copies(size_t n, const Cell& cell) {
    return std::vector<Cell>(n, cell);
}

// `record` changed by `change`: with(sampleLteCell(), [](auto& c) { c.mcc = 1000; }).
template <typename Record, typename Change>
Record with(Record record, Change change) {
    change(record);
    return record;
}

// "type=2 lte=[310/260/1 id=6699 band=122 freq=1850 pci=101 cause=5 fb=1 shared=311/480/1]
// nr=[] rest=0": the record as delivered; rest=0 says every field past the lengths is 0.
inline std::string describe(const cell_list_info_ind_s& r) {
    bool restZero = true;
    const auto plmn = [](const plmn_id_s& p) {
        return std::to_string(p.mcc) + "/" + std::to_string(p.mnc) + "/" +
               std::to_string(p.mnc_includes_pcs_digit);
    };
    const auto zero = [](const plmn_id_s& p) {
        return p.mcc == 0 && p.mnc == 0 && p.mnc_includes_pcs_digit == 0;
    };
    const auto cells = [&](uint8_t len, const cell_list_feedback_entry_s* list) {
        std::string out;
        for (int i = 0; i < MAX_SIZE_CELL_LIST; ++i) {
            const cell_list_feedback_entry_s& c = list[i];
            const cell_info_s& info = c.cell_info;
            for (int j = i < len ? c.shared_plmn_len : 0; j < MAX_SIZE_SHARED_PLMN; ++j)
                restZero = restZero && zero(c.shared_plmn[j]);
            if (i >= len) {
                restZero = restZero && zero(info.plmn) && info.cell_identity == 0 &&
                           info.band == 0 && info.freq == 0 && info.pci == 0 &&
                           c.cause_bitmask == 0 && c.feedback_cause == 0 && c.shared_plmn_len == 0;
                continue;
            }
            std::string shared;
            for (int j = 0; j < c.shared_plmn_len && j < MAX_SIZE_SHARED_PLMN; ++j)
                shared += (j ? "," : "") + plmn(c.shared_plmn[j]);
            out += std::string(out.empty() ? "" : " ") + plmn(info.plmn) +
                   " id=" + std::to_string(info.cell_identity) +
                   " band=" + std::to_string(info.band) + " freq=" + std::to_string(info.freq) +
                   " pci=" + std::to_string(info.pci) +
                   " cause=" + std::to_string(c.cause_bitmask) +
                   " fb=" + std::to_string(c.feedback_cause) + " shared=" + shared;
        }
        return "[" + out + "]";
    };
    const std::string lte = cells(r.lte_cell_list_len, r.lte_cell_list);
    const std::string nr = cells(r.nr_cell_list_len, r.nr_cell_list);
    return "type=" + std::to_string(r.mitigation_type) + " lte=" + lte + " nr=" + nr +
           " rest=" + (restZero ? "0" : "dirty");
}

}  // namespace rux::test
