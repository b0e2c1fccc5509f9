// Request and local-reply blobs: the C arguments become one serialised ClientMsg, and a
// failed conversion becomes one serialised ServiceMsg that answers the request locally.
//
// Request builders (make<Request>ReqBlob) return the blob and a status_e: on success the
// serialised ClientMsg with the request's event id, the transaction id and the filled
// payload; otherwise an empty blob and the conversion's failure (RUX_STATUS_INVALID_ARG,
// RUX_STATUS_INVALID_SLOT, or RUX_STATUS_INTERNAL_ERR when the message cannot be built).
// The two cell-list builders return a status_v2_e the same way (RUX_STATUS_V2_INVALID_ARG,
// or RUX_STATUS_V2_INTERNAL_ERR); their failures are never answered locally.
// Records are read before the builder returns and never kept.
// Reply builders (make<Request>RespBlob) return the serialised ServiceMsg with the matching
// response event id, the same transaction id and the status converted to the wire.
// All are pure, thread-safe and never throw; each logs its result (tag "MavoClient").
#pragma once

#include <utility>
#include <vector>

#include "rux/rux_client.h"
#include "vex.pb.h"

namespace rux::client {

using Blob = std::vector<unsigned char>;
using BlobResult = std::pair<Blob, status_e>;
using BlobResultV2 = std::pair<Blob, status_v2_e>;

// The envelope alone, for the queries built inline (DPPD, multi-SIM):
// ClientMsg{eventId, tid, data} sized and serialised into a vector of exactly that size.
// An empty blob if it cannot be built.
Blob serialiseClientMsg(VexProto::ClientEventId eventId, unsigned long tid,
                        const VexProto::ClientData& data);
Blob serialiseServiceMsg(VexProto::ServiceEventId eventId, unsigned long tid,
                         const VexProto::ServiceData& data);

// The registrations: an empty payload in its envelope, the client's with its transaction
// id, the two indication ones with none. Unlike the builders below they log nothing and
// throw (std::bad_alloc) when the payload cannot be made; a blob that cannot be
// serialised comes back empty.
Blob makeRegisterClientReqBlob(unsigned long tid);
Blob makeRegisterDppdIndicationReqBlob();
Blob makeRegisterMultiSimSubmodeIndicationReqBlob();

BlobResult makeSetCoverageStateReqBlob(unsigned long tid, slot_id_e slot, coverage_state_e state);
BlobResult makeSetHstStateReqBlob(unsigned long tid, hst_state_e state);
BlobResult makeGetHstStateReqBlob(unsigned long tid);
BlobResult makeEnableCellBarringFeatureReqBlob(unsigned long tid, slot_id_e slot, bool enable);
BlobResult makeSetL2NRSelectionReqBlob(unsigned long tid, slot_id_e slot);
BlobResult makeSetOutOfServiceReqBlob(unsigned long tid, slot_id_e slot, scan_state_e state);
BlobResult makeSetFlightModeStateReqBlob(unsigned long tid, rux_flight_mode_state_e state);
BlobResult makeSetDeviceFoldStateReqBlob(unsigned long tid, rux_device_fold_state_e state);
BlobResult makeSetSubwayStateReqBlob(unsigned long tid, rux_subway_state_e state);
BlobResult makeSetCellBarringInfoReqBlob(unsigned long tid, slot_id_e slot,
                                         const cell_barring_info_s* info);
BlobResult makeSendDataStallParametersReqBlob(unsigned long tid, slot_id_e slot,
                                              const data_stall_params_s* params);
BlobResult makeSetLteDubiousCellListReqBlob(unsigned long tid, slot_id_e slot, unsigned long count,
                                            const lte_dubious_cell_info_s* cells);
BlobResult makeSetNrDubiousCellListReqBlob(unsigned long tid, slot_id_e slot, unsigned long count,
                                           const nr_dubious_cell_info_s* cells);
BlobResult makeSetPreferredCellListReqBlob(unsigned long tid, slot_id_e slot,
                                           const preferred_cell_list_s* list);
BlobResultV2 makeSetCellListInfoReqBlob(unsigned long tid, const set_cell_list_info_s& info);
BlobResultV2 makeSetDubiousCellListV2ReqBlob(unsigned long tid, const dubious_cell_info_v2_s& info);

Blob makeSetCoverageStateRespBlob(unsigned long tid, status_e status);
Blob makeSetHstStateRespBlob(unsigned long tid, status_e status);
Blob makeGetHstStateRespBlob(unsigned long tid, status_e status);
Blob makeEnableCellBarringFeatureRespBlob(unsigned long tid, status_e status);
Blob makeSetL2NRSelectionRespBlob(unsigned long tid, status_e status);
Blob makeSetOutOfServiceRespBlob(unsigned long tid, status_e status);
Blob makeSetFlightModeStateRespBlob(unsigned long tid, status_e status);
Blob makeSetDeviceFoldStateRespBlob(unsigned long tid, status_e status);
Blob makeSetSubwayStateRespBlob(unsigned long tid, status_e status);
Blob makeSetCellBarringInfoRespBlob(unsigned long tid, status_e status);
Blob makeSendDataStallParametersRespBlob(unsigned long tid, status_e status);
Blob makeSetLteDubiousCellListRespBlob(unsigned long tid, status_e status);
Blob makeSetNrDubiousCellListRespBlob(unsigned long tid, status_e status);
Blob makeSetPreferredCellListRespBlob(unsigned long tid, status_e status);

}  // namespace rux::client
