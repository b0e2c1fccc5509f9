// MavoClient: transaction ids; blobListener fed with ServiceMsg blobs built here; and the
// C interface against the real serving side of the transport (RuxIpcServer).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SdkTestSupport.h"
#include "client/MavoClient.h"
#include "ipc/RuxIpcServer.h"
#include "rux/rux_client.h"
#include "sdk/SdkClient.h"
#include "vex.pb.h"

namespace {

using rux::client::MavoClient;
using rux::sdk::SdkClient;
using rux::sdk::SdkClientBase;
using rux::test::Inbox;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
using Fill = std::function<void(VexProto::ServiceData&)>;
using namespace VexProto;

// --- callbacks: each renders its arguments as one line, marked when on the SDK thread ----

Inbox<std::string> gCalls;

std::string num(long v) {
    return std::to_string(v);
}
template <typename... Values>
void put(const char* what, Values... values) {
    std::string line = what;
    ((line += " " + num(static_cast<long>(values))), ...);
    auto sdk = SdkClient::instance();
    gCalls.put(sdk && sdk->onSdkThread() ? line + " @sdk" : line);
}

const auto onStatus = +[](status_e s) { put("status", s); };
const auto onPlain = +[](int tid, status_e s) { put("plain", tid, s); };
const auto onFallback = +[](int tid, status_e s) { put("fallback", tid, s); };
const auto onOtherPlain = +[](int tid, status_e s) { put("other", tid, s); };
const auto onGetHst = +[](int tid, status_e s, hst_state_e st) { put("get_hst", tid, s, st); };
const auto onDppdFlag = +[](int tid, status_e s, bool* flag) { put("dppd_flag", tid, s, *flag); };
const auto onDppdRec = +[](int tid, status_e s, data_recommendation_s* r) {
    put("dppd_rec", tid, s, r->action, r->subscription);
};
const auto onSubmode = +[](int tid, status_e s, submode_info_s const* i) {
    put("submode", tid, s, i->sub_mode, i->tx_concurrency);
};
const auto onV2 = +[](long tid, status_v2_e s) { put("v2", tid, s); };
const auto onHstInd = +[](hst_state_e s) { put("hst_ind", s); };
const auto onSubwayInd = +[](rux_subway_state_e s) { put("subway_ind", s); };
const auto onDppdCapInd = +[](bool c) { put("dppd_cap_ind", c); };
const auto onDppdRecInd =
    +[](data_recommendation_s r) { put("dppd_rec_ind", r.action, r.subscription); };
const auto onSubmodeInd =
    +[](submode_info_s const* i) { put("submode_ind", i->sub_mode, i->tx_concurrency); };
// Type, lengths, the first LTE cell's shared PLMNs and cause, the first NR cell's cause and pci.
const auto onCellListInd = +[](cell_list_info_ind_s r) {
    put("cell_list", r.mitigation_type, r.lte_cell_list_len, r.nr_cell_list_len,
        r.lte_cell_list[0].shared_plmn_len, r.lte_cell_list[0].feedback_cause,
        r.nr_cell_list[0].feedback_cause, r.nr_cell_list[0].cell_info.pci);
};

Bytes serviceBlob(int eventId, uint64_t tid, const Fill& fill) {
    VexProto::ServiceMsg msg;
    msg.set_event_id(static_cast<VexProto::ServiceEventId>(eventId));
    msg.set_transaction_id(tid);
    if (fill) fill(*msg.mutable_data());
    const std::string s = msg.SerializeAsString();
    return Bytes(s.begin(), s.end());
}
const Fill kHstOk = [](auto& d) {
    d.mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS);
};

// Ids are odd from 1 on (the e2e burst shows it); past INT_MAX the next one is 1 again.
TEST(TransactionIdTest, WrapsToOneAfterTheLargestId) {
    MavoClient::setCurrentTid(INT_MAX - 1);
    const auto next = &MavoClient::getNextTransactionId;
    EXPECT_EQ((std::vector<int>{next(), next(), next()}), (std::vector<int>{INT_MAX, 1, 3}));
}

class BlobListenerTest : public ::testing::Test {
protected:
    void SetUp() override { gCalls.clear(); }
    void feed(const Bytes& blob) { client->blobListener(SdkClientBase::RESPONSE, blob); }
    Lines calls() { return gCalls.get(); }

