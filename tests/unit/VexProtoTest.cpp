// The VexProto schema on the wire: exact bytes of representative messages (the service
// decodes these bytes), and the rule that a request payload's member number is its event
// id + 1.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "SdkTestSupport.h"
#include "vex.pb.h"

namespace {

using google::protobuf::MessageLite;
using namespace VexProto;

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
// clang-format on

TEST(VexWireTest, EachExampleIsWrittenAsTheseBytes) {
    for (const auto& c : kEncodeCases) {
        const auto msg = c.build();
        // Sized first, then written into a buffer of exactly that size, as the client does.
        std::string buf(msg->ByteSizeLong(), '\0');
        EXPECT_TRUE(msg->SerializeToArray(buf.data(), static_cast<int>(buf.size())));
        EXPECT_EQ(rux::test::hex(buf), c.bytes) << c.name;
    }
}

// The member number of a request's payload is its event id + 1, as the service reads it.
// The replies' side is pinned by the reply dispatcher's table, which drops any other.
TEST(VexWireTest, MemberNumberIsEventIdPlusOne) {
    using C = ClientData;
    // clang-format off
    const std::pair<int, int> pairs[] = {
        {SET_COVERAGE_STATE_REQ, C::kSetCoverageStateReq}, {SET_HST_STATE_REQ, C::kSetHstStateReq},
        {GET_HST_STATE_REQ, C::kGetHstStateReq}, {SET_CELL_BARRING_INFO_REQ, C::kSetCellBarringInfoReq},
        {ENABLE_CELL_BARRING_FEATURE_REQ, C::kEnableCellBarringFeatureReq},
        {SEND_DATA_STALL_PARAMETERS_REQ, C::kSendDataStallParametersReq},
        {SET_L2NR_SELECTION_REQ, C::kSetL2NrSelectionReq}, {SET_OUT_OF_SERVICE_REQ, C::kSetOutOfServiceReq},
        {SET_LTE_DUBIOUS_CELL_LIST_REQ, C::kSetLteDubiousCellListReq},
        {SET_NR_DUBIOUS_CELL_LIST_REQ, C::kSetNrDubiousCellListReq},
        {REGISTER_DPPD_INDICATION_REQ, C::kRegisterDppdIndicationReq},
        {REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ, C::kRegisterMultiSimSubmodeIndicationReq},
        {GET_DPPD_CAPABILITY_REQ, C::kGetDppdCapabailityReq},
        {GET_DPPD_RECOMMENDATION_REQ, C::kGetDppdRecommendationReq}, {UPDATE_DPPD_UI_REQ, C::kUpdateDppdUiReq},
        {GET_MULTI_SUM_SUBMODE_INFO_REQ, C::kGetMultiSimSubmodeInfoReq},
        {REGISTER_CLIENT_REQ, C::kRegisterClientReq}, {SET_PREFERRED_CELL_LIST_REQ, C::kSetPrefCellListReq},
        {SET_FLIGHT_MODE_STATE_REQ, C::kSetFlightModeStateReq},
        {SET_DEVICE_FOLD_STATE_REQ, C::kSetDeviceFoldStateReq},
        {SET_CELL_LIST_INFO_REQ, C::kSetCellListInfoReq}, {SET_SUBWAY_STATE_REQ, C::kSetSubwayStateReq},
        {SET_DUBIOUS_LIST_V2_REQ, C::kSetDubiousCellListV2Req},
    };
    // clang-format on
    static_assert(std::size(pairs) == ClientEventId_ARRAYSIZE);
    for (const auto& [id, member] : pairs) EXPECT_EQ(member, id + 1) << "event " << id;
}

}  // namespace
