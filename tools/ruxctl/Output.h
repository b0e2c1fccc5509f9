// How ruxctl prints what the library called back. Every output record is a JSON object
// whose first member says what it is ("request": "get-hst-state" or "indication":
// "hst-state"), followed by the callback's values by the names of the C interface.
//
// As a line (the default):  get-hst-state tid=3 status=RUX_STATUS_SUCCESS state=RUX_HST_STATE_SET
// nested objects as {key=value ...}, lists as [value ...].
// As JSON (--json): the object itself, on one line.
#pragma once

#include <string>

#include "RecordJson.h"

namespace ruxctl {

std::string formatLine(const Json& record);
std::string formatJson(const Json& record);

// Writes one record to stdout in the chosen form and flushes it.
void printRecord(const Json& record, bool asJson);

}  // namespace ruxctl