    LogCapture log;
    std::shared_ptr<MavoClient> client = std::make_shared<MavoClient>();
};

struct DispatchCase {
    int eventId;
    Fill fill;
    std::function<void(MavoClient&)> install;  // the callback under test
    const char* expected;                      // what it receives (tid 7)
};

std::ostream& operator<<(std::ostream& os, const DispatchCase& c) {
    return os << "event " << c.eventId;
}

template <typename Cb>
std::function<void(MavoClient&)> reply(Cb cb) {
    return [cb](MavoClient& c) { c.setUserCallback(7, cb); };
}

// clang-format off
#define FILL(...) [](VexProto::ServiceData& d) { __VA_ARGS__; }
#define INSTALL(...) [](MavoClient& c) { c.__VA_ARGS__; }
// Plain replies: wire status 3 (internal error) arrives as 2.
#define PLAIN(eventId, member) \
    DispatchCase{eventId, FILL(d.mutable_##member()->set_status(STATUS_INTERNAL_ERR)), \
                 reply(onPlain), "plain 7 2"}

const DispatchCase kDispatchCases[] = {
    PLAIN(0, set_coverage_state_resp),
    PLAIN(1, set_hst_state_resp),
    {2, FILL(auto* r = d.mutable_get_hst_state_resp();
         r->set_status(STATUS_INVALID_OPERATION); r->set_hst_state(HST_STATE_NOT_SET)),
     reply(onGetHst), "get_hst 7 4 2"},
    {3, FILL(d.mutable_hst_state_change_ind()->set_hst_state(HST_STATE_SET)),
     INSTALL(setHstStateIndCallback(onHstInd)), "hst_ind 1"},
    PLAIN(4, set_cell_barring_info_resp),
    PLAIN(5, enable_cell_barring_feature_resp),
    PLAIN(6, send_data_stall_parameters_resp),
    PLAIN(7, set_l2nr_selection_resp),
    PLAIN(8, set_out_of_service_resp),
    PLAIN(9, set_lte_dubious_cell_list_resp),
    PLAIN(10, set_nr_dubious_cell_list_resp),
    {11, FILL(d.mutable_service_status_ind()->set_status(STATUS_SERVICE_UP)),
     INSTALL(setServiceStatusCallback(onStatus)), "status 5"},
    // The DPPD completions report success whatever the reply says.
    {12, FILL(d.mutable_get_dppd_capabaility_resp()->set_capable(true)),
     reply(onDppdFlag), "dppd_flag 7 0 1"},
    {13, FILL(d.mutable_update_dppd_ui_resp()), reply(onDppdFlag), "dppd_flag 7 0 0"},
    {14, FILL(d.mutable_notify_dppd_capability_ind()->set_capable(true)),
     INSTALL(setDppdIndCallbacks(onDppdCapInd, nullptr)), "dppd_cap_ind 1"},
    {15, FILL(auto* r =
         d.mutable_get_dppd_recommendation_resp()->mutable_vex_data_recommendation();
         r->set_action(DATA_NOT_ALLOWED); r->set_subs(DDS)),
     reply(onDppdRec), "dppd_rec 7 0 2 1"},
    {16, FILL(auto* r =
         d.mutable_notify_dppd_recommendation_ind()->mutable_vex_data_recommendation();
         r->set_action(DATA_ALLOWED); r->set_subs(NDDS)),
     INSTALL(setDppdIndCallbacks(nullptr, onDppdRecInd)), "dppd_rec_ind 1 2"},
    {17, FILL(auto* r = d.mutable_get_multi_sim_mode_info_resp();
         r->set_status(STATUS_NOT_SUPPORTED); auto* i = r->mutable_vex_multi_sim_sub_mode_info();
         i->set_sub_mode(DSDA); i->set_tx_concurrency(DSDA_TX_SHARING)),
     reply(onSubmode), "submode 7 3 1 1"},
    {18, FILL(d.mutable_notify_multi_sim_mode_info_ind()->mutable_vex_multi_sim_sub_mode_info()),
     INSTALL(setMultiSimIndCallback(onSubmodeInd)), "submode_ind 0 -1"},
    PLAIN(19, set_pref_cell_list_resp),
    PLAIN(20, set_flight_mode_state_resp),
    PLAIN(21, set_device_fold_state_resp),
    {22, FILL(d.mutable_set_cell_list_info_resp()->set_status(STATUS_SERVICE_UP)),
     reply(onV2), "v2 7 -7"},
    PLAIN(24, set_subway_state_resp),
    {25, FILL(d.mutable_subway_state_change_ind()->set_subway_state(SUBWAY_STATE_OUT_SUBWAY)),
     INSTALL(setSubwayStateIndCallback(onSubwayInd)), "subway_ind 3"},
    {26, FILL(d.mutable_vex_status_resp()->set_status(STATUS_INVALID_SLOT)),
     reply(onV2), "v2 7 -9"},
};
// clang-format on

class DispatchTest : public BlobListenerTest, public ::testing::WithParamInterface<DispatchCase> {};

// The event's payload reaches its callback converted and consumes the entry. Before it,
// the same event with its payload in another member of the oneof calls nothing, and a
// reply of another kind for the same id leaves the entry where it is (a plain one goes to
// the fallback, as for an unknown id).
TEST_P(DispatchTest, ConvertsThePayloadForItsOwnCallbackOnly) {
    const DispatchCase& c = GetParam();
    c.install(*client);
    client->offerFallbackCallback(onFallback);
    const size_t stored = client->pendingCallbacks();  // 1 for a reply, 0 for an indication
    feed(serviceBlob(c.eventId, 7, kDispatchCases[c.eventId == 0 ? 1 : 0].fill));
    EXPECT_TRUE(calls().empty());
    const bool plain = std::string(c.expected).rfind("plain", 0) == 0;
    feed(serviceBlob(plain ? 2 : 1, 7, kDispatchCases[plain ? 2 : 1].fill));
    EXPECT_EQ(client->pendingCallbacks(), stored);
    EXPECT_EQ(log.contains("0x7 is not of this reply's kind; kept"), stored == 1);
    feed(serviceBlob(c.eventId, 7, c.fill));
    EXPECT_EQ(calls(), plain ? Lines{c.expected} : (Lines{"fallback 7 2", c.expected}));
    EXPECT_EQ(client->pendingCallbacks(), 0u);
}

// Event 23 has a test of its own below.
INSTANTIATE_TEST_SUITE_P(EveryEventButCellListFeedback, DispatchTest,
                         ::testing::ValuesIn(kDispatchCases));

// Event 23: an unknown mitigation type arrives as 1, an unknown cause as 0, shared PLMNs
// only where rs_valid says so; the record holds at most 20 cells a list and 6 shared PLMNs
// a cell, and nothing of an earlier record.
TEST_F(BlobListenerTest, CellListFeedbackIsConvertedAndCutToTheRecord) {
    client->setCellListIndCallback(onCellListInd);
    feed(serviceBlob(23, 0, FILL(auto* ind =
        d.mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind();
        auto* i = ind->add_lte_cell_list(); i->set_feedback_cause(CELL_FB_CAUSE_DELETE);
        i->mutable_property()->mutable_rs()->add_shared_plmn();
        i = ind->add_nr_cell_list(); i->mutable_cell_info()->set_pci(4);
        i->set_feedback_cause(static_cast<CellFeedbackCauseType>(7)))));
    feed(serviceBlob(23, 0, FILL(auto* ind =
        d.mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind();
        ind->set_mitigation_type(CELL_INFO);
        for (int n = 0; n < 21; ++n)
            ind->add_lte_cell_list()->mutable_property()->set_rs_valid(true);
        for (int n = 0; n < 7; ++n) ind->mutable_lte_cell_list(0)->mutable_property()
                                        ->mutable_rs()->add_shared_plmn())));
    EXPECT_EQ(calls(), (Lines{"cell_list 1 1 1 0 1 0 4", "cell_list 2 20 0 6 0 0 0"}));
    EXPECT_TRUE(log.contains("lte list of 21 cells: the first 20 are delivered"));
    EXPECT_TRUE(log.contains("lte cell 0 has 7 shared PLMNs: the first 6 are delivered"));
}

// A plain reply without an entry, or with a null one, goes to the fallback (the first one
// offered); other replies never do, and with nothing to call each kind drops the blob with
// its line, an unknown event id too. SDK statuses reach the status callback; bytes that
// are no ServiceMsg, or none at all, read as event 0 without a payload: dropped.
TEST_F(BlobListenerTest, FallbackTakesPlainRepliesOnlyAndTheRestIsDroppedWithALine) {
    for (int eventId : {0, 22, 23})  // nothing to call yet
        feed(serviceBlob(eventId, 5, eventId == 0 ? FILL(d.mutable_set_coverage_state_resp())
                                     : eventId == 22 ? FILL(d.mutable_set_cell_list_info_resp())
                                                     : FILL(d.mutable_cell_list_info_ind_resp())));
    client->offerFallbackCallback(onFallback);
    client->offerFallbackCallback(onOtherPlain);  // the first one stays
    client->setServiceStatusCallback(onStatus);
    client->setUserCallback(9, onPlain);
    client->setUserCallback(11, static_cast<rux_response_cb>(nullptr));
    client->setUserCallback(7, onPlain);
    feed(serviceBlob(1, 9, kHstOk));  // consumes the entry
    feed(serviceBlob(1, 9, kHstOk));  // finds none: the fallback
    feed(serviceBlob(20, 11, FILL(d.mutable_set_flight_mode_state_resp()->set_status(STATUS_INVALID_SLOT))));
    feed(serviceBlob(2, 5, FILL(d.mutable_get_hst_state_resp())));
    feed(serviceBlob(12, 5, FILL(d.mutable_get_dppd_capabaility_resp())));
    feed(serviceBlob(26, 5, FILL(d.mutable_vex_status_resp())));
    feed(serviceBlob(27, 7, FILL(d.mutable_set_coverage_state_resp())));
    for (int status : {1, 2, 3, 9})
        client->blobListener(static_cast<SdkClientBase::SdkStatus>(status), {});
    feed(Bytes{0xFF, 0xFF, 0xFF});
    feed(Bytes{});
    EXPECT_EQ(calls(), (Lines{"plain 9 0", "fallback 9 0", "fallback 11 7", "status 2", "status 6"}));
    for (const char* line : {"Couldn't find cb for transaction id: 0x5", "Stored cb is null!",
                             "ind function is null!", "Unknown internal status 9"})
        EXPECT_NE(log.findEndingWith(line).priority, -1) << line;
    const Lines rows = log.rows();
    EXPECT_EQ(std::count(rows.begin(), rows.end(), "6/(null): Unknown VEX proto event!"), 1);
    EXPECT_EQ(client->pendingCallbacks(), 1u);  // tid 7's
}

class ClientApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        gCalls.clear();
        SdkClient::setConnectOptions(rux::test::quickConnect(path));
    }
    void TearDown() override {
        deregister_rux_client();
        server.stop();
        SdkClient::setConnectOptions({});
    }

    // Starts the service, registers and waits until the service has the registration.
    void registerWithService() {
        ASSERT_TRUE(server.start(path));
        register_rux_client(onStatus);
        ASSERT_TRUE(requests.waitFor(1));
        ASSERT_EQ(requests.get()[0].substr(0, 3), "16/");  // register_client_req
        requests.clear();
    }
    void answer(long tid, int eventId, const Fill& fill = kHstOk) {
        ASSERT_TRUE(connected.waitFor(1));
        ASSERT_TRUE(connected.get().back().sendBlob(rux::ipc::RUX_SDK_TYPE_REQUEST_CLIENT,
                                                    serviceBlob(eventId, tid, fill)));
    }
    Lines calls() { return gCalls.get(); }

    LogCapture log;
    const std::string path = rux::test::uniqueSocketPath("rux-mavo");
    Inbox<std::string> requests;  // "<event id>/<transaction id>: <ClientData bytes>"
    Inbox<rux::ipc::RuxIpcServerClient> connected;
    rux::ipc::RuxIpcServer server{rux::ipc::RuxIpcServer::Callbacks{
        [this](const rux::ipc::RuxIpcServerClient& c) { connected.put(c); },
        [this](const rux::ipc::RuxIpcServerClient&, rux::ipc::RuxSdkType, Bytes blob) {
            VexProto::ClientMsg msg;
            if (blob.empty() || !msg.ParseFromArray(blob.data(), static_cast<int>(blob.size())))
                return;  // the cleanup event's empty blob
            requests.put(num(msg.event_id()) + "/" + num(static_cast<long>(msg.transaction_id())) +
                         ": " + rux::test::hex(msg.data().SerializeAsString()));
        },
        nullptr, nullptr}};
};

