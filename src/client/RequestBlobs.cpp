#include "client/RequestBlobs.h"

#include <type_traits>
#include <utility>

#include "client/CellConversions.h"
#include "client/ClientLog.h"
#include "client/EnumConversions.h"

namespace rux::client {

namespace {

template <typename Message>
Blob serialise(const Message& message) {
    const size_t size = message.ByteSizeLong();
    Blob blob(size);
    if (size > 0 && !message.SerializeToArray(blob.data(), static_cast<int>(size))) blob.clear();
    return blob;
}

// Runs `fill` on a fresh ClientData and wraps the result in the status family `fill`
// returns (success is 0 in both). Allocation failures inside protobuf surface as
// exceptions; they end here as the family's internal error, the status for a message that
// cannot be built. `function` names the builder in the log line.
template <typename Fill>
auto buildRequest(const char* function, VexProto::ClientEventId eventId, unsigned long tid,
                  Fill fill) {
    using Status = decltype(fill(std::declval<VexProto::ClientData&>()));
    constexpr Status internalError = std::is_same_v<Status, status_v2_e>
                                         ? static_cast<Status>(RUX_STATUS_V2_INTERNAL_ERR)
                                         : static_cast<Status>(RUX_STATUS_INTERNAL_ERR);
    std::pair<Blob, Status> result{{}, internalError};
    try {
        // Filled in place inside the envelope, not built apart and copied in.
        VexProto::ClientMsg message;
        result.second = fill(*message.mutable_data());
        if (result.second == 0) {
            message.set_event_id(eventId);
            message.set_transaction_id(tid);
            result.first = serialise(message);
            if (result.first.empty()) result.second = internalError;
        }
    } catch (...) {
        result = {{}, internalError};
    }
    SdkLog::print(kLogLevel, kLogTag, kLogSource, function, __LINE__,
                  "Returning result: %d, blob.size: %d", static_cast<int>(result.second),
                  static_cast<int>(result.first.size()));
    return result;
}

// The local reply: `setStatus` receives the ServiceData and the wire status.
template <typename SetStatus>
Blob buildReply(const char* function, VexProto::ServiceEventId eventId, unsigned long tid,
                status_e status, SetStatus setStatus) {
    Blob blob;
    try {
        VexProto::ServiceData data;
        setStatus(data, convertStatusToProto(status));
        blob = serialiseServiceMsg(eventId, tid, data);
    } catch (...) {
        blob.clear();
    }
    SdkLog::print(kLogLevel, kLogTag, kLogSource, function, __LINE__, "Returning blob.size: %d",
                  static_cast<int>(blob.size()));
    return blob;
}

}  // namespace

Blob serialiseClientMsg(VexProto::ClientEventId eventId, unsigned long tid,
                        const VexProto::ClientData& data) {
    try {
        VexProto::ClientMsg message;
        message.set_event_id(eventId);
        message.set_transaction_id(tid);
        *message.mutable_data() = data;
        return serialise(message);
    } catch (...) {
        return {};
    }
}

Blob serialiseServiceMsg(VexProto::ServiceEventId eventId, unsigned long tid,
                         const VexProto::ServiceData& data) {
    try {
        VexProto::ServiceMsg message;
        message.set_event_id(eventId);
        message.set_transaction_id(tid);
        *message.mutable_data() = data;
        return serialise(message);
    } catch (...) {
        return {};
    }
}

// --- registrations -----------------------------------------------------------------------

Blob makeRegisterClientReqBlob(unsigned long tid) {
    VexProto::ClientData data;
    data.mutable_register_client_req();
    return serialiseClientMsg(VexProto::REGISTER_CLIENT_REQ, tid, data);
}

Blob makeRegisterDppdIndicationReqBlob() {
    VexProto::ClientData data;
    data.mutable_register_dppd_indication_req();
    return serialiseClientMsg(VexProto::REGISTER_DPPD_INDICATION_REQ, 0, data);
}

Blob makeRegisterMultiSimSubmodeIndicationReqBlob() {
    VexProto::ClientData data;
    data.mutable_register_multi_sim_submode_indication_req();
    return serialiseClientMsg(VexProto::REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ, 0, data);
}

// --- requests --------------------------------------------------------------------------

BlobResult makeSetCoverageStateReqBlob(unsigned long tid, slot_id_e slot, coverage_state_e state) {
    return buildRequest(__func__, VexProto::SET_COVERAGE_STATE_REQ, tid, [&](auto& data) {
        return convertSetCoverageStateReqToProto(*data.mutable_set_coverage_state_req(), slot,
                                                 state);
    });
}

BlobResult makeSetHstStateReqBlob(unsigned long tid, hst_state_e state) {
    return buildRequest(__func__, VexProto::SET_HST_STATE_REQ, tid, [&](auto& data) {
        return convertSetHstStateReqToProto(*data.mutable_set_hst_state_req(), state);
    });
}

BlobResult makeGetHstStateReqBlob(unsigned long tid) {
    return buildRequest(__func__, VexProto::GET_HST_STATE_REQ, tid, [](auto& data) {
        data.mutable_get_hst_state_req();
        return RUX_STATUS_SUCCESS;
    });
}

BlobResult makeEnableCellBarringFeatureReqBlob(unsigned long tid, slot_id_e slot, bool enable) {
    return buildRequest(__func__, VexProto::ENABLE_CELL_BARRING_FEATURE_REQ, tid, [&](auto& data) {
        return convertEnableCellBarringFeatureReqToProto(
            *data.mutable_enable_cell_barring_feature_req(), slot, enable);
    });
}

BlobResult makeSetL2NRSelectionReqBlob(unsigned long tid, slot_id_e slot) {
    return buildRequest(__func__, VexProto::SET_L2NR_SELECTION_REQ, tid, [&](auto& data) {
        return convertSetL2NRSelectionReqToProto(*data.mutable_set_l2nr_selection_req(), slot);
    });
}

BlobResult makeSetOutOfServiceReqBlob(unsigned long tid, slot_id_e slot, scan_state_e state) {
    return buildRequest(__func__, VexProto::SET_OUT_OF_SERVICE_REQ, tid, [&](auto& data) {
        return convertSetOutOfServiceReqToProto(*data.mutable_set_out_of_service_req(), slot,
                                                state);
    });
}

BlobResult makeSetFlightModeStateReqBlob(unsigned long tid, rux_flight_mode_state_e state) {
    return buildRequest(__func__, VexProto::SET_FLIGHT_MODE_STATE_REQ, tid, [&](auto& data) {
        return convertSetFlightModeStateReqToProto(*data.mutable_set_flight_mode_state_req(),
                                                   state);
    });
}

BlobResult makeSetDeviceFoldStateReqBlob(unsigned long tid, rux_device_fold_state_e state) {
    return buildRequest(__func__, VexProto::SET_DEVICE_FOLD_STATE_REQ, tid, [&](auto& data) {
        return convertSetDeviceFoldStateReqToProto(*data.mutable_set_device_fold_state_req(),
                                                   state);
    });
}

BlobResult makeSetSubwayStateReqBlob(unsigned long tid, rux_subway_state_e state) {
    return buildRequest(__func__, VexProto::SET_SUBWAY_STATE_REQ, tid, [&](auto& data) {
        return convertSetSubwayStateReqToProto(*data.mutable_set_subway_state_req(), state);
    });
}

BlobResult makeSetCellBarringInfoReqBlob(unsigned long tid, slot_id_e slot,
                                         const cell_barring_info_s* info) {
    return buildRequest(__func__, VexProto::SET_CELL_BARRING_INFO_REQ, tid, [&](auto& data) {
        return convertSetCellBarringInfoReqToProto(*data.mutable_set_cell_barring_info_req(), slot,
                                                   info);
    });
}

BlobResult makeSendDataStallParametersReqBlob(unsigned long tid, slot_id_e slot,
                                              const data_stall_params_s* params) {
    return buildRequest(__func__, VexProto::SEND_DATA_STALL_PARAMETERS_REQ, tid, [&](auto& data) {
        return convertDataStallParamsToProto(*data.mutable_send_data_stall_parameters_req(), slot,
                                             params);
    });
}

BlobResult makeSetLteDubiousCellListReqBlob(unsigned long tid, slot_id_e slot, unsigned long count,
                                            const lte_dubious_cell_info_s* cells) {
    return buildRequest(__func__, VexProto::SET_LTE_DUBIOUS_CELL_LIST_REQ, tid, [&](auto& data) {
        return convertLteDubiousCellListToProto(*data.mutable_set_lte_dubious_cell_list_req(), slot,
                                                count, cells);
    });
}

BlobResult makeSetNrDubiousCellListReqBlob(unsigned long tid, slot_id_e slot, unsigned long count,
                                           const nr_dubious_cell_info_s* cells) {
    return buildRequest(__func__, VexProto::SET_NR_DUBIOUS_CELL_LIST_REQ, tid, [&](auto& data) {
        return convertNrDubiousCellListToProto(*data.mutable_set_nr_dubious_cell_list_req(), slot,
                                               count, cells);
    });
}

BlobResult makeSetPreferredCellListReqBlob(unsigned long tid, slot_id_e slot,
                                           const preferred_cell_list_s* list) {
    return buildRequest(__func__, VexProto::SET_PREFERRED_CELL_LIST_REQ, tid, [&](auto& data) {
        return convertSetPreferredCellListReqToProto(*data.mutable_set_pref_cell_list_req(), slot,
                                                     list);
    });
}

BlobResultV2 makeSetCellListInfoReqBlob(unsigned long tid, const set_cell_list_info_s& info) {
    return buildRequest(__func__, VexProto::SET_CELL_LIST_INFO_REQ, tid, [&](auto& data) {
        return convertSetCellListInfoReqToProto(*data.mutable_set_cell_list_info_req(), info);
    });
}

BlobResultV2 makeSetDubiousCellListV2ReqBlob(unsigned long tid,
                                             const dubious_cell_info_v2_s& info) {
    return buildRequest(__func__, VexProto::SET_DUBIOUS_LIST_V2_REQ, tid, [&](auto& data) {
        return convertSetDubiousCellListV2ReqToProto(*data.mutable_set_dubious_cell_list_v2_req(),
                                                     info);
    });
}

// --- local replies -----------------------------------------------------------------------

Blob makeSetCoverageStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_COVERAGE_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_coverage_state_resp()->set_status(wire); });
}

