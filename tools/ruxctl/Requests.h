// One row per request of the C interface: the subcommand's name, its arguments in the C
// function's order, whether a record is read from JSON, and how the C function is
// called. main() builds the command line from these rows.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "EnumNames.h"
#include "RecordJson.h"

namespace ruxctl {

struct Argument {
    const char* name;        // "SLOT", shown in the usage
    const EnumTable* table;  // the enum it takes; nullptr: a flag (true/false, on/off, 1/0)
};

// Calls the C function; returns what it returned (a transaction id or a negative code).
using Send = std::function<int()>;

struct Request {
    const char* name;      // "set-coverage-state"
    const char* function;  // "set_coverage_state"
    std::vector<Argument> arguments;
    const char* record;  // the record read from JSON ("cell_barring_info_s"), or nullptr
    // The cell-list family: a negative return value is a status_v2_e.
    bool v2;
    // Converts the arguments (numbers in the order above) and the record (null when the
    // request takes none) into a ready call. Throws RecordError for a bad record.
    std::function<Send(const std::vector<int>& args, const Json* record)> prepare;
};

const std::vector<Request>& requests();

// The call of set_cell_list_info that `watch --cell-list` makes.
Send prepareCellListInfo(const Json& record);

}  // namespace ruxctl
