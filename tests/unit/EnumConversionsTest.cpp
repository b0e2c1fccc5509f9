// Enum translations between the C interface and VexProto: every value of every enum, the
// values just outside each range and the extremes of int, the fall-backs, and the exact
// log line (or silence) each one produces.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "client/EnumConversions.h"

namespace {

using namespace rux::client;
using rux::test::LogCapture;

// What the conversions wrote, one message per line with the prefix checked and removed;
// "" when nothing was written.
std::string loggedMessages(const LogCapture& capture, const std::string& function) {
    std::string out;
    for (const auto& line : capture.lines()) {
        EXPECT_EQ(line.priority, 3) << line.text;
        EXPECT_EQ(line.tag, LogCapture::kNullTag) << line.text;
        const std::string prefix = "|MavoClient|MavoClient::" + function + ":";
        EXPECT_EQ(line.text.compare(0, prefix.size(), prefix), 0) << line.text;
        const auto space = line.text.find(' ', prefix.size());
        const std::string message = space == std::string::npos ? "" : line.text.substr(space + 1);
        out += out.empty() ? message : "\n" + message;
    }
    return out;
}

template <typename In, typename Out>
struct Case {
    int in;           // taken as an int so a table can hold values outside the enum
    int out;          // expected result as a number
    const char* log;  // expected log message, "" for none
};

// Runs a one-argument conversion over a table.
template <typename In, typename Out, typename Fn>
void checkTable(const char* function, Fn convert, const std::vector<Case<In, Out>>& cases) {
    LogCapture capture;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(function) + "(" + std::to_string(c.in) + ")");
        capture.clear();
        const Out result = convert(static_cast<In>(c.in));
        EXPECT_EQ(static_cast<int>(result), c.out);
        EXPECT_EQ(loggedMessages(capture, function), c.log);
    }
}

// The values outside a range [low, high] that every table also tries.
std::vector<int> outside(int low, int high) {
    return {low - 1, high + 1, INT_MIN, INT_MAX};
}

// --- request side: C enum -> wire --------------------------------------------------------

TEST(EnumConversionsToWireTest, StatusTravelsAsItsValuePlusOne) {
    std::vector<Case<status_e, VexProto::Status>> cases;
    for (int s = -1; s <= 7; ++s) cases.push_back({s, s + 1, ""});
    for (int s : outside(-1, 7)) cases.push_back({s, 0, "Request received on UNKNOWN Status type"});
    checkTable("convertStatusToProto", convertStatusToProto, cases);

    EXPECT_EQ(convertStatusToProto(RUX_STATUS_INVALID), VexProto::STATUS_INVALID);
    EXPECT_EQ(convertStatusToProto(RUX_STATUS_INVALID_ARG), VexProto::STATUS_INVALID_ARG);
    EXPECT_EQ(convertStatusToProto(RUX_STATUS_INVALID_SLOT), VexProto::STATUS_INVALID_SLOT);
}

TEST(EnumConversionsToWireTest, SlotIdTravelsAsItsValuePlusOne) {
    checkTable<slot_id_e, VexProto::SlotId>(
        "convertSlotIdToProto", convertSlotIdToProto,
        {{RUX_SLOT_ID_FIRST, VexProto::SLOT_ID_FIRST, ""},
         {RUX_SLOT_ID_SECOND, VexProto::SLOT_ID_SECOND, ""},
         {RUX_SLOT_ID_THIRD, VexProto::SLOT_ID_THIRD, ""},
         {-1, 0, "Request received on UNKNOWN SlotId type"},
         {3, 0, "Request received on UNKNOWN SlotId type"},
         {INT_MIN, 0, "Request received on UNKNOWN SlotId type"},
         {INT_MAX, 0, "Request received on UNKNOWN SlotId type"}});
}

TEST(EnumConversionsToWireTest, ScanStateAndTrafficDirectionShiftByOneAndFallBackToZero) {
    const char* scanLog = "Request received for unknown Scan State type";
    checkTable<scan_state_e, VexProto::VexScanState>("convertScanStateToProto",
                                                     convertScanStateToProto,
                                                     {{RUX_SCAN_STATE_SLOW, VexProto::SLOW, ""},
                                                      {RUX_SCAN_STATE_NORMAL, VexProto::NORMAL, ""},
                                                      {-1, 0, scanLog},
                                                      {2, 0, scanLog},
                                                      {INT_MIN, 0, scanLog},
                                                      {INT_MAX, 0, scanLog}});

    const char* trafficLog = "Request received for unknown Traffic Direction type";
    checkTable<traffic_direction_e, VexProto::VexTrafficDirection>(
        "convertTrafficDirectionToProto", convertTrafficDirectionToProto,
        {{RUX_TRAFFIC_DIRECTION_UPLINK, VexProto::UPLINK, ""},
         {RUX_TRAFFIC_DIRECTION_DOWNLINK, VexProto::DOWNLINK, ""},
         {-1, 0, trafficLog},
         {2, 0, trafficLog},
         {INT_MIN, 0, trafficLog},
         {INT_MAX, 0, trafficLog}});
}

