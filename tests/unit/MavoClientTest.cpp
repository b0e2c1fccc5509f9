// MavoClient: transaction ids; blobListener fed with ServiceMsg blobs built here
// (every event id, the fallback rules, consumed entries, replies of another kind,
// mismatched payloads, unknown events and SDK statuses); and the C interface against the
// real serving side
// of the transport (RuxIpcServer): what reaches the socket, local replies on the SDK
// thread, service loss and reconnect, and deregistration.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CellRecords.h"
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
using namespace std::chrono_literals;
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
const auto onCellListInd =
    +[](cell_list_info_ind_s r) { put(("cell_list_ind " + rux::test::describe(r)).c_str()); };
const auto onCellListLengths = +[](cell_list_info_ind_s r) {
    put("lengths", r.lte_cell_list_len, r.nr_cell_list_len, r.lte_cell_list[0].shared_plmn_len);
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

// --- transaction ids -------------------------------------------------------------------

TEST(TransactionIdTest, StepsByTwoFromOneAndWrapsToOneAfterTheLargestId) {
    const std::pair<int, std::vector<int>> cases[] = {{0, {1, 3, 5}},
                                                      {INT_MAX - 1, {INT_MAX, 1, 3}}};
    for (const auto& [start, expected] : cases) {
        MavoClient::setCurrentTid(start);
        std::vector<int> ids;
        for (size_t i = 0; i < expected.size(); ++i)
            ids.push_back(MavoClient::getNextTransactionId());
        EXPECT_EQ(ids, expected) << start;
    }
}

// Every odd id up to the last one is handed out exactly once.
TEST(TransactionIdTest, ConcurrentCallersNeverShareAnId) {
    MavoClient::setCurrentTid(0);
    constexpr int kThreads = 4, kEach = 2000;
    std::vector<std::atomic<int>> taken(2 * kThreads * kEach);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&taken] {
            for (int i = 0; i < kEach; ++i) {
                const int id = MavoClient::getNextTransactionId();
                if (id > 0 && id < static_cast<int>(taken.size())) ++taken[id];
            }
        });
    for (auto& th : threads) th.join();
    for (size_t id = 1; id < taken.size(); ++id)
        EXPECT_EQ(taken[id], static_cast<int>(id % 2)) << id;
}

// --- blobListener, without an SDK --------------------------------------------------------

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
    const char* name;  // the line the case logs
    Fill fill;
    std::function<void(MavoClient&)> install;  // the callback under test
    const char* expected;                      // what it receives (tid 7)
};

