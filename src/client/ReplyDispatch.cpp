// MavoClient's reply dispatch: blobListener and what it does with each service event.
// Every reply reaches at most one callback, of its own kind: the callback map hands a
// callback only to a reply of the kind it was stored with (MavoClient.h), and the entry
// is gone before the callback runs, so a callback may issue new requests. Runs on the
// receiver thread and on the SDK thread, possibly both at once; it holds no lock while a
// callback runs.
#include <android/log.h>

#include <exception>

#include "client/CellConversions.h"
#include "client/ClientLog.h"
#include "client/EnumConversions.h"
#include "client/MavoClient.h"

namespace rux::client {

using sdk::SdkClientBase;

namespace {

constexpr int kLastEventId = 26;

data_recommendation_s toClient(const VexProto::VexDataRecommendation& r) {
    return {convertRecommendationActionToClient(r.action()),
            convertRecommendationSubsToClient(r.subs())};
}

submode_info_s toClient(const VexProto::VexMultiSimSubModeInfo& info) {
    return {convertSubModeToClient(info.sub_mode()),
            convertTxConcurrencyToClient(info.tx_concurrency())};
}

}  // namespace

void MavoClient::blobListener(SdkStatus status, const std::vector<uint8_t>& blob) {
    try {
        MAVO_LOG("MavoClient::blobListener status: %d", static_cast<int>(status));
        if (mDeregistered.load()) {
            // Deregistered: nothing reaches the application any more.
            MAVO_LOG("MavoClient::blobListener end");
            return;
        }
        switch (status) {
            case SdkClientBase::RESPONSE:
                handleResponse(blob);
                return;
            case SdkClientBase::SEND_FAILED:
                triggerServiceStatusCb(RUX_STATUS_INTERNAL_ERR);
                break;
            case SdkClientBase::SERVICE_DOWN:
                triggerServiceStatusCb(RUX_STATUS_SERVICE_DOWN);
                break;
            case SdkClientBase::SERVICE_UP:
                break;
            case SdkClientBase::NOT_SENT:
                forgetUnsent(blob);
                break;
            default:
                MAVO_LOG("Unknown internal status %d", static_cast<int>(status));
                break;
        }
        MAVO_LOG("MavoClient::blobListener end");
    } catch (const std::exception& e) {
        MAVO_LOG("blobListener failed: %s", e.what());
    } catch (...) {
        MAVO_LOG("blobListener failed");
    }
}

void MavoClient::deliverPlainReply(int tid, VexProto::Status status) {
    rux_response_cb cb = getUserCallBack<rux_response_cb>(tid);
    if (cb == nullptr) cb = mFallbackCb.load();
    if (cb != nullptr) cb(tid, convertProtoStatusToClient(status));
}

void MavoClient::deliverV2Reply(int tid, VexProto::Status status, bool eraseAgain) {
    rux_response_v2_cb cb = getUserCallBack<rux_response_v2_cb>(tid);
    if (cb == nullptr) {
        if (eraseAgain)
            MAVO_LOG("Stored cb is null!");
        else
            MAVO_LOG("can't find cb for txn id: %d", tid);
        return;
    }
    cb(static_cast<long>(tid), convertProtoStatusToClientV2(status));
    if (eraseAgain) eraseCallback(tid);
}

void MavoClient::deliverCellListFeedback(const VexProto::CellListInfoIndResp& feedback) {
    const rux_cell_list_info_ind_cb cb = mCellListIndCb.load();
    if (cb == nullptr) {
        MAVO_LOG("ind function is null!");
        return;
    }
    const cell_list_info_ind_s record =
        convertCellListInfoIndToClient(feedback.cell_list_info_ind());
    logCellListInfoInd(record);
    cb(record);
}

void MavoClient::handleResponse(const std::vector<uint8_t>& blob) {
    MAVO_LOG("MavoClient RESPONSE");
    VexProto::ServiceMsg msg;
    // A bad blob decodes as far as it goes; what is missing reads as defaults.
    (void)msg.ParseFromArray(blob.data(), static_cast<int>(blob.size()));
    const VexProto::ServiceData& data = msg.data();
    const int eventId = static_cast<int>(msg.event_id());
    const int tid = static_cast<int>(msg.transaction_id());
    MAVO_LOG("VEX event id: %d", eventId);
    if (eventId < 0 || eventId > kLastEventId) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unknown VEX proto event!");
        return;
    }
    // Each payload sits in the oneof case one above its event id; anything else is
    // dropped without a word.
    if (static_cast<int>(data.msg_type_case()) != eventId + 1) {
        MAVO_LOG("MavoClient::blobListener end");
        return;
    }