TEST(EnumConversionsToWireTest, ApplicationTypeIsSentUnchangedOrAsUnspecified) {
    std::vector<Case<application_type_e, VexProto::VexApplicationType>> cases;
    for (int t = 1; t <= 7; ++t) cases.push_back({t, t, ""});
    for (int t : outside(1, 7))
        cases.push_back(
            {t, VexProto::UNSPECIFIED, "Request received for unknown Application type"});
    checkTable("convertApplicationTypeToProto", convertApplicationTypeToProto, cases);
    EXPECT_EQ(convertApplicationTypeToProto(RUX_APPLICATION_TYPE_GAMING), VexProto::TYPE_GAMING);
}

TEST(EnumConversionsToWireTest, UnknownScsIsSentAsMinusOne) {
    std::vector<Case<nr5g_scs_type_e, VexProto::Nr5gScsType>> cases;
    for (int s = 0; s <= 4; ++s) cases.push_back({s, s, ""});
    for (int s : outside(0, 4)) cases.push_back({s, -1, "Request received for UNKNOWN SCS type"});
    checkTable("convertModemScsToProto", convertModemScsToProto, cases);
    EXPECT_EQ(convertModemScsToProto(RUX_NR5G_SCS_240), VexProto::NR5G_SCS_240);
}

TEST(EnumConversionsToWireTest, CellMitigationTypeFallsBackToZero) {
    const char* log = "Unknown Cell Mitigation Type";
    checkTable<cell_mitigation_type_e, VexProto::CellMitigationType>(
        "convertCellMitigationToProto", convertCellMitigationToProto,
        {{RUX_CELL_MITIGATION_PREFERRED, VexProto::CELL_PREFERRED, ""},
         {RUX_CELL_MITIGATION_INFO, VexProto::CELL_INFO, ""},
         {0, VexProto::CELL_DUBIOUS, log},
         {3, 0, log},
         {-1, 0, log},
         {INT_MIN, 0, log},
         {INT_MAX, 0, log}});
}

// The identity conversions report failure and leave their output alone, silently.
template <typename Wire, typename C, typename Fn>
void checkIdentity(const char* name, Fn convert, int high) {
    LogCapture capture;
    std::vector<int> values;
    for (int v = 0; v <= high; ++v) values.push_back(v);
    for (int v : outside(0, high)) values.push_back(v);
    for (int v : values) {
        SCOPED_TRACE(std::string(name) + "(" + std::to_string(v) + ")");
        const Wire untouched = static_cast<Wire>(77);
        Wire out = untouched;
        const bool known = v >= 0 && v <= high;
        EXPECT_EQ(convert(out, static_cast<C>(v)), known);
        EXPECT_EQ(static_cast<int>(out), known ? v : 77);
    }
    EXPECT_EQ(capture.lines().size(), 0u) << capture.dump();
}

TEST(EnumConversionsToWireTest, StatesAreSentUnchangedAndUnknownOnesAreRefused) {
    checkIdentity<VexProto::HstState, hst_state_e>("hst", convertHstStateToProto, 2);
    checkIdentity<VexProto::CoverageState, coverage_state_e>("coverage",
                                                             convertCoverageStateToProto, 2);
    checkIdentity<VexProto::FlightModeState, rux_flight_mode_state_e>(
        "flight mode", convertFlightModeStateToProto, 3);
    checkIdentity<VexProto::DeviceFoldState, rux_device_fold_state_e>(
        "fold", convertDeviceFoldStateToProto, 2);
    checkIdentity<VexProto::SubwayState, rux_subway_state_e>("subway", convertSubwayStateToProto,
                                                             3);
}

