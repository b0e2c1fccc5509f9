// Wire-level tests of the VexProto schema: exact bytes of representative
// messages, the oneof envelopes, enum ranges and names, and unknown-field
// preservation. The service decodes these bytes, so each case pins bytes or
// values rather than merely round-tripping.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "SdkTestSupport.h"
#include "vex.pb.h"

namespace {

using google::protobuf::MessageLite;
using rux::test::hex;
using namespace VexProto;

std::string unhex(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); i += 3)
        out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    return out;
}

// Serialise the way the client does: ask for the size, fill a buffer of exactly that size.
std::string serialise(const MessageLite& msg) {
    std::string buf(msg.ByteSizeLong(), '\0');
    EXPECT_TRUE(msg.SerializeToArray(buf.data(), static_cast<int>(buf.size())));
    return buf;
}

// One message and its exact bytes; `bytes` is also what an unknown-field case parses.
struct WireCase {
    const char* name;
    std::function<std::shared_ptr<MessageLite>()> build;
    const char* bytes;
};

template <typename T, typename Fill>
std::shared_ptr<MessageLite> make(Fill fill) {
    auto m = std::make_shared<T>();
    fill(*m);
    return m;
}
// clang-format off
// A case named `name` whose message of type T is filled in by the statements given (as m).
#define WIRE(T, name, bytes, ...) {#name, [] { return make<T>([](T& m) { __VA_ARGS__; }); }, bytes}

const WireCase kEncodeCases[] = {
    WIRE(ServiceMsg, SetHstStateRespEnvelope, "08 01 10 05 1A 04 12 02 08 01",
         m.set_event_id(SET_HST_STATE_RESP); m.set_transaction_id(5);
         m.mutable_data()->mutable_set_hst_state_resp()->set_status(STATUS_SUCCESS)),
    WIRE(ClientMsg, ZeroEventAndTxnLeaveOnlyData, "1A 06 0A 04 08 01 10 01",
         m.set_event_id(SET_COVERAGE_STATE_REQ); m.set_transaction_id(0);
         auto* r = m.mutable_data()->mutable_set_coverage_state_req();
         r->set_slot_id(SLOT_ID_FIRST); r->set_coverage_state(COVERAGE_STATE_IN_COVERAGE_HOLE)),
    WIRE(ServiceMsg, EmptyDataStillHasPresence, "1A 00", m.mutable_data()),
    WIRE(ClientData, MisspelledCapabilityMemberIs13, "6A 00", m.mutable_get_dppd_capabaility_req()),
    WIRE(ServiceMsg, DubiousV2AnsweredByMember27, "08 1A 1A 05 DA 01 02 08 01",
         m.set_event_id(SET_DUBIOUS_LIST_V2_RESP);
         m.mutable_data()->mutable_vex_status_resp()->set_status(STATUS_SUCCESS)),
    WIRE(ClientMsg, TransactionIdFull64Bits, "10 FF FF FF FF FF FF FF FF FF 01",
         m.set_transaction_id(UINT64_MAX)),
    WIRE(UpdateDppdUIReq, UpdateDppdUIReqTrue, "08 01", m.set_ui_option_enabled(true)),
    WIRE(VexDataStallParams, DataStallParamMinusOneIsTenBytes, "20 FF FF FF FF FF FF FF FF FF 01",
         m.set_param1(-1)),
    WIRE(PlmnIdType, ZeroPlmnIsEmpty, "",
         m.set_mcc(0); m.set_mnc(0); m.set_mnc_includes_pcs_digit(false)),
    WIRE(LteCellInfoType, LteCellWithEmptyPlmn, "0A 00", m.mutable_plmn()),
    WIRE(LteCellInfoType, LteAuxValuesPacked, "3A 03 01 AC 02",
         m.add_aux_values(1); m.add_aux_values(300)),
    WIRE(NrCellInfoType, NrAuxValuesPackedAtField8, "42 01 02", m.add_aux_values(2)),
    WIRE(NrCellInfoType, NrScsInvalidIsTenBytes, "30 FF FF FF FF FF FF FF FF FF 01",
         m.set_scs(NR5G_SCS_INVALID)),
    WIRE(CellInfoType, CellIdentity64Bit, "10 80 80 80 80 10", m.set_cell_identity(1ULL << 32)),
    WIRE(CellPropertyCategoryType, RsWrittenWhateverItsFlag, "32 05 0A 03 08 CC 03",
         m.set_rs_valid(false); m.mutable_rs()->add_shared_plmn()->set_mcc(460)),
    WIRE(CellPropertyCategoryType, RsFlagAndRs, "28 01 32 00",
         m.set_rs_valid(true); m.mutable_rs()),
    WIRE(LteCellInfoType, BandUsesHistoricalValue, "18 A2 01",
         m.set_band(E_UTRA_OPERATING_BAND_250)),
};

