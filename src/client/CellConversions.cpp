#include "client/CellConversions.h"

#include <cstring>

#include "client/ClientLog.h"
#include "client/EnumConversions.h"

namespace rux::client {

namespace {

constexpr bool given(uint32_t value) {
    return value != RUX_VALUE_NOT_GIVEN;
}

constexpr bool validPlmn(unsigned mcc, unsigned mnc) {
    return mcc <= kMaxPlmnValue && mnc <= kMaxPlmnValue;
}

// Band numbers travel unchecked: the service knows its bands (proto3 enums are open).
VexProto::ActiveBand toBand(uint32_t band) {
    return static_cast<VexProto::ActiveBand>(static_cast<int32_t>(band));
}

void fillPlmn(VexProto::PlmnIdType& out, unsigned mcc, unsigned mnc, uint8_t pcsDigit) {
    out.set_mcc(mcc);
    out.set_mnc(mnc);
    out.set_mnc_includes_pcs_digit(pcsDigit != 0);
}

void fillPlmn(VexProto::PlmnIdType& out, const plmn_id_s& in) {
    fillPlmn(out, in.mcc, in.mnc, in.mnc_includes_pcs_digit);
}

void fillCellInfo(VexProto::CellInfoType& out, const cell_info_s& in) {
    fillPlmn(*out.mutable_plmn(), in.plmn);
    out.set_cell_identity(in.cell_identity);
    out.set_band(toBand(in.band));
    out.set_freq(in.freq);
    out.set_pci(in.pci);
}

void fillLocation(VexProto::LocationType& out, const location_s& in) {
    out.set_latitude(in.latitude);
    out.set_longitude(in.longitude);
}

// Converts and sets the request's slot; false (after the conversion's log line) for a
// slot that does not convert.
template <typename Req>
bool setSlot(Req& req, slot_id_e slot) {
    const VexProto::SlotId wire = convertSlotIdToProto(slot);
    if (wire == VexProto::SLOT_ID_INVALID) return false;
    req.set_slot_id(wire);
    return true;
}

// A list given with a count but no cells.
bool listMissing(const char* list, unsigned long count, const void* cells) {
    if (count == 0 || cells != nullptr) return false;
    MAVO_LOG("%s list: %lu cells but no list", list, count);
    return true;
}

bool plmnAccepted(const char* list, unsigned long index, unsigned mcc, unsigned mnc) {
    if (validPlmn(mcc, mnc)) return true;
    MAVO_LOG("%s cell %lu: mcc %u or mnc %u above 999", list, index, mcc, mnc);
    return false;
}

// The older family: the first `limit` of `count` cells, each through `add` (false stops
// the list with RUX_STATUS_INVALID_ARG).
template <typename Cell, typename Add>
status_e addCutList(const char* list, unsigned long count, const Cell* cells, unsigned long limit,
                    Add add) {
    if (count > limit) {
        MAVO_LOG("%s list of %lu cells: the first %lu are sent", list, count, limit);
        count = limit;
    }
    for (unsigned long i = 0; i < count; ++i)
        if (!add(cells[i], i)) return RUX_STATUS_INVALID_ARG;
    return RUX_STATUS_SUCCESS;
}

// Shared by the older LTE list and cell barring.
template <typename Req>
bool addLteCell(Req& req, const char* list, const lte_dubious_cell_info_s& in,
                unsigned long index) {
    if (!plmnAccepted(list, index, in.mcc, in.mnc)) return false;
    auto& out = *req.add_lte_cell_list();
    fillPlmn(*out.mutable_plmn(), in.mcc, in.mnc, in.mnc_includes_pcs_digit);
    out.set_cell_identity(in.cell_identity);
    out.set_band(toBand(in.band));
    out.set_freq(in.freq);
    out.set_pci(in.pci);
    out.set_aux_value(in.aux_value);
    return true;
}

// Shared by the older NR list and cell barring. An scs outside the known values is
// refused rather than sent as NR5G_SCS_INVALID: the request would mean nothing.
template <typename Req>
bool addNrCell(Req& req, const char* list, const nr_dubious_cell_info_s& in, unsigned long index) {
    if (!plmnAccepted(list, index, in.mcc, in.mnc)) return false;
    const VexProto::Nr5gScsType scs = convertModemScsToProto(in.scs);
    if (scs == VexProto::NR5G_SCS_INVALID) return false;
    auto& out = *req.add_nr_cell_list();
    fillPlmn(*out.mutable_plmn(), in.mcc, in.mnc, in.mnc_includes_pcs_digit);
    out.set_cell_identity(in.cell_identity);
    out.set_band(toBand(in.band));
    out.set_freq(in.freq);
    out.set_pci(in.pci);
    out.set_scs(scs);
    out.set_aux_value(in.aux_value);
    return true;
}

template <typename Req>
status_e addLteCells(Req& req, const char* list, unsigned long count,
                     const lte_dubious_cell_info_s* cells) {
    return addCutList(list, count, cells, MAX_DUBIOUS_CELLS,
                      [&](const auto& cell, auto i) { return addLteCell(req, list, cell, i); });
}

template <typename Req>
status_e addNrCells(Req& req, const char* list, unsigned long count,
                    const nr_dubious_cell_info_s* cells) {
    return addCutList(list, count, cells, MAX_DUBIOUS_CELLS,
                      [&](const auto& cell, auto i) { return addNrCell(req, list, cell, i); });
}

status_v2_e fillCellListEntry(VexProto::SetCellListInfoType& out, const cell_list_entry_s& in) {
    fillCellInfo(*out.mutable_cell_info(), in.cell_info);
    if (given(in.param1)) {
        out.set_param1_valid(true);
        out.set_param1(in.param1);
    }
    if (given(in.flag2)) {
        out.set_flag2_valid(true);
        out.set_flag2(in.flag2 != 0);
    }
    out.set_param3(in.param3);
    out.set_param4(in.param4);

    auto& property = *out.mutable_property();
    property.set_common_valid(in.common_valid != 0);
    auto& common = *property.mutable_common();
    if (given(in.common_value)) {
        common.set_value_valid(true);
        common.set_value(in.common_value);
    }
    common.set_flag(in.common_flag != 0);
    fillLocation(*common.mutable_location(), in.location);

    property.set_hdr_valid(in.hdr_valid != 0);
    auto& hdr = *property.mutable_hdr();
    if (given(in.hdr_value1)) {
        hdr.set_value1_valid(true);
        hdr.set_value1(in.hdr_value1);
    }
    if (given(in.hdr_value2)) {
        hdr.set_value2_valid(true);
        hdr.set_value2(in.hdr_value2);
    }
    hdr.set_value3(in.hdr_value3);

    property.set_rs_valid(in.shared_plmn_valid != 0);
    if (in.shared_plmn_valid == 0) return RUX_STATUS_V2_SUCCESS;
    if (in.shared_plmn_len > MAX_SIZE_SHARED_PLMN) {
        MAVO_LOG("greater than MAX_SIZE_SHARED_PLMN!");
        return RUX_STATUS_V2_INVALID_ARG;
    }
    auto& rs = *property.mutable_rs();
    for (int i = 0; i < in.shared_plmn_len; ++i) fillPlmn(*rs.add_shared_plmn(), in.shared_plmn[i]);
    return RUX_STATUS_V2_SUCCESS;
}

// What LTE and NR cells of the v2 list have in common; false for a bad cell.
template <typename Out>
bool fillV2Cell(Out& out, const dubious_cell_v2_s& in) {
    if (!validPlmn(in.plmn.mcc, in.plmn.mnc) || in.band_count > MAX_DUBIOUS_CELL_BANDS)
        return false;
    fillPlmn(*out.mutable_plmn(), in.plmn);
    out.set_band(toBand(in.band));
    out.set_freq(in.freq);
    out.set_pci(in.pci);
    for (int i = 0; i < in.band_count; ++i) out.add_aux_values(in.band_list[i]);
    return true;
}

// One v2 list: too long or a bad cell fails the whole request.
template <typename Add>
status_v2_e addV2List(const char* tooLong, const char* badCell, uint8_t len,
                      const dubious_cell_v2_s* cells, Add add) {
    if (len > MAX_DUBIOUS_CELLS) {
        MAVO_LOG("%s", tooLong);
        return RUX_STATUS_V2_INVALID_ARG;
    }
    for (int i = 0; i < len; ++i) {
        if (!add(cells[i])) {
            MAVO_LOG("%s", badCell);
            return RUX_STATUS_V2_INVALID_ARG;
        }
    }
    return RUX_STATUS_V2_SUCCESS;
}

bool addPreferredCell(google::protobuf::RepeatedPtrField<VexProto::PreferredCellInfoType>& cells,
                      const char* list, const preferred_cell_info_s& in, unsigned long index) {
    if (!plmnAccepted(list, index, in.cell_info.plmn.mcc, in.cell_info.plmn.mnc)) return false;
    auto& out = *cells.Add();
    fillCellInfo(*out.mutable_cell_info(), in.cell_info);
    out.set_param1(in.param1);
    out.set_flag1(in.flag1);
    out.set_flag2(in.flag2);
    out.set_flag3(in.flag3);
    fillLocation(*out.mutable_location(), in.location);
    return true;
}

status_e addPreferredCells(google::protobuf::RepeatedPtrField<VexProto::PreferredCellInfoType>& out,
                           const char* list, unsigned long count,
                           const preferred_cell_info_s* cells) {
    return addCutList(list, count, cells, MAX_PREFERRED_CELLS, [&](const auto& cell, auto i) {
        return addPreferredCell(out, list, cell, i);
    });
}

}  // namespace

// --- the cell-list family ----------------------------------------------------------------

status_v2_e convertSetCellListInfoReqToProto(VexProto::SetCellListInfoReq& req,
                                             const set_cell_list_info_s& info) {
    auto& out = *req.mutable_set_cell_list_info();
    out.set_mitigation_type(convertCellMitigationToProto(info.mitigation_type));
    out.set_flag(info.flag != 0);
    if (info.lte_cell_list_len > MAX_SIZE_CELL_LIST || info.nr_cell_list_len > MAX_SIZE_CELL_LIST) {
        MAVO_LOG("greater than MAX_SIZE_CELL_LIST!");
        return RUX_STATUS_V2_INVALID_ARG;
    }
    for (int i = 0; i < info.lte_cell_list_len; ++i) {
        const status_v2_e result =
            fillCellListEntry(*out.add_lte_cell_list(), info.lte_cell_list[i]);
        if (result != RUX_STATUS_V2_SUCCESS) return result;
    }
    for (int i = 0; i < info.nr_cell_list_len; ++i) {
        const status_v2_e result = fillCellListEntry(*out.add_nr_cell_list(), info.nr_cell_list[i]);
        if (result != RUX_STATUS_V2_SUCCESS) return result;
    }
    return RUX_STATUS_V2_SUCCESS;
}

status_v2_e convertSetDubiousCellListV2ReqToProto(VexProto::SetDubiousCellListV2Req& req,
                                                  const dubious_cell_info_v2_s& info) {
    auto& out = *req.mutable_set_dubious_cell_list_v2();
    if (!setSlot(out, info.slot)) {
        MAVO_LOG("invalid proto slot");
        return RUX_STATUS_V2_INVALID_ARG;
    }
    if (info.lte_list_valid != 0) {
        out.set_lte_list_valid(true);
        const status_v2_e result =
            addV2List("lte len greater than MAX_DUBIOUS_CELLS!", "invalid lte parameters",
                      info.lte_cell_list_len, info.lte_cell_list, [&](const dubious_cell_v2_s& in) {
                          VexProto::LteCellInfoType cell;
                          if (!fillV2Cell(cell, in)) return false;
                          // The LTE identity is 32 bits wide on the wire.
                          cell.set_cell_identity(static_cast<uint32_t>(in.cell_identity));
                          *out.add_lte_cell_list() = std::move(cell);
                          return true;
                      });
        if (result != RUX_STATUS_V2_SUCCESS) return result;
    }
    if (info.nr_list_valid == 0) {
        out.set_nr_list_valid(false);
        return RUX_STATUS_V2_SUCCESS;
    }
    out.set_nr_list_valid(true);
    return addV2List("nr len greater than MAX_DUBIOUS_CELLS!", "invalid nr parameters",
                     info.nr_cell_list_len, info.nr_cell_list, [&](const dubious_cell_v2_s& in) {
                         VexProto::NrCellInfoType cell;
                         if (!fillV2Cell(cell, in)) return false;
                         cell.set_cell_identity(in.cell_identity);
                         // Sent as NR5G_SCS_INVALID when unknown: the service decides.
                         cell.set_scs(convertModemScsToProto(in.scs));
                         *out.add_nr_cell_list() = std::move(cell);
                         return true;
                     });
}

// --- the status_e family -------------------------------------------------------------------

status_e convertLteDubiousCellListToProto(VexProto::SetLteDubiousCellListReq& req, slot_id_e slot,
                                          unsigned long count,
                                          const lte_dubious_cell_info_s* cells) {
    if (listMissing("lte", count, cells)) return RUX_STATUS_INVALID_ARG;
    if (!setSlot(req, slot)) return RUX_STATUS_INVALID_SLOT;
    return addLteCells(req, "lte", count, cells);
}

status_e convertNrDubiousCellListToProto(VexProto::SetNrDubiousCellListReq& req, slot_id_e slot,
                                         unsigned long count, const nr_dubious_cell_info_s* cells) {
    if (listMissing("nr", count, cells)) return RUX_STATUS_INVALID_ARG;
    if (!setSlot(req, slot)) return RUX_STATUS_INVALID_SLOT;
    return addNrCells(req, "nr", count, cells);
}

status_e convertSetCellBarringInfoReqToProto(VexProto::SetCellBarringInfoReq& req, slot_id_e slot,
                                             const cell_barring_info_s* info) {
    if (info == nullptr) {
        MAVO_LOG("cell barring info is null");
        return RUX_STATUS_INVALID_ARG;
    }
    if (listMissing("nr", info->nr_cell_count, info->nr_cells) ||
        listMissing("lte", info->lte_cell_count, info->lte_cells))
        return RUX_STATUS_INVALID_ARG;
    if (!setSlot(req, slot)) return RUX_STATUS_INVALID_SLOT;
    req.set_param(info->value);
    const status_e result = addNrCells(req, "nr", info->nr_cell_count, info->nr_cells);
    if (result != RUX_STATUS_SUCCESS) return result;
    return addLteCells(req, "lte", info->lte_cell_count, info->lte_cells);
}

status_e convertSetPreferredCellListReqToProto(VexProto::SetPreferredCellListReq& req,
                                               slot_id_e slot, const preferred_cell_list_s* list) {
    if (list == nullptr) {
        MAVO_LOG("preferred cell list is null");
        return RUX_STATUS_INVALID_ARG;
    }
    if (listMissing("second", list->cell_count2, list->cells2) ||
        listMissing("first", list->cell_count, list->cells))
        return RUX_STATUS_INVALID_ARG;
    if (!setSlot(req, slot)) return RUX_STATUS_INVALID_SLOT;
    req.set_param(list->value);
    const status_e result =
        addPreferredCells(*req.mutable_cell_list2(), "second", list->cell_count2, list->cells2);
    if (result != RUX_STATUS_SUCCESS) return result;
    return addPreferredCells(*req.mutable_cell_list(), "first", list->cell_count, list->cells);
}

status_e convertDataStallParamsToProto(VexProto::SendDataStallParametersReq& req, slot_id_e slot,
                                       const data_stall_params_s* params) {
    if (params == nullptr) {
        MAVO_LOG("data stall params are null");
        return RUX_STATUS_INVALID_ARG;
    }
    const int32_t thresholds[] = {params->param1, params->param2, params->param3, params->param4};
    for (int i = 0; i < 4; ++i) {
        if (thresholds[i] < -1) {
            MAVO_LOG("param%d is %d, below -1", i + 1, thresholds[i]);
            return RUX_STATUS_INVALID_ARG;
        }
    }
    if (!setSlot(req, slot)) return RUX_STATUS_INVALID_SLOT;
    const VexProto::VexTrafficDirection direction =
        convertTrafficDirectionToProto(params->traffic_direction);
    if (direction == VexProto::INVALID_TRAFFIC) return RUX_STATUS_INVALID_ARG;
    auto& out = *req.mutable_params();
    out.set_traffic_direction(direction);
    out.set_flag(params->flag);
    out.set_application_type(convertApplicationTypeToProto(params->application_type));
    out.set_param1(params->param1);
    out.set_param2(params->param2);
    out.set_param3(params->param3);
    out.set_param4(params->param4);
    return RUX_STATUS_SUCCESS;
}

// --- the service's feedback ------------------------------------------------------------------

namespace {

void copyPlmn(plmn_id_s& out, const VexProto::PlmnIdType& in) {
    out.mcc = static_cast<uint16_t>(in.mcc());
    out.mnc = static_cast<uint16_t>(in.mnc());
    out.mnc_includes_pcs_digit = in.mnc_includes_pcs_digit() ? 1 : 0;
}

// The service's list, cut to what the record holds; returns the number copied.
uint8_t copyFeedbackCells(
    const google::protobuf::RepeatedPtrField<VexProto::FeedbackCellListInfoType>& cells,
    cell_list_feedback_entry_s* out, const char* list) {
    int count = cells.size();
    if (count > MAX_SIZE_CELL_LIST) {
        MAVO_LOG("%s list of %d cells: the first %d are delivered", list, count,
                 MAX_SIZE_CELL_LIST);
        count = MAX_SIZE_CELL_LIST;
    }
    for (int i = 0; i < count; ++i) {
        const VexProto::FeedbackCellListInfoType& in = cells.Get(i);
        cell_list_feedback_entry_s& cell = out[i];
        const VexProto::CellInfoType& info = in.cell_info();
        copyPlmn(cell.cell_info.plmn, info.plmn());
        cell.cell_info.cell_identity = info.cell_identity();
        cell.cell_info.band = static_cast<uint32_t>(info.band());
        cell.cell_info.freq = info.freq();
        cell.cell_info.pci = info.pci();
        cell.cause_bitmask = in.cause_bitmask();
        cell.feedback_cause = convertFeedbackCauseTypeToClient(in.feedback_cause());
        if (!in.property().rs_valid()) continue;
        const auto& shared = in.property().rs().shared_plmn();
        int sharedCount = shared.size();
        if (sharedCount > MAX_SIZE_SHARED_PLMN) {
            MAVO_LOG("%s cell %d has %d shared PLMNs: the first %d are delivered", list, i,
                     sharedCount, MAX_SIZE_SHARED_PLMN);
            sharedCount = MAX_SIZE_SHARED_PLMN;
        }
        for (int j = 0; j < sharedCount; ++j) copyPlmn(cell.shared_plmn[j], shared.Get(j));
        cell.shared_plmn_len = static_cast<uint8_t>(sharedCount);
    }
    return static_cast<uint8_t>(count);
}

void logFeedbackCells(const char* list, uint8_t count, const cell_list_feedback_entry_s* cells) {
    for (int i = 0; i < count; ++i) {
        const cell_list_feedback_entry_s& cell = cells[i];
        MAVO_LOG("%s cell: %d", list, i);
        MAVO_LOG("mcc: %d", cell.cell_info.plmn.mcc);
        MAVO_LOG("mnc: %d", cell.cell_info.plmn.mnc);
        MAVO_LOG("mnc_includes_pcs_digit: %d", cell.cell_info.plmn.mnc_includes_pcs_digit);
        MAVO_LOG("cell_identity: %d", static_cast<int>(cell.cell_info.cell_identity));
        MAVO_LOG("band: %d", static_cast<int>(cell.cell_info.band));
        MAVO_LOG("freq: %d", static_cast<int>(cell.cell_info.freq));
        MAVO_LOG("pci: %d", static_cast<int>(cell.cell_info.pci));
        MAVO_LOG("cause_bitmask: %d", static_cast<int>(cell.cause_bitmask));
        MAVO_LOG("feedback_cause: %d", static_cast<int>(cell.feedback_cause));
        MAVO_LOG("shared_plmn_len: %d", cell.shared_plmn_len);
        for (int j = 0; j < cell.shared_plmn_len; ++j) {
            MAVO_LOG("shared plmn: %d", j);
            MAVO_LOG("mcc: %d", cell.shared_plmn[j].mcc);
            MAVO_LOG("mnc: %d", cell.shared_plmn[j].mnc);
            MAVO_LOG("mnc_includes_pcs_digit: %d", cell.shared_plmn[j].mnc_includes_pcs_digit);
        }
    }
}

}  // namespace

cell_list_info_ind_s convertCellListInfoIndToClient(const VexProto::CellListInfoInd& ind) {
    cell_list_info_ind_s record;
    std::memset(&record, 0, sizeof record);
    record.mitigation_type = convertProtoMitigationTypeToClient(ind.mitigation_type());
    record.lte_cell_list_len = copyFeedbackCells(ind.lte_cell_list(), record.lte_cell_list, "lte");
    record.nr_cell_list_len = copyFeedbackCells(ind.nr_cell_list(), record.nr_cell_list, "nr");
    return record;
}

void logCellListInfoInd(const cell_list_info_ind_s& record) {
    MAVO_LOG("mitigation_type: %d", static_cast<int>(record.mitigation_type));
    MAVO_LOG("lte_cell_list_len: %d", record.lte_cell_list_len);
    MAVO_LOG("nr_cell_list_len: %d", record.nr_cell_list_len);
    logFeedbackCells("lte", record.lte_cell_list_len, record.lte_cell_list);
    logFeedbackCells("nr", record.nr_cell_list_len, record.nr_cell_list);
}

}  // namespace rux::client
