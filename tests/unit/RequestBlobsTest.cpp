// Request blobs and local replies: the envelope each enum-only builder and each
// registration writes (event id, the transaction id, the payload in member event id + 1),
// and the reply each
// local-reply builder writes. Which status each bad argument gets is pinned at the C
// interface (MavoClientTest), the cell records' bytes by CellConversionsTest.
#include <gtest/gtest.h>

#include <string>

#include "SdkTestSupport.h"
#include "client/EnumConversions.h"
#include "client/RequestBlobs.h"

namespace {

using namespace rux::client;
using rux::test::hex;

constexpr unsigned long kTid = 0x100000003UL;  // wider than 32 bits: the envelope keeps it

// "<event id>: <payload bytes>" for an envelope with `tid` whose data holds member event
// id + 1; what is wrong otherwise.
template <typename Msg>
std::string envelope(const Blob& blob, unsigned long tid = kTid) {
    Msg msg;
    if (!msg.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) return "unparsable";
    if (msg.transaction_id() != tid) return "tid " + std::to_string(msg.transaction_id());
    const int member = static_cast<int>(msg.data().msg_type_case());
    if (member != msg.event_id() + 1) return "member " + std::to_string(member);
    const std::string data = msg.data().SerializeAsString();
    // The member's tag and length, each a varint (members from 16 on take two tag bytes).
    size_t i = 0;
    for (int varint = 0; varint < 2; ++varint)
        while (i < data.size() && (static_cast<unsigned char>(data[i++]) & 0x80) != 0) {
        }
    return std::to_string(msg.event_id()) + ": " + hex(data.substr(i));
}

TEST(RequestBlobsTest, EachBuilderWritesItsRequest) {
    const struct {
        BlobResult got;
        const char* expected;  // "<event id>: <payload>", or the failure's status
        unsigned long tid = kTid;
    } cases[] = {
        {makeSetCoverageStateReqBlob(kTid, RUX_SLOT_ID_SECOND, RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE),
         "0: 08 02 10 02"},
        // A bad slot wins over a bad state.
        {makeSetCoverageStateReqBlob(kTid, static_cast<slot_id_e>(3), static_cast<coverage_state_e>(3)),
         "7"},
        {makeSetHstStateReqBlob(kTid, RUX_HST_STATE_NOT_SET), "1: 08 02"},
        {makeGetHstStateReqBlob(kTid), "2: "},
        {makeEnableCellBarringFeatureReqBlob(kTid, RUX_SLOT_ID_THIRD, true), "4: 08 03 10 01"},
        {makeEnableCellBarringFeatureReqBlob(kTid, RUX_SLOT_ID_FIRST, false), "4: 08 01"},
        {makeSetL2NRSelectionReqBlob(kTid, RUX_SLOT_ID_FIRST), "6: 08 01"},
        {makeSetOutOfServiceReqBlob(kTid, RUX_SLOT_ID_SECOND, RUX_SCAN_STATE_SLOW), "7: 08 02 10 01"},
        // An unknown scan state is sent as INVALID_SCAN (0, so absent).
        {makeSetOutOfServiceReqBlob(kTid, RUX_SLOT_ID_SECOND, static_cast<scan_state_e>(2)), "7: 08 02"},
        {makeSetFlightModeStateReqBlob(kTid, RUX_FLIGHT_MODE_STATE_IN_FLIGHT), "18: 08 02"},
        {makeSetDeviceFoldStateReqBlob(kTid, RUX_DEVICE_FOLD_STATE_OPEN), "19: 08 01"},
        {makeSetSubwayStateReqBlob(kTid, RUX_SUBWAY_STATE_IN_CARRIAGE), "21: 08 02"},
        {{makeRegisterClientReqBlob(kTid), RUX_STATUS_SUCCESS}, "16: "},
        {{makeRegisterDppdIndicationReqBlob(), RUX_STATUS_SUCCESS}, "10: ", 0},
        {{makeRegisterMultiSimSubmodeIndicationReqBlob(), RUX_STATUS_SUCCESS}, "11: ", 0},
    };
    for (const auto& c : cases) {
        const auto& [blob, status] = c.got;
        if (status == RUX_STATUS_SUCCESS)
            EXPECT_EQ(envelope<VexProto::ClientMsg>(blob, c.tid), c.expected);
        else
            EXPECT_EQ(std::to_string(status) + (blob.empty() ? "" : " and a blob"), c.expected);
    }
}

// Each local reply answers with its request's response event and the status on the wire,
// in field 1 of the response; a status that does not exist goes as STATUS_INVALID (0).
TEST(RequestBlobsTest, EachLocalReplyCarriesItsResponseEventAndTheWireStatus) {
    const struct {
        Blob (*build)(unsigned long, status_e);
        int replyId;
    } replies[] = {
        {makeSetCoverageStateRespBlob, 0},     {makeSetHstStateRespBlob, 1},
        {makeGetHstStateRespBlob, 2},          {makeEnableCellBarringFeatureRespBlob, 5},
        {makeSetL2NRSelectionRespBlob, 7},     {makeSetOutOfServiceRespBlob, 8},
        {makeSetFlightModeStateRespBlob, 20},  {makeSetDeviceFoldStateRespBlob, 21},
        {makeSetSubwayStateRespBlob, 24},      {makeSetCellBarringInfoRespBlob, 4},
        {makeSendDataStallParametersRespBlob, 6}, {makeSetLteDubiousCellListRespBlob, 9},
        {makeSetNrDubiousCellListRespBlob, 10}, {makeSetPreferredCellListRespBlob, 19},
    };
    const std::pair<int, const char*> statuses[] = {
        {RUX_STATUS_INVALID_ARG, "08 02"}, {RUX_STATUS_INTERNAL_ERR, "08 03"},
        {RUX_STATUS_INVALID_SLOT, "08 08"}, {8, ""}};
    for (const auto& r : replies)
        for (const auto& [status, payload] : statuses)
            EXPECT_EQ(envelope<VexProto::ServiceMsg>(r.build(kTid, static_cast<status_e>(status))),
                      std::to_string(r.replyId) + ": " + payload)
                << status;
}

}  // namespace
