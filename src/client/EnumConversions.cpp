#include "client/EnumConversions.h"

#include "client/ClientLog.h"

namespace rux::client {

namespace {

// Every enum of the public header spans the whole int range, so the comparisons below
// see exactly the value the caller or the service gave.
constexpr bool inRange(int value, int low, int high) {
    return value >= low && value <= high;
}

}  // namespace

// --- request side --------------------------------------------------------------------

VexProto::Status convertStatusToProto(status_e status) {
    if (!inRange(status, RUX_STATUS_INVALID, RUX_STATUS_INVALID_SLOT)) {
        MAVO_LOG("Request received on UNKNOWN Status type");
        return VexProto::STATUS_INVALID;
    }
    return static_cast<VexProto::Status>(status + 1);
}

VexProto::SlotId convertSlotIdToProto(slot_id_e slot) {
    if (!inRange(slot, RUX_SLOT_ID_FIRST, RUX_SLOT_ID_THIRD)) {
        MAVO_LOG("Request received on UNKNOWN SlotId type");
        return VexProto::SLOT_ID_INVALID;
    }
    return static_cast<VexProto::SlotId>(slot + 1);
}

bool convertHstStateToProto(VexProto::HstState& out, hst_state_e state) {
    if (!inRange(state, RUX_HST_STATE_UNKNOWN, RUX_HST_STATE_NOT_SET)) return false;
    out = static_cast<VexProto::HstState>(state);
    return true;
}

bool convertCoverageStateToProto(VexProto::CoverageState& out, coverage_state_e state) {
    if (!inRange(state, RUX_COVERAGE_STATE_DEFAULT, RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE))
        return false;
    out = static_cast<VexProto::CoverageState>(state);
    return true;
}

bool convertFlightModeStateToProto(VexProto::FlightModeState& out, rux_flight_mode_state_e state) {
    if (!inRange(state, RUX_FLIGHT_MODE_STATE_DEFAULT, RUX_FLIGHT_MODE_STATE_LANDING)) return false;
    out = static_cast<VexProto::FlightModeState>(state);
    return true;
}

bool convertDeviceFoldStateToProto(VexProto::DeviceFoldState& out, rux_device_fold_state_e state) {
    if (!inRange(state, RUX_DEVICE_FOLD_STATE_DEFAULT, RUX_DEVICE_FOLD_STATE_CLOSE)) return false;
    out = static_cast<VexProto::DeviceFoldState>(state);
    return true;
}

bool convertSubwayStateToProto(VexProto::SubwayState& out, rux_subway_state_e state) {
    if (!inRange(state, RUX_SUBWAY_STATE_UNKNOWN, RUX_SUBWAY_STATE_OUT_SUBWAY)) return false;
    out = static_cast<VexProto::SubwayState>(state);
    return true;
}

VexProto::VexScanState convertScanStateToProto(scan_state_e state) {
    switch (state) {
        case RUX_SCAN_STATE_SLOW:
            return VexProto::SLOW;
        case RUX_SCAN_STATE_NORMAL:
            return VexProto::NORMAL;
        default:
            MAVO_LOG("Request received for unknown Scan State type");
            return VexProto::INVALID_SCAN;
    }
}

VexProto::VexTrafficDirection convertTrafficDirectionToProto(traffic_direction_e direction) {
    switch (direction) {
        case RUX_TRAFFIC_DIRECTION_UPLINK:
            return VexProto::UPLINK;
        case RUX_TRAFFIC_DIRECTION_DOWNLINK:
            return VexProto::DOWNLINK;
        default:
            MAVO_LOG("Request received for unknown Traffic Direction type");
            return VexProto::INVALID_TRAFFIC;
    }
}

VexProto::VexApplicationType convertApplicationTypeToProto(application_type_e type) {
    if (!inRange(type, RUX_APPLICATION_TYPE_CONV_AUDIO, RUX_APPLICATION_TYPE_FILE_TRANSFER)) {
        MAVO_LOG("Request received for unknown Application type");
        return VexProto::UNSPECIFIED;
    }
    return static_cast<VexProto::VexApplicationType>(type);
}

VexProto::Nr5gScsType convertModemScsToProto(nr5g_scs_type_e scs) {
    if (!inRange(scs, RUX_NR5G_SCS_15, RUX_NR5G_SCS_240)) {
        MAVO_LOG("Request received for UNKNOWN SCS type");
        return VexProto::NR5G_SCS_INVALID;
    }
    return static_cast<VexProto::Nr5gScsType>(scs);
}

VexProto::CellMitigationType convertCellMitigationToProto(cell_mitigation_type_e type) {
    switch (type) {
        case RUX_CELL_MITIGATION_PREFERRED:
            return VexProto::CELL_PREFERRED;
        case RUX_CELL_MITIGATION_INFO:
            return VexProto::CELL_INFO;
        default:
            MAVO_LOG("Unknown Cell Mitigation Type");
            return VexProto::CELL_DUBIOUS;
    }
}

// --- reply side ----------------------------------------------------------------------

status_e convertProtoStatusToClient(VexProto::Status status) {
    if (!inRange(status, VexProto::STATUS_SUCCESS, VexProto::STATUS_INVALID_SLOT))
        return RUX_STATUS_INVALID;
    return static_cast<status_e>(status - 1);
}

status_v2_e convertProtoStatusToClientV2(VexProto::Status status) {
    switch (status) {
        case VexProto::STATUS_SUCCESS:
            return RUX_STATUS_V2_SUCCESS;
        case VexProto::STATUS_INVALID_ARG:
            return RUX_STATUS_V2_INVALID_ARG;
        case VexProto::STATUS_INTERNAL_ERR:
            return RUX_STATUS_V2_INTERNAL_ERR;
        case VexProto::STATUS_NOT_SUPPORTED:
            return RUX_STATUS_V2_NOT_SUPPORTED;
        case VexProto::STATUS_INVALID_OPERATION:
            return RUX_STATUS_V2_INVALID_OPERATION;
        case VexProto::STATUS_SERVICE_UP:
            return RUX_STATUS_V2_SERVICE_UP;
        case VexProto::STATUS_SERVICE_DOWN:
            return RUX_STATUS_V2_SERVICE_DOWN;
        case VexProto::STATUS_INVALID_SLOT:
            return RUX_STATUS_V2_INVALID_SLOT;
        default:
            return RUX_STATUS_V2_INVALID;
    }
}

hst_state_e convertProtoHstStateToClient(VexProto::HstState state) {
    if (!inRange(state, VexProto::HST_STATE_SET, VexProto::HST_STATE_NOT_SET))
        return RUX_HST_STATE_UNKNOWN;
    return static_cast<hst_state_e>(state);
}

rux_subway_state_e convertProtoSubwayStateToClient(VexProto::SubwayState state) {
    if (!inRange(state, VexProto::SUBWAY_STATE_IN_SUBWAY, VexProto::SUBWAY_STATE_OUT_SUBWAY))
        return RUX_SUBWAY_STATE_UNKNOWN;
    return static_cast<rux_subway_state_e>(state);
}

data_recommendation_action_e convertRecommendationActionToClient(
    VexProto::VexRecommendationAction action) {
    return action == VexProto::DATA_ALLOWED ? RUX_DATA_ALLOWED : RUX_DATA_NOT_ALLOWED;
}

data_recommendation_subs_e convertRecommendationSubsToClient(VexProto::VexRecommendationSubs subs) {
    return subs == VexProto::DDS ? RUX_SUBS_DDS : RUX_SUBS_NDDS;
}

multi_sim_submode_e convertSubModeToClient(VexProto::VexSubMode mode) {
    return mode == VexProto::DSDS ? RUX_SUBMODE_DSDS : RUX_SUBMODE_DSDA;
}

tx_concurrency_e convertTxConcurrencyToClient(VexProto::VexTxConcurrency concurrency) {
    switch (concurrency) {
        case VexProto::DSDA_FULL_CONCURRENCY:
            return RUX_TX_CONCURRENCY_FULL;
        case VexProto::DSDA_TX_SHARING:
            return RUX_TX_CONCURRENCY_SHARING;
        default:
            return RUX_TX_CONCURRENCY_INVALID;
    }
}

cell_mitigation_type_e convertProtoMitigationTypeToClient(VexProto::CellMitigationType type) {
    switch (type) {
        case VexProto::CELL_PREFERRED:
            return RUX_CELL_MITIGATION_PREFERRED;
        case VexProto::CELL_INFO:
            return RUX_CELL_MITIGATION_INFO;
        default:
            MAVO_LOG("Unknown Mitigation type!");
            return RUX_CELL_MITIGATION_PREFERRED;
    }
}

cell_feedback_cause_e convertFeedbackCauseTypeToClient(VexProto::CellFeedbackCauseType cause) {
    switch (cause) {
        case VexProto::CELL_FB_CAUSE_CONFLICT:
            return RUX_CELL_FB_CAUSE_CONFLICT;
        case VexProto::CELL_FB_CAUSE_DELETE:
            return RUX_CELL_FB_CAUSE_DELETE;
        default:
            MAVO_LOG("Unknown Feedback Cause type!");
            return RUX_CELL_FB_CAUSE_CONFLICT;
    }
}

// --- request converters --------------------------------------------------------------

status_e convertSetHstStateReqToProto(VexProto::SetHstStateReq& req, hst_state_e state) {
    VexProto::HstState wire = VexProto::HST_STATE_UNKNOWN;
    if (!convertHstStateToProto(wire, state)) return RUX_STATUS_INVALID_ARG;
    req.set_hst_state(wire);
    return RUX_STATUS_SUCCESS;
}

status_e convertSetFlightModeStateReqToProto(VexProto::SetFlightModeStateReq& req,
                                             rux_flight_mode_state_e state) {
    VexProto::FlightModeState wire = VexProto::FLIGHT_MODE_STATE_DEFAULT;
    if (!convertFlightModeStateToProto(wire, state)) return RUX_STATUS_INVALID_ARG;
    req.set_flight_mode_state(wire);
    return RUX_STATUS_SUCCESS;
}

status_e convertSetDeviceFoldStateReqToProto(VexProto::SetDeviceFoldStateReq& req,
                                             rux_device_fold_state_e state) {
    VexProto::DeviceFoldState wire = VexProto::DEVICE_FOLD_STATE_DEFAULT;
    if (!convertDeviceFoldStateToProto(wire, state)) return RUX_STATUS_INVALID_ARG;
    req.set_device_fold_state(wire);
    return RUX_STATUS_SUCCESS;
}

status_e convertSetSubwayStateReqToProto(VexProto::SetSubwayStateReq& req,
                                         rux_subway_state_e state) {
    VexProto::SubwayState wire = VexProto::SUBWAY_STATE_UNKNOWN;
    if (!convertSubwayStateToProto(wire, state)) return RUX_STATUS_INVALID_ARG;
    req.set_subway_state(wire);
    return RUX_STATUS_SUCCESS;
}

status_e convertSetCoverageStateReqToProto(VexProto::SetCoverageStateReq& req, slot_id_e slot,
                                           coverage_state_e state) {
    const VexProto::SlotId wireSlot = convertSlotIdToProto(slot);
    if (wireSlot == VexProto::SLOT_ID_INVALID) return RUX_STATUS_INVALID_SLOT;
    req.set_slot_id(wireSlot);
    VexProto::CoverageState wireState = VexProto::COVERAGE_STATE_DEFAULT;
    if (!convertCoverageStateToProto(wireState, state)) return RUX_STATUS_INVALID_ARG;
    req.set_coverage_state(wireState);
    return RUX_STATUS_SUCCESS;
}

status_e convertEnableCellBarringFeatureReqToProto(VexProto::EnableCellBarringFeatureReq& req,
                                                   slot_id_e slot, bool enable) {
    const VexProto::SlotId wireSlot = convertSlotIdToProto(slot);
    if (wireSlot == VexProto::SLOT_ID_INVALID) return RUX_STATUS_INVALID_SLOT;
    req.set_slot_id(wireSlot);
    req.set_enable(enable);
    return RUX_STATUS_SUCCESS;
}

status_e convertSetOutOfServiceReqToProto(VexProto::SetOutOfServiceReq& req, slot_id_e slot,
                                          scan_state_e state) {
    const VexProto::SlotId wireSlot = convertSlotIdToProto(slot);
    if (wireSlot == VexProto::SLOT_ID_INVALID) return RUX_STATUS_INVALID_SLOT;
    req.set_slot_id(wireSlot);
    req.set_scan_state(convertScanStateToProto(state));
    return RUX_STATUS_SUCCESS;
}

status_e convertSetL2NRSelectionReqToProto(VexProto::SetL2NRSelectionReq& req, slot_id_e slot) {
    const VexProto::SlotId wireSlot = convertSlotIdToProto(slot);
    if (wireSlot == VexProto::SLOT_ID_INVALID) return RUX_STATUS_INVALID_SLOT;
    req.set_slot_id(wireSlot);
    return RUX_STATUS_SUCCESS;
}

}  // namespace rux::client
