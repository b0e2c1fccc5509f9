// Translations between the C enums of rux/rux_client.h and their VexProto counterparts.
//
// Request side: every C enum is translated before a request is serialised. Reply side:
// every wire enum is translated back before a callback sees it. All functions are pure
// (no state, no locks, safe from any thread) and never throw. A value a function does not
// know gets a fixed fall-back; the functions that say so also write a log line (level 3,
// tag "MavoClient"). Values are taken as full 32-bit ints: an out-of-range C value or an
// unknown wire value (proto3 enums are open) is an ordinary input, not undefined.
#pragma once

#include "rux/rux_client.h"
#include "vex.pb.h"

namespace rux::client {

// --- request side: C enum -> wire -----------------------------------------------------

// -1..7 -> value + 1. Anything else logs "Request received on UNKNOWN Status type" and
// gives STATUS_INVALID (0).
VexProto::Status convertStatusToProto(status_e status);

// 0..2 -> 1..3. Anything else logs "Request received on UNKNOWN SlotId type" and gives
// SLOT_ID_INVALID (0), which the request converters turn into RUX_STATUS_INVALID_SLOT.
VexProto::SlotId convertSlotIdToProto(slot_id_e slot);

// Same numbers on both sides. On an unknown value they return false and leave `out` as
// it was; they write no log line.
bool convertHstStateToProto(VexProto::HstState& out, hst_state_e state);
bool convertCoverageStateToProto(VexProto::CoverageState& out, coverage_state_e state);
bool convertFlightModeStateToProto(VexProto::FlightModeState& out, rux_flight_mode_state_e state);
bool convertDeviceFoldStateToProto(VexProto::DeviceFoldState& out, rux_device_fold_state_e state);
bool convertSubwayStateToProto(VexProto::SubwayState& out, rux_subway_state_e state);

// 0 -> SLOW (1), 1 -> NORMAL (2); else "Request received for unknown Scan State type",
// INVALID_SCAN (0).
VexProto::VexScanState convertScanStateToProto(scan_state_e state);

// 0 -> UPLINK (1), 1 -> DOWNLINK (2); else "Request received for unknown Traffic
// Direction type", INVALID_TRAFFIC (0).
VexProto::VexTrafficDirection convertTrafficDirectionToProto(traffic_direction_e direction);

// 1..7 unchanged; else "Request received for unknown Application type", UNSPECIFIED (0).
VexProto::VexApplicationType convertApplicationTypeToProto(application_type_e type);

// 0..4 unchanged; else "Request received for UNKNOWN SCS type", NR5G_SCS_INVALID (-1).
VexProto::Nr5gScsType convertModemScsToProto(nr5g_scs_type_e scs);

// 1, 2 unchanged; else "Unknown Cell Mitigation Type", CELL_DUBIOUS (0).
VexProto::CellMitigationType convertCellMitigationToProto(cell_mitigation_type_e type);

// --- reply side: wire -> C enum (no log lines unless stated) --------------------------

// 1..8 -> value - 1; else RUX_STATUS_INVALID (-1).
status_e convertProtoStatusToClient(VexProto::Status status);

// 1..8 -> 0, -2, -3, -4, -5, -7, -8, -9; else RUX_STATUS_V2_INVALID (-1).
status_v2_e convertProtoStatusToClientV2(VexProto::Status status);

// 1, 2 unchanged; else RUX_HST_STATE_UNKNOWN (0).
hst_state_e convertProtoHstStateToClient(VexProto::HstState state);

// 1..3 unchanged; else RUX_SUBWAY_STATE_UNKNOWN (0).
rux_subway_state_e convertProtoSubwayStateToClient(VexProto::SubwayState state);

// DATA_ALLOWED (0) -> RUX_DATA_ALLOWED (1); anything else -> RUX_DATA_NOT_ALLOWED (2).
data_recommendation_action_e convertRecommendationActionToClient(
    VexProto::VexRecommendationAction action);

// DDS (0) -> RUX_SUBS_DDS (1); anything else -> RUX_SUBS_NDDS (2).
data_recommendation_subs_e convertRecommendationSubsToClient(VexProto::VexRecommendationSubs subs);

// DSDS (0) -> RUX_SUBMODE_DSDS (0); anything else -> RUX_SUBMODE_DSDA (1).
multi_sim_submode_e convertSubModeToClient(VexProto::VexSubMode mode);

// 1 -> 0, 2 -> 1; else RUX_TX_CONCURRENCY_INVALID (-1).
tx_concurrency_e convertTxConcurrencyToClient(VexProto::VexTxConcurrency concurrency);

// 1, 2 unchanged; else "Unknown Mitigation type!" and RUX_CELL_MITIGATION_PREFERRED (1).
cell_mitigation_type_e convertProtoMitigationTypeToClient(VexProto::CellMitigationType type);

// 0, 1 unchanged; else "Unknown Feedback Cause type!" and RUX_CELL_FB_CAUSE_CONFLICT (0).
cell_feedback_cause_e convertFeedbackCauseTypeToClient(VexProto::CellFeedbackCauseType cause);

// --- request converters: fill one request, return a status_e ------------------------
//
// RUX_STATUS_SUCCESS, RUX_STATUS_INVALID_ARG (1) for an unknown enum value or
// RUX_STATUS_INVALID_SLOT (7) for a bad slot. The slot is converted first. After a
// failure the request is incomplete and must not be sent.

status_e convertSetHstStateReqToProto(VexProto::SetHstStateReq& req, hst_state_e state);
status_e convertSetFlightModeStateReqToProto(VexProto::SetFlightModeStateReq& req,
                                             rux_flight_mode_state_e state);
status_e convertSetDeviceFoldStateReqToProto(VexProto::SetDeviceFoldStateReq& req,
                                             rux_device_fold_state_e state);
status_e convertSetSubwayStateReqToProto(VexProto::SetSubwayStateReq& req,
                                         rux_subway_state_e state);
status_e convertSetCoverageStateReqToProto(VexProto::SetCoverageStateReq& req, slot_id_e slot,
                                           coverage_state_e state);
status_e convertEnableCellBarringFeatureReqToProto(VexProto::EnableCellBarringFeatureReq& req,
                                                   slot_id_e slot, bool enable);
// An unknown scan state is sent as INVALID_SCAN after its log line; only the slot fails.
status_e convertSetOutOfServiceReqToProto(VexProto::SetOutOfServiceReq& req, slot_id_e slot,
                                          scan_state_e state);
status_e convertSetL2NRSelectionReqToProto(VexProto::SetL2NRSelectionReq& req, slot_id_e slot);

}  // namespace rux::client