TEST(EnumConversionsToWireTest, CNamesMatchTheWireNamesOfTheStates) {
    VexProto::HstState hst{};
    ASSERT_TRUE(convertHstStateToProto(hst, RUX_HST_STATE_NOT_SET));
    EXPECT_EQ(hst, VexProto::HST_STATE_NOT_SET);
    VexProto::CoverageState coverage{};
    ASSERT_TRUE(convertCoverageStateToProto(coverage, RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE));
    EXPECT_EQ(coverage, VexProto::COVERAGE_STATE_OUT_OF_COVERAGE_HOLE);
    VexProto::FlightModeState flight{};
    ASSERT_TRUE(convertFlightModeStateToProto(flight, RUX_FLIGHT_MODE_STATE_LANDING));
    EXPECT_EQ(flight, VexProto::FLIGHT_MODE_STATE_LANDING);
    VexProto::DeviceFoldState fold{};
    ASSERT_TRUE(convertDeviceFoldStateToProto(fold, RUX_DEVICE_FOLD_STATE_CLOSE));
    EXPECT_EQ(fold, VexProto::DEVICE_FOLD_STATE_CLOSE);
    VexProto::SubwayState subway{};
    ASSERT_TRUE(convertSubwayStateToProto(subway, RUX_SUBWAY_STATE_IN_CARRIAGE));
    EXPECT_EQ(subway, VexProto::SUBWAY_STATE_IN_CARRIAGE);
}

// --- reply side: wire -> C enum ------------------------------------------------------

TEST(EnumConversionsToClientTest, StatusComesBackAsItsValueMinusOne) {
    std::vector<Case<VexProto::Status, status_e>> cases;
    for (int w = 1; w <= 8; ++w) cases.push_back({w, w - 1, ""});
    for (int w : {0, 9, -1, INT_MIN, INT_MAX}) cases.push_back({w, -1, ""});
    checkTable("convertProtoStatusToClient", convertProtoStatusToClient, cases);
}

TEST(EnumConversionsToClientTest, StatusV2SkipsMinusOneAndMinusSix) {
    checkTable<VexProto::Status, status_v2_e>("convertProtoStatusToClientV2",
                                              convertProtoStatusToClientV2,
                                              {{VexProto::STATUS_SUCCESS, 0, ""},
                                               {VexProto::STATUS_INVALID_ARG, -2, ""},
                                               {VexProto::STATUS_INTERNAL_ERR, -3, ""},
                                               {VexProto::STATUS_NOT_SUPPORTED, -4, ""},
                                               {VexProto::STATUS_INVALID_OPERATION, -5, ""},
                                               {VexProto::STATUS_SERVICE_UP, -7, ""},
                                               {VexProto::STATUS_SERVICE_DOWN, -8, ""},
                                               {VexProto::STATUS_INVALID_SLOT, -9, ""},
                                               {VexProto::STATUS_INVALID, -1, ""},
                                               {9, -1, ""},
                                               {-1, -1, ""},
                                               {INT_MIN, -1, ""},
                                               {INT_MAX, -1, ""}});
}

TEST(EnumConversionsToClientTest, StatusRoundTripsThroughTheWire) {
    for (int s = -1; s <= 7; ++s) {
        const auto c = static_cast<status_e>(s);
        EXPECT_EQ(convertProtoStatusToClient(convertStatusToProto(c)), c);
    }
    // The two families agree on every success and failure the service can send.
    EXPECT_EQ(convertProtoStatusToClientV2(convertStatusToProto(RUX_STATUS_SERVICE_DOWN)),
              RUX_STATUS_V2_SERVICE_DOWN);
    EXPECT_EQ(convertProtoStatusToClientV2(convertStatusToProto(RUX_STATUS_INVALID_SLOT)),
              RUX_STATUS_V2_INVALID_SLOT);
}

TEST(EnumConversionsToClientTest, StatesKeepKnownValuesAndFallBackToUnknown) {
    checkTable<VexProto::HstState, hst_state_e>("convertProtoHstStateToClient",
                                                convertProtoHstStateToClient,
                                                {{VexProto::HST_STATE_UNKNOWN, 0, ""},
                                                 {VexProto::HST_STATE_SET, 1, ""},
                                                 {VexProto::HST_STATE_NOT_SET, 2, ""},
                                                 {3, 0, ""},
                                                 {-1, 0, ""},
                                                 {INT_MIN, 0, ""},
                                                 {INT_MAX, 0, ""}});
    checkTable<VexProto::SubwayState, rux_subway_state_e>(
        "convertProtoSubwayStateToClient", convertProtoSubwayStateToClient,
        {{VexProto::SUBWAY_STATE_UNKNOWN, 0, ""},
         {VexProto::SUBWAY_STATE_IN_SUBWAY, RUX_SUBWAY_STATE_IN_SUBWAY, ""},
         {VexProto::SUBWAY_STATE_IN_CARRIAGE, RUX_SUBWAY_STATE_IN_CARRIAGE, ""},
         {VexProto::SUBWAY_STATE_OUT_SUBWAY, RUX_SUBWAY_STATE_OUT_SUBWAY, ""},
         {4, 0, ""},
         {-1, 0, ""},
         {INT_MIN, 0, ""},
         {INT_MAX, 0, ""}});
}