std::ostream& operator<<(std::ostream& os, const DispatchCase& c) {
    return os << "event " << c.eventId << " " << c.name;
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
    DispatchCase{eventId, #member, FILL(d.mutable_##member()->set_status(STATUS_INTERNAL_ERR)), \
                 reply(onPlain), "plain 7 2"}

const DispatchCase kDispatchCases[] = {
    PLAIN(0, set_coverage_state_resp),
    PLAIN(1, set_hst_state_resp),
    {2, "get_hst_state_resp", FILL(auto* r = d.mutable_get_hst_state_resp();
         r->set_status(STATUS_INVALID_OPERATION); r->set_hst_state(HST_STATE_NOT_SET)),
     reply(onGetHst), "get_hst 7 4 2"},
    {3, "hst_state_change_ind",
     FILL(d.mutable_hst_state_change_ind()->set_hst_state(HST_STATE_SET)),
     INSTALL(setHstStateIndCallback(onHstInd)), "hst_ind 1"},
    PLAIN(4, set_cell_barring_info_resp),
    PLAIN(5, enable_cell_barring_feature_resp),
    PLAIN(6, send_data_stall_parameters_resp),
    PLAIN(7, set_l2nr_selection_resp),
    PLAIN(8, set_out_of_service_resp),
    PLAIN(9, set_lte_dubious_cell_list_resp),
    PLAIN(10, set_nr_dubious_cell_list_resp),
    {11, "service_status_ind", FILL(d.mutable_service_status_ind()->set_status(STATUS_SERVICE_UP)),
     INSTALL(setServiceStatusCallback(onStatus)), "status 5"},
    // The DPPD completions report success whatever the reply says.
    {12, "get_dppd_capabaility_resp",
     FILL(d.mutable_get_dppd_capabaility_resp()->set_capable(true)),
     reply(onDppdFlag), "dppd_flag 7 0 1"},
    {13, "update_dppd_ui_resp", FILL(d.mutable_update_dppd_ui_resp()), reply(onDppdFlag),
     "dppd_flag 7 0 0"},
    {14, "notify_dppd_capability_ind",
     FILL(d.mutable_notify_dppd_capability_ind()->set_capable(true)),
     INSTALL(setDppdIndCallbacks(onDppdCapInd, nullptr)), "dppd_cap_ind 1"},
    {15, "get_dppd_recommendation_resp", FILL(auto* r =
         d.mutable_get_dppd_recommendation_resp()->mutable_vex_data_recommendation();
         r->set_action(DATA_NOT_ALLOWED); r->set_subs(DDS)),
     reply(onDppdRec), "dppd_rec 7 0 2 1"},
    {16, "notify_dppd_recommendation_ind", FILL(auto* r =
         d.mutable_notify_dppd_recommendation_ind()->mutable_vex_data_recommendation();
         r->set_action(DATA_ALLOWED); r->set_subs(NDDS)),
     INSTALL(setDppdIndCallbacks(nullptr, onDppdRecInd)), "dppd_rec_ind 1 2"},
    {17, "get_multi_sim_mode_info_resp", FILL(auto* r = d.mutable_get_multi_sim_mode_info_resp();
         r->set_status(STATUS_NOT_SUPPORTED); auto* i = r->mutable_vex_multi_sim_sub_mode_info();
         i->set_sub_mode(DSDA); i->set_tx_concurrency(DSDA_TX_SHARING)),
     reply(onSubmode), "submode 7 3 1 1"},
    {18, "notify_multi_sim_mode_info_ind",
     FILL(d.mutable_notify_multi_sim_mode_info_ind()->mutable_vex_multi_sim_sub_mode_info()),
     INSTALL(setMultiSimIndCallback(onSubmodeInd)), "submode_ind 0 -1"},
    PLAIN(19, set_pref_cell_list_resp),
    PLAIN(20, set_flight_mode_state_resp),
    PLAIN(21, set_device_fold_state_resp),
    {22, "set_cell_list_info_resp",
     FILL(d.mutable_set_cell_list_info_resp()->set_status(STATUS_SERVICE_UP)),
     reply(onV2), "v2 7 -7"},
    PLAIN(24, set_subway_state_resp),
    {25, "subway_state_change_ind",
     FILL(d.mutable_subway_state_change_ind()->set_subway_state(SUBWAY_STATE_OUT_SUBWAY)),
     INSTALL(setSubwayStateIndCallback(onSubwayInd)), "subway_ind 3"},
    {26, "SET_DUBIOUS_LIST_V2_RESP",
     FILL(d.mutable_vex_status_resp()->set_status(STATUS_INVALID_SLOT)),
     reply(onV2), "v2 7 -9"},
};
// clang-format on

class DispatchTest : public BlobListenerTest, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P(DispatchTest, ConvertsThePayloadForItsCallback) {
    const DispatchCase& c = GetParam();
    c.install(*client);
    feed(serviceBlob(c.eventId, 7, c.fill));
    EXPECT_EQ(calls(), Lines{c.expected});
    EXPECT_NE(log.findEndingWith(std::string(" ") + c.name).priority, -1) << log.dump();
    EXPECT_NE(log.findEndingWith("VEX event id: " + std::to_string(c.eventId)).priority, -1);
    EXPECT_NE(log.findEndingWith("MavoClient::blobListener end").priority, -1);
    EXPECT_EQ(client->pendingCallbacks(), 0u);
}

// The same event with its payload in the wrong member of the oneof: nothing at all,
// not even the case's own line, and a stored callback stays where it is.
TEST_P(DispatchTest, PayloadOfAnotherEventIsDroppedSilently) {
    const DispatchCase& c = GetParam();
    c.install(*client);
    client->offerFallbackCallback(onFallback);
    const size_t stored = client->pendingCallbacks();  // 1 for a reply, 0 for an indication
    feed(serviceBlob(c.eventId, 7, kDispatchCases[c.eventId == 0 ? 1 : 0].fill));
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(log.findEndingWith(std::string(" ") + c.name).priority, -1);
    EXPECT_EQ(client->pendingCallbacks(), stored);
}

// Event 23 has a test of its own below.
INSTANTIATE_TEST_SUITE_P(EveryEventButCellListFeedback, DispatchTest,
                         ::testing::ValuesIn(kDispatchCases));

// A reply reaches only a callback of its own kind. One of another kind for the same id
// calls nothing (a plain one goes to the fallback, as for an unknown id) and leaves the
// entry, which its own reply then takes. One row per kind of completion.
TEST_F(BlobListenerTest, ReplyOfAnotherKindNeverCallsTheStoredCallback) {
    client->offerFallbackCallback(onFallback);
    const struct {
        int own;            // the stored callback's reply (its kDispatchCases row)
        int foreign;        // the reply that comes first
        const char* first;  // what that one calls
    } kinds[] = {{1, 26, nullptr}, {2, 0, "fallback 7 2"}, {12, 1, "fallback 7 2"},
                 {13, 15, nullptr}, {15, 17, nullptr}, {17, 13, nullptr}, {22, 2, nullptr},
                 {26, 12, nullptr}};
    const auto row = [](int eventId) {
        return *std::find_if(std::begin(kDispatchCases), std::end(kDispatchCases),
                             [&](const DispatchCase& c) { return c.eventId == eventId; });
    };
    for (const auto& k : kinds) {
        SCOPED_TRACE(k.own);
        row(k.own).install(*client);
        feed(serviceBlob(k.foreign, 7, row(k.foreign).fill));
        EXPECT_EQ(calls(), k.first ? Lines{k.first} : Lines{});
        EXPECT_EQ(client->pendingCallbacks(), 1u);
        feed(serviceBlob(k.own, 7, row(k.own).fill));
        EXPECT_EQ(calls().back(), row(k.own).expected);
        EXPECT_EQ(client->pendingCallbacks(), 0u);
        gCalls.clear();
    }
    EXPECT_EQ(rux::test::countEndingWith(log, "0x7 is not of this reply's kind; kept"), 8u);
}

// Event 23: the whole record by value after the fields' lines in a fixed order. An
// unknown mitigation type (here 0) arrives as 1, an unknown cause as 0, shared PLMNs only
// where rs_valid says so; whatever the service sends, the record holds at most 20 cells a
// list and 6 shared PLMNs a cell.
TEST_F(BlobListenerTest, CellListFeedbackIsLoggedInOrderAndCutToTheRecord) {
    client->setCellListIndCallback(onCellListInd);
    feed(serviceBlob(23, 0, FILL(auto* ind =
        d.mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind();
        auto* i = ind->add_lte_cell_list(); i->set_cause_bitmask(7);
        i->set_feedback_cause(CELL_FB_CAUSE_DELETE); i->mutable_property()->set_rs_valid(true);
        auto* p = i->mutable_property()->mutable_rs()->add_shared_plmn(); p->set_mcc(8);
        p->set_mnc(9); p->set_mnc_includes_pcs_digit(true);
        auto* c = i->mutable_cell_info(); c->set_cell_identity(0x900000003); c->set_band(BC_4);
        c->set_freq(5); c->set_pci(6); c->mutable_plmn()->set_mcc(1); c->mutable_plmn()->set_mnc(2);
        i = ind->add_nr_cell_list(); i->mutable_cell_info()->set_pci(4);
        i->set_feedback_cause(static_cast<CellFeedbackCauseType>(7));
        i->mutable_property()->mutable_rs()->add_shared_plmn()->set_mcc(1))));
    EXPECT_EQ(calls(), Lines{"cell_list_ind type=1 lte=[1/2/0 id=38654705667 band=4 freq=5 "
                             "pci=6 cause=7 fb=1 shared=8/9/1] nr=[0/0/0 id=0 band=0 freq=0 pci=4 "
                             "cause=0 fb=0 shared=] rest=0"});
    EXPECT_NE(rux::test::loggedTexts(log).find(
                  "cell_list_info_ind_resp\nUnknown Mitigation type!\n"
                  "Unknown Feedback Cause type!\nmitigation_type: 1\nlte_cell_list_len: 1\n"
                  "nr_cell_list_len: 1\nlte cell: 0\nmcc: 1\nmnc: 2\nmnc_includes_pcs_digit: 0\n"
                  "cell_identity: 3\nband: 4\nfreq: 5\npci: 6\ncause_bitmask: 7\n"
                  "feedback_cause: 1\nshared_plmn_len: 1\nshared plmn: 0\n"
                  "mcc: 8\nmnc: 9\nmnc_includes_pcs_digit: 1\nnr cell: 0\nmcc: 0\nmnc: 0\n"
                  "mnc_includes_pcs_digit: 0\ncell_identity: 0\nband: 0\nfreq: 0\npci: 4\n"
                  "cause_bitmask: 0\nfeedback_cause: 0\nshared_plmn_len: 0\n"
                  "MavoClient::blobListener end"),
              std::string::npos)
        << log.dump();
    gCalls.clear();
    client->setCellListIndCallback(onCellListLengths);
    feed(serviceBlob(23, 0, FILL(auto* ind =
        d.mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind();
        for (int n = 0; n < 21; ++n)
            ind->add_lte_cell_list()->mutable_property()->set_rs_valid(true);
        for (int n = 0; n < 7; ++n) ind->mutable_lte_cell_list(0)->mutable_property()
                                        ->mutable_rs()->add_shared_plmn())));
    EXPECT_EQ(calls(), Lines{"lengths 20 0 6"});
    EXPECT_TRUE(log.contains("lte list of 21 cells: the first 20 are delivered"));
    EXPECT_TRUE(log.contains("lte cell 0 has 7 shared PLMNs: the first 6 are delivered"));
}

// A stored entry is consumed by its reply; a plain reply without one, or with a null
// one, goes to the fallback, which is the first one offered.
TEST_F(BlobListenerTest, PlainReplyWithoutEntryOrWithANullOneGoesToTheFallback) {
    client->offerFallbackCallback(onFallback);
    client->offerFallbackCallback(onOtherPlain);  // the first one stays
    client->setUserCallback(9, onPlain);
    client->setUserCallback(11, static_cast<rux_response_cb>(nullptr));
    feed(serviceBlob(1, 9, kHstOk));  // consumes the entry
    feed(serviceBlob(1, 9, kHstOk));  // finds none: the fallback
    feed(serviceBlob(20, 11, [](auto& d) {
        d.mutable_set_flight_mode_state_resp()->set_status(VexProto::STATUS_INVALID_SLOT);
    }));
    EXPECT_EQ(calls(), (Lines{"plain 9 0", "fallback 9 0", "fallback 11 7"}));
    EXPECT_EQ(rux::test::countEndingWith(log, "Couldn't find cb for transaction id: 0x9"), 1u);
    EXPECT_NE(log.findEndingWith("cb map size after remove: 0").priority, -1);
    EXPECT_EQ(client->pendingCallbacks(), 0u);
}

// Without anything to call, each kind of reply drops the blob with its own line.
TEST_F(BlobListenerTest, NothingToCallLeavesOnlyALine) {
    const struct {
        int eventId;
        Fill fill;
        const char* line;
    } cases[] = {
        {0, [](auto& d) { d.mutable_set_coverage_state_resp(); },
         "Couldn't find cb for transaction id: 0x5"},
        {22, [](auto& d) { d.mutable_set_cell_list_info_resp(); }, "Stored cb is null!"},
        {23, [](auto& d) { d.mutable_cell_list_info_ind_resp(); }, "ind function is null!"},
    };
    for (const auto& c : cases) {
        feed(serviceBlob(c.eventId, 5, c.fill));
        EXPECT_NE(log.findEndingWith(c.line).priority, -1) << c.eventId;
    }
    EXPECT_TRUE(calls().empty());
}

TEST_F(BlobListenerTest, OtherRepliesNeverUseTheFallback) {
    client->offerFallbackCallback(onFallback);
    feed(serviceBlob(2, 5, [](auto& d) { d.mutable_get_hst_state_resp(); }));
    feed(serviceBlob(12, 5, [](auto& d) { d.mutable_get_dppd_capabaility_resp(); }));
    feed(serviceBlob(26, 5, [](auto& d) { d.mutable_vex_status_resp(); }));
    EXPECT_TRUE(calls().empty());
    EXPECT_NE(log.findEndingWith("can't find cb for txn id: 5").priority, -1);
}

TEST_F(BlobListenerTest, TransactionIdIsTheOneInTheReplyAndKeysAreSignExtended) {
    client->setUserCallback(-3, onPlain);
    feed(serviceBlob(1, 0xFFFFFFFDull, [](auto& d) { d.mutable_set_hst_state_resp(); }));
    EXPECT_EQ(calls(), Lines{"plain -3 -1"});
}

TEST_F(BlobListenerTest, UnknownEventIdLeavesOnlyTheErrorLine) {
    client->offerFallbackCallback(onFallback);
    client->setUserCallback(7, onPlain);
    feed(serviceBlob(27, 7, [](auto& d) { d.mutable_set_coverage_state_resp(); }));
    EXPECT_TRUE(calls().empty());
    const auto line = log.findEndingWith("Unknown VEX proto event!");
    EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(line.tag, LogCapture::kNullTag);
    EXPECT_EQ(line.text, "Unknown VEX proto event!");
    EXPECT_EQ(client->pendingCallbacks(), 1u);
    EXPECT_FALSE(log.contains("MavoClient::blobListener end"));
}

TEST_F(BlobListenerTest, SdkStatusesReachTheServiceStatusCallback) {
    client->setServiceStatusCallback(onStatus);
    for (int status : {1, 2, 3, 9})  // SEND_FAILED, SERVICE_DOWN, SERVICE_UP, none
        client->blobListener(static_cast<SdkClientBase::SdkStatus>(status), {});
    EXPECT_EQ(calls(), (Lines{"status 2", "status 6"}));
    EXPECT_NE(log.findEndingWith("Unknown internal status 9").priority, -1);
    EXPECT_NE(log.findEndingWith("MavoClient::blobListener status: 2").priority, -1);
}

TEST_F(BlobListenerTest, GarbageBlobReadsAsDefaults) {
    client->setUserCallback(0, onPlain);
    feed(Bytes{0xFF, 0xFF, 0xFF});
    feed(Bytes{});
    // Both read as event 0 without a payload: dropped at the payload check.
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(rux::test::countEndingWith(log, "VEX event id: 0"), 2u);
}

// --- the C interface over a real socket ----------------------------------------------------

class ClientApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        gCalls.clear();
        rux::ipc::ConnectOptions options;
        options.socketPath = path;
        options.maxAttempts = 3;
        options.retryDelay = 1ms;
        SdkClient::setConnectOptions(options);
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
        ASSERT_EQ(withoutTid(requests.get()[0]), "16/: 8A 01 00");  // register_client_req
        requests.clear();
    }
    void answer(long tid, int eventId, const Fill& fill = kHstOk) {
        ASSERT_TRUE(connected.waitFor(1));
        ASSERT_TRUE(connected.get().back().sendBlob(rux::ipc::RUX_SDK_TYPE_REQUEST_CLIENT,
                                                    serviceBlob(eventId, tid, fill)));
    }
    Lines calls() { return gCalls.get(); }
    static std::string withoutTid(const std::string& r) {
        return r.substr(0, r.find('/') + 1) + r.substr(r.find(':'));
    }

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