Blob makeSetHstStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_HST_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_hst_state_resp()->set_status(wire); });
}

Blob makeGetHstStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::GET_HST_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_get_hst_state_resp()->set_status(wire); });
}

Blob makeEnableCellBarringFeatureRespBlob(unsigned long tid, status_e status) {
    return buildReply(__func__, VexProto::ENABLE_CELL_BARRING_FEATURE_RESP, tid, status,
                      [](auto& data, auto wire) {
                          data.mutable_enable_cell_barring_feature_resp()->set_status(wire);
                      });
}

Blob makeSetL2NRSelectionRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_L2NR_SELECTION_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_l2nr_selection_resp()->set_status(wire); });
}

Blob makeSetOutOfServiceRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_OUT_OF_SERVICE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_out_of_service_resp()->set_status(wire); });
}

Blob makeSetFlightModeStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_FLIGHT_MODE_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_flight_mode_state_resp()->set_status(wire); });
}

Blob makeSetDeviceFoldStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_DEVICE_FOLD_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_device_fold_state_resp()->set_status(wire); });
}

Blob makeSetSubwayStateRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_SUBWAY_STATE_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_subway_state_resp()->set_status(wire); });
}

Blob makeSetCellBarringInfoRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_CELL_BARRING_INFO_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_cell_barring_info_resp()->set_status(wire); });
}