// Every front's bad argument, without a client (-1 or -5, and a line) and with one: what
// cannot be converted is answered locally on the SDK thread with the conversion's status,
// a missing callback or record is refused with its line (`returns` 0: the transaction id).
// Nothing is sent, no entry stays, a refused set_cell_list_info still installs its feedback.
TEST_F(ClientApiTest, BadArgumentsAreAnsweredByTheLibraryAndNeverSent) {
    static set_cell_list_info_s info{};
    info.lte_cell_list_len = MAX_SIZE_CELL_LIST + 1;
    static dubious_cell_info_v2_s v2{};
    v2.slot = static_cast<slot_id_e>(3);
    const auto badSlot = static_cast<slot_id_e>(3);
    // clang-format off
    const struct {
        std::function<int()> call;
        int returns;
        const char* heard;  // the local reply's status, or the line of a refusal
    } rows[] = {
        {[] { return set_hst_state(static_cast<hst_state_e>(3), onPlain); }, 0, "1"},
        {[] { return set_coverage_state(RUX_SLOT_ID_FIRST, static_cast<coverage_state_e>(9), onPlain); }, 0, "1"},
        {[&] { return set_out_of_service_state(badSlot, RUX_SCAN_STATE_SLOW, onPlain); }, 0, "7"},
        {[&] { return set_l2nr_selection(badSlot, onPlain); }, 0, "7"},
        {[&] { return enable_cell_barring_feature(badSlot, true, onPlain); }, 0, "7"},
        {[] { return set_cell_barring_info(RUX_SLOT_ID_FIRST, nullptr, onPlain); }, 0, "1"},
        {[] { return set_data_stall_parameters(RUX_SLOT_ID_FIRST, nullptr, onPlain); }, 0, "1"},
        {[&] { return set_lte_dubious_cell_array(badSlot, 0, nullptr, onPlain); }, 0, "7"},
        {[&] { return set_nr_dubious_cell_array(badSlot, 0, nullptr, onPlain); }, 0, "7"},
        {[] { return set_preferred_cell_list(RUX_SLOT_ID_FIRST, nullptr, onPlain); }, 0, "1"},
        {[] { return set_flight_mode_state(static_cast<rux_flight_mode_state_e>(4), onPlain); }, 0, "1"},
        {[] { return set_device_fold_state(static_cast<rux_device_fold_state_e>(3), onPlain); }, 0, "1"},
        {[] { return set_subway_state(static_cast<rux_subway_state_e>(4), onPlain); }, 0, "1"},
        {[] { return get_dppd_capability(nullptr); }, -1, "cb is null"},
        {[] { return update_dppd_ui_option(true, nullptr); }, -1, "cb is null"},
        {[] { return get_dppd_recommendation(nullptr); }, -1, "cb is null"},
        {[] { return get_multi_sim_submode_info(nullptr); }, -1, "cb is null"},
        {[] { return set_cell_list_info(nullptr, onV2, onCellListInd); }, -2, "info is null"},
        {[] { return set_cell_list_info(&info, nullptr, onCellListInd); }, -2, nullptr},
        {[] { return set_cell_list_info(&info, onV2, nullptr); }, -2, nullptr},
        {[] { return set_cell_list_info(&info, onV2, onCellListInd); }, -2,
         "greater than MAX_SIZE_CELL_LIST!"},
        {[] { return set_dubious_cell_array_v2(nullptr, onV2); }, -2, "info is null"},
        {[] { return set_dubious_cell_array_v2(&v2, nullptr); }, -2, "cb is null"},
        {[] { return set_dubious_cell_array_v2(&v2, onV2); }, -2, "serialization was unsuccessful"},
    };
    // clang-format on
    for (const auto& row : rows) {
        log.clear();
        EXPECT_EQ(row.call(), row.returns == -2 ? -5 : -1) << &row - rows;
        EXPECT_NE(log.findEndingWith("Failed to get SDK instance.").priority, -1) << &row - rows;
    }
    register_rux_client(nullptr);
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    EXPECT_NE(log.findEndingWith("User cb function null").priority, -1);
    // Each set_* request offers its callback as the fallback, even one refused.
    for (const auto& row : rows) {
        register_rux_client(onStatus);
        row.call();
        EXPECT_EQ(MavoClient::getInstance()->fallbackCallback(), row.returns ? nullptr : onPlain)
            << &row - rows;
        deregister_rux_client();
    }
    gCalls.clear();

    registerWithService();
    Lines expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        log.clear();
        const int got = row.call();
        if (row.returns == 0) {
            expected.push_back("plain " + num(got) + " " + row.heard + " @sdk");
            continue;
        }
        EXPECT_EQ(got, row.returns);
        EXPECT_TRUE(!row.heard || log.findEndingWith(row.heard).priority != -1);
    }
    const int good = set_device_fold_state(RUX_DEVICE_FOLD_STATE_OPEN, onPlain);
    ASSERT_TRUE(gCalls.waitFor(expected.size()));
    EXPECT_EQ(calls(), expected);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get(), Lines{"19/" + num(good) + ": A2 01 02 08 01"});  // only this one
    EXPECT_EQ(MavoClient::getInstance()->pendingCallbacks(), 1u);  // good's alone
    // The first plain request offered its callback as the fallback, whatever its fate.
    answer(99, SET_HST_STATE_RESP);
    answer(0, CELL_LIST_INFO_IND_RESP, FILL(d.mutable_cell_list_info_ind_resp()));
    ASSERT_TRUE(gCalls.waitFor(expected.size() + 2));
    expected.insert(expected.end(), {"plain 99 0", "cell_list 1 0 0 0 0 0 0"});
    EXPECT_EQ(calls(), expected);
}