// Unknown fields survive a parse and are written back unchanged at the end.
const WireCase kUnknownCases[] = {
    // Known envelope followed by varint field 99.
    WIRE(ServiceMsg, TrailingField99, "08 01 10 05 1A 04 12 02 08 01 98 06 01", (void)m),
    // Field 5 inside the nested response.
    WIRE(ServiceMsg, InsideNestedResponse, "08 01 10 05 1A 06 12 04 08 01 28 09", (void)m),
    // RegisterClientReq has no fields of its own; only unknowns come back.
    WIRE(RegisterClientReq, EmptyMessage, "98 06 01 7A 02 AB CD", (void)m),
    WIRE(LteCellInfoType, AfterPackedList, "3A 03 01 AC 02 98 06 01", (void)m),
};
// clang-format on

class VexEncodeTest : public ::testing::TestWithParam<WireCase> {};

TEST_P(VexEncodeTest, WritesExactBytes) {
    EXPECT_EQ(hex(serialise(*GetParam().build())), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Wire, VexEncodeTest, ::testing::ValuesIn(kEncodeCases),
                         [](const auto& info) { return std::string(info.param.name); });

class VexUnknownFieldTest : public ::testing::TestWithParam<WireCase> {};

TEST_P(VexUnknownFieldTest, ReserialisesIdentically) {
    auto msg = GetParam().build();
    ASSERT_TRUE(msg->ParseFromString(unhex(GetParam().bytes)));
    EXPECT_EQ(hex(serialise(*msg)), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Wire, VexUnknownFieldTest, ::testing::ValuesIn(kUnknownCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Decoding.

TEST(VexDecodeTest, ZeroBytesIsDefaultEnvelope) {
    ServiceMsg m;
    ASSERT_TRUE(m.ParseFromString(std::string()));
    EXPECT_EQ(m.event_id(), SET_COVERAGE_STATE_RESP);
    EXPECT_EQ(m.transaction_id(), 0u);
    EXPECT_FALSE(m.has_data());
    GetHstStateResp r;
    ASSERT_TRUE(r.ParseFromString(std::string()));
    EXPECT_EQ(r.status(), STATUS_INVALID);
    EXPECT_EQ(r.hst_state(), HST_STATE_UNKNOWN);
}

TEST(VexDecodeTest, UndeclaredEnumValueKeptAsNumber) {
    HstStateChangeInd ind;
    ASSERT_TRUE(ind.ParseFromString(unhex("08 07")));
    EXPECT_EQ(static_cast<int>(ind.hst_state()), 7);
    EXPECT_EQ(hex(serialise(ind)), "08 07");
}

// Event 27 with ServiceData member 28: neither is known to this client, and the member
// is kept as raw bytes.
TEST(VexDecodeTest, UnknownEventAndMemberLeaveOneofEmptyAndAreWrittenBack) {
    ServiceMsg m;
    ASSERT_TRUE(m.ParseFromString(unhex("08 1B 1A 03 E2 01 00")));
    EXPECT_EQ(static_cast<int>(m.event_id()), 27);
    EXPECT_TRUE(m.has_data());
    EXPECT_EQ(m.data().msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);
    EXPECT_EQ(hex(serialise(m)), "08 1B 1A 03 E2 01 00");
}

// Widths that the wire alone does not reveal for small values.
TEST(VexDecodeTest, CellIdentityWidthDiffersByTechnology) {
    static_assert(std::is_same_v<decltype(LteCellInfoType().cell_identity()), uint32_t>);
    static_assert(std::is_same_v<decltype(NrCellInfoType().cell_identity()), uint64_t>);
    static_assert(std::is_same_v<decltype(CellInfoType().cell_identity()), uint64_t>);
    static_assert(std::is_same_v<decltype(SetCellBarringInfoReq().param()), uint64_t>);
    static_assert(std::is_same_v<decltype(SetPreferredCellListReq().param()), uint32_t>);
    const std::string wide = unhex("10 81 80 80 80 10");  // field 2 = 2^32 + 1
    NrCellInfoType nr;
    ASSERT_TRUE(nr.ParseFromString(wide));
    EXPECT_EQ(nr.cell_identity(), (1ULL << 32) + 1);
    LteCellInfoType lte;
    ASSERT_TRUE(lte.ParseFromString(wide));
    EXPECT_EQ(lte.cell_identity(), 1u);
}

TEST(VexDecodeTest, TruncatedBlobIsRejected) {
    ServiceMsg m;
    EXPECT_FALSE(m.ParseFromString(unhex("08 01 10 05 1A 04 12 02 08")));
}

// ---------------------------------------------------------------------------
// Oneof behaviour.

TEST(VexOneofTest, SecondMemberReplacesFirst) {
    ClientData d;
    d.mutable_set_hst_state_req()->set_hst_state(HST_STATE_SET);
    d.mutable_get_hst_state_req();
    EXPECT_EQ(d.msg_type_case(), ClientData::kGetHstStateReq);
    EXPECT_FALSE(d.has_set_hst_state_req());
    EXPECT_EQ(hex(serialise(d)), "1A 00");  // an empty member is written
    d.clear_msg_type();
    EXPECT_EQ(d.msg_type_case(), ClientData::MSG_TYPE_NOT_SET);
    EXPECT_EQ(d.ByteSizeLong(), 0u);
}

// The member number of a payload is its event id + 1; the reply dispatcher relies on it.
TEST(VexOneofTest, MemberNumberIsEventIdPlusOne) {
    // clang-format off
    using C = ClientData;
    const std::pair<ClientEventId, C::MsgTypeCase> client[] = {
        {SET_COVERAGE_STATE_REQ, C::kSetCoverageStateReq}, {SET_HST_STATE_REQ, C::kSetHstStateReq},
        {GET_HST_STATE_REQ, C::kGetHstStateReq},
        {SET_CELL_BARRING_INFO_REQ, C::kSetCellBarringInfoReq},
        {ENABLE_CELL_BARRING_FEATURE_REQ, C::kEnableCellBarringFeatureReq},
        {SEND_DATA_STALL_PARAMETERS_REQ, C::kSendDataStallParametersReq},
        {SET_L2NR_SELECTION_REQ, C::kSetL2NrSelectionReq},
        {SET_OUT_OF_SERVICE_REQ, C::kSetOutOfServiceReq},
        {SET_LTE_DUBIOUS_CELL_LIST_REQ, C::kSetLteDubiousCellListReq},
        {SET_NR_DUBIOUS_CELL_LIST_REQ, C::kSetNrDubiousCellListReq},
        {REGISTER_DPPD_INDICATION_REQ, C::kRegisterDppdIndicationReq},
        {REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ, C::kRegisterMultiSimSubmodeIndicationReq},
        {GET_DPPD_CAPABILITY_REQ, C::kGetDppdCapabailityReq},
        {GET_DPPD_RECOMMENDATION_REQ, C::kGetDppdRecommendationReq},
        {UPDATE_DPPD_UI_REQ, C::kUpdateDppdUiReq},
        {GET_MULTI_SUM_SUBMODE_INFO_REQ, C::kGetMultiSimSubmodeInfoReq},
        {REGISTER_CLIENT_REQ, C::kRegisterClientReq},
        {SET_PREFERRED_CELL_LIST_REQ, C::kSetPrefCellListReq},
        {SET_FLIGHT_MODE_STATE_REQ, C::kSetFlightModeStateReq},
        {SET_DEVICE_FOLD_STATE_REQ, C::kSetDeviceFoldStateReq},
        {SET_CELL_LIST_INFO_REQ, C::kSetCellListInfoReq},
        {SET_SUBWAY_STATE_REQ, C::kSetSubwayStateReq},
        {SET_DUBIOUS_LIST_V2_REQ, C::kSetDubiousCellListV2Req},
    };
    static_assert(std::size(client) == 23);
    for (const auto& [id, member] : client)
        EXPECT_EQ(static_cast<int>(member), id + 1) << ClientEventId_Name(id);
    using S = ServiceData;
    const std::pair<ServiceEventId, S::MsgTypeCase> service[] = {
        {SET_COVERAGE_STATE_RESP, S::kSetCoverageStateResp},
        {SET_HST_STATE_RESP, S::kSetHstStateResp}, {GET_HST_STATE_RESP, S::kGetHstStateResp},
        {HST_STATE_CHANGE_IND, S::kHstStateChangeInd},
        {SET_CELL_BARRING_INFO_RESP, S::kSetCellBarringInfoResp},
        {ENABLE_CELL_BARRING_FEATURE_RESP, S::kEnableCellBarringFeatureResp},
        {SEND_DATA_STALL_PARAMETERS_RESP, S::kSendDataStallParametersResp},
        {SET_L2NR_SELECTION_RESP, S::kSetL2NrSelectionResp},
        {SET_OUT_OF_SERVICE_RESP, S::kSetOutOfServiceResp},
        {SET_LTE_DUBIOUS_CELL_LIST_RESP, S::kSetLteDubiousCellListResp},
        {SET_NR_DUBIOUS_CELL_LIST_RESP, S::kSetNrDubiousCellListResp},
        {SERVICE_STATUS_IND, S::kServiceStatusInd},
        {GET_DPPD_CAPABILITY_RESP, S::kGetDppdCapabailityResp},
        {UPDATE_DPPD_UI_RESP, S::kUpdateDppdUiResp},
        {NOTIFY_DPPD_CAPABILITY_IND, S::kNotifyDppdCapabilityInd},
        {GET_DPPD_RECOMMENDATION_RESP, S::kGetDppdRecommendationResp},
        {NOTIFY_DPPD_RECOMMENDATION_IND, S::kNotifyDppdRecommendationInd},
        {GET_MULTI_SIM_MODE_INFO_RESP, S::kGetMultiSimModeInfoResp},
        {NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND, S::kNotifyMultiSimModeInfoInd},
        {SET_PREFERRED_CELL_LIST_RESP, S::kSetPrefCellListResp},
        {SET_FLIGHT_MODE_STATE_RESP, S::kSetFlightModeStateResp},
        {SET_DEVICE_FOLD_STATE_RESP, S::kSetDeviceFoldStateResp},
        {SET_CELL_LIST_INFO_RESP, S::kSetCellListInfoResp},
        {CELL_LIST_INFO_IND_RESP, S::kCellListInfoIndResp},
        {SET_SUBWAY_STATE_RESP, S::kSetSubwayStateResp},
        {SUBWAY_STATE_CHANGE_IND, S::kSubwayStateChangeInd},
        {SET_DUBIOUS_LIST_V2_RESP, S::kVexStatusResp},
    };
    static_assert(std::size(service) == 27);
    for (const auto& [id, member] : service)
        EXPECT_EQ(static_cast<int>(member), id + 1) << ServiceEventId_Name(id);
    // clang-format on
}

// ---------------------------------------------------------------------------
// Enum companions.

TEST(VexEnumTest, IsValidExactlyOnDeclaredRange) {
    // clang-format off
#define RANGE(E, min, max) {#E, E##_IsValid, min, max}
    const struct {
        const char* name;
        bool (*is_valid)(int);
        int min, max;
    } ranges[] = {
        RANGE(ClientEventId, 0, 22), RANGE(ServiceEventId, 0, 26), RANGE(Status, 0, 8),
        RANGE(HstState, 0, 2), RANGE(SubwayState, 0, 3), RANGE(CoverageState, 0, 2),
        RANGE(FlightModeState, 0, 3), RANGE(DeviceFoldState, 0, 2), RANGE(SlotId, 0, 3),
        RANGE(VexScanState, 0, 2), RANGE(VexTrafficDirection, 0, 2),
        RANGE(VexApplicationType, 0, 7), RANGE(VexRecommendationAction, 0, 1),
        RANGE(VexRecommendationSubs, 0, 1), RANGE(VexSubMode, 0, 1), RANGE(VexTxConcurrency, 0, 2),
        RANGE(CellMitigationType, 0, 2), RANGE(CellFeedbackCauseType, 0, 1),
        RANGE(CellInfoCauseMaskType, 0, 1), RANGE(CellPrefCauseMaskType, 0, 1),
        RANGE(Nr5gScsType, -1, 4),
    };
#undef RANGE
    // clang-format on
    for (const auto& r : ranges)
        for (int v = r.min - 3; v <= r.max + 3; ++v)
            EXPECT_EQ(r.is_valid(v), v >= r.min && v <= r.max) << r.name << " " << v;
}

// Names whose value is easy to get wrong: non-alphabetical orders and the
// deliberate misspelling.
TEST(VexEnumTest, NamesOfTrickyValues) {
    // clang-format off
    const std::pair<std::string, std::string> names[] = {
        {ClientEventId_Name(15), "GET_MULTI_SUM_SUBMODE_INFO_REQ"},
        {ClientEventId_Name(22), "SET_DUBIOUS_LIST_V2_REQ"},
        {ServiceEventId_Name(18), "NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND"},
        {ServiceEventId_Name(26), "SET_DUBIOUS_LIST_V2_RESP"}, {ServiceEventId_Name(27), ""},
        {ClientEventId_Name(23), ""}, {Status_Name(8), "STATUS_INVALID_SLOT"},
        {HstState_Name(1), "HST_STATE_SET"}, {HstState_Name(2), "HST_STATE_NOT_SET"},
        {VexScanState_Name(1), "SLOW"}, {VexScanState_Name(2), "NORMAL"},
        {VexApplicationType_Name(7), "FILE_TRANSFER"},
        {FlightModeState_Name(3), "FLIGHT_MODE_STATE_LANDING"},
        {VexTxConcurrency_Name(2), "DSDA_TX_SHARING"}, {Nr5gScsType_Name(-1), "NR5G_SCS_INVALID"},
        {Nr5gScsType_Name(0), "NR5G_SCS_15"}, {Nr5gScsType_Name(4), "NR5G_SCS_240"},
    };
    // clang-format on
    for (const auto& [got, want] : names) EXPECT_EQ(got, want);
}

// ActiveBand: every value against the band-number lists in their historical order,
// rebuilt here independently of the generated code.
TEST(VexActiveBandTest, EveryValueMatchesTheBandLists) {
    static const int kEutra[] = {1,  2,  3,  4,   5,   6,   7,  8,  9,  10, 11,  12, 13, 14, 17, 33,
                                 34, 35, 36, 37,  38,  39,  40, 18, 19, 20, 21,  24, 25, 41, 42, 43,
                                 23, 26, 32, 125, 126, 127, 28, 29, 30, 66, 250, 46, 27, 31, 71, 47,
                                 48, 67, 68, 49,  85,  72,  73, 86, 53, 87, 88,  70, 44};
    static const int kNr[] = {1,  2,   3,   5,   7,   8,   20, 28, 38, 41,  50, 51,  66,
                              70, 71,  74,  75,  76,  77,  78, 79, 80, 81,  82, 83,  84,
                              85, 257, 258, 259, 260, 261, 12, 25, 34, 39,  40, 65,  86,
                              48, 14,  13,  18,  26,  30,  29, 53, 46, 91,  92, 93,  94,
                              96, 106, 67,  68,  89,  95,  97, 98, 99, 104, 47, 102, 105};
    static const char* kGsm[] = {"GSM_450",          "GSM_480",          "GSM_750",
                                 "GSM_850",          "GSM_900_EXTENDED", "GSM_900_PRIMARY",
                                 "GSM_900_RAILWAYS", "GSM_1800",         "GSM_1900"};
    static const char* kWcdma[] = {"WCDMA_2100",    "WCDMA_PCS_1900",   "WCDMA_DCS_1800",
                                   "WCDMA_1700_US", "WCDMA_850",        "WCDMA_800",
                                   "WCDMA_2600",    "WCDMA_900",        "WCDMA_1700_JAPAN",
                                   nullptr,         "WCDMA_1500_JAPAN", "WCDMA_850_JAPAN"};
    std::vector<std::pair<int, std::string>> bands = {{0, "BC_0"}, {1, "BC_1"}};
    for (int bc = 3; bc <= 19; ++bc) bands.emplace_back(bc, "BC_" + std::to_string(bc));
    for (int i = 0; i < 9; ++i) bands.emplace_back(40 + i, kGsm[i]);
    for (int i = 0; i < 12; ++i)
        if (kWcdma[i]) bands.emplace_back(80 + i, kWcdma[i]);
    for (int i = 0; i < 61; ++i)
        bands.emplace_back(120 + i, "E_UTRA_OPERATING_BAND_" + std::to_string(kEutra[i]));
    for (int i = 0; i < 6; ++i)
        bands.emplace_back(200 + i, std::string("TDSCDMA_BAND_") + char('A' + i));
    for (int i = 0; i < 65; ++i) bands.emplace_back(250 + i, "NR5G_BAND_" + std::to_string(kNr[i]));

    std::set<int> valid;
    for (const auto& [value, name] : bands) {
        valid.insert(value);
        EXPECT_EQ(ActiveBand_Name(value), name) << value;
        ActiveBand parsed;
        ASSERT_TRUE(ActiveBand_Parse(name, &parsed)) << name;
        EXPECT_EQ(static_cast<int>(parsed), value) << name;
    }
    ASSERT_EQ(valid.size(), 171u);
    for (int v = -5; v <= 400; ++v) {
        EXPECT_EQ(ActiveBand_IsValid(v), valid.count(v) == 1) << v;
        if (!valid.count(v)) {
            EXPECT_EQ(ActiveBand_Name(v), "") << v;
        }
    }
    ActiveBand unused;
    EXPECT_FALSE(ActiveBand_Parse("BC_2", &unused));
}

}  // namespace
