// Wire-level tests of the VexProto schema: exact bytes of representative
// messages, the oneof envelopes, enum ranges and names, and unknown-field
// preservation. The service decodes these bytes, so each case pins bytes or
// values rather than merely round-tripping.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "vex.pb.h"

namespace {

using google::protobuf::MessageLite;
using namespace VexProto;

// "08 01 1A 00" style rendering, so a failure shows the differing bytes.
std::string hex(const std::string& bytes) {
  std::string out;
  char buf[4];
  for (unsigned char c : bytes) {
    std::snprintf(buf, sizeof buf, "%02X", c);
    if (!out.empty()) out += ' ';
    out += buf;
  }
  return out;
}

std::string unhex(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); i += 3)
    out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  return out;
}

// Serialise the way the client does: ask for the size, fill a buffer of
// exactly that size.
std::string serialise(const MessageLite& msg) {
  std::string buf(msg.ByteSizeLong(), '\0');
  EXPECT_TRUE(msg.SerializeToArray(buf.data(), static_cast<int>(buf.size())));
  return buf;
}

// ---------------------------------------------------------------------------
// Encoding: one message, its exact bytes.

struct EncodeCase {
  const char* name;
  std::function<std::shared_ptr<MessageLite>()> build;
  const char* bytes;
};

template <typename T>
std::shared_ptr<MessageLite> make(const std::function<void(T&)>& fill) {
  auto m = std::make_shared<T>();
  fill(*m);
  return m;
}