TEST_F(ClientApiTest, WithoutAClientEveryCallFailsAtOnce) {
    register_rux_client(nullptr);
    EXPECT_TRUE(log.contains("User cb function null"));
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    EXPECT_EQ(set_hst_state(RUX_HST_STATE_SET, onPlain), -1);
    EXPECT_EQ(get_hst_state(onGetHst), -1);
    EXPECT_EQ(set_coverage_state(RUX_SLOT_ID_FIRST, RUX_COVERAGE_STATE_DEFAULT, onPlain), -1);
    EXPECT_EQ(set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onPlain), -1);
    EXPECT_EQ(get_dppd_capability(onDppdFlag), -1);
    EXPECT_EQ(set_cell_barring_info(RUX_SLOT_ID_FIRST, nullptr, onPlain), -1);
    set_cell_list_info_s info{};
    EXPECT_EQ(set_cell_list_info(&info, onV2, onCellListInd), RUX_STATUS_V2_INVALID_OPERATION);
    EXPECT_EQ(set_dubious_cell_array_v2(nullptr, onV2), RUX_STATUS_V2_INVALID_OPERATION);
    register_hst_state_report(onHstInd);
    EXPECT_EQ(rux::test::countEndingWith(log, "Failed to get SDK instance."), 9u);
    deregister_rux_client();
    EXPECT_NE(log.findEndingWith("deregister_rux_client: EXIT").priority, -1);
    EXPECT_TRUE(calls().empty());
}

