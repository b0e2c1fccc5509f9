// What rux-sim shows of cells and how it builds them: every field of the cell-list
// requests and of the cell-list feedback, printed by name, and the arguments of the
// "indicate cell-list" control line. Pure functions: no state, no locks, never throw.
#pragma once

#include <string>
#include <vector>

#include "vex.pb.h"

namespace rux::sim {

// "{slot_id: SLOT_ID_FIRST, lte_cell_list: [{plmn: {...}, ...}]}" for the six requests
// that carry cells (barring, LTE and NR dubious lists, preferred cells, cell-list info,
// dubious list v2), with every field of every cell; "" for any other payload.
std::string describeCellRequest(const VexProto::ClientData& data);

// "{mitigation_type: CELL_INFO, lte_cell_list: [...], nr_cell_list: [...]}".
std::string describeCellListFeedback(const VexProto::CellListInfoInd& ind);

// The arguments of "indicate cell-list": a CellMitigationType, then cells, each opened by
// "lte" or "nr" and followed by key=value words (mcc, mnc, pcs, id, band, freq, pci,
// cause, feedback, shared=MCC-MNC[-PCS],...). Fills `msg` with the CELL_LIST_INFO_IND_RESP
// and returns "", or returns what is wrong.
std::string parseCellListIndication(const std::vector<std::string>& args,
                                    VexProto::ServiceMsg& msg);

// The key=value words, for help and errors.
extern const char* const kCellKeys;

}  // namespace rux::sim