const EncodeCase kEncodeCases[] = {
    {"SetHstStateRespEnvelope",
     [] {
       return make<ServiceMsg>([](ServiceMsg& m) {
         m.set_event_id(SET_HST_STATE_RESP);
         m.set_transaction_id(5);
         m.mutable_data()->mutable_set_hst_state_resp()->set_status(STATUS_SUCCESS);
       });
     },
     "08 01 10 05 1A 04 12 02 08 01"},
    {"ZeroEventAndTxnLeaveOnlyData",
     [] {
       return make<ClientMsg>([](ClientMsg& m) {
         m.set_event_id(SET_COVERAGE_STATE_REQ);
         m.set_transaction_id(0);
         auto* r = m.mutable_data()->mutable_set_coverage_state_req();
         r->set_slot_id(SLOT_ID_FIRST);
         r->set_coverage_state(COVERAGE_STATE_IN_COVERAGE_HOLE);
       });
     },
     "1A 06 0A 04 08 01 10 01"},
    {"EnvelopeWithoutDataIsEmpty", [] { return make<ClientMsg>([](ClientMsg&) {}); }, ""},
    {"EmptyDataStillHasPresence",
     [] { return make<ServiceMsg>([](ServiceMsg& m) { m.mutable_data(); }); }, "1A 00"},
    {"EmptyOneofMemberWritten",
     [] { return make<ClientData>([](ClientData& d) { d.mutable_get_hst_state_req(); }); },
     "1A 00"},
    {"MisspelledCapabilityMemberIs13",
     [] { return make<ClientData>([](ClientData& d) { d.mutable_get_dppd_capabaility_req(); }); },
     "6A 00"},
    {"DubiousV2AnsweredByMember27",
     [] {
       return make<ServiceMsg>([](ServiceMsg& m) {
         m.set_event_id(SET_DUBIOUS_LIST_V2_RESP);
         m.mutable_data()->mutable_vex_status_resp()->set_status(STATUS_SUCCESS);
       });
     },
     "08 1A 1A 05 DA 01 02 08 01"},
    {"TransactionIdFull64Bits",
     [] { return make<ClientMsg>([](ClientMsg& m) { m.set_transaction_id(UINT64_MAX); }); },
     "10 FF FF FF FF FF FF FF FF FF 01"},
    {"GetHstStateRespAllZero", [] { return make<GetHstStateResp>([](GetHstStateResp&) {}); }, ""},
    {"UpdateDppdUIReqFalse",
     [] { return make<UpdateDppdUIReq>([](UpdateDppdUIReq& r) { r.set_ui_option_enabled(false); }); },
     ""},
    {"UpdateDppdUIReqTrue",
     [] { return make<UpdateDppdUIReq>([](UpdateDppdUIReq& r) { r.set_ui_option_enabled(true); }); },
     "08 01"},
    {"SetCoverageStateReq",
     [] {
       return make<SetCoverageStateReq>([](SetCoverageStateReq& r) {
         r.set_slot_id(SLOT_ID_FIRST);
         r.set_coverage_state(COVERAGE_STATE_IN_COVERAGE_HOLE);
       });
     },
     "08 01 10 01"},
    {"DataStallParamMinusOneIsTenBytes",
     [] { return make<VexDataStallParams>([](VexDataStallParams& p) { p.set_param1(-1); }); },
     "20 FF FF FF FF FF FF FF FF FF 01"},
    {"ZeroPlmnIsEmpty",
     [] {
       return make<PlmnIdType>([](PlmnIdType& p) {
         p.set_mcc(0);
         p.set_mnc(0);
         p.set_mnc_includes_pcs_digit(false);
       });
     },
     ""},
    {"LteCellWithEmptyPlmn",
     [] { return make<LteCellInfoType>([](LteCellInfoType& c) { c.mutable_plmn(); }); }, "0A 00"},
    {"LteAuxValuesPacked",
     [] {
       return make<LteCellInfoType>([](LteCellInfoType& c) {
         c.add_aux_values(1);
         c.add_aux_values(300);
       });
     },
     "3A 03 01 AC 02"},
    {"NrAuxValuesPackedAtField8",
     [] { return make<NrCellInfoType>([](NrCellInfoType& c) { c.add_aux_values(2); }); }, "42 01 02"},
    {"NrScsInvalidIsTenBytes",
     [] { return make<NrCellInfoType>([](NrCellInfoType& c) { c.set_scs(NR5G_SCS_INVALID); }); },
     "30 FF FF FF FF FF FF FF FF FF 01"},
    {"NrScs15IsDefault",
     [] { return make<NrCellInfoType>([](NrCellInfoType& c) { c.set_scs(NR5G_SCS_15); }); }, ""},
    {"CellIdentity64Bit",
     [] { return make<CellInfoType>([](CellInfoType& c) { c.set_cell_identity(1ULL << 32); }); },
     "10 80 80 80 80 10"},
    {"RsWrittenWhateverItsFlag",
     [] {
       return make<CellPropertyCategoryType>([](CellPropertyCategoryType& p) {
         p.set_rs_valid(false);
         p.mutable_rs()->add_shared_plmn()->set_mcc(460);
       });
     },
     "32 05 0A 03 08 CC 03"},
    {"RsFlagAndRs",
     [] {
       return make<CellPropertyCategoryType>([](CellPropertyCategoryType& p) {
         p.set_rs_valid(true);
         p.mutable_rs();
       });
     },
     "28 01 32 00"},
    {"BandUsesHistoricalValue",
     [] {
       return make<LteCellInfoType>(
           [](LteCellInfoType& c) { c.set_band(E_UTRA_OPERATING_BAND_250); });
     },
     "18 A2 01"},
};