TEST_F(ClientApiTest, RequestsReachTheServiceTwoIdsApartAndRepliesTheReceiverThread) {
    registerWithService();
    const int a = set_hst_state(RUX_HST_STATE_NOT_SET, onPlain);
    const int b = set_flight_mode_state(RUX_FLIGHT_MODE_STATE_IN_FLIGHT, onPlain);
    const int c = get_dppd_recommendation(onDppdRec);
    const int d = get_multi_sim_submode_info(onSubmode);
    // An unknown scan state is sent as INVALID_SCAN (0, so absent).
    const int e =
        set_out_of_service_state(RUX_SLOT_ID_THIRD, static_cast<scan_state_e>(5), onPlain);
    ASSERT_GT(a, 0);
    EXPECT_EQ(a % 2, 1);
    EXPECT_EQ((std::vector<int>{b, c, d, e}), (std::vector<int>{a + 2, a + 4, a + 6, a + 8}));
    ASSERT_TRUE(requests.waitFor(5));
    EXPECT_EQ(requests.get(),
              (Lines{"1/" + num(a) + ": 12 02 08 02", "18/" + num(b) + ": 9A 01 02 08 02",
                     "13/" + num(c) + ": 72 00", "15/" + num(d) + ": 82 01 00",
                     "7/" + num(e) + ": 42 02 08 03"}));
    answer(a, VexProto::SET_HST_STATE_RESP);
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls(), Lines{"plain " + num(a) + " 0"});  // not @sdk
}

