#include "SimProtocol.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sstream>

#include "SimCells.h"

namespace rux::sim {

using namespace VexProto;

namespace {

std::string hst(int v) { return nameOr(v, [](int x) { return HstState_Name(x); }); }
std::string subway(int v) { return nameOr(v, [](int x) { return SubwayState_Name(x); }); }
std::string slot(int v) { return nameOr(v, [](int x) { return SlotId_Name(x); }); }
std::string boolText(bool b) { return b ? "true" : "false"; }

std::string recommendation(const VexDataRecommendation& r) {
    return "{action: " + nameOr(r.action(), [](int x) { return VexRecommendationAction_Name(x); }) +
           ", subs: " + nameOr(r.subs(), [](int x) { return VexRecommendationSubs_Name(x); }) + "}";
}

std::string subModeInfo(const VexMultiSimSubModeInfo& i) {
    return "{sub_mode: " + nameOr(i.sub_mode(), [](int x) { return VexSubMode_Name(x); }) +
           ", tx_concurrency: " +
           nameOr(i.tx_concurrency(), [](int x) { return VexTxConcurrency_Name(x); }) + "}";
}

std::string describeClientData(int event, const ClientData& d) {
    if (d.msg_type_case() == ClientData::MSG_TYPE_NOT_SET) return "{no payload}";
    if (static_cast<int>(d.msg_type_case()) != event + 1)
        return "{payload: member " + std::to_string(static_cast<int>(d.msg_type_case())) + "}";
    std::string cells = describeCellRequest(d);
    if (!cells.empty()) return cells;
    std::ostringstream o;
    switch (d.msg_type_case()) {
        case ClientData::kSetCoverageStateReq: {
            const auto& m = d.set_coverage_state_req();
            o << "{slot_id: " << slot(m.slot_id()) << ", coverage_state: "
              << nameOr(m.coverage_state(), [](int x) { return CoverageState_Name(x); }) << "}";
            break;
        }
        case ClientData::kSetHstStateReq:
            o << "{hst_state: " << hst(d.set_hst_state_req().hst_state()) << "}";
            break;
        case ClientData::kEnableCellBarringFeatureReq: {
            const auto& m = d.enable_cell_barring_feature_req();
            o << "{slot_id: " << slot(m.slot_id()) << ", enable: " << boolText(m.enable()) << "}";
            break;
        }
        case ClientData::kSendDataStallParametersReq: {
            const auto& m = d.send_data_stall_parameters_req();
            const auto& p = m.params();
            o << "{slot_id: " << slot(m.slot_id()) << ", params: {traffic_direction: "
              << nameOr(p.traffic_direction(), [](int x) { return VexTrafficDirection_Name(x); })
              << ", flag: " << boolText(p.flag()) << ", application_type: "
              << nameOr(p.application_type(), [](int x) { return VexApplicationType_Name(x); })
              << ", param1: " << p.param1() << ", param2: " << p.param2()
              << ", param3: " << p.param3() << ", param4: " << p.param4() << "}}";
            break;
        }
        case ClientData::kSetL2NrSelectionReq:
            o << "{slot_id: " << slot(d.set_l2nr_selection_req().slot_id()) << "}";
            break;
        case ClientData::kSetOutOfServiceReq: {
            const auto& m = d.set_out_of_service_req();
            o << "{slot_id: " << slot(m.slot_id()) << ", scan_state: "
              << nameOr(m.scan_state(), [](int x) { return VexScanState_Name(x); }) << "}";
            break;
        }
        case ClientData::kUpdateDppdUiReq:
            o << "{ui_option_enabled: " << boolText(d.update_dppd_ui_req().ui_option_enabled())
              << "}";
            break;
        case ClientData::kSetFlightModeStateReq:
            o << "{flight_mode_state: "
              << nameOr(d.set_flight_mode_state_req().flight_mode_state(),
                        [](int x) { return FlightModeState_Name(x); })
              << "}";
            break;
        case ClientData::kSetDeviceFoldStateReq:
            o << "{device_fold_state: "
              << nameOr(d.set_device_fold_state_req().device_fold_state(),
                        [](int x) { return DeviceFoldState_Name(x); })
              << "}";
            break;
        case ClientData::kSetSubwayStateReq:
            o << "{subway_state: " << subway(d.set_subway_state_req().subway_state()) << "}";
            break;
        default:  // the requests without fields
            o << "{}";
            break;
    }
    return o.str();
}

// The Status of a plain response member (one whose only field is a Status).
int plainStatus(const ServiceData& d) {
    switch (d.msg_type_case()) {
        case ServiceData::kSetCoverageStateResp: return d.set_coverage_state_resp().status();
        case ServiceData::kSetHstStateResp: return d.set_hst_state_resp().status();
        case ServiceData::kSetCellBarringInfoResp: return d.set_cell_barring_info_resp().status();
        case ServiceData::kEnableCellBarringFeatureResp:
            return d.enable_cell_barring_feature_resp().status();
        case ServiceData::kSendDataStallParametersResp:
            return d.send_data_stall_parameters_resp().status();
        case ServiceData::kSetL2NrSelectionResp: return d.set_l2nr_selection_resp().status();
        case ServiceData::kSetOutOfServiceResp: return d.set_out_of_service_resp().status();
        case ServiceData::kSetLteDubiousCellListResp:
            return d.set_lte_dubious_cell_list_resp().status();
        case ServiceData::kSetNrDubiousCellListResp:
            return d.set_nr_dubious_cell_list_resp().status();
        case ServiceData::kSetPrefCellListResp: return d.set_pref_cell_list_resp().status();
        case ServiceData::kSetFlightModeStateResp: return d.set_flight_mode_state_resp().status();
        case ServiceData::kSetDeviceFoldStateResp: return d.set_device_fold_state_resp().status();
        case ServiceData::kSetCellListInfoResp: return d.set_cell_list_info_resp().status();
        case ServiceData::kSetSubwayStateResp: return d.set_subway_state_resp().status();
        case ServiceData::kVexStatusResp: return d.vex_status_resp().status();
        default: return STATUS_INVALID;
    }
}

std::string describeServiceData(int event, const ServiceData& d) {
    if (d.msg_type_case() == ServiceData::MSG_TYPE_NOT_SET) return "{no payload}";
    if (static_cast<int>(d.msg_type_case()) != event + 1)
        return "{payload: member " + std::to_string(static_cast<int>(d.msg_type_case())) + "}";
    std::ostringstream o;
    switch (d.msg_type_case()) {
        case ServiceData::kGetHstStateResp:
            o << "{status: " << statusName(d.get_hst_state_resp().status())
              << ", hst_state: " << hst(d.get_hst_state_resp().hst_state()) << "}";
            break;
        case ServiceData::kHstStateChangeInd:
            o << "{hst_state: " << hst(d.hst_state_change_ind().hst_state()) << "}";
            break;
        case ServiceData::kServiceStatusInd:
            o << "{status: " << statusName(d.service_status_ind().status()) << "}";
            break;
        case ServiceData::kGetDppdCapabailityResp:
            o << "{capable: " << boolText(d.get_dppd_capabaility_resp().capable()) << "}";
            break;
        case ServiceData::kUpdateDppdUiResp:
            o << "{ui_option_enabled: " << boolText(d.update_dppd_ui_resp().ui_option_enabled())
              << "}";
            break;
        case ServiceData::kNotifyDppdCapabilityInd:
            o << "{capable: " << boolText(d.notify_dppd_capability_ind().capable()) << "}";
            break;
        case ServiceData::kGetDppdRecommendationResp:
            o << "{vex_data_recommendation: "
              << recommendation(d.get_dppd_recommendation_resp().vex_data_recommendation()) << "}";
            break;
        case ServiceData::kNotifyDppdRecommendationInd:
            o << "{vex_data_recommendation: "
              << recommendation(d.notify_dppd_recommendation_ind().vex_data_recommendation())
              << "}";
            break;
        case ServiceData::kGetMultiSimModeInfoResp:
            o << "{status: " << statusName(d.get_multi_sim_mode_info_resp().status())
              << ", vex_multi_sim_sub_mode_info: "
              << subModeInfo(d.get_multi_sim_mode_info_resp().vex_multi_sim_sub_mode_info()) << "}";
            break;
        case ServiceData::kNotifyMultiSimModeInfoInd:
            o << "{vex_multi_sim_sub_mode_info: "
              << subModeInfo(d.notify_multi_sim_mode_info_ind().vex_multi_sim_sub_mode_info())
              << "}";
            break;
        case ServiceData::kCellListInfoIndResp:
            o << describeCellListFeedback(d.cell_list_info_ind_resp().cell_list_info_ind());
            break;
        case ServiceData::kSubwayStateChangeInd:
            o << "{subway_state: " << subway(d.subway_state_change_ind().subway_state()) << "}";
            break;
        default:
            // Every other member is a plain response holding only a Status.
            o << "{status: " << statusName(plainStatus(d)) << "}";
            break;
    }
    return o.str();
}

// Sets the Status of a plain response member (every member whose field 1 is a Status).
bool setPlainStatus(ServiceData& d, int event, Status s) {
    switch (event) {
        case SET_COVERAGE_STATE_RESP: d.mutable_set_coverage_state_resp()->set_status(s); return true;
        case SET_HST_STATE_RESP: d.mutable_set_hst_state_resp()->set_status(s); return true;
        case SET_CELL_BARRING_INFO_RESP: d.mutable_set_cell_barring_info_resp()->set_status(s); return true;
        case ENABLE_CELL_BARRING_FEATURE_RESP: d.mutable_enable_cell_barring_feature_resp()->set_status(s); return true;
        case SEND_DATA_STALL_PARAMETERS_RESP: d.mutable_send_data_stall_parameters_resp()->set_status(s); return true;
        case SET_L2NR_SELECTION_RESP: d.mutable_set_l2nr_selection_resp()->set_status(s); return true;
        case SET_OUT_OF_SERVICE_RESP: d.mutable_set_out_of_service_resp()->set_status(s); return true;
        case SET_LTE_DUBIOUS_CELL_LIST_RESP: d.mutable_set_lte_dubious_cell_list_resp()->set_status(s); return true;
        case SET_NR_DUBIOUS_CELL_LIST_RESP: d.mutable_set_nr_dubious_cell_list_resp()->set_status(s); return true;
        case SERVICE_STATUS_IND: d.mutable_service_status_ind()->set_status(s); return true;
        case SET_PREFERRED_CELL_LIST_RESP: d.mutable_set_pref_cell_list_resp()->set_status(s); return true;
        case SET_FLIGHT_MODE_STATE_RESP: d.mutable_set_flight_mode_state_resp()->set_status(s); return true;
        case SET_DEVICE_FOLD_STATE_RESP: d.mutable_set_device_fold_state_resp()->set_status(s); return true;
        case SET_CELL_LIST_INFO_RESP: d.mutable_set_cell_list_info_resp()->set_status(s); return true;
        case SET_SUBWAY_STATE_RESP: d.mutable_set_subway_state_resp()->set_status(s); return true;
        case SET_DUBIOUS_LIST_V2_RESP: d.mutable_vex_status_resp()->set_status(s); return true;
        default: return false;
    }
}

void fillServiceData(ServiceData& d, int event, int status, const AnswerValues& v, bool uiOption) {
    const auto s = static_cast<Status>(status);
    if (setPlainStatus(d, event, s)) return;
    switch (event) {
        case GET_HST_STATE_RESP:
            d.mutable_get_hst_state_resp()->set_status(s);
            d.mutable_get_hst_state_resp()->set_hst_state(v.hstState);
            break;
        case HST_STATE_CHANGE_IND:
            d.mutable_hst_state_change_ind()->set_hst_state(v.hstState);
            break;
        case GET_DPPD_CAPABILITY_RESP:
            d.mutable_get_dppd_capabaility_resp()->set_capable(v.dppdCapable);
            break;
        case UPDATE_DPPD_UI_RESP:
            d.mutable_update_dppd_ui_resp()->set_ui_option_enabled(uiOption);
            break;
        case NOTIFY_DPPD_CAPABILITY_IND:
            d.mutable_notify_dppd_capability_ind()->set_capable(v.dppdCapable);
            break;
        case GET_DPPD_RECOMMENDATION_RESP: {
            auto* r = d.mutable_get_dppd_recommendation_resp()->mutable_vex_data_recommendation();
            r->set_action(v.action);
            r->set_subs(v.subs);
            break;
        }
        case NOTIFY_DPPD_RECOMMENDATION_IND: {
            auto* r = d.mutable_notify_dppd_recommendation_ind()->mutable_vex_data_recommendation();
            r->set_action(v.action);
            r->set_subs(v.subs);
            break;
        }
        case GET_MULTI_SIM_MODE_INFO_RESP: {
            auto* m = d.mutable_get_multi_sim_mode_info_resp();
            m->set_status(s);
            m->mutable_vex_multi_sim_sub_mode_info()->set_sub_mode(v.subMode);
            m->mutable_vex_multi_sim_sub_mode_info()->set_tx_concurrency(v.txConcurrency);
            break;
        }
        case NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND: {
            auto* m = d.mutable_notify_multi_sim_mode_info_ind()->mutable_vex_multi_sim_sub_mode_info();
            m->set_sub_mode(v.subMode);
            m->set_tx_concurrency(v.txConcurrency);
            break;
        }
        case CELL_LIST_INFO_IND_RESP:
            d.mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind()->set_mitigation_type(
                CELL_PREFERRED);
            break;
        case SUBWAY_STATE_CHANGE_IND:
            d.mutable_subway_state_change_ind()->set_subway_state(SUBWAY_STATE_IN_SUBWAY);
            break;
        default:
            break;
    }
}

}  // namespace

std::optional<ServiceEventId> responseEventFor(int requestEvent) {
    switch (requestEvent) {
        case SET_COVERAGE_STATE_REQ: return SET_COVERAGE_STATE_RESP;
        case SET_HST_STATE_REQ: return SET_HST_STATE_RESP;
        case GET_HST_STATE_REQ: return GET_HST_STATE_RESP;
        case SET_CELL_BARRING_INFO_REQ: return SET_CELL_BARRING_INFO_RESP;
        case ENABLE_CELL_BARRING_FEATURE_REQ: return ENABLE_CELL_BARRING_FEATURE_RESP;
        case SEND_DATA_STALL_PARAMETERS_REQ: return SEND_DATA_STALL_PARAMETERS_RESP;
        case SET_L2NR_SELECTION_REQ: return SET_L2NR_SELECTION_RESP;
        case SET_OUT_OF_SERVICE_REQ: return SET_OUT_OF_SERVICE_RESP;
        case SET_LTE_DUBIOUS_CELL_LIST_REQ: return SET_LTE_DUBIOUS_CELL_LIST_RESP;
        case SET_NR_DUBIOUS_CELL_LIST_REQ: return SET_NR_DUBIOUS_CELL_LIST_RESP;
        case GET_DPPD_CAPABILITY_REQ: return GET_DPPD_CAPABILITY_RESP;
        case GET_DPPD_RECOMMENDATION_REQ: return GET_DPPD_RECOMMENDATION_RESP;
        case UPDATE_DPPD_UI_REQ: return UPDATE_DPPD_UI_RESP;
        case GET_MULTI_SUM_SUBMODE_INFO_REQ: return GET_MULTI_SIM_MODE_INFO_RESP;
        case SET_PREFERRED_CELL_LIST_REQ: return SET_PREFERRED_CELL_LIST_RESP;
        case SET_FLIGHT_MODE_STATE_REQ: return SET_FLIGHT_MODE_STATE_RESP;
        case SET_DEVICE_FOLD_STATE_REQ: return SET_DEVICE_FOLD_STATE_RESP;
        case SET_CELL_LIST_INFO_REQ: return SET_CELL_LIST_INFO_RESP;
        case SET_SUBWAY_STATE_REQ: return SET_SUBWAY_STATE_RESP;
        case SET_DUBIOUS_LIST_V2_REQ: return SET_DUBIOUS_LIST_V2_RESP;
        default: return std::nullopt;  // registrations and unknown events
    }
}

ServiceMsg buildResponse(const ClientMsg& request, ServiceEventId responseEvent, int status,
                         const AnswerValues& values) {
    ServiceMsg msg;
    msg.set_event_id(responseEvent);
    msg.set_transaction_id(request.transaction_id());
    const bool ui = values.echoUiOption ? request.data().update_dppd_ui_req().ui_option_enabled()
                                        : values.uiOption;
    fillServiceData(*msg.mutable_data(), responseEvent, status, values, ui);
    return msg;
}

ServiceMsg buildServiceMsg(int event, uint64_t tid, int status, const AnswerValues& values) {
    ServiceMsg msg;
    msg.set_event_id(static_cast<ServiceEventId>(event));
    msg.set_transaction_id(tid);
    if (event >= 0 && event < kServiceEventCount)
        fillServiceData(*msg.mutable_data(), event, status, values, values.uiOption);
    return msg;
}

std::string describeRequest(const ClientMsg& msg) {
    const int event = msg.event_id();
    return clientEventName(event) + " " + describeClientData(event, msg.data());
}

std::string describeService(const ServiceMsg& msg) {
    const int event = msg.event_id();
    if (!msg.has_data()) return serviceEventName(event) + " {no payload}";
    return serviceEventName(event) + " " + describeServiceData(event, msg.data());
}

std::optional<int> parseNumber(const std::string& text) {
    if (text.empty()) return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value < INT_MIN || value > INT_MAX) return std::nullopt;
    return static_cast<int>(value);
}