class VexEncodeTest : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(VexEncodeTest, WritesExactBytes) {
  auto msg = GetParam().build();
  EXPECT_EQ(hex(serialise(*msg)), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Wire, VexEncodeTest, ::testing::ValuesIn(kEncodeCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Decoding.

TEST(VexDecodeTest, ZeroBytesIsDefaultEnvelope) {
  ServiceMsg m;
  ASSERT_TRUE(m.ParseFromString(std::string()));
  EXPECT_EQ(m.event_id(), SET_COVERAGE_STATE_RESP);
  EXPECT_EQ(m.transaction_id(), 0u);
  EXPECT_FALSE(m.has_data());
  EXPECT_EQ(m.data().msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);

  GetHstStateResp r;
  ASSERT_TRUE(r.ParseFromString(std::string()));
  EXPECT_EQ(r.status(), STATUS_INVALID);
  EXPECT_EQ(r.hst_state(), HST_STATE_UNKNOWN);
}

TEST(VexDecodeTest, UndeclaredEnumValueKeptAsNumber) {
  HstStateChangeInd ind;
  ASSERT_TRUE(ind.ParseFromString(unhex("08 07")));
  EXPECT_EQ(static_cast<int>(ind.hst_state()), 7);
  EXPECT_FALSE(HstState_IsValid(7));
  EXPECT_EQ(hex(serialise(ind)), "08 07");
}

TEST(VexDecodeTest, NegativeScsParsesBack) {
  NrCellInfoType c;
  ASSERT_TRUE(c.ParseFromString(unhex("30 FF FF FF FF FF FF FF FF FF 01")));
  EXPECT_EQ(c.scs(), NR5G_SCS_INVALID);
  EXPECT_EQ(static_cast<int>(c.scs()), -1);
}

TEST(VexDecodeTest, UnknownEventAndMemberLeaveOneofEmpty) {
  // Event 27 with ServiceData member 28: neither is known to this client.
  ServiceMsg m;
  ASSERT_TRUE(m.ParseFromString(unhex("08 1B 1A 03 E2 01 00")));
  EXPECT_EQ(static_cast<int>(m.event_id()), 27);
  EXPECT_TRUE(m.has_data());
  EXPECT_EQ(m.data().msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);
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
  ASSERT_EQ(d.msg_type_case(), ClientData::kSetHstStateReq);
  d.mutable_get_hst_state_req();
  EXPECT_EQ(d.msg_type_case(), ClientData::kGetHstStateReq);
  EXPECT_FALSE(d.has_set_hst_state_req());
  EXPECT_EQ(hex(serialise(d)), "1A 00");
  d.clear_msg_type();
  EXPECT_EQ(d.msg_type_case(), ClientData::MSG_TYPE_NOT_SET);
  EXPECT_EQ(d.ByteSizeLong(), 0u);
}

// The member number of a payload is its event id + 1; the reply dispatcher
// relies on it.
TEST(VexOneofTest, MemberNumberIsEventIdPlusOne) {
  const std::vector<std::pair<ClientEventId, ClientData::MsgTypeCase>> client = {
      {SET_COVERAGE_STATE_REQ, ClientData::kSetCoverageStateReq},
      {SET_HST_STATE_REQ, ClientData::kSetHstStateReq},
      {GET_HST_STATE_REQ, ClientData::kGetHstStateReq},
      {SET_CELL_BARRING_INFO_REQ, ClientData::kSetCellBarringInfoReq},
      {ENABLE_CELL_BARRING_FEATURE_REQ, ClientData::kEnableCellBarringFeatureReq},
      {SEND_DATA_STALL_PARAMETERS_REQ, ClientData::kSendDataStallParametersReq},
      {SET_L2NR_SELECTION_REQ, ClientData::kSetL2NrSelectionReq},
      {SET_OUT_OF_SERVICE_REQ, ClientData::kSetOutOfServiceReq},
      {SET_LTE_DUBIOUS_CELL_LIST_REQ, ClientData::kSetLteDubiousCellListReq},
      {SET_NR_DUBIOUS_CELL_LIST_REQ, ClientData::kSetNrDubiousCellListReq},
      {REGISTER_DPPD_INDICATION_REQ, ClientData::kRegisterDppdIndicationReq},
      {REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ,
       ClientData::kRegisterMultiSimSubmodeIndicationReq},
      {GET_DPPD_CAPABILITY_REQ, ClientData::kGetDppdCapabailityReq},
      {GET_DPPD_RECOMMENDATION_REQ, ClientData::kGetDppdRecommendationReq},
      {UPDATE_DPPD_UI_REQ, ClientData::kUpdateDppdUiReq},
      {GET_MULTI_SUM_SUBMODE_INFO_REQ, ClientData::kGetMultiSimSubmodeInfoReq},
      {REGISTER_CLIENT_REQ, ClientData::kRegisterClientReq},
      {SET_PREFERRED_CELL_LIST_REQ, ClientData::kSetPrefCellListReq},
      {SET_FLIGHT_MODE_STATE_REQ, ClientData::kSetFlightModeStateReq},
      {SET_DEVICE_FOLD_STATE_REQ, ClientData::kSetDeviceFoldStateReq},
      {SET_CELL_LIST_INFO_REQ, ClientData::kSetCellListInfoReq},
      {SET_SUBWAY_STATE_REQ, ClientData::kSetSubwayStateReq},
      {SET_DUBIOUS_LIST_V2_REQ, ClientData::kSetDubiousCellListV2Req},
  };
  ASSERT_EQ(client.size(), 23u);
  for (const auto& [id, member] : client)
    EXPECT_EQ(static_cast<int>(member), id + 1) << ClientEventId_Name(id);

  const std::vector<std::pair<ServiceEventId, ServiceData::MsgTypeCase>> service = {
      {SET_COVERAGE_STATE_RESP, ServiceData::kSetCoverageStateResp},
      {SET_HST_STATE_RESP, ServiceData::kSetHstStateResp},
      {GET_HST_STATE_RESP, ServiceData::kGetHstStateResp},
      {HST_STATE_CHANGE_IND, ServiceData::kHstStateChangeInd},
      {SET_CELL_BARRING_INFO_RESP, ServiceData::kSetCellBarringInfoResp},
      {ENABLE_CELL_BARRING_FEATURE_RESP, ServiceData::kEnableCellBarringFeatureResp},
      {SEND_DATA_STALL_PARAMETERS_RESP, ServiceData::kSendDataStallParametersResp},
      {SET_L2NR_SELECTION_RESP, ServiceData::kSetL2NrSelectionResp},
      {SET_OUT_OF_SERVICE_RESP, ServiceData::kSetOutOfServiceResp},
      {SET_LTE_DUBIOUS_CELL_LIST_RESP, ServiceData::kSetLteDubiousCellListResp},
      {SET_NR_DUBIOUS_CELL_LIST_RESP, ServiceData::kSetNrDubiousCellListResp},
      {SERVICE_STATUS_IND, ServiceData::kServiceStatusInd},
      {GET_DPPD_CAPABILITY_RESP, ServiceData::kGetDppdCapabailityResp},
      {UPDATE_DPPD_UI_RESP, ServiceData::kUpdateDppdUiResp},
      {NOTIFY_DPPD_CAPABILITY_IND, ServiceData::kNotifyDppdCapabilityInd},
      {GET_DPPD_RECOMMENDATION_RESP, ServiceData::kGetDppdRecommendationResp},
      {NOTIFY_DPPD_RECOMMENDATION_IND, ServiceData::kNotifyDppdRecommendationInd},
      {GET_MULTI_SIM_MODE_INFO_RESP, ServiceData::kGetMultiSimModeInfoResp},
      {NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND, ServiceData::kNotifyMultiSimModeInfoInd},
      {SET_PREFERRED_CELL_LIST_RESP, ServiceData::kSetPrefCellListResp},
      {SET_FLIGHT_MODE_STATE_RESP, ServiceData::kSetFlightModeStateResp},
      {SET_DEVICE_FOLD_STATE_RESP, ServiceData::kSetDeviceFoldStateResp},
      {SET_CELL_LIST_INFO_RESP, ServiceData::kSetCellListInfoResp},
      {CELL_LIST_INFO_IND_RESP, ServiceData::kCellListInfoIndResp},
      {SET_SUBWAY_STATE_RESP, ServiceData::kSetSubwayStateResp},
      {SUBWAY_STATE_CHANGE_IND, ServiceData::kSubwayStateChangeInd},
      {SET_DUBIOUS_LIST_V2_RESP, ServiceData::kVexStatusResp},
  };
  ASSERT_EQ(service.size(), 27u);
  for (const auto& [id, member] : service)
    EXPECT_EQ(static_cast<int>(member), id + 1) << ServiceEventId_Name(id);
}

// ---------------------------------------------------------------------------
// Enum companions.

struct EnumRange {
  const char* name;
  bool (*is_valid)(int);
  int min;
  int max;
};

TEST(VexEnumTest, IsValidExactlyOnDeclaredRange) {
  const EnumRange ranges[] = {
      {"ClientEventId", ClientEventId_IsValid, 0, 22},
      {"ServiceEventId", ServiceEventId_IsValid, 0, 26},
      {"Status", Status_IsValid, 0, 8},
      {"HstState", HstState_IsValid, 0, 2},
      {"SubwayState", SubwayState_IsValid, 0, 3},
      {"CoverageState", CoverageState_IsValid, 0, 2},
      {"FlightModeState", FlightModeState_IsValid, 0, 3},
      {"DeviceFoldState", DeviceFoldState_IsValid, 0, 2},
      {"SlotId", SlotId_IsValid, 0, 3},
      {"VexScanState", VexScanState_IsValid, 0, 2},
      {"VexTrafficDirection", VexTrafficDirection_IsValid, 0, 2},
      {"VexApplicationType", VexApplicationType_IsValid, 0, 7},
      {"VexRecommendationAction", VexRecommendationAction_IsValid, 0, 1},
      {"VexRecommendationSubs", VexRecommendationSubs_IsValid, 0, 1},
      {"VexSubMode", VexSubMode_IsValid, 0, 1},
      {"VexTxConcurrency", VexTxConcurrency_IsValid, 0, 2},
      {"CellMitigationType", CellMitigationType_IsValid, 0, 2},
      {"CellFeedbackCauseType", CellFeedbackCauseType_IsValid, 0, 1},
      {"CellInfoCauseMaskType", CellInfoCauseMaskType_IsValid, 0, 1},
      {"CellPrefCauseMaskType", CellPrefCauseMaskType_IsValid, 0, 1},
      {"Nr5gScsType", Nr5gScsType_IsValid, -1, 4},
  };
  for (const auto& r : ranges)
    for (int v = r.min - 3; v <= r.max + 3; ++v)
      EXPECT_EQ(r.is_valid(v), v >= r.min && v <= r.max) << r.name << " " << v;
}

// Names whose value is easy to get wrong: non-alphabetical orders and the
// deliberate misspelling.
TEST(VexEnumTest, NamesOfTrickyValues) {
  const std::pair<std::string, std::string> names[] = {
      {ClientEventId_Name(15), "GET_MULTI_SUM_SUBMODE_INFO_REQ"},
      {ClientEventId_Name(22), "SET_DUBIOUS_LIST_V2_REQ"},
      {ServiceEventId_Name(18), "NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND"},
      {ServiceEventId_Name(26), "SET_DUBIOUS_LIST_V2_RESP"},
      {ServiceEventId_Name(27), ""},
      {ClientEventId_Name(23), ""},
      {Status_Name(8), "STATUS_INVALID_SLOT"},
      {HstState_Name(1), "HST_STATE_SET"},
      {HstState_Name(2), "HST_STATE_NOT_SET"},
      {VexScanState_Name(1), "SLOW"},
      {VexScanState_Name(2), "NORMAL"},
      {VexApplicationType_Name(7), "FILE_TRANSFER"},
      {FlightModeState_Name(3), "FLIGHT_MODE_STATE_LANDING"},
      {VexTxConcurrency_Name(2), "DSDA_TX_SHARING"},
      {Nr5gScsType_Name(-1), "NR5G_SCS_INVALID"},
      {Nr5gScsType_Name(0), "NR5G_SCS_15"},
      {Nr5gScsType_Name(4), "NR5G_SCS_240"},
  };
  for (const auto& [got, want] : names) EXPECT_EQ(got, want);
}

// ActiveBand: the expected table is rebuilt here from the band-number lists
// in their historical order, independently of the generated code.
std::vector<std::pair<int, std::string>> expectedBands() {
  static const int kEutra[] = {1,  2,  3,  4,  5,  6,   7,   8,   9,  10, 11, 12, 13, 14, 17, 33,
                               34, 35, 36, 37, 38, 39,  40,  18,  19, 20, 21, 24, 25, 41, 42, 43,
                               23, 26, 32, 125, 126, 127, 28, 29, 30, 66, 250, 46, 27, 31, 71,
                               47, 48, 67, 68, 49, 85,  72,  73,  86, 53, 87, 88, 70, 44};
  static const int kNr[] = {1,   2,   3,   5,   7,   8,  20, 28, 38, 41, 50, 51, 66,
                            70,  71,  74,  75,  76,  77, 78, 79, 80, 81, 82, 83, 84,
                            85,  257, 258, 259, 260, 261, 12, 25, 34, 39, 40, 65, 86,
                            48,  14,  13,  18,  26,  30, 29, 53, 46, 91, 92, 93, 94,
                            96,  106, 67,  68,  89,  95, 97, 98, 99, 104, 47, 102, 105};
  static const char* kGsm[] = {"GSM_450", "GSM_480", "GSM_750", "GSM_850", "GSM_900_EXTENDED",
                               "GSM_900_PRIMARY", "GSM_900_RAILWAYS", "GSM_1800", "GSM_1900"};
  static const char* kWcdma[] = {"WCDMA_2100", "WCDMA_PCS_1900", "WCDMA_DCS_1800",
                                 "WCDMA_1700_US", "WCDMA_850", "WCDMA_800",
                                 "WCDMA_2600", "WCDMA_900", "WCDMA_1700_JAPAN",
                                 nullptr, "WCDMA_1500_JAPAN", "WCDMA_850_JAPAN"};
  std::vector<std::pair<int, std::string>> out = {{0, "BC_0"}, {1, "BC_1"}};
  for (int bc = 3; bc <= 19; ++bc) out.emplace_back(bc, "BC_" + std::to_string(bc));
  for (int i = 0; i < 9; ++i) out.emplace_back(40 + i, kGsm[i]);
  for (int i = 0; i < 12; ++i)
    if (kWcdma[i]) out.emplace_back(80 + i, kWcdma[i]);
  for (int i = 0; i < 61; ++i)
    out.emplace_back(120 + i, "E_UTRA_OPERATING_BAND_" + std::to_string(kEutra[i]));
  for (int i = 0; i < 6; ++i) out.emplace_back(200 + i, std::string("TDSCDMA_BAND_") + char('A' + i));
  for (int i = 0; i < 65; ++i) out.emplace_back(250 + i, "NR5G_BAND_" + std::to_string(kNr[i]));
  return out;
}

TEST(VexActiveBandTest, EveryValueMatchesTheBandLists) {
  const auto bands = expectedBands();
  ASSERT_EQ(bands.size(), 171u);
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
}

TEST(VexActiveBandTest, LandmarkValues) {
  EXPECT_EQ(ActiveBand_Name(120), "E_UTRA_OPERATING_BAND_1");
  EXPECT_EQ(ActiveBand_Name(162), "E_UTRA_OPERATING_BAND_250");
  EXPECT_EQ(ActiveBand_Name(180), "E_UTRA_OPERATING_BAND_44");
  EXPECT_EQ(ActiveBand_Name(250), "NR5G_BAND_1");
  EXPECT_EQ(ActiveBand_Name(277), "NR5G_BAND_257");
  EXPECT_EQ(ActiveBand_Name(314), "NR5G_BAND_105");
  for (int v : {2, 89, 92, 315}) EXPECT_FALSE(ActiveBand_IsValid(v)) << v;
  ActiveBand unused;
  EXPECT_FALSE(ActiveBand_Parse("BC_2", &unused));
}

// ---------------------------------------------------------------------------
// Unknown fields survive a parse and are written back unchanged at the end.

struct UnknownCase {
  const char* name;
  std::function<std::shared_ptr<MessageLite>()> make;
  const char* bytes;
};

class VexUnknownFieldTest : public ::testing::TestWithParam<UnknownCase> {};

TEST_P(VexUnknownFieldTest, ReserialisesIdentically) {
  auto msg = GetParam().make();
  const std::string in = unhex(GetParam().bytes);
  ASSERT_TRUE(msg->ParseFromString(in));
  EXPECT_EQ(hex(serialise(*msg)), hex(in));
}

const UnknownCase kUnknownCases[] = {
    // Known envelope followed by varint field 99.
    {"TrailingField99", [] { return std::make_shared<ServiceMsg>(); },
     "08 01 10 05 1A 04 12 02 08 01 98 06 01"},
    // Field 5 inside the nested response.
    {"InsideNestedResponse", [] { return std::make_shared<ServiceMsg>(); },
     "08 01 10 05 1A 06 12 04 08 01 28 09"},
    // An unknown ServiceData member (28) is kept as raw bytes.
    {"UnknownOneofMember", [] { return std::make_shared<ServiceMsg>(); }, "08 1B 1A 03 E2 01 00"},
    // RegisterClientReq has no fields of its own; only unknowns come back.
    {"EmptyMessage", [] { return std::make_shared<RegisterClientReq>(); }, "98 06 01 7A 02 AB CD"},
    {"AfterPackedList", [] { return std::make_shared<LteCellInfoType>(); },
     "3A 03 01 AC 02 98 06 01"},
};

INSTANTIATE_TEST_SUITE_P(Wire, VexUnknownFieldTest, ::testing::ValuesIn(kUnknownCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