    switch (eventId) {
        case VexProto::SET_COVERAGE_STATE_RESP:
            MAVO_LOG("set_coverage_state_resp");
            deliverPlainReply(tid, data.set_coverage_state_resp().status());
            break;
        case VexProto::SET_HST_STATE_RESP:
            MAVO_LOG("set_hst_state_resp");
            deliverPlainReply(tid, data.set_hst_state_resp().status());
            break;
        case VexProto::GET_HST_STATE_RESP: {
            MAVO_LOG("get_hst_state_resp");
            const auto& resp = data.get_hst_state_resp();
            if (auto cb = getUserCallBack<rux_get_hst_state_cb>(tid))
                cb(tid, convertProtoStatusToClient(resp.status()),
                   convertProtoHstStateToClient(resp.hst_state()));
            break;
        }
        case VexProto::HST_STATE_CHANGE_IND:
            MAVO_LOG("hst_state_change_ind");
            triggerHstStateChangeCb(
                convertProtoHstStateToClient(data.hst_state_change_ind().hst_state()));
            break;
        case VexProto::SET_CELL_BARRING_INFO_RESP:
            MAVO_LOG("set_cell_barring_info_resp");
            deliverPlainReply(tid, data.set_cell_barring_info_resp().status());
            break;
        case VexProto::ENABLE_CELL_BARRING_FEATURE_RESP:
            MAVO_LOG("enable_cell_barring_feature_resp");
            deliverPlainReply(tid, data.enable_cell_barring_feature_resp().status());
            break;
        case VexProto::SEND_DATA_STALL_PARAMETERS_RESP:
            MAVO_LOG("send_data_stall_parameters_resp");
            deliverPlainReply(tid, data.send_data_stall_parameters_resp().status());
            break;
        case VexProto::SET_L2NR_SELECTION_RESP:
            MAVO_LOG("set_l2nr_selection_resp");
            deliverPlainReply(tid, data.set_l2nr_selection_resp().status());
            break;
        case VexProto::SET_OUT_OF_SERVICE_RESP:
            MAVO_LOG("set_out_of_service_resp");
            deliverPlainReply(tid, data.set_out_of_service_resp().status());
            break;
        case VexProto::SET_LTE_DUBIOUS_CELL_LIST_RESP:
            MAVO_LOG("set_lte_dubious_cell_list_resp");
            deliverPlainReply(tid, data.set_lte_dubious_cell_list_resp().status());
            break;
        case VexProto::SET_NR_DUBIOUS_CELL_LIST_RESP:
            MAVO_LOG("set_nr_dubious_cell_list_resp");
            deliverPlainReply(tid, data.set_nr_dubious_cell_list_resp().status());
            break;
        case VexProto::SERVICE_STATUS_IND:
            MAVO_LOG("service_status_ind");
            triggerServiceStatusCb(convertProtoStatusToClient(data.service_status_ind().status()));
            break;
        case VexProto::GET_DPPD_CAPABILITY_RESP: {
            MAVO_LOG("get_dppd_capabaility_resp");
            bool capable = data.get_dppd_capabaility_resp().capable();
            // The DPPD completions always report success, whatever the reply holds.
            if (auto cb = getUserCallBack<rux_dppd_flag_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &capable);
            break;
        }
        case VexProto::UPDATE_DPPD_UI_RESP: {
            MAVO_LOG("update_dppd_ui_resp");
            bool enabled = data.update_dppd_ui_resp().ui_option_enabled();
            if (auto cb = getUserCallBack<rux_dppd_flag_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &enabled);
            break;
        }
        case VexProto::NOTIFY_DPPD_CAPABILITY_IND:
            MAVO_LOG("notify_dppd_capability_ind");
            triggeNotifyDppdCapabilityCb(data.notify_dppd_capability_ind().capable());
            break;
        case VexProto::GET_DPPD_RECOMMENDATION_RESP: {
            MAVO_LOG("get_dppd_recommendation_resp");
            data_recommendation_s recommendation =
                toClient(data.get_dppd_recommendation_resp().vex_data_recommendation());
            if (auto cb = getUserCallBack<rux_dppd_recommendation_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &recommendation);
            break;
        }
        case VexProto::NOTIFY_DPPD_RECOMMENDATION_IND:
            MAVO_LOG("notify_dppd_recommendation_ind");
            triggerNotifyDppdRecommendationCb(
                toClient(data.notify_dppd_recommendation_ind().vex_data_recommendation()));
            break;
        case VexProto::GET_MULTI_SIM_MODE_INFO_RESP: {
            MAVO_LOG("get_multi_sim_mode_info_resp");
            const auto& resp = data.get_multi_sim_mode_info_resp();
            const submode_info_s info = toClient(resp.vex_multi_sim_sub_mode_info());
            if (auto cb = getUserCallBack<rux_submode_info_cb>(tid))
                cb(tid, convertProtoStatusToClient(resp.status()), &info);
            break;
        }
        case VexProto::NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND:
            MAVO_LOG("notify_multi_sim_mode_info_ind");
            triggerNotifyMultiSimSubmodeInfoCb(
                toClient(data.notify_multi_sim_mode_info_ind().vex_multi_sim_sub_mode_info()));
            break;
        case VexProto::SET_PREFERRED_CELL_LIST_RESP:
            MAVO_LOG("set_pref_cell_list_resp");
            deliverPlainReply(tid, data.set_pref_cell_list_resp().status());
            break;
        case VexProto::SET_FLIGHT_MODE_STATE_RESP:
            MAVO_LOG("set_flight_mode_state_resp");
            deliverPlainReply(tid, data.set_flight_mode_state_resp().status());
            break;
        case VexProto::SET_DEVICE_FOLD_STATE_RESP:
            MAVO_LOG("set_device_fold_state_resp");
            deliverPlainReply(tid, data.set_device_fold_state_resp().status());
            break;
        case VexProto::SET_CELL_LIST_INFO_RESP:
            MAVO_LOG("set_cell_list_info_resp");
            deliverV2Reply(tid, data.set_cell_list_info_resp().status(), true);
            break;
        case VexProto::CELL_LIST_INFO_IND_RESP:
            MAVO_LOG("cell_list_info_ind_resp");
            deliverCellListFeedback(data.cell_list_info_ind_resp());
            break;
        case VexProto::SET_SUBWAY_STATE_RESP:
            MAVO_LOG("set_subway_state_resp");
            deliverPlainReply(tid, data.set_subway_state_resp().status());
            break;
        case VexProto::SUBWAY_STATE_CHANGE_IND:
            MAVO_LOG("subway_state_change_ind");
            triggerSubwayStateChangeCb(
                convertProtoSubwayStateToClient(data.subway_state_change_ind().subway_state()));
            break;
        case VexProto::SET_DUBIOUS_LIST_V2_RESP:
            MAVO_LOG("SET_DUBIOUS_LIST_V2_RESP");
            deliverV2Reply(tid, data.vex_status_resp().status(), false);
            break;
        default:
            break;
    }
    MAVO_LOG("MavoClient::blobListener end");
}

}  // namespace rux::client
