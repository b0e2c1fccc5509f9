#include "Requests.h"

#include <memory>

#include "Callbacks.h"

namespace ruxctl {

namespace {

const Argument kSlot{"SLOT", &kSlotId};

// Calls of the plain requests: enum or flag arguments, then onResponse.
template <typename A>
Send withArgs(int a, int (*function)(A, rux_response_cb)) {
    return [a, function] { return function(static_cast<A>(a), onResponse); };
}

template <typename A, typename B>
Send withArgs(int a, int b, int (*function)(A, B, rux_response_cb)) {
    return [a, b, function] { return function(static_cast<A>(a), static_cast<B>(b), onResponse); };
}

// The C record inside what the JSON was read into.
const data_stall_params_s* infoOf(const data_stall_params_s& record) {
    return &record;
}
const cell_barring_info_s* infoOf(const CellBarringRecord& record) {
    return &record.info;
}
const preferred_cell_list_s* infoOf(const PreferredCellListRecord& record) {
    return &record.info;
}

// A slot and a record; the call keeps the record alive for as long as it exists.
template <typename Record, typename Info>
Send withRecord(int slot, std::unique_ptr<Record> record,
                int (*function)(slot_id_e, const Info*, rux_response_cb)) {
    std::shared_ptr<Record> kept = std::move(record);
    return [slot, kept, function] {
        return function(static_cast<slot_id_e>(slot), infoOf(*kept), onResponse);
    };
}

// A slot and a list of cells.
template <typename Cell>
Send withCells(int slot, std::vector<Cell> cells,
               int (*function)(slot_id_e, unsigned long, const Cell*, rux_response_cb)) {
    auto kept = std::make_shared<std::vector<Cell>>(std::move(cells));
    return [slot, kept, function] {
        return function(static_cast<slot_id_e>(slot), kept->size(),
                        kept->empty() ? nullptr : kept->data(), onResponse);
    };
}

using Args = const std::vector<int>&;
using Rec = const Json*;

// clang-format off
std::vector<Request> buildRequests() {
    return {
        {"set-hst-state", "set_hst_state", {{"STATE", &kHstState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], set_hst_state); }},
        {"get-hst-state", "get_hst_state", {}, nullptr, false,
         [](Args, Rec) -> Send { return [] { return get_hst_state(onGetHstState); }; }},
        {"set-coverage-state", "set_coverage_state", {kSlot, {"STATE", &kCoverageState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], a[1], set_coverage_state); }},
        {"set-out-of-service-state", "set_out_of_service_state", {kSlot, {"STATE", &kScanState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], a[1], set_out_of_service_state); }},
        {"set-l2nr-selection", "set_l2nr_selection", {kSlot}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], set_l2nr_selection); }},
        {"enable-cell-barring-feature", "enable_cell_barring_feature", {kSlot, {"ENABLE", nullptr}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], a[1], enable_cell_barring_feature); }},
        {"set-cell-barring-info", "set_cell_barring_info", {kSlot}, "cell_barring_info_s", false,
         [](Args a, Rec r) { return withRecord(a[0], cellBarringInfoFromJson(*r), set_cell_barring_info); }},
        {"set-data-stall-parameters", "set_data_stall_parameters", {kSlot}, "data_stall_params_s", false,
         [](Args a, Rec r) { return withRecord(a[0], dataStallParamsFromJson(*r), set_data_stall_parameters); }},
        {"set-lte-dubious-cell-array", "set_lte_dubious_cell_array", {kSlot}, "lte_dubious_cell_info_s[]", false,
         [](Args a, Rec r) { return withCells(a[0], lteDubiousCellsFromJson(*r), set_lte_dubious_cell_array); }},
        {"set-nr-dubious-cell-array", "set_nr_dubious_cell_array", {kSlot}, "nr_dubious_cell_info_s[]", false,
         [](Args a, Rec r) { return withCells(a[0], nrDubiousCellsFromJson(*r), set_nr_dubious_cell_array); }},
        {"set-preferred-cell-list", "set_preferred_cell_list", {kSlot}, "preferred_cell_list_s", false,
         [](Args a, Rec r) { return withRecord(a[0], preferredCellListFromJson(*r), set_preferred_cell_list); }},
        {"set-flight-mode-state", "set_flight_mode_state", {{"STATE", &kFlightModeState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], set_flight_mode_state); }},
        {"set-device-fold-state", "set_device_fold_state", {{"STATE", &kDeviceFoldState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], set_device_fold_state); }},
        {"set-subway-state", "set_subway_state", {{"STATE", &kSubwayState}}, nullptr, false,
         [](Args a, Rec) { return withArgs(a[0], set_subway_state); }},
        {"get-dppd-capability", "get_dppd_capability", {}, nullptr, false,
         [](Args, Rec) -> Send { return [] { return get_dppd_capability(onDppdFlag); }; }},
        {"update-dppd-ui-option", "update_dppd_ui_option", {{"ENABLE", nullptr}}, nullptr, false,
         [](Args a, Rec) -> Send { return [on = a[0] != 0] { return update_dppd_ui_option(on, onDppdFlag); }; }},
        {"get-dppd-recommendation", "get_dppd_recommendation", {}, nullptr, false,
         [](Args, Rec) -> Send { return [] { return get_dppd_recommendation(onDppdRecommendation); }; }},
        {"get-multi-sim-submode-info", "get_multi_sim_submode_info", {}, nullptr, false,
         [](Args, Rec) -> Send { return [] { return get_multi_sim_submode_info(onSubmodeInfo); }; }},
        {"set-cell-list-info", "set_cell_list_info", {}, "set_cell_list_info_s", true,
         [](Args, Rec r) { return prepareCellListInfo(*r); }},
        {"set-dubious-cell-array-v2", "set_dubious_cell_array_v2", {}, "dubious_cell_info_v2_s", true,
         [](Args, Rec r) -> Send {
             std::shared_ptr<dubious_cell_info_v2_s> info = dubiousCellInfoV2FromJson(*r);
             return [info] { return set_dubious_cell_array_v2(info.get(), onResponseV2); };
         }},
    };
}
// clang-format on

}  // namespace

const std::vector<Request>& requests() {
    static const std::vector<Request> table = buildRequests();
    return table;
}

Send prepareCellListInfo(const Json& record) {
    std::shared_ptr<set_cell_list_info_s> info = cellListInfoFromJson(record);
    return [info] { return set_cell_list_info(info.get(), onResponseV2, onCellListInd); };
}

}  // namespace ruxctl
