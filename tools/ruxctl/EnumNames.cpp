#include "EnumNames.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "rux/rux_client.h"

namespace ruxctl {

namespace {

// The name is spelled once: the table entry takes both from the enumerator itself.
#define RUXCTL_NAME(value) \
    EnumName {             \
#value, value      \
    }

template <size_t N>
constexpr EnumTable table(const char* type, const char* prefix, const EnumName (&names)[N]) {
    return EnumTable{type, prefix, names, N};
}

constexpr EnumName kStatusNames[] = {
    RUXCTL_NAME(RUX_STATUS_INVALID),       RUXCTL_NAME(RUX_STATUS_SUCCESS),
    RUXCTL_NAME(RUX_STATUS_INVALID_ARG),   RUXCTL_NAME(RUX_STATUS_INTERNAL_ERR),
    RUXCTL_NAME(RUX_STATUS_NOT_SUPPORTED), RUXCTL_NAME(RUX_STATUS_INVALID_OPERATION),
    RUXCTL_NAME(RUX_STATUS_SERVICE_UP),    RUXCTL_NAME(RUX_STATUS_SERVICE_DOWN),
    RUXCTL_NAME(RUX_STATUS_INVALID_SLOT),
};
constexpr EnumName kStatusV2Names[] = {
    RUXCTL_NAME(RUX_STATUS_V2_SUCCESS),       RUXCTL_NAME(RUX_STATUS_V2_INVALID),
    RUXCTL_NAME(RUX_STATUS_V2_INVALID_ARG),   RUXCTL_NAME(RUX_STATUS_V2_INTERNAL_ERR),
    RUXCTL_NAME(RUX_STATUS_V2_NOT_SUPPORTED), RUXCTL_NAME(RUX_STATUS_V2_INVALID_OPERATION),
    RUXCTL_NAME(RUX_STATUS_V2_SERVICE_UP),    RUXCTL_NAME(RUX_STATUS_V2_SERVICE_DOWN),
    RUXCTL_NAME(RUX_STATUS_V2_INVALID_SLOT),
};
constexpr EnumName kHstStateNames[] = {
    RUXCTL_NAME(RUX_HST_STATE_UNKNOWN),
    RUXCTL_NAME(RUX_HST_STATE_SET),
    RUXCTL_NAME(RUX_HST_STATE_NOT_SET),
};
constexpr EnumName kSlotIdNames[] = {
    RUXCTL_NAME(RUX_SLOT_ID_FIRST),
    RUXCTL_NAME(RUX_SLOT_ID_SECOND),
    RUXCTL_NAME(RUX_SLOT_ID_THIRD),
};
constexpr EnumName kCoverageStateNames[] = {
    RUXCTL_NAME(RUX_COVERAGE_STATE_DEFAULT),
    RUXCTL_NAME(RUX_COVERAGE_STATE_IN_COVERAGE_HOLE),
    RUXCTL_NAME(RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE),
};
constexpr EnumName kScanStateNames[] = {
    RUXCTL_NAME(RUX_SCAN_STATE_SLOW),
    RUXCTL_NAME(RUX_SCAN_STATE_NORMAL),
};
constexpr EnumName kFlightModeStateNames[] = {
    RUXCTL_NAME(RUX_FLIGHT_MODE_STATE_DEFAULT),
    RUXCTL_NAME(RUX_FLIGHT_MODE_STATE_NOT_IN_FLIGHT),
    RUXCTL_NAME(RUX_FLIGHT_MODE_STATE_IN_FLIGHT),
    RUXCTL_NAME(RUX_FLIGHT_MODE_STATE_LANDING),
};
constexpr EnumName kDeviceFoldStateNames[] = {
    RUXCTL_NAME(RUX_DEVICE_FOLD_STATE_DEFAULT),
    RUXCTL_NAME(RUX_DEVICE_FOLD_STATE_OPEN),
    RUXCTL_NAME(RUX_DEVICE_FOLD_STATE_CLOSE),
};
constexpr EnumName kSubwayStateNames[] = {
    RUXCTL_NAME(RUX_SUBWAY_STATE_UNKNOWN),
    RUXCTL_NAME(RUX_SUBWAY_STATE_IN_SUBWAY),
    RUXCTL_NAME(RUX_SUBWAY_STATE_IN_CARRIAGE),
    RUXCTL_NAME(RUX_SUBWAY_STATE_OUT_SUBWAY),
};
constexpr EnumName kCellMitigationTypeNames[] = {
    RUXCTL_NAME(RUX_CELL_MITIGATION_PREFERRED),
    RUXCTL_NAME(RUX_CELL_MITIGATION_INFO),
};
constexpr EnumName kTrafficDirectionNames[] = {
    RUXCTL_NAME(RUX_TRAFFIC_DIRECTION_UPLINK),
    RUXCTL_NAME(RUX_TRAFFIC_DIRECTION_DOWNLINK),
};
constexpr EnumName kApplicationTypeNames[] = {
    RUXCTL_NAME(RUX_APPLICATION_TYPE_CONV_AUDIO),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_CONV_VIDEO),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_STREAMING_AUDIO),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_STREAMING_VIDEO),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_GAMING),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_WEB_BROWSING),
    RUXCTL_NAME(RUX_APPLICATION_TYPE_FILE_TRANSFER),
};
constexpr EnumName kNr5gScsTypeNames[] = {
    RUXCTL_NAME(RUX_NR5G_SCS_15),  RUXCTL_NAME(RUX_NR5G_SCS_30),  RUXCTL_NAME(RUX_NR5G_SCS_60),
    RUXCTL_NAME(RUX_NR5G_SCS_120), RUXCTL_NAME(RUX_NR5G_SCS_240),
};
constexpr EnumName kRecommendationActionNames[] = {
    RUXCTL_NAME(RUX_DATA_ALLOWED),
    RUXCTL_NAME(RUX_DATA_NOT_ALLOWED),
};
constexpr EnumName kRecommendationSubsNames[] = {
    RUXCTL_NAME(RUX_SUBS_DDS),
    RUXCTL_NAME(RUX_SUBS_NDDS),
};
constexpr EnumName kSubmodeNames[] = {
    RUXCTL_NAME(RUX_SUBMODE_DSDS),
    RUXCTL_NAME(RUX_SUBMODE_DSDA),
};
constexpr EnumName kTxConcurrencyNames[] = {
    RUXCTL_NAME(RUX_TX_CONCURRENCY_INVALID),
    RUXCTL_NAME(RUX_TX_CONCURRENCY_FULL),
    RUXCTL_NAME(RUX_TX_CONCURRENCY_SHARING),
};
constexpr EnumName kCellFeedbackCauseNames[] = {
    RUXCTL_NAME(RUX_CELL_FB_CAUSE_CONFLICT),
    RUXCTL_NAME(RUX_CELL_FB_CAUSE_DELETE),
};

