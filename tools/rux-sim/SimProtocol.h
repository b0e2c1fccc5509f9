// What rux-sim knows about VexProto: which response answers which request, how to build
// a response or an indication, and how to print any envelope as one readable line.
// Pure functions over protobuf messages: no state, no locks, never throw.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vex.pb.h"

namespace rux::sim {

constexpr int kClientEventCount = VexProto::ClientEventId_ARRAYSIZE;    // 23
constexpr int kServiceEventCount = VexProto::ServiceEventId_ARRAYSIZE;  // 27

// The values a query is answered with (the "value" control command).
struct AnswerValues {
    VexProto::HstState hstState = VexProto::HST_STATE_NOT_SET;
    bool dppdCapable = true;
    // UpdateDppdUiResp: the request's own flag when echoUiOption, else uiOption.
    bool echoUiOption = true;
    bool uiOption = false;
    VexProto::VexRecommendationAction action = VexProto::DATA_ALLOWED;
    VexProto::VexRecommendationSubs subs = VexProto::DDS;
    VexProto::VexSubMode subMode = VexProto::DSDA;
    VexProto::VexTxConcurrency txConcurrency = VexProto::DSDA_FULL_CONCURRENCY;
};

// The response event of a request event, or nothing for the requests that get no reply
// (REGISTER_CLIENT_REQ and the two indication registrations) and for unknown events.
std::optional<VexProto::ServiceEventId> responseEventFor(int requestEvent);

// The ServiceMsg answering `request` with `status` (wire Status; any number travels) and
// `values`. The response event comes from responseEventFor; call it only when that has one.
VexProto::ServiceMsg buildResponse(const VexProto::ClientMsg& request,
                                   VexProto::ServiceEventId responseEvent, int status,
                                   const AnswerValues& values);

// A ServiceMsg for any event id (also ids without a ServiceData member, such as 27) with
// transaction id `tid`. Events that carry a Status get `status`; the others get their
// fields from `values`. Ids without a member carry no data.
VexProto::ServiceMsg buildServiceMsg(int event, uint64_t tid, int status,
                                     const AnswerValues& values);

// "SET_HST_STATE_REQ {hst_state: HST_STATE_SET}", with the payload's fields by name; a
// payload that does not match the event id is shown as "{payload: <member>}", a missing
// one as "{no payload}". Cell lists are summarised as counts.
std::string describeRequest(const VexProto::ClientMsg& msg);
std::string describeService(const VexProto::ServiceMsg& msg);

// Enum values by name or number ("SET_HST_STATE_REQ" or "1"). Numbers outside the
// declared range are accepted where `anyNumber` (they travel unchanged: proto3 enums are
// open).
std::optional<int> parseClientEvent(const std::string& text);
std::optional<int> parseServiceEvent(const std::string& text, bool anyNumber);
// A status as an application sees it, by the C interface's name or number
// ("RUX_STATUS_NOT_SUPPORTED" or "3"), or by its wire name ("STATUS_NOT_SUPPORTED").
// Returns the wire value, the C value plus one; any C number below INT_MAX travels, so
// -1 gives wire 0 and 8 gives wire 9.
std::optional<int> parseStatus(const std::string& text);
std::optional<bool> parseBool(const std::string& text);   // true/false/on/off/1/0
std::optional<int> parseNumber(const std::string& text);  // a 32-bit signed number

// Any VexProto enum: `parse` is its generated E_Parse. Numbers pass unchecked.
template <typename E, typename ParseFn>
std::optional<int> parseEnum(const std::string& text, ParseFn parse) {
    E value{};
    if (parse(text, &value)) return static_cast<int>(value);
    return parseNumber(text);
}

// The name `name` gives a value (a generated E_Name), or the number when it has none.
template <typename NameFn>
std::string nameOr(int value, NameFn name) {
    std::string text = name(value);
    return text.empty() ? std::to_string(value) : text;
}

// The name of a declared value, otherwise the number.
std::string clientEventName(int event);
std::string serviceEventName(int event);
std::string statusName(int status);

}  // namespace rux::sim