TEST(EnumConversionsToClientTest, RecommendationAndSubModeMapZeroAndEverythingElse) {
    checkTable<VexProto::VexRecommendationAction, data_recommendation_action_e>(
        "convertRecommendationActionToClient", convertRecommendationActionToClient,
        {{VexProto::DATA_ALLOWED, RUX_DATA_ALLOWED, ""},
         {VexProto::DATA_NOT_ALLOWED, RUX_DATA_NOT_ALLOWED, ""},
         {2, 2, ""},
         {-1, 2, ""},
         {INT_MIN, 2, ""},
         {INT_MAX, 2, ""}});
    checkTable<VexProto::VexRecommendationSubs, data_recommendation_subs_e>(
        "convertRecommendationSubsToClient", convertRecommendationSubsToClient,
        {{VexProto::DDS, RUX_SUBS_DDS, ""},
         {VexProto::NDDS, RUX_SUBS_NDDS, ""},
         {2, 2, ""},
         {-1, 2, ""},
         {INT_MIN, 2, ""},
         {INT_MAX, 2, ""}});
    checkTable<VexProto::VexSubMode, multi_sim_submode_e>("convertSubModeToClient",
                                                          convertSubModeToClient,
                                                          {{VexProto::DSDS, RUX_SUBMODE_DSDS, ""},
                                                           {VexProto::DSDA, RUX_SUBMODE_DSDA, ""},
                                                           {2, 1, ""},
                                                           {-1, 1, ""},
                                                           {INT_MIN, 1, ""},
                                                           {INT_MAX, 1, ""}});
}

TEST(EnumConversionsToClientTest, TxConcurrencyShiftsDownAndFallsBackToMinusOne) {
    checkTable<VexProto::VexTxConcurrency, tx_concurrency_e>(
        "convertTxConcurrencyToClient", convertTxConcurrencyToClient,
        {{VexProto::TX_CONCURRENCY_INVALID, -1, ""},
         {VexProto::DSDA_FULL_CONCURRENCY, RUX_TX_CONCURRENCY_FULL, ""},
         {VexProto::DSDA_TX_SHARING, RUX_TX_CONCURRENCY_SHARING, ""},
         {3, -1, ""},
         {-1, -1, ""},
         {INT_MIN, -1, ""},
         {INT_MAX, -1, ""}});
}

TEST(EnumConversionsToClientTest, UnknownMitigationTypeIsDeliveredAsOneAndLogged) {
    const char* log = "Unknown Mitigation type!";
    checkTable<VexProto::CellMitigationType, cell_mitigation_type_e>(
        "convertProtoMitigationTypeToClient", convertProtoMitigationTypeToClient,
        {{VexProto::CELL_PREFERRED, RUX_CELL_MITIGATION_PREFERRED, ""},
         {VexProto::CELL_INFO, RUX_CELL_MITIGATION_INFO, ""},
         {VexProto::CELL_DUBIOUS, 1, log},
         {3, 1, log},
         {-1, 1, log},
         {INT_MIN, 1, log},
         {INT_MAX, 1, log}});
}

TEST(EnumConversionsToClientTest, UnknownFeedbackCauseIsDeliveredAsZeroAndLogged) {
    const char* log = "Unknown Feedback Cause type!";
    checkTable<VexProto::CellFeedbackCauseType, cell_feedback_cause_e>(
        "convertFeedbackCauseTypeToClient", convertFeedbackCauseTypeToClient,
        {{VexProto::CELL_FB_CAUSE_CONFLICT, RUX_CELL_FB_CAUSE_CONFLICT, ""},
         {VexProto::CELL_FB_CAUSE_DELETE, RUX_CELL_FB_CAUSE_DELETE, ""},
         {2, 0, log},
         {-1, 0, log},
         {INT_MIN, 0, log},
         {INT_MAX, 0, log}});
}

}  // namespace