// Bad arguments are answered by the library itself, on its SDK thread, and never sent;
// those of the cell-list family are returned at once, and nothing follows them.
TEST_F(ClientApiTest, UnconvertibleArgumentsCompleteLocallyOnTheSdkThread) {
    registerWithService();
    set_cell_list_info_s info{};
    info.lte_cell_list_len = MAX_SIZE_CELL_LIST + 1;
    EXPECT_EQ(set_cell_list_info(&info, onV2, nullptr), RUX_STATUS_V2_INVALID_ARG);
    EXPECT_EQ(set_cell_list_info(&info, onV2, onCellListInd), RUX_STATUS_V2_INVALID_ARG);
    dubious_cell_info_v2_s v2{};
    EXPECT_EQ(set_dubious_cell_array_v2(&v2, nullptr), RUX_STATUS_V2_INVALID_ARG);
    EXPECT_TRUE(log.contains("cb is null"));
    v2.slot = static_cast<slot_id_e>(3);
    EXPECT_EQ(set_dubious_cell_array_v2(&v2, onV2), RUX_STATUS_V2_INVALID_ARG);
    EXPECT_TRUE(log.contains("serialization was unsuccessful"));
    const data_stall_params_s stall{};
    const preferred_cell_list_s list{};
    const nr_dubious_cell_info_s badScs = rux::test::with(
        rux::test::sampleNrCell(), [](auto& c) { c.scs = static_cast<nr5g_scs_type_e>(-1); });
    const std::pair<int, int> local[] = {
        {set_hst_state(static_cast<hst_state_e>(3), onPlain), 1},
        {set_coverage_state(static_cast<slot_id_e>(3), RUX_COVERAGE_STATE_DEFAULT, onPlain), 7},
        {set_coverage_state(static_cast<slot_id_e>(-1), static_cast<coverage_state_e>(9), onPlain),
         7},
        {set_subway_state(static_cast<rux_subway_state_e>(4), onPlain), 1},
        {set_cell_barring_info(RUX_SLOT_ID_FIRST, nullptr, onPlain), 1},
        {set_data_stall_parameters(static_cast<slot_id_e>(3), &stall, onPlain), 7},
        {set_lte_dubious_cell_array(RUX_SLOT_ID_FIRST, 1, nullptr, onPlain), 1},
        {set_nr_dubious_cell_array(RUX_SLOT_ID_SECOND, 1, &badScs, onPlain), 1},
        {set_preferred_cell_list(static_cast<slot_id_e>(-1), &list, onPlain), 7},
    };
    const int good = set_device_fold_state(RUX_DEVICE_FOLD_STATE_OPEN, onPlain);
    ASSERT_TRUE(gCalls.waitFor(std::size(local)));
    Lines expected;
    for (const auto& [tid, status] : local)
        expected.push_back("plain " + num(tid) + " " + num(status) + " @sdk");
    EXPECT_EQ(calls(), expected);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get(), Lines{"19/" + num(good) + ": A2 01 02 08 01"});  // only this one
    EXPECT_EQ(MavoClient::getInstance()->pendingCallbacks(), 1u);  // good's alone
}