// A service that cannot be reached: status 6 after the attempts, on the SDK thread, and
// requests made meanwhile are never sent and leave no entry; once the service accepts,
// the next request connects and is answered.
TEST_F(ClientApiTest, UnreachableServiceLosesRequestsUntilItAccepts) {
    register_rux_client(onStatus);
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(log.matching("Connect ret: -1").size(), 3u);
    set_hst_state(RUX_HST_STATE_SET, onPlain);
    get_dppd_capability(onDppdFlag);
    auto notSent = [](const auto& l) { return l.text.find("Request not sent") != std::string::npos; };
    ASSERT_TRUE(log.waitFor(  // the registration's too
        [&](const auto& ls) { return std::count_if(ls.begin(), ls.end(), notSent) == 3; }));
    EXPECT_EQ(MavoClient::getInstance()->pendingCallbacks(), 0u);

    ASSERT_TRUE(server.start(path));
    const int next = get_hst_state(onGetHst);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get(), Lines{"2/" + num(next) + ": 1A 00"});  // nothing earlier
    answer(next, GET_HST_STATE_RESP, FILL(d.mutable_get_hst_state_resp()->set_status(STATUS_SUCCESS)));
    ASSERT_TRUE(gCalls.waitFor(4));
    EXPECT_EQ(calls(), (Lines{"status 6 @sdk", "status 6 @sdk", "status 6 @sdk",
                              "get_hst " + num(next) + " 0 0"}));
}

