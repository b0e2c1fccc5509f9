// Request blobs and local replies (the cell records' converters have a table of their own,
// CellConversionsTest), and through the enum-only requests' builders the request
// converters of EnumConversions.h: the envelope each builder writes (event id, transaction
// id, payload case, payload bytes), the failure it reports instead of a blob, and the log
// lines it leaves.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "SdkTestSupport.h"
#include "client/EnumConversions.h"
#include "client/RequestBlobs.h"

namespace {

using namespace rux::client;
using rux::test::hex;
using rux::test::LogCapture;

constexpr unsigned long kTid = 0x100000003UL;  // wider than 32 bits: the envelope keeps it

// The one member of a serialised ClientData or ServiceData without its tag and length
// (each a varint; members from 16 on take two tag bytes).
std::string payloadOf(const std::string& data) {
    size_t i = 0;
    for (int varint = 0; varint < 2; ++varint)
        while (i < data.size() && (static_cast<unsigned char>(data[i++]) & 0x80) != 0) {
        }
    return i <= data.size() ? data.substr(i) : std::string();
}

// The log lines of one builder, without the "|MavoClient|MavoClient::<fn>:<line> " prefix.
std::string loggedBy(const LogCapture& capture, const std::string& function) {
    std::string out;
    const std::string prefix = "|MavoClient|MavoClient::" + function + ":";
    for (const auto& line : capture.lines()) {
        if (line.text.compare(0, prefix.size(), prefix) != 0) continue;
        out += (out.empty() ? "" : "\n") + line.text.substr(line.text.find(' ') + 1);
    }
    return out;
}

struct RequestCase {
    const char* name;
    const char* function;
    BlobResult (*build)();
    status_e result;
    int eventId;                // the ClientEventId; its payload case is eventId + 1
    const char* payloadHex;     // the request message inside ClientData
    const char* conversionLog;  // lines the conversion wrote before the builder's own
};

class RequestBlobsBuildTest : public ::testing::TestWithParam<RequestCase> {};

TEST_P(RequestBlobsBuildTest, WritesTheRequestOrReturnsTheFailureWithoutABlob) {
    const auto& c = GetParam();
    LogCapture capture;
    const auto [blob, result] = c.build();
    EXPECT_EQ(result, c.result);
    if (c.result == RUX_STATUS_SUCCESS) {
        VexProto::ClientMsg message;
        ASSERT_TRUE(message.ParseFromArray(blob.data(), static_cast<int>(blob.size())));
        EXPECT_EQ(message.event_id(), c.eventId);
        EXPECT_EQ(message.transaction_id(), kTid);
        ASSERT_TRUE(message.has_data());
        EXPECT_EQ(static_cast<int>(message.data().msg_type_case()), c.eventId + 1);
        EXPECT_EQ(hex(payloadOf(message.data().SerializeAsString())), c.payloadHex);
    } else {
        EXPECT_TRUE(blob.empty());
    }
    std::string expectedLog = c.conversionLog;
    if (!expectedLog.empty()) expectedLog += "\n";
    std::string own = loggedBy(capture, c.function);
    std::string conversions;
    for (const auto& line : capture.lines())
        if (line.text.find("::" + std::string(c.function) + ":") == std::string::npos)
            conversions += line.text.substr(line.text.find(' ') + 1) + "\n";
    EXPECT_EQ(conversions + own, expectedLog + "Returning result: " + std::to_string(c.result) +
                                     ", blob.size: " + std::to_string(blob.size()))
        << capture.dump();
}

#define BUILD(fn, ...) #fn, []() { return fn(kTid, ##__VA_ARGS__); }
constexpr const char* kBadSlot = "Request received on UNKNOWN SlotId type";

const RequestCase kRequests[] = {
    {"Coverage",
     BUILD(makeSetCoverageStateReqBlob, RUX_SLOT_ID_SECOND,
           RUX_COVERAGE_STATE_OUT_OF_COVERAGE_HOLE),
     RUX_STATUS_SUCCESS, 0, "08 02 10 02", ""},
    {"CoverageBadState",
     BUILD(makeSetCoverageStateReqBlob, RUX_SLOT_ID_FIRST, static_cast<coverage_state_e>(9)),
     RUX_STATUS_INVALID_ARG, 0, "", ""},
    {"CoverageBadSlotWinsOverBadState",
     BUILD(makeSetCoverageStateReqBlob, static_cast<slot_id_e>(3),
           static_cast<coverage_state_e>(3)),
     RUX_STATUS_INVALID_SLOT, 0, "", kBadSlot},
    {"Hst", BUILD(makeSetHstStateReqBlob, RUX_HST_STATE_NOT_SET), RUX_STATUS_SUCCESS, 1, "08 02",
     ""},
    {"HstBad", BUILD(makeSetHstStateReqBlob, static_cast<hst_state_e>(-1)), RUX_STATUS_INVALID_ARG,
     1, "", ""},
    {"GetHst", BUILD(makeGetHstStateReqBlob), RUX_STATUS_SUCCESS, 2, "", ""},
    {"Barring", BUILD(makeEnableCellBarringFeatureReqBlob, RUX_SLOT_ID_THIRD, true),
     RUX_STATUS_SUCCESS, 4, "08 03 10 01", ""},
    {"BarringOff", BUILD(makeEnableCellBarringFeatureReqBlob, RUX_SLOT_ID_FIRST, false),
     RUX_STATUS_SUCCESS, 4, "08 01", ""},
    {"BarringBadSlot", BUILD(makeEnableCellBarringFeatureReqBlob, static_cast<slot_id_e>(-1), true),
     RUX_STATUS_INVALID_SLOT, 4, "", kBadSlot},
    {"L2nr", BUILD(makeSetL2NRSelectionReqBlob, RUX_SLOT_ID_FIRST), RUX_STATUS_SUCCESS, 6, "08 01",
     ""},
    {"L2nrBadSlot", BUILD(makeSetL2NRSelectionReqBlob, static_cast<slot_id_e>(5)),
     RUX_STATUS_INVALID_SLOT, 6, "", kBadSlot},
    {"OutOfService", BUILD(makeSetOutOfServiceReqBlob, RUX_SLOT_ID_SECOND, RUX_SCAN_STATE_SLOW),
     RUX_STATUS_SUCCESS, 7, "08 02 10 01", ""},
    {"OutOfServiceUnknownScan",
     BUILD(makeSetOutOfServiceReqBlob, RUX_SLOT_ID_SECOND, static_cast<scan_state_e>(2)),
     RUX_STATUS_SUCCESS, 7, "08 02", "Request received for unknown Scan State type"},
    {"Flight", BUILD(makeSetFlightModeStateReqBlob, RUX_FLIGHT_MODE_STATE_IN_FLIGHT),
     RUX_STATUS_SUCCESS, 18, "08 02", ""},
    {"FlightBad", BUILD(makeSetFlightModeStateReqBlob, static_cast<rux_flight_mode_state_e>(4)),
     RUX_STATUS_INVALID_ARG, 18, "", ""},
    {"Fold", BUILD(makeSetDeviceFoldStateReqBlob, RUX_DEVICE_FOLD_STATE_OPEN), RUX_STATUS_SUCCESS,
     19, "08 01", ""},
    {"FoldBad", BUILD(makeSetDeviceFoldStateReqBlob, static_cast<rux_device_fold_state_e>(3)),
     RUX_STATUS_INVALID_ARG, 19, "", ""},
    {"Subway", BUILD(makeSetSubwayStateReqBlob, RUX_SUBWAY_STATE_IN_CARRIAGE), RUX_STATUS_SUCCESS,
     21, "08 02", ""},
    {"SubwayBad", BUILD(makeSetSubwayStateReqBlob, static_cast<rux_subway_state_e>(4)),
     RUX_STATUS_INVALID_ARG, 21, "", ""},
};

INSTANTIATE_TEST_SUITE_P(Requests, RequestBlobsBuildTest, ::testing::ValuesIn(kRequests),
                         [](const auto& info) { return std::string(info.param.name); });

struct ReplyCase {
    const char* function;
    Blob (*build)(unsigned long, status_e);
    int replyId;  // the ServiceEventId; its payload case is replyId + 1
};

#define REPLY(fn, id) \
    { #fn, fn, id }
const ReplyCase kReplies[] = {
    REPLY(makeSetCoverageStateRespBlob, 0),    REPLY(makeSetHstStateRespBlob, 1),
    REPLY(makeGetHstStateRespBlob, 2),         REPLY(makeEnableCellBarringFeatureRespBlob, 5),
    REPLY(makeSetL2NRSelectionRespBlob, 7),    REPLY(makeSetOutOfServiceRespBlob, 8),
    REPLY(makeSetFlightModeStateRespBlob, 20), REPLY(makeSetDeviceFoldStateRespBlob, 21),
    REPLY(makeSetSubwayStateRespBlob, 24),     REPLY(makeSetCellBarringInfoRespBlob, 4),
    REPLY(makeSendDataStallParametersRespBlob, 6), REPLY(makeSetLteDubiousCellListRespBlob, 9),
    REPLY(makeSetNrDubiousCellListRespBlob, 10), REPLY(makeSetPreferredCellListRespBlob, 19),
};

class RequestBlobsReplyTest : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(RequestBlobsReplyTest, AnswersWithTheMatchingResponseAndTheWireStatus) {
    const auto& c = GetParam();
    // Statuses a failed conversion produces, and one that does not exist.
    const struct {
        int status;
        const char* payloadHex;
        status_e delivered;  // what the reply path will hand to the callback
    } statuses[] = {
        {RUX_STATUS_INVALID_ARG, "08 02", RUX_STATUS_INVALID_ARG},
        {RUX_STATUS_INVALID_SLOT, "08 08", RUX_STATUS_INVALID_SLOT},
        {RUX_STATUS_INTERNAL_ERR, "08 03", RUX_STATUS_INTERNAL_ERR},
        {8, "", RUX_STATUS_INVALID},
    };
    for (const auto& s : statuses) {
        SCOPED_TRACE(std::string(c.function) + " status " + std::to_string(s.status));
        LogCapture capture;
        const Blob blob = c.build(kTid, static_cast<status_e>(s.status));
        VexProto::ServiceMsg message;
        ASSERT_TRUE(message.ParseFromArray(blob.data(), static_cast<int>(blob.size())));
        EXPECT_EQ(message.event_id(), c.replyId);
        EXPECT_EQ(message.transaction_id(), kTid);
        ASSERT_TRUE(message.has_data());
        EXPECT_EQ(static_cast<int>(message.data().msg_type_case()), c.replyId + 1);
        const std::string payload = payloadOf(message.data().SerializeAsString());
        EXPECT_EQ(hex(payload), s.payloadHex);
        // Every response here keeps its status in field 1.
        VexProto::VexStatusResp status;
        ASSERT_TRUE(status.ParseFromString(payload));
        EXPECT_EQ(convertProtoStatusToClient(status.status()), s.delivered);
        EXPECT_EQ(loggedBy(capture, c.function),
                  "Returning blob.size: " + std::to_string(blob.size()));
    }
}

INSTANTIATE_TEST_SUITE_P(Replies, RequestBlobsReplyTest, ::testing::ValuesIn(kReplies),
                         [](const auto& info) {
                             std::string name = info.param.function;
                             return name.substr(4);  // without "make"
                         });

// Whole envelopes, byte for byte, from a builder and from the inline serialisers.
TEST(RequestBlobsTest, EnvelopeBytesAreFixed) {
    VexProto::ClientData data;
    data.mutable_register_client_req();
    VexProto::ServiceData reply;
    reply.mutable_get_dppd_capabaility_resp()->set_capable(true);
    const std::pair<Blob, const char*> cases[] = {
        // event_id 1, transaction_id 1, data { set_hst_state_req (2) { hst_state 1 } }
        {makeSetHstStateReqBlob(1, RUX_HST_STATE_SET).first, "08 01 10 01 1A 04 12 02 08 01"},
        // event_id 16, transaction_id 1, data { register_client_req (17) {} }
        {serialiseClientMsg(VexProto::REGISTER_CLIENT_REQ, 1, data), "08 10 10 01 1A 03 8A 01 00"},
        {serialiseServiceMsg(VexProto::GET_DPPD_CAPABILITY_RESP, 9, reply),
         "08 0C 10 09 1A 04 6A 02 08 01"},
    };
    for (const auto& [blob, bytes] : cases)
        EXPECT_EQ(hex(std::string(blob.begin(), blob.end())), bytes);
}

}  // namespace
