// The cell records of rux/rux_client.h and their VexProto messages: the seven request
// converters, which copy the application's fixed-size records into the repeated messages
// of a request and enforce the limits on them, and the one reply converter, which turns
// the service's cell-list feedback into cell_list_info_ind_s.
//
// All are pure (no state, no locks, safe from any thread) and never throw; each failure
// writes one log line (level 3, tag "MavoClient"). After a failure the request message is
// incomplete and must not be sent.
//
// Two result families:
// - set_cell_list_info and set_dubious_cell_array_v2 (status_v2_e): a list longer than its
//   limit, a bad slot or a bad cell fails the whole call with RUX_STATUS_V2_INVALID_ARG.
// - every other record request (status_e): RUX_STATUS_INVALID_ARG for a null or bad
//   record, RUX_STATUS_INVALID_SLOT for a bad slot; a list longer than its limit is cut to
//   the limit, and the cells past it are neither read nor sent.
//
// A 32-bit optional value holding RUX_VALUE_NOT_GIVEN leaves its wire value unset with its
// presence flag false; any other value is sent with the flag true.
#pragma once

#include "rux/rux_client.h"
#include "vex.pb.h"

namespace rux::client {

inline constexpr unsigned kMaxPlmnValue = 999;  // mcc and mnc above it are invalid

// Mitigation type (an unknown one is sent as CELL_DUBIOUS after its log line) and flag,
// then each LTE cell and each NR cell. Either list longer than MAX_SIZE_CELL_LIST: "greater
// than MAX_SIZE_CELL_LIST!" before anything else is filled. A cell whose shared_plmn_valid
// is set with shared_plmn_len above MAX_SIZE_SHARED_PLMN: "greater than
// MAX_SIZE_SHARED_PLMN!". Both RUX_STATUS_V2_INVALID_ARG. mcc and mnc are not checked here.
status_v2_e convertSetCellListInfoReqToProto(VexProto::SetCellListInfoReq& req,
                                             const set_cell_list_info_s& info);

// Slot ("invalid proto slot"), then, when its valid flag is set, the LTE list ("lte len
// greater than MAX_DUBIOUS_CELLS!", "invalid lte parameters" for a cell with mcc or mnc
// above 999 or more than MAX_DUBIOUS_CELL_BANDS bands), then the NR list (the same with
// "nr"). An NR cell's unknown scs is sent as NR5G_SCS_INVALID after its log line.
status_v2_e convertSetDubiousCellListV2ReqToProto(VexProto::SetDubiousCellListV2Req& req,
                                                  const dubious_cell_info_v2_s& info);

// Checks in order: a non-zero count with null cells (1), slot (7), then per cell mcc and
// mnc (1) and, for NR, an scs that is not a known value (1). The first MAX_DUBIOUS_CELLS
// cells are sent.
status_e convertLteDubiousCellListToProto(VexProto::SetLteDubiousCellListReq& req, slot_id_e slot,
                                          unsigned long count,
                                          const lte_dubious_cell_info_s* cells);
status_e convertNrDubiousCellListToProto(VexProto::SetNrDubiousCellListReq& req, slot_id_e slot,
                                         unsigned long count, const nr_dubious_cell_info_s* cells);

// Null record (1), a non-zero count with a null list, NR before LTE (1), slot (7), then
// the NR cells and the LTE cells as above; the first MAX_DUBIOUS_CELLS of each are sent.
status_e convertSetCellBarringInfoReqToProto(VexProto::SetCellBarringInfoReq& req, slot_id_e slot,
                                             const cell_barring_info_s* info);

// Null record (1), a non-zero count with a null list, second before first (1), slot (7),
// then per cell mcc and mnc (1), second list before first; the first MAX_PREFERRED_CELLS
// of each are sent.
status_e convertSetPreferredCellListReqToProto(VexProto::SetPreferredCellListReq& req,
                                               slot_id_e slot, const preferred_cell_list_s* list);

// Null record (1), a threshold below -1 (1), slot (7), an unknown traffic direction (1).
// An unknown application type is sent as UNSPECIFIED after its log line.
status_e convertDataStallParamsToProto(VexProto::SendDataStallParametersReq& req, slot_id_e slot,
                                       const data_stall_params_s* params);

// The service's feedback as the application sees it: a zeroed record filled with the
// mitigation type and at most MAX_SIZE_CELL_LIST cells per list, each with at most
// MAX_SIZE_SHARED_PLMN shared PLMNs (taken only when the cell's rs_valid is set). mcc and
// mnc keep their low 16 bits. Longer lists from the service are cut, with a log line.
cell_list_info_ind_s convertCellListInfoIndToClient(const VexProto::CellListInfoInd& ind);

// The record, line by line in the order the system logs it ("mitigation_type: %d", ...).
void logCellListInfoInd(const cell_list_info_ind_s& record);

}  // namespace rux::client