TEST_F(ClientApiTest, FallbackIsTheFirstSetCallbackAndGetRequestsNeverSetIt) {
    registerWithService();
    EXPECT_EQ(get_dppd_capability(nullptr), -1);
    get_hst_state(onGetHst);
    const int a = set_l2nr_selection(RUX_SLOT_ID_SECOND, nullptr);  // null: not the fallback
    const int b = enable_cell_barring_feature(RUX_SLOT_ID_FIRST, true, onFallback);
    const int c = set_hst_state(RUX_HST_STATE_SET, onOtherPlain);
    ASSERT_TRUE(requests.waitFor(4));
    EXPECT_EQ(requests.get()[2], "4/" + num(b) + ": 2A 04 08 01 10 01");
    // c's reply twice, then a's: the second copy and a's go to the fallback.
    for (int tid : {c, c, a}) answer(tid, VexProto::SET_HST_STATE_RESP);
    ASSERT_TRUE(gCalls.waitFor(3));
    EXPECT_EQ(calls(), (Lines{"other " + num(c) + " 0", "fallback " + num(c) + " 0",
                              "fallback " + num(a) + " 0"}));
}

TEST_F(ClientApiTest, IndicationsReachTheirCallbacksAndNullTurnsOneOff) {
    registerWithService();
    register_hst_state_report(onHstInd);
    register_dppd_indication(onDppdCapInd, onDppdRecInd);
    register_multi_sim_submode_indication(onSubmodeInd);
    ASSERT_TRUE(requests.waitFor(2));
    EXPECT_EQ(requests.get(), (Lines{"10/0: 5A 00", "11/0: 62 00"}));

    const Fill hstSet = [](auto& d) {
        d.mutable_hst_state_change_ind()->set_hst_state(VexProto::HST_STATE_SET);
    };
    const Fill capable = [](auto& d) { d.mutable_notify_dppd_capability_ind()->set_capable(true); };
    answer(0, VexProto::HST_STATE_CHANGE_IND, hstSet);
    answer(0, VexProto::NOTIFY_DPPD_CAPABILITY_IND, capable);
    ASSERT_TRUE(gCalls.waitFor(2));
    register_hst_state_report(nullptr);
    answer(0, VexProto::HST_STATE_CHANGE_IND, hstSet);
    answer(0, VexProto::NOTIFY_DPPD_CAPABILITY_IND,
           [](auto& d) { d.mutable_notify_dppd_capability_ind(); });
    ASSERT_TRUE(gCalls.waitFor(3));
    EXPECT_EQ(calls(), (Lines{"hst_ind 1", "dppd_cap_ind 1", "dppd_cap_ind 0"}));
}