#undef RUXCTL_NAME

constexpr std::string_view kPrefix = "RUX_";

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) !=
            std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

std::optional<int> parseInt32(std::string_view text) {
    const std::string s(text);
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(s.c_str(), &end, 10);
    if (errno != 0 || end != s.c_str() + s.size()) return std::nullopt;
    if (v < INT_MIN || v > INT_MAX) return std::nullopt;
    return static_cast<int>(v);
}

}  // namespace

const EnumTable kStatus = table("status_e", "RUX_STATUS_", kStatusNames);
const EnumTable kStatusV2 = table("status_v2_e", "RUX_STATUS_V2_", kStatusV2Names);
const EnumTable kHstState = table("hst_state_e", "RUX_HST_STATE_", kHstStateNames);
const EnumTable kSlotId = table("slot_id_e", "RUX_SLOT_ID_", kSlotIdNames);
const EnumTable kCoverageState =
    table("coverage_state_e", "RUX_COVERAGE_STATE_", kCoverageStateNames);
const EnumTable kScanState = table("scan_state_e", "RUX_SCAN_STATE_", kScanStateNames);
const EnumTable kFlightModeState =
    table("rux_flight_mode_state_e", "RUX_FLIGHT_MODE_STATE_", kFlightModeStateNames);
const EnumTable kDeviceFoldState =
    table("rux_device_fold_state_e", "RUX_DEVICE_FOLD_STATE_", kDeviceFoldStateNames);
const EnumTable kSubwayState = table("rux_subway_state_e", "RUX_SUBWAY_STATE_", kSubwayStateNames);
const EnumTable kCellMitigationType =
    table("cell_mitigation_type_e", "RUX_CELL_MITIGATION_", kCellMitigationTypeNames);
const EnumTable kTrafficDirection =
    table("traffic_direction_e", "RUX_TRAFFIC_DIRECTION_", kTrafficDirectionNames);
const EnumTable kApplicationType =
    table("application_type_e", "RUX_APPLICATION_TYPE_", kApplicationTypeNames);
const EnumTable kNr5gScsType = table("nr5g_scs_type_e", "RUX_NR5G_SCS_", kNr5gScsTypeNames);
const EnumTable kRecommendationAction =
    table("data_recommendation_action_e", "RUX_DATA_", kRecommendationActionNames);
const EnumTable kRecommendationSubs =
    table("data_recommendation_subs_e", "RUX_SUBS_", kRecommendationSubsNames);
const EnumTable kSubmode = table("multi_sim_submode_e", "RUX_SUBMODE_", kSubmodeNames);
const EnumTable kTxConcurrency =
    table("tx_concurrency_e", "RUX_TX_CONCURRENCY_", kTxConcurrencyNames);
const EnumTable kCellFeedbackCause =
    table("cell_feedback_cause_e", "RUX_CELL_FB_CAUSE_", kCellFeedbackCauseNames);

std::optional<int> parseEnum(const EnumTable& table, std::string_view text) {
    if (text.empty()) return std::nullopt;
    const char first = text[0];
    if (first == '-' || first == '+' || std::isdigit(static_cast<unsigned char>(first)))
        return parseInt32(text);
    const size_t shortStart = std::string_view(table.prefix).size();
    for (size_t i = 0; i < table.count; ++i) {
        const std::string_view name = table.names[i].name;
        if (equalsIgnoringCase(text, name) ||
            equalsIgnoringCase(text, name.substr(kPrefix.size())) ||
            equalsIgnoringCase(text, name.substr(shortStart)))
            return table.names[i].value;
    }
    return std::nullopt;
}

std::optional<std::string> enumName(const EnumTable& table, int value) {
    for (size_t i = 0; i < table.count; ++i)
        if (table.names[i].value == value) return std::string(table.names[i].name);
    return std::nullopt;
}

std::string enumChoices(const EnumTable& table) {
    std::string out;
    for (size_t i = 0; i < table.count; ++i) {
        if (i != 0) out += ", ";
        out += std::string_view(table.names[i].name).substr(kPrefix.size());
    }
    return out;
}

std::optional<bool> parseBool(std::string_view text) {
    for (const char* yes : {"true", "on", "yes", "1"})
        if (equalsIgnoringCase(text, yes)) return true;
    for (const char* no : {"false", "off", "no", "0"})
        if (equalsIgnoringCase(text, no)) return false;
    return std::nullopt;
}

}  // namespace ruxctl