Blob makeSendDataStallParametersRespBlob(unsigned long tid, status_e status) {
    return buildReply(__func__, VexProto::SEND_DATA_STALL_PARAMETERS_RESP, tid, status,
                      [](auto& data, auto wire) {
                          data.mutable_send_data_stall_parameters_resp()->set_status(wire);
                      });
}

Blob makeSetLteDubiousCellListRespBlob(unsigned long tid, status_e status) {
    return buildReply(__func__, VexProto::SET_LTE_DUBIOUS_CELL_LIST_RESP, tid, status,
                      [](auto& data, auto wire) {
                          data.mutable_set_lte_dubious_cell_list_resp()->set_status(wire);
                      });
}

Blob makeSetNrDubiousCellListRespBlob(unsigned long tid, status_e status) {
    return buildReply(__func__, VexProto::SET_NR_DUBIOUS_CELL_LIST_RESP, tid, status,
                      [](auto& data, auto wire) {
                          data.mutable_set_nr_dubious_cell_list_resp()->set_status(wire);
                      });
}

Blob makeSetPreferredCellListRespBlob(unsigned long tid, status_e status) {
    return buildReply(
        __func__, VexProto::SET_PREFERRED_CELL_LIST_RESP, tid, status,
        [](auto& data, auto wire) { data.mutable_set_pref_cell_list_resp()->set_status(wire); });
}

}  // namespace rux::client
