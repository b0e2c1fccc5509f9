// JSON <-> the C interface's records (docs/ruxctl.md shows each format with an example).
//
// Reading mirrors the C record: the same field names, nested where the record nests, a
// JSON array where the record has a list (its count or length field is the array's
// size, so it is never written). Every field may be left out: it is then 0, except the
// fields marked optional in rux/rux_client.h (RUX_VALUE_NOT_GIVEN, also written null)
// and the data-stall thresholds (-1, "no value"). A valid flag (common_valid, hdr_valid,
// shared_plmn_valid, lte_list_valid, nr_list_valid) left out is 1 when something it
// guards is given. Enum fields take names or numbers (EnumNames.h), flags true/false or a
// number. Records are zeroed first, so padding bytes are 0.
//
// Anything else (an unknown field, a value that does not fit the C field, a list longer
// than the record holds) throws RecordError naming the field: "lte_cells[1].mcc: ...".
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "EnumNames.h"
#include "rux/rux_client.h"

namespace ruxctl {

using Json = nlohmann::ordered_json;

class RecordError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The JSON text of a file, or of stdin for "-". Throws RecordError.
Json readJson(const std::string& path);

// Records come back on the heap, filled in place: copying a C struct need not copy its
// padding. Those whose lists sit behind pointers own the lists; `info` points into them.
struct CellBarringRecord {
    CellBarringRecord() = default;
    CellBarringRecord(const CellBarringRecord&) = delete;
    CellBarringRecord& operator=(const CellBarringRecord&) = delete;
    std::vector<lte_dubious_cell_info_s> lteCells;
    std::vector<nr_dubious_cell_info_s> nrCells;
    cell_barring_info_s info;
};

struct PreferredCellListRecord {
    PreferredCellListRecord() = default;
    PreferredCellListRecord(const PreferredCellListRecord&) = delete;
    PreferredCellListRecord& operator=(const PreferredCellListRecord&) = delete;
    std::vector<preferred_cell_info_s> cells;
    std::vector<preferred_cell_info_s> cells2;
    preferred_cell_list_s info;
};

std::unique_ptr<data_stall_params_s> dataStallParamsFromJson(const Json& json);
std::vector<lte_dubious_cell_info_s> lteDubiousCellsFromJson(const Json& json);  // an array
std::vector<nr_dubious_cell_info_s> nrDubiousCellsFromJson(const Json& json);    // an array
std::unique_ptr<CellBarringRecord> cellBarringInfoFromJson(const Json& json);
std::unique_ptr<PreferredCellListRecord> preferredCellListFromJson(const Json& json);
std::unique_ptr<set_cell_list_info_s> cellListInfoFromJson(const Json& json);
std::unique_ptr<dubious_cell_info_v2_s> dubiousCellInfoV2FromJson(const Json& json);

// An enum value for output: its C name, or the number when no name is declared for it.
Json enumJson(const EnumTable& table, int value);

// The cell-list indication, in the same shape as the set_cell_list_info input.
Json cellListIndicationToJson(const cell_list_info_ind_s& info);

}  // namespace ruxctl