TEST_F(ClientApiTest, ServiceLossGivesSixAndTheNextRequestReconnects) {
    registerWithService();
    ASSERT_TRUE(connected.waitFor(1));
    connected.get()[0].disconnect();
    ASSERT_TRUE(gCalls.waitFor(1));
    const int tid = set_subway_state(RUX_SUBWAY_STATE_IN_CARRIAGE, onPlain);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get(), Lines{"21/" + num(tid) + ": B2 01 02 08 02"});
    EXPECT_EQ(connected.size(), 2u);
    answer(tid, VexProto::SET_SUBWAY_STATE_RESP, [](auto& d) {
        d.mutable_set_subway_state_resp()->set_status(VexProto::STATUS_SUCCESS);
    });
    ASSERT_TRUE(gCalls.waitFor(2));
    EXPECT_EQ(calls(), (Lines{"status 6", "plain " + num(tid) + " 0"}));  // the receiver thread
}

// Requests made while the service is away are never sent: each leaves no entry behind
// and calls nothing but the service-status callback.
TEST_F(ClientApiTest, RequestsNeverSentLeaveNoEntryBehind) {
    register_rux_client(onStatus);  // no service
    ASSERT_TRUE(gCalls.waitFor(1));
    const size_t before = MavoClient::getInstance()->pendingCallbacks();
    set_hst_state(RUX_HST_STATE_SET, onPlain);
    get_hst_state(onGetHst);
    get_dppd_capability(onDppdFlag);
    ASSERT_TRUE(log.waitFor([](const std::vector<rux::test::LogLine>& lines) {
        return std::count_if(lines.begin(), lines.end(), [](const rux::test::LogLine& l) {
                   return l.text.find("Request not sent") != std::string::npos;
               }) == 4;  // the registration's too
    }));
    EXPECT_EQ(MavoClient::getInstance()->pendingCallbacks(), before);
    EXPECT_EQ(calls(), Lines(4, "status 6 @sdk"));
}