std::optional<int> parseClientEvent(const std::string& text) {
    auto value = parseEnum<ClientEventId>(text, ClientEventId_Parse);
    if (!value || !ClientEventId_IsValid(*value)) return std::nullopt;
    return value;
}

std::optional<int> parseServiceEvent(const std::string& text, bool anyNumber) {
    auto value = parseEnum<ServiceEventId>(text, ServiceEventId_Parse);
    if (!value || (!anyNumber && !ServiceEventId_IsValid(*value))) return std::nullopt;
    return value;
}

std::optional<int> parseStatus(const std::string& text) {
    Status wire{};
    const std::string cPrefix = "RUX_";
    if (Status_Parse(text, &wire)) return static_cast<int>(wire);
    if (text.rfind(cPrefix, 0) == 0 && Status_Parse(text.substr(cPrefix.size()), &wire))
        return static_cast<int>(wire);
    const auto value = parseNumber(text);
    if (!value || *value == INT_MAX) return std::nullopt;
    return *value + 1;
}

std::optional<bool> parseBool(const std::string& text) {
    if (text == "true" || text == "on" || text == "1") return true;
    if (text == "false" || text == "off" || text == "0") return false;
    return std::nullopt;
}

std::string clientEventName(int event) {
    return nameOr(event, [](int x) { return ClientEventId_Name(x); });
}

std::string serviceEventName(int event) {
    return nameOr(event, [](int x) { return ServiceEventId_Name(x); });
}

std::string statusName(int status) {
    return nameOr(status, [](int x) { return Status_Name(x); });
}

}  // namespace rux::sim