// The SDK thread does not start: status 2 at once, requests fail, and the next
// registration reaches the service.
TEST_F(ClientApiTest, FailedSdkSetUpReportsAnInternalErrorAndTheNextRegistrationWorks) {
    rux::sdk::failNextThreadStart();
    register_rux_client(onStatus);
    EXPECT_EQ(calls(), Lines{"status 2"});
    EXPECT_TRUE(log.contains("cannot start the SDK thread"));
    EXPECT_EQ(set_hst_state(RUX_HST_STATE_SET, onPlain), -1);
    registerWithService();
}

// The SDK thread is held inside one local reply's callback while deregistration starts;
// the local reply queued behind it must then never reach its callback.
std::promise<void> gRelease;  // set once, by the test below
Inbox<int> gBlocked;
void onBlocking(int tid, status_e) {
    gBlocked.put(tid);
    gRelease.get_future().wait();
}

TEST_F(ClientApiTest, CallbacksOutstandingAtDeregistrationNeverRun) {
    registerWithService();
    set_hst_state(static_cast<hst_state_e>(7), &onBlocking);  // local reply: holds the SDK thread
    ASSERT_TRUE(gBlocked.waitFor(1));
    ASSERT_GT(set_hst_state(static_cast<hst_state_e>(7), onPlain), 0);
    ASSERT_GT(get_hst_state(onGetHst), 0);
    std::thread deregistering([] { deregister_rux_client(); });
    ASSERT_TRUE(log.waitForText("cleaning mInstance"));  // past the point of no delivery
    gRelease.set_value();
    deregistering.join();
    EXPECT_TRUE(calls().empty()) << calls()[0];
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
}

}  // namespace
