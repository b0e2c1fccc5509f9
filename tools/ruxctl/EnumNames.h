// The names of the C interface's enum values, for ruxctl's arguments, JSON records and
// output. One table per enum, written as data; the functions below read any table.
//
// A value is written as its C name ("RUX_HST_STATE_SET"), the same name without "RUX_"
// ("HST_STATE_SET") or without the prefix all names of its enum share ("SET"), in any
// letter case, or as a decimal number. Text that reads as a number is a number
// ("15" is 15, not RUX_NR5G_SCS_15). Numbers are taken as they are, also outside the
// declared values: the library's own checks then answer (an unknown state completes
// with RUX_STATUS_INVALID_ARG).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ruxctl {

struct EnumName {
    const char* name;  // the C name
    int value;
};

struct EnumTable {
    const char* type;    // the C type: "hst_state_e"
    const char* prefix;  // what every name starts with: "RUX_HST_STATE_"
    const EnumName* names;
    size_t count;
};

extern const EnumTable kStatus;
extern const EnumTable kStatusV2;
extern const EnumTable kHstState;
extern const EnumTable kSlotId;
extern const EnumTable kCoverageState;
extern const EnumTable kScanState;
extern const EnumTable kFlightModeState;
extern const EnumTable kDeviceFoldState;
extern const EnumTable kSubwayState;
extern const EnumTable kCellMitigationType;
extern const EnumTable kTrafficDirection;
extern const EnumTable kApplicationType;
extern const EnumTable kNr5gScsType;
extern const EnumTable kRecommendationAction;
extern const EnumTable kRecommendationSubs;
extern const EnumTable kSubmode;
extern const EnumTable kTxConcurrency;
extern const EnumTable kCellFeedbackCause;

// The value written as a name or a number, or nothing.
std::optional<int> parseEnum(const EnumTable& table, std::string_view text);
// The C name of a declared value; nothing for any other value.
std::optional<std::string> enumName(const EnumTable& table, int value);
// "HST_STATE_UNKNOWN, HST_STATE_SET, HST_STATE_NOT_SET", for help and error messages.
std::string enumChoices(const EnumTable& table);

// true/false, on/off, yes/no, 1/0 in any letter case.
std::optional<bool> parseBool(std::string_view text);

}  // namespace ruxctl
