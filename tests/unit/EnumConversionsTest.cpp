// Enum translations between the C interface and VexProto: every value of every enum, the
// values just outside each range and the extremes of int, the fall-backs (a state sent
// unchanged is refused instead), and the exact log line (or silence) each one produces.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "SdkTestSupport.h"
#include "client/EnumConversions.h"

namespace {

using namespace rux::client;
using rux::test::LogCapture;
using Pairs = std::vector<std::pair<int, int>>;

// What the conversions wrote without prefixes, each line checked to be MavoClient's at
// debug priority; "" when nothing was written.
std::string loggedMessages(const LogCapture& capture) {
    for (const auto& line : capture.lines()) {
        EXPECT_EQ(line.priority, 3) << line.text;
        EXPECT_EQ(line.text.rfind("|MavoClient|MavoClient::", 0), 0u) << line.text;
    }
    return rux::test::loggedTexts(capture);
}

Pairs shifted(int low, int high, int shift) {
    Pairs out;
    for (int v = low; v <= high; ++v) out.emplace_back(v, v + shift);
    return out;
}

template <typename Out, typename In>
In argumentOf(Out (*)(In));

// A one-argument conversion: the values it knows, silently; every other value (the
// listed ones, INT_MIN and INT_MAX) gives `fallback` and the line `log` ("" for none).
struct Conversion {
    const char* function;
    int (*convert)(int);
    Pairs known;
    std::vector<int> unknown;
    int fallback;
    const char* log;
};

#define CONVERSION(fn) \
#fn, [](int v) { return static_cast<int>(fn(static_cast<decltype(argumentOf(fn))>(v))); }

// A state sent unchanged: the value, or -77 when refused with the output left as it was
// (77).
template <typename Wire, typename C>
int sentOrRefused(bool (*convert)(Wire&, C), int v) {
    Wire out = static_cast<Wire>(77);
    return convert(out, static_cast<C>(v)) ? static_cast<int>(out) : -static_cast<int>(out);
}
#define IDENTITY(fn) #fn, [](int v) { return sentOrRefused(fn, v); }

const Conversion kConversions[] = {
    {CONVERSION(convertStatusToProto), shifted(-1, 7, 1), {-2, 8}, 0,
     "Request received on UNKNOWN Status type"},
    {CONVERSION(convertSlotIdToProto), shifted(0, 2, 1), {-1, 3}, 0,
     "Request received on UNKNOWN SlotId type"},
    {CONVERSION(convertScanStateToProto), shifted(0, 1, 1), {-1, 2}, 0,
     "Request received for unknown Scan State type"},
    {CONVERSION(convertTrafficDirectionToProto), shifted(0, 1, 1), {-1, 2}, 0,
     "Request received for unknown Traffic Direction type"},
    {CONVERSION(convertApplicationTypeToProto), shifted(1, 7, 0), {0, 8}, VexProto::UNSPECIFIED,
     "Request received for unknown Application type"},
    {CONVERSION(convertModemScsToProto), shifted(0, 4, 0), {-1, 5}, -1,
     "Request received for UNKNOWN SCS type"},
    {IDENTITY(convertHstStateToProto), shifted(0, 2, 0), {-1, 3}, -77, ""},
    {IDENTITY(convertCoverageStateToProto), shifted(0, 2, 0), {-1, 3}, -77, ""},
    {IDENTITY(convertFlightModeStateToProto), shifted(0, 3, 0), {-1, 4}, -77, ""},
    {IDENTITY(convertDeviceFoldStateToProto), shifted(0, 2, 0), {-1, 3}, -77, ""},
    {IDENTITY(convertSubwayStateToProto), shifted(0, 3, 0), {-1, 4}, -77, ""},
    {CONVERSION(convertCellMitigationToProto), {{1, VexProto::CELL_PREFERRED}, {2, VexProto::CELL_INFO}},
     {0, 3, -1}, 0, "Unknown Cell Mitigation Type"},
    {CONVERSION(convertProtoStatusToClient), shifted(1, 8, -1), {0, 9, -1}, -1, ""},
    // The v2 family skips -1 and -6.
    {CONVERSION(convertProtoStatusToClientV2),
     {{1, 0}, {2, -2}, {3, -3}, {4, -4}, {5, -5}, {6, -7}, {7, -8}, {8, -9}}, {0, 9, -1}, -1, ""},
    {CONVERSION(convertProtoHstStateToClient), shifted(0, 2, 0), {3, -1}, 0, ""},
    {CONVERSION(convertProtoSubwayStateToClient), shifted(0, 3, 0), {4, -1}, 0, ""},
    {CONVERSION(convertRecommendationActionToClient), shifted(0, 1, 1), {2, -1}, 2, ""},
    {CONVERSION(convertRecommendationSubsToClient), shifted(0, 1, 1), {2, -1}, 2, ""},
    {CONVERSION(convertSubModeToClient), {{0, 0}, {1, 1}}, {2, -1}, 1, ""},
    {CONVERSION(convertTxConcurrencyToClient), {{0, -1}, {1, 0}, {2, 1}}, {3, -1}, -1, ""},
    // An unknown mitigation type is delivered as 1 and logged, a feedback cause as 0.
    {CONVERSION(convertProtoMitigationTypeToClient), {{1, 1}, {2, 2}}, {0, 3, -1}, 1,
     "Unknown Mitigation type!"},
    {CONVERSION(convertFeedbackCauseTypeToClient), {{0, 0}, {1, 1}}, {2, -1}, 0,
     "Unknown Feedback Cause type!"},
};

class EnumConversionsTest : public ::testing::TestWithParam<Conversion> {};

TEST_P(EnumConversionsTest, KnownValuesMapSilentlyAndOthersFallBack) {
    const Conversion& c = GetParam();
    LogCapture capture;
    Pairs cases = c.known;
    for (int v : c.unknown) cases.emplace_back(v, c.fallback);
    for (int v : {INT_MIN, INT_MAX}) cases.emplace_back(v, c.fallback);
    for (size_t i = 0; i < cases.size(); ++i) {
        const auto [in, out] = cases[i];
        SCOPED_TRACE(std::string(c.function) + "(" + std::to_string(in) + ")");
        capture.clear();
        EXPECT_EQ(c.convert(in), out);
        EXPECT_EQ(loggedMessages(capture), i < c.known.size() ? "" : c.log);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryOneArgumentConversion, EnumConversionsTest,
                         ::testing::ValuesIn(kConversions),
                         [](const auto& info) { return std::string(info.param.function); });

}  // namespace