TEST_F(ClientApiTest, RegisterDeregisterRegisterAgainWorks) {
    registerWithService();
    deregister_rux_client();
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_EQ(set_hst_state(RUX_HST_STATE_SET, onPlain), -1);

    register_rux_client(onStatus);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(withoutTid(requests.get()[0]), "16/: 8A 01 00");
    EXPECT_EQ(connected.size(), 2u);
    const int tid = set_hst_state(RUX_HST_STATE_SET, onPlain);
    ASSERT_TRUE(requests.waitFor(2));
    answer(tid, VexProto::SET_HST_STATE_RESP);
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls(), Lines{"plain " + num(tid) + " 0"});
}

// The SDK thread is held inside one local reply's callback while deregistration starts;
// the local reply queued behind it must then never reach its callback.
std::promise<void>* gRelease = nullptr;
Inbox<int> gBlocked;
void onBlocking(int tid, status_e) {
    gBlocked.put(tid);
    gRelease->get_future().wait();
}

TEST_F(ClientApiTest, CallbacksOutstandingAtDeregistrationNeverRun) {
    registerWithService();
    std::promise<void> release;
    gRelease = &release;
    set_hst_state(static_cast<hst_state_e>(7), &onBlocking);  // local reply: holds the SDK thread
    ASSERT_TRUE(gBlocked.waitFor(1));
    const int queued = set_hst_state(static_cast<hst_state_e>(7), onPlain);
    const int sent = get_hst_state(onGetHst);
    ASSERT_GT(queued, 0);
    ASSERT_GT(sent, 0);

    std::thread deregistering([] { deregister_rux_client(); });
    ASSERT_TRUE(log.waitForText("cleaning mInstance"));  // past the point of no delivery
    release.set_value();
    deregistering.join();
    EXPECT_TRUE(calls().empty()) << calls()[0];
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    gBlocked.clear();
    gRelease = nullptr;
}

}  // namespace
