// The reply dispatcher (MavoClient::blobListener) fed one ServiceMsg blob per input, with a
// completion of every kind stored (tids 1, 3, ..., 11) and every other callback installed.
// Each callback checks its values; then the calls are checked against the blob: one at most,
// to its event's kind, with the reply's id, and an entry consumed only by a reply of its kind.
#include <cstring>
#include <memory>
#include <utility>

#include "FuzzSupport.h"
#include "client/MavoClient.h"
#include "vex.pb.h"

namespace {

enum Kind {
    kNone, kPlain, kFallback, kGetHst, kDppdFlag, kDppdRec, kSubmode, kV2,  // completions
    kHstInd, kStatusInd, kDppdCapInd, kDppdRecInd, kSubmodeInd, kCellListInd, kSubwayInd
};
// The callback each service event reaches, by event id 0..26.
constexpr Kind kEventKind[27] = {
    kPlain, kPlain, kGetHst, kHstInd, kPlain, kPlain, kPlain, kPlain, kPlain, kPlain, kPlain,
    kStatusInd, kDppdFlag, kDppdFlag, kDppdCapInd, kDppdRec, kDppdRecInd, kSubmode, kSubmodeInd,
    kPlain, kPlain, kPlain, kV2, kCellListInd, kPlain, kSubwayInd, kV2};
// The stored completion of each kind, tid 2k + 1 holding kStored[k].
constexpr Kind kStored[] = {kPlain, kGetHst, kDppdFlag, kDppdRec, kSubmode, kV2};

std::vector<std::pair<Kind, long>> gCalls;  // the dispatcher calls back on its caller's thread

bool in(long v, long lo, long hi) { return v >= lo && v <= hi; }
bool isBool(const void* b) {  // a bool holds 0 or 1, nothing else
    uint8_t raw = 2;
    if (b != nullptr) std::memcpy(&raw, b, 1);
    return raw <= 1;
}
bool status(status_e s) { return in(s, RUX_STATUS_INVALID, RUX_STATUS_INVALID_SLOT); }
bool hst(hst_state_e s) { return in(s, RUX_HST_STATE_UNKNOWN, RUX_HST_STATE_NOT_SET); }
bool recommendation(const data_recommendation_s* r) {
    return r != nullptr && in(r->action, RUX_DATA_ALLOWED, RUX_DATA_NOT_ALLOWED) &&
           in(r->subscription, RUX_SUBS_DDS, RUX_SUBS_NDDS);
}
bool submode(const submode_info_s* i) {
    return i != nullptr && in(i->sub_mode, RUX_SUBMODE_DSDS, RUX_SUBMODE_DSDA) &&
           in(i->tx_concurrency, RUX_TX_CONCURRENCY_INVALID, RUX_TX_CONCURRENCY_SHARING);
}
// Entries up to the length in range, the rest all zero.
bool feedback(uint8_t len, const cell_list_feedback_entry_s* cells) {
    static const cell_list_feedback_entry_s zero{};
    for (int n = 0; n < MAX_SIZE_CELL_LIST; ++n)
        if (n < len ? cells[n].shared_plmn_len > MAX_SIZE_SHARED_PLMN ||
                          !in(cells[n].feedback_cause, RUX_CELL_FB_CAUSE_CONFLICT,
                              RUX_CELL_FB_CAUSE_DELETE)
                    : std::memcmp(&cells[n], &zero, sizeof zero) != 0)
            return false;
    return len <= MAX_SIZE_CELL_LIST;
}

void record(Kind kind, long tid, bool valuesInRange) {
    FUZZ_CHECK(valuesInRange);
    gCalls.emplace_back(kind, tid);
}

std::shared_ptr<rux::client::MavoClient> clientWithEveryCallback() {
    auto c = std::make_shared<rux::client::MavoClient>();
    c->setUserCallback(1, +[](int tid, status_e s) { record(kPlain, tid, status(s)); });
    c->setUserCallback(3, +[](int tid, status_e s, hst_state_e st) {
        record(kGetHst, tid, status(s) && hst(st));
    });
    c->setUserCallback(5, +[](int tid, status_e s, bool* flag) {
        record(kDppdFlag, tid, s == RUX_STATUS_SUCCESS && isBool(flag));
    });
    c->setUserCallback(7, +[](int tid, status_e s, data_recommendation_s* r) {
        record(kDppdRec, tid, s == RUX_STATUS_SUCCESS && recommendation(r));
    });
    c->setUserCallback(9, +[](int tid, status_e s, submode_info_s const* i) {
        record(kSubmode, tid, status(s) && submode(i));
    });
    c->setUserCallback(11, +[](long tid, status_v2_e s) {
        record(kV2, tid, in(s, RUX_STATUS_V2_INVALID_SLOT, RUX_STATUS_V2_SUCCESS) && s != -6);
    });
    c->offerFallbackCallback([](int tid, status_e s) { record(kFallback, tid, status(s)); });
    c->setServiceStatusCallback([](status_e s) { record(kStatusInd, 0, status(s)); });
    c->setHstStateIndCallback([](hst_state_e st) { record(kHstInd, 0, hst(st)); });
    c->setSubwayStateIndCallback([](rux_subway_state_e st) {
        record(kSubwayInd, 0, in(st, RUX_SUBWAY_STATE_UNKNOWN, RUX_SUBWAY_STATE_OUT_SUBWAY));
    });
    c->setDppdIndCallbacks([](bool capable) { record(kDppdCapInd, 0, isBool(&capable)); },
                           [](data_recommendation_s r) { record(kDppdRecInd, 0, recommendation(&r)); });
    c->setMultiSimIndCallback([](submode_info_s const* i) { record(kSubmodeInd, 0, submode(i)); });
    c->setCellListIndCallback([](cell_list_info_ind_s r) {
        record(kCellListInd, 0,
               in(r.mitigation_type, RUX_CELL_MITIGATION_PREFERRED, RUX_CELL_MITIGATION_INFO) &&
                   feedback(r.lte_cell_list_len, r.lte_cell_list) &&
                   feedback(r.nr_cell_list_len, r.nr_cell_list));
    });
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> blob(data, data + size);
    VexProto::ServiceMsg msg;
    (void)msg.ParseFromArray(blob.data(), static_cast<int>(blob.size()));
    const int eventId = static_cast<int>(msg.event_id());
    const int tid = static_cast<int>(msg.transaction_id());
    const Kind stored = tid > 0 && tid % 2 == 1 && tid <= 11 ? kStored[tid / 2] : kNone;
    Kind expected = kNone;
    if (in(eventId, 0, 26) && static_cast<int>(msg.data().msg_type_case()) == eventId + 1) {
        const Kind kind = kEventKind[eventId];
        expected = kind >= kHstInd || kind == stored ? kind : kind == kPlain ? kFallback : kNone;
    }
    gCalls.clear();
    auto client = clientWithEveryCallback();
    client->blobListener(rux::sdk::SdkClientBase::RESPONSE, blob);

    FUZZ_CHECK(gCalls.size() == (expected == kNone ? 0u : 1u));
    FUZZ_CHECK(expected == kNone || gCalls[0].first == expected);
    FUZZ_CHECK(expected == kNone || expected >= kHstInd || gCalls[0].second == tid);
    const bool consumed = expected != kNone && expected == stored;
    FUZZ_CHECK(client->pendingCallbacks() == std::size(kStored) - (consumed ? 1 : 0));
    return 0;
}
