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
// marker), each section's flag set, two shared PLMNs; fields in the header's order.
inline cell_list_entry_s sampleListedCell() {
    return {{{313, 340, 0}, 42, 125, 5230, 301}, 11, 2, 33, 44, 1, 55, 1, {-3, 4}, 1, 66,
            RUX_VALUE_NOT_GIVEN - 1, 88, 1, 2, {{314, 150, 1}, {315, 20, 0}}};
}

// Bands 1 and 300; the LTE list sends 32 bits of the identity.
inline dubious_cell_v2_s sampleV2Cell() {
    return {{316, 10, 0}, 0x123456789ull, 122, 100, 5, RUX_NR5G_SCS_60, 2, {1, 300}};
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
    const auto plmn = [](const plmn_id_s& p) {
        return std::to_string(p.mcc) + "/" + std::to_string(p.mnc) + "/" +
               std::to_string(p.mnc_includes_pcs_digit);
    };
    const auto cell = [&](const cell_list_feedback_entry_s& c, int shared) {
        const cell_info_s& i = c.cell_info;
        std::string out = plmn(i.plmn) + " id=" + std::to_string(i.cell_identity) +
                          " band=" + std::to_string(i.band) + " freq=" + std::to_string(i.freq) +
                          " pci=" + std::to_string(i.pci) + " cause=" +
                          std::to_string(c.cause_bitmask) + " fb=" + std::to_string(c.feedback_cause) +
                          " shared=";
        for (int j = 0; j < shared && j < MAX_SIZE_SHARED_PLMN; ++j)
            out += (j ? "," : "") + plmn(c.shared_plmn[j]);
        return out;
    };
    const cell_list_feedback_entry_s zero{};
    bool restZero = true;
    const auto list = [&](uint8_t len, const cell_list_feedback_entry_s* cells) {
        std::string out;
        for (int n = 0; n < MAX_SIZE_CELL_LIST; ++n) {
            const cell_list_feedback_entry_s& c = cells[n];
            const int shared = n < len ? c.shared_plmn_len : 0;
            for (int j = shared; j < MAX_SIZE_SHARED_PLMN; ++j)
                restZero = restZero && plmn(c.shared_plmn[j]) == plmn(zero.shared_plmn[j]);
            if (n < len)
                out += (n ? " " : "") + cell(c, shared);
            else
                restZero = restZero && cell(c, c.shared_plmn_len) == cell(zero, 0);
        }
        return "[" + out + "]";
    };
    const std::string lte = list(r.lte_cell_list_len, r.lte_cell_list);
    const std::string nr = list(r.nr_cell_list_len, r.nr_cell_list);
    return "type=" + std::to_string(r.mitigation_type) + " lte=" + lte + " nr=" + nr +
           " rest=" + (restZero ? "0" : "dirty");
}

}  // namespace rux::test
