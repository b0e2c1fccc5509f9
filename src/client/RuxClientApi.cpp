// The exported C functions: each passes its arguments to MavoClient and returns what it
// returns. MavoClient's fronts catch everything, so nothing is thrown across this line.
#include "client/MavoClient.h"
#include "rux/rux_client.h"

using rux::client::MavoClient;

extern "C" {

RUX_EXPORT void register_rux_client(rux_status_cb cb) {
    MavoClient::registerRuxClient(cb);
}

RUX_EXPORT void deregister_rux_client(void) {
    MavoClient::deregisterRuxClient();
}

RUX_EXPORT void register_hst_state_report(rux_hst_state_ind_cb cb) {
    MavoClient::registerHstStateReport(cb);
}

RUX_EXPORT void register_subway_state_report(rux_subway_state_ind_cb cb) {
    MavoClient::registerSubwayStateReport(cb);
}

RUX_EXPORT void register_dppd_indication(rux_dppd_capability_ind_cb capability_cb,
                                         rux_dppd_recommendation_ind_cb recommendation_cb) {
    MavoClient::registerDppdIndication(capability_cb, recommendation_cb);
}

RUX_EXPORT void register_multi_sim_submode_indication(rux_submode_info_ind_cb cb) {
    MavoClient::registerMultiSimSubmodeIndication(cb);
}

RUX_EXPORT int set_hst_state(hst_state_e state, rux_response_cb cb) {
    return MavoClient::setHstState(state, cb);
}

RUX_EXPORT int get_hst_state(rux_get_hst_state_cb cb) {
    return MavoClient::getHstState(cb);
}

RUX_EXPORT int set_coverage_state(slot_id_e slot, coverage_state_e state, rux_response_cb cb) {
    return MavoClient::setCoverageState(slot, state, cb);
}

RUX_EXPORT int set_out_of_service_state(slot_id_e slot, scan_state_e state, rux_response_cb cb) {
    return MavoClient::setOutOfServiceState(slot, state, cb);
}

RUX_EXPORT int set_l2nr_selection(slot_id_e slot, rux_response_cb cb) {
    return MavoClient::setL2nrSelection(slot, cb);
}

RUX_EXPORT int enable_cell_barring_feature(slot_id_e slot, bool enable, rux_response_cb cb) {
    return MavoClient::enableCellBarringFeature(slot, enable, cb);
}

RUX_EXPORT int set_cell_barring_info(slot_id_e slot, cell_barring_info_s const* info,
                                     rux_response_cb cb) {
    return MavoClient::setCellBarringInfo(slot, info, cb);
}

RUX_EXPORT int set_data_stall_parameters(slot_id_e slot, data_stall_params_s const* params,
                                         rux_response_cb cb) {
    return MavoClient::setDataStallParameters(slot, params, cb);
}

RUX_EXPORT int set_lte_dubious_cell_array(slot_id_e slot, unsigned long count,
                                          lte_dubious_cell_info_s const* cells,
                                          rux_response_cb cb) {
    return MavoClient::setLteDubiousCellArray(slot, count, cells, cb);
}

RUX_EXPORT int set_nr_dubious_cell_array(slot_id_e slot, unsigned long count,
                                         nr_dubious_cell_info_s const* cells, rux_response_cb cb) {
    return MavoClient::setNrDubiousCellArray(slot, count, cells, cb);
}

RUX_EXPORT int set_preferred_cell_list(slot_id_e slot, preferred_cell_list_s const* list,
                                       rux_response_cb cb) {
    return MavoClient::setPreferredCellList(slot, list, cb);
}

RUX_EXPORT int set_flight_mode_state(rux_flight_mode_state_e state, rux_response_cb cb) {
    return MavoClient::setFlightModeState(state, cb);
}

RUX_EXPORT int set_device_fold_state(rux_device_fold_state_e state, rux_response_cb cb) {
    return MavoClient::setDeviceFoldState(state, cb);
}

RUX_EXPORT int set_subway_state(rux_subway_state_e state, rux_response_cb cb) {
    return MavoClient::setSubwayState(state, cb);
}

RUX_EXPORT int get_dppd_capability(rux_dppd_flag_cb cb) {
    return MavoClient::getDppdCapability(cb);
}

RUX_EXPORT int update_dppd_ui_option(bool enable, rux_dppd_flag_cb cb) {
    return MavoClient::updateDppdUiOption(enable, cb);
}

RUX_EXPORT int get_dppd_recommendation(rux_dppd_recommendation_cb cb) {
    return MavoClient::getDppdRecommendation(cb);
}

RUX_EXPORT int get_multi_sim_submode_info(rux_submode_info_cb cb) {
    return MavoClient::getMultiSimSubmodeInfo(cb);
}

RUX_EXPORT int set_cell_list_info(set_cell_list_info_s const* info, rux_response_v2_cb cb,
                                  rux_cell_list_info_ind_cb ind_cb) {
    return MavoClient::setCellListInfo(info, cb, ind_cb);
}

RUX_EXPORT int set_dubious_cell_array_v2(dubious_cell_info_v2_s const* info,
                                         rux_response_v2_cb cb) {
    return MavoClient::setDubiousCellArrayV2(info, cb);
}

}  // extern "C"
