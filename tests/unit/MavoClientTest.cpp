// MavoClient: transaction ids; blobListener fed with ServiceMsg blobs built here
// (every event id but 23, the fallback rules, consumed entries, mismatched payloads,
// unknown events and SDK statuses); and the C interface against the real serving side
// of the transport (RuxIpcServer): what reaches the socket, local replies on the SDK
// thread, service loss and reconnect, and deregistration.
#include <android/log.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
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
using namespace std::chrono_literals;

// --- callbacks: each renders its arguments as one line --------------------------------

Inbox<std::string> gCalls;

std::string where() {
    auto sdk = SdkClient::instance();
    return sdk && sdk->onSdkThread() ? " @sdk" : "";
}
void put(const std::string& s) {
    gCalls.put(s + where());
}
std::string num(long v) {
    return std::to_string(v);
}

void onStatus(status_e s) {
    put("status " + num(s));
}
void onPlain(int tid, status_e s) {
    put("plain " + num(tid) + " " + num(s));
}
void onFallback(int tid, status_e s) {
    put("fallback " + num(tid) + " " + num(s));
}
void onOtherPlain(int tid, status_e s) {
    put("other " + num(tid) + " " + num(s));
}
void onGetHst(int tid, status_e s, hst_state_e st) {
    put("get_hst " + num(tid) + " " + num(s) + " " + num(st));
}
void onDppdFlag(int tid, status_e s, bool* flag) {
    put("dppd_flag " + num(tid) + " " + num(s) + " " + num(*flag));
}
void onDppdRec(int tid, status_e s, data_recommendation_s* r) {
    put("dppd_rec " + num(tid) + " " + num(s) + " " + num(r->action) + " " + num(r->subscription));
}
void onSubmode(int tid, status_e s, submode_info_s const* i) {
    put("submode " + num(tid) + " " + num(s) + " " + num(i->sub_mode) + " " +
        num(i->tx_concurrency));
}
void onV2(long tid, status_v2_e s) {
    put("v2 " + num(tid) + " " + num(s));
}
void onHstInd(hst_state_e s) {
    put("hst_ind " + num(s));
}
void onSubwayInd(rux_subway_state_e s) {
    put("subway_ind " + num(s));
}
void onDppdCapInd(bool c) {
    put("dppd_cap_ind " + num(c));
}
void onDppdRecInd(data_recommendation_s r) {
    put("dppd_rec_ind " + num(r.action) + " " + num(r.subscription));
}
void onSubmodeInd(submode_info_s const* i) {
    put("submode_ind " + num(i->sub_mode) + " " + num(i->tx_concurrency));
}
void onCellListInd(cell_list_info_ind_s) {
    put("cell_list_ind");
}

Bytes serviceBlob(int eventId, uint64_t tid,
                  const std::function<void(VexProto::ServiceData&)>& fill) {
    VexProto::ServiceMsg msg;
    msg.set_event_id(static_cast<VexProto::ServiceEventId>(eventId));
    msg.set_transaction_id(tid);
    if (fill) fill(*msg.mutable_data());
    const std::string s = msg.SerializeAsString();
    return Bytes(s.begin(), s.end());
}

// --- transaction ids -------------------------------------------------------------------

TEST(TransactionIdTest, StepsByTwoFromOne) {
    MavoClient::setCurrentTid(0);
    EXPECT_EQ(MavoClient::getNextTransactionId(), 1);
    EXPECT_EQ(MavoClient::getNextTransactionId(), 3);
    EXPECT_EQ(MavoClient::getNextTransactionId(), 5);
}

TEST(TransactionIdTest, WrapsToOneAfterTheLargestId) {
    MavoClient::setCurrentTid(INT_MAX - 1);
    EXPECT_EQ(MavoClient::getNextTransactionId(), INT_MAX);
    EXPECT_EQ(MavoClient::getNextTransactionId(), 1);
    EXPECT_EQ(MavoClient::getNextTransactionId(), 3);
}

TEST(TransactionIdTest, ConcurrentCallersNeverShareAnId) {
    MavoClient::setCurrentTid(0);
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::vector<std::vector<int>> ids(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&ids, t] {
            for (int i = 0; i < kEach; ++i) ids[t].push_back(MavoClient::getNextTransactionId());
        });
    for (auto& th : threads) th.join();
    std::set<int> all;
    for (auto& v : ids)
        for (int id : v) {
            EXPECT_EQ(id % 2, 1);
            all.insert(id);
        }
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
    EXPECT_EQ(*all.rbegin(), 2 * kThreads * kEach - 1);
}

// --- blobListener, without an SDK --------------------------------------------------------

class BlobListenerTest : public ::testing::Test {
protected:
    void SetUp() override { gCalls.clear(); }
    void feed(const Bytes& blob) { client->blobListener(SdkClientBase::RESPONSE, blob); }
    std::vector<std::string> calls() { return gCalls.get(); }

    LogCapture log;
    std::shared_ptr<MavoClient> client = std::make_shared<MavoClient>();
};

struct DispatchCase {
    int eventId;
    const char* name;  // the line the case logs
    std::function<void(VexProto::ServiceData&)> fill;
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

// Plain replies: wire status 3 (internal error) arrives as 2.
DispatchCase plain(int eventId, const char* name,
                   std::function<void(VexProto::ServiceData&, VexProto::Status)> set) {
    return {eventId, name,
            [set](VexProto::ServiceData& d) { set(d, VexProto::STATUS_INTERNAL_ERR); },
            reply(&onPlain), "plain 7 2"};
}

const DispatchCase kDispatchCases[] = {
    plain(0, "set_coverage_state_resp",
          [](auto& d, auto s) { d.mutable_set_coverage_state_resp()->set_status(s); }),
    plain(1, "set_hst_state_resp",
          [](auto& d, auto s) { d.mutable_set_hst_state_resp()->set_status(s); }),
    {2, "get_hst_state_resp",
     [](auto& d) {
         d.mutable_get_hst_state_resp()->set_status(VexProto::STATUS_INVALID_OPERATION);
         d.mutable_get_hst_state_resp()->set_hst_state(VexProto::HST_STATE_NOT_SET);
     },
     reply(&onGetHst), "get_hst 7 4 2"},
    {3, "hst_state_change_ind",
     [](auto& d) { d.mutable_hst_state_change_ind()->set_hst_state(VexProto::HST_STATE_SET); },
     [](MavoClient& c) { c.setHstStateIndCallback(&onHstInd); }, "hst_ind 1"},
    plain(4, "set_cell_barring_info_resp",
          [](auto& d, auto s) { d.mutable_set_cell_barring_info_resp()->set_status(s); }),
    plain(5, "enable_cell_barring_feature_resp",
          [](auto& d, auto s) { d.mutable_enable_cell_barring_feature_resp()->set_status(s); }),
    plain(6, "send_data_stall_parameters_resp",
          [](auto& d, auto s) { d.mutable_send_data_stall_parameters_resp()->set_status(s); }),
    plain(7, "set_l2nr_selection_resp",
          [](auto& d, auto s) { d.mutable_set_l2nr_selection_resp()->set_status(s); }),
    plain(8, "set_out_of_service_resp",
          [](auto& d, auto s) { d.mutable_set_out_of_service_resp()->set_status(s); }),
    plain(9, "set_lte_dubious_cell_list_resp",
          [](auto& d, auto s) { d.mutable_set_lte_dubious_cell_list_resp()->set_status(s); }),
    plain(10, "set_nr_dubious_cell_list_resp",
          [](auto& d, auto s) { d.mutable_set_nr_dubious_cell_list_resp()->set_status(s); }),
    {11, "service_status_ind",
     [](auto& d) { d.mutable_service_status_ind()->set_status(VexProto::STATUS_SERVICE_UP); },
     [](MavoClient& c) { c.setServiceStatusCallback(&onStatus); }, "status 5"},
    // The DPPD completions report success whatever the reply says.
    {12, "get_dppd_capabaility_resp",
     [](auto& d) { d.mutable_get_dppd_capabaility_resp()->set_capable(true); }, reply(&onDppdFlag),
     "dppd_flag 7 0 1"},
    {13, "update_dppd_ui_resp", [](auto& d) { d.mutable_update_dppd_ui_resp(); },
     reply(&onDppdFlag), "dppd_flag 7 0 0"},
    {14, "notify_dppd_capability_ind",
     [](auto& d) { d.mutable_notify_dppd_capability_ind()->set_capable(true); },
     [](MavoClient& c) { c.setDppdIndCallbacks(&onDppdCapInd, nullptr); }, "dppd_cap_ind 1"},
    {15, "get_dppd_recommendation_resp",
     [](auto& d) {
         auto* r = d.mutable_get_dppd_recommendation_resp()->mutable_vex_data_recommendation();
         r->set_action(VexProto::DATA_NOT_ALLOWED);
         r->set_subs(VexProto::DDS);
     },
     reply(&onDppdRec), "dppd_rec 7 0 2 1"},
    {16, "notify_dppd_recommendation_ind",
     [](auto& d) {
         auto* r = d.mutable_notify_dppd_recommendation_ind()->mutable_vex_data_recommendation();
         r->set_action(VexProto::DATA_ALLOWED);
         r->set_subs(VexProto::NDDS);
     },
     [](MavoClient& c) { c.setDppdIndCallbacks(nullptr, &onDppdRecInd); }, "dppd_rec_ind 1 2"},
    {17, "get_multi_sim_mode_info_resp",
     [](auto& d) {
         auto* r = d.mutable_get_multi_sim_mode_info_resp();
         r->set_status(VexProto::STATUS_NOT_SUPPORTED);
         r->mutable_vex_multi_sim_sub_mode_info()->set_sub_mode(VexProto::DSDA);
         r->mutable_vex_multi_sim_sub_mode_info()->set_tx_concurrency(VexProto::DSDA_TX_SHARING);
     },
     reply(&onSubmode), "submode 7 3 1 1"},
    {18, "notify_multi_sim_mode_info_ind",
     [](auto& d) {
         d.mutable_notify_multi_sim_mode_info_ind()->mutable_vex_multi_sim_sub_mode_info();
     },
     [](MavoClient& c) { c.setMultiSimIndCallback(&onSubmodeInd); }, "submode_ind 0 -1"},
    plain(19, "set_pref_cell_list_resp",
          [](auto& d, auto s) { d.mutable_set_pref_cell_list_resp()->set_status(s); }),
    plain(20, "set_flight_mode_state_resp",
          [](auto& d, auto s) { d.mutable_set_flight_mode_state_resp()->set_status(s); }),
    plain(21, "set_device_fold_state_resp",
          [](auto& d, auto s) { d.mutable_set_device_fold_state_resp()->set_status(s); }),
    {22, "set_cell_list_info_resp",
     [](auto& d) { d.mutable_set_cell_list_info_resp()->set_status(VexProto::STATUS_SERVICE_UP); },
     reply(&onV2), "v2 7 -7"},
    plain(24, "set_subway_state_resp",
          [](auto& d, auto s) { d.mutable_set_subway_state_resp()->set_status(s); }),
    {25, "subway_state_change_ind",
     [](auto& d) {
         d.mutable_subway_state_change_ind()->set_subway_state(VexProto::SUBWAY_STATE_OUT_SUBWAY);
     },
     [](MavoClient& c) { c.setSubwayStateIndCallback(&onSubwayInd); }, "subway_ind 3"},
    {26, "SET_DUBIOUS_LIST_V2_RESP",
     [](auto& d) { d.mutable_vex_status_resp()->set_status(VexProto::STATUS_INVALID_SLOT); },
     reply(&onV2), "v2 7 -9"},
};

class DispatchTest : public BlobListenerTest, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P(DispatchTest, ConvertsThePayloadForItsCallback) {
    const DispatchCase& c = GetParam();
    c.install(*client);
    feed(serviceBlob(c.eventId, 7, c.fill));
    EXPECT_EQ(calls(), std::vector<std::string>{c.expected});
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
    client->offerFallbackCallback(&onFallback);
    const size_t stored = client->pendingCallbacks();  // 1 for a reply, 0 for an indication
    const int other = c.eventId == 0 ? 1 : 0;
    const DispatchCase& wrong = kDispatchCases[other];
    feed(serviceBlob(c.eventId, 7, wrong.fill));
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(log.findEndingWith(std::string(" ") + c.name).priority, -1);
    EXPECT_EQ(client->pendingCallbacks(), stored);
}

INSTANTIATE_TEST_SUITE_P(EveryEventButCellListFeedback, DispatchTest,
                         ::testing::ValuesIn(kDispatchCases));

TEST_F(BlobListenerTest, PlainReplyWithoutEntryGoesToTheFallbackOnce) {
    client->offerFallbackCallback(&onFallback);
    client->offerFallbackCallback(&onOtherPlain);  // the first one stays
    client->setUserCallback(9, &onPlain);
    const auto blob = serviceBlob(1, 9, [](auto& d) {
        d.mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS);
    });
    feed(blob);  // consumes the entry
    feed(blob);  // finds none: the fallback
    EXPECT_EQ(calls(), (std::vector<std::string>{"plain 9 0", "fallback 9 0"}));
    EXPECT_NE(log.findEndingWith("Couldn't find cb for transaction id: 0x9").priority, -1);
    EXPECT_NE(log.findEndingWith("cb map size after remove: 0").priority, -1);
}

TEST_F(BlobListenerTest, NullStoredCallbackAlsoGoesToTheFallback) {
    client->offerFallbackCallback(&onFallback);
    client->setUserCallback(11, static_cast<rux_response_cb>(nullptr));
    feed(serviceBlob(20, 11, [](auto& d) {
        d.mutable_set_flight_mode_state_resp()->set_status(VexProto::STATUS_INVALID_SLOT);
    }));
    EXPECT_EQ(calls(), std::vector<std::string>{"fallback 11 7"});
    EXPECT_EQ(client->pendingCallbacks(), 0u);
}

TEST_F(BlobListenerTest, WithoutEntryOrFallbackAPlainReplyIsDropped) {
    feed(serviceBlob(0, 5, [](auto& d) { d.mutable_set_coverage_state_resp(); }));
    EXPECT_TRUE(calls().empty());
    EXPECT_NE(log.findEndingWith("Couldn't find cb for transaction id: 0x5").priority, -1);
}

TEST_F(BlobListenerTest, OtherRepliesNeverUseTheFallback) {
    client->offerFallbackCallback(&onFallback);
    feed(serviceBlob(2, 5, [](auto& d) { d.mutable_get_hst_state_resp(); }));
    feed(serviceBlob(12, 5, [](auto& d) { d.mutable_get_dppd_capabaility_resp(); }));
    feed(serviceBlob(26, 5, [](auto& d) { d.mutable_vex_status_resp(); }));
    EXPECT_TRUE(calls().empty());
    EXPECT_NE(log.findEndingWith("can't find cb for txn id: 5").priority, -1);
}

TEST_F(BlobListenerTest, CellListReplyWithoutCallbackSaysSo) {
    feed(serviceBlob(22, 5, [](auto& d) { d.mutable_set_cell_list_info_resp(); }));
    EXPECT_TRUE(calls().empty());
    EXPECT_NE(log.findEndingWith("Stored cb is null!").priority, -1);
}

TEST_F(BlobListenerTest, TransactionIdIsTheOneInTheReplyAndKeysAreSignExtended) {
    client->setUserCallback(-3, &onPlain);
    feed(serviceBlob(1, 0xFFFFFFFDull, [](auto& d) { d.mutable_set_hst_state_resp(); }));
    EXPECT_EQ(calls(), std::vector<std::string>{"plain -3 -1"});
}

TEST_F(BlobListenerTest, CellListFeedbackWithoutIndicationCallbackSaysSo) {
    feed(serviceBlob(23, 0, [](auto& d) { d.mutable_cell_list_info_ind_resp(); }));
    EXPECT_NE(log.findEndingWith("ind function is null!").priority, -1);
    EXPECT_TRUE(calls().empty());
}

TEST_F(BlobListenerTest, UnknownEventIdLeavesOnlyTheErrorLine) {
    client->offerFallbackCallback(&onFallback);
    client->setUserCallback(7, &onPlain);
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
    client->setServiceStatusCallback(&onStatus);
    client->blobListener(SdkClientBase::SEND_FAILED, {});
    client->blobListener(SdkClientBase::SERVICE_DOWN, {});
    client->blobListener(SdkClientBase::SERVICE_UP, {});
    client->blobListener(static_cast<SdkClientBase::SdkStatus>(9), {});
    EXPECT_EQ(calls(), (std::vector<std::string>{"status 2", "status 6"}));
    EXPECT_NE(log.findEndingWith("Unknown internal status 9").priority, -1);
    EXPECT_NE(log.findEndingWith("MavoClient::blobListener status: 2").priority, -1);
}

TEST_F(BlobListenerTest, GarbageBlobReadsAsDefaults) {
    client->setUserCallback(0, &onPlain);
    feed(Bytes{0xFF, 0xFF, 0xFF});
    feed(Bytes{});
    // Both read as event 0 without a payload: dropped at the payload check.
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(rux::test::countEndingWith(log, "VEX event id: 0"), 2u);
}

// --- the C interface over a real socket ----------------------------------------------------

struct Request {
    int eventId;
    uint64_t tid;
    VexProto::ClientData data;
};

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
        register_rux_client(&onStatus);
        ASSERT_TRUE(requests.waitFor(1));
        ASSERT_EQ(requests.get()[0].eventId, VexProto::REGISTER_CLIENT_REQ);
        ASSERT_TRUE(requests.get()[0].data.has_register_client_req());
        requests.clear();
    }
    void answer(uint64_t tid, int eventId,
                const std::function<void(VexProto::ServiceData&)>& fill) {
        ASSERT_TRUE(connected.waitFor(1));
        ASSERT_TRUE(connected.get().back().sendBlob(rux::ipc::RUX_SDK_TYPE_REQUEST_CLIENT,
                                                    serviceBlob(eventId, tid, fill)));
    }
    std::vector<std::string> calls() { return gCalls.get(); }

    LogCapture log;
    const std::string path = rux::test::uniqueSocketPath("rux-mavo");
    Inbox<Request> requests;
    Inbox<rux::ipc::RuxIpcServerClient> connected;
    rux::ipc::RuxIpcServer server{rux::ipc::RuxIpcServer::Callbacks{
        [this](const rux::ipc::RuxIpcServerClient& c) { connected.put(c); },
        [this](const rux::ipc::RuxIpcServerClient&, rux::ipc::RuxSdkType, Bytes blob) {
            VexProto::ClientMsg msg;
            if (blob.empty() || !msg.ParseFromArray(blob.data(), static_cast<int>(blob.size())))
                return;  // the cleanup event's empty blob
            requests.put({static_cast<int>(msg.event_id()), msg.transaction_id(), msg.data()});
        },
        nullptr, nullptr}};
};

TEST_F(ClientApiTest, WithoutAClientEveryCallFailsAtOnce) {
    register_rux_client(nullptr);
    EXPECT_TRUE(log.contains("User cb function null"));
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    EXPECT_EQ(set_hst_state(RUX_HST_STATE_SET, &onPlain), -1);
    EXPECT_EQ(get_hst_state(&onGetHst), -1);
    EXPECT_EQ(set_coverage_state(RUX_SLOT_ID_FIRST, RUX_COVERAGE_STATE_DEFAULT, &onPlain), -1);
    EXPECT_EQ(set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, &onPlain), -1);
    EXPECT_EQ(get_dppd_capability(&onDppdFlag), -1);
    EXPECT_EQ(set_cell_barring_info(RUX_SLOT_ID_FIRST, nullptr, &onPlain), -1);
    set_cell_list_info_s info{};
    EXPECT_EQ(set_cell_list_info(&info, &onV2, &onCellListInd), RUX_STATUS_V2_INVALID_OPERATION);
    EXPECT_EQ(set_dubious_cell_array_v2(nullptr, &onV2), RUX_STATUS_V2_INVALID_OPERATION);
    register_hst_state_report(&onHstInd);
    EXPECT_EQ(rux::test::countEndingWith(log, "Failed to get SDK instance."), 9u);
    deregister_rux_client();
    EXPECT_NE(log.findEndingWith("deregister_rux_client: EXIT").priority, -1);
    EXPECT_TRUE(calls().empty());
}

TEST_F(ClientApiTest, RequestReachesTheServiceAndItsReplyTheCallbackOnTheReceiverThread) {
    registerWithService();
    const int tid = set_hst_state(RUX_HST_STATE_NOT_SET, &onPlain);
    ASSERT_GT(tid, 0);
    EXPECT_EQ(tid % 2, 1);
    ASSERT_TRUE(requests.waitFor(1));
    const Request r = requests.get()[0];
    EXPECT_EQ(r.eventId, VexProto::SET_HST_STATE_REQ);
    EXPECT_EQ(r.tid, static_cast<uint64_t>(tid));
    EXPECT_EQ(r.data.set_hst_state_req().hst_state(), VexProto::HST_STATE_NOT_SET);

    answer(r.tid, VexProto::SET_HST_STATE_RESP,
           [](auto& d) { d.mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS); });
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls(), std::vector<std::string>{"plain " + num(tid) + " 0"});  // not @sdk
}

TEST_F(ClientApiTest, ConsecutiveRequestsTakeIdsTwoApart) {
    registerWithService();
    const int a = set_flight_mode_state(RUX_FLIGHT_MODE_STATE_IN_FLIGHT, &onPlain);
    const int b = get_dppd_recommendation(&onDppdRec);
    const int c = get_multi_sim_submode_info(&onSubmode);
    EXPECT_EQ(b, a + 2);
    EXPECT_EQ(c, b + 2);
    ASSERT_TRUE(requests.waitFor(3));
    const auto rs = requests.get();
    EXPECT_EQ(rs[0].data.set_flight_mode_state_req().flight_mode_state(),
              VexProto::FLIGHT_MODE_STATE_IN_FLIGHT);
    EXPECT_EQ(rs[1].eventId, VexProto::GET_DPPD_RECOMMENDATION_REQ);
    EXPECT_TRUE(rs[1].data.has_get_dppd_recommendation_req());
    EXPECT_EQ(rs[2].eventId, VexProto::GET_MULTI_SUM_SUBMODE_INFO_REQ);
    EXPECT_EQ(rs[2].tid, static_cast<uint64_t>(c));
}

// Bad arguments are answered by the library itself, on its SDK thread, and never sent.
TEST_F(ClientApiTest, UnconvertibleArgumentsCompleteLocallyOnTheSdkThread) {
    registerWithService();
    const int badState = set_hst_state(static_cast<hst_state_e>(3), &onPlain);
    const int badSlot =
        set_coverage_state(static_cast<slot_id_e>(3), RUX_COVERAGE_STATE_DEFAULT, &onPlain);
    const int badBoth =
        set_coverage_state(static_cast<slot_id_e>(-1), static_cast<coverage_state_e>(9), &onPlain);
    const int badSubway = set_subway_state(static_cast<rux_subway_state_e>(4), &onPlain);
    const int good = set_device_fold_state(RUX_DEVICE_FOLD_STATE_OPEN, &onPlain);
    ASSERT_TRUE(gCalls.waitFor(4));
    EXPECT_EQ(calls(),
              (std::vector<std::string>{
                  "plain " + num(badState) + " 1 @sdk", "plain " + num(badSlot) + " 7 @sdk",
                  "plain " + num(badBoth) + " 7 @sdk", "plain " + num(badSubway) + " 1 @sdk"}));
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get()[0].tid, static_cast<uint64_t>(good));  // only the good one
}

TEST_F(ClientApiTest, UnknownScanStateIsSentAsInvalid) {
    registerWithService();
    set_out_of_service_state(RUX_SLOT_ID_THIRD, static_cast<scan_state_e>(5), &onPlain);
    ASSERT_TRUE(requests.waitFor(1));
    const VexProto::SetOutOfServiceReq req = requests.get()[0].data.set_out_of_service_req();
    EXPECT_EQ(req.slot_id(), VexProto::SLOT_ID_THIRD);
    EXPECT_EQ(req.scan_state(), VexProto::INVALID_SCAN);
}

TEST_F(ClientApiTest, RecordRequestsNotYetConvertedCompleteWithNotSupported) {
    registerWithService();
    const int a = set_cell_barring_info(RUX_SLOT_ID_FIRST, nullptr, &onPlain);
    const int b = set_data_stall_parameters(RUX_SLOT_ID_FIRST, nullptr, &onPlain);
    const int c = set_lte_dubious_cell_array(RUX_SLOT_ID_FIRST, 0, nullptr, &onPlain);
    const int d = set_nr_dubious_cell_array(RUX_SLOT_ID_FIRST, 0, nullptr, &onPlain);
    const int e = set_preferred_cell_list(RUX_SLOT_ID_FIRST, nullptr, &onPlain);
    ASSERT_TRUE(gCalls.waitFor(5));
    std::vector<std::string> expected;
    for (int tid : {a, b, c, d, e}) expected.push_back("plain " + num(tid) + " 3 @sdk");
    EXPECT_EQ(calls(), expected);

    set_cell_list_info_s info{};
    dubious_cell_info_v2_s v2{};
    EXPECT_EQ(set_cell_list_info(&info, &onV2, nullptr), RUX_STATUS_V2_INVALID_ARG);
    EXPECT_EQ(set_cell_list_info(&info, &onV2, &onCellListInd), RUX_STATUS_V2_NOT_SUPPORTED);
    EXPECT_EQ(set_dubious_cell_array_v2(&v2, nullptr), RUX_STATUS_V2_INVALID_ARG);
    EXPECT_TRUE(log.contains("cb is null"));
    EXPECT_EQ(set_dubious_cell_array_v2(&v2, &onV2), RUX_STATUS_V2_NOT_SUPPORTED);
}

TEST_F(ClientApiTest, FallbackIsTheFirstSetCallbackAndGetRequestsNeverSetIt) {
    registerWithService();
    EXPECT_EQ(get_dppd_capability(nullptr), -1);
    get_hst_state(&onGetHst);
    const int a = set_l2nr_selection(RUX_SLOT_ID_SECOND, nullptr);  // null: not the fallback
    const int b = enable_cell_barring_feature(RUX_SLOT_ID_FIRST, true, &onFallback);
    const int c = set_hst_state(RUX_HST_STATE_SET, &onOtherPlain);
    ASSERT_TRUE(requests.waitFor(4));
    EXPECT_TRUE(requests.get()[2].data.enable_cell_barring_feature_req().enable());
    // c's reply twice, then a's: the second copy and a's go to the fallback.
    for (int tid : {c, c, a})
        answer(static_cast<uint64_t>(tid), VexProto::SET_HST_STATE_RESP, [](auto& d) {
            d.mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS);
        });
    ASSERT_TRUE(gCalls.waitFor(3));
    EXPECT_EQ(calls(),
              (std::vector<std::string>{"other " + num(c) + " 0", "fallback " + num(c) + " 0",
                                        "fallback " + num(a) + " 0"}));
    (void)b;
}

TEST_F(ClientApiTest, IndicationsReachTheirCallbacksAndNullTurnsOneOff) {
    registerWithService();
    register_hst_state_report(&onHstInd);
    register_dppd_indication(&onDppdCapInd, &onDppdRecInd);
    register_multi_sim_submode_indication(&onSubmodeInd);
    ASSERT_TRUE(requests.waitFor(2));
    EXPECT_EQ(requests.get()[0].eventId, VexProto::REGISTER_DPPD_INDICATION_REQ);
    EXPECT_EQ(requests.get()[0].tid, 0u);
    EXPECT_EQ(requests.get()[1].eventId, VexProto::REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ);

    answer(0, VexProto::HST_STATE_CHANGE_IND, [](auto& d) {
        d.mutable_hst_state_change_ind()->set_hst_state(VexProto::HST_STATE_SET);
    });
    answer(0, VexProto::NOTIFY_DPPD_CAPABILITY_IND,
           [](auto& d) { d.mutable_notify_dppd_capability_ind()->set_capable(true); });
    ASSERT_TRUE(gCalls.waitFor(2));
    register_hst_state_report(nullptr);
    answer(0, VexProto::HST_STATE_CHANGE_IND, [](auto& d) { d.mutable_hst_state_change_ind(); });
    answer(0, VexProto::NOTIFY_DPPD_CAPABILITY_IND,
           [](auto& d) { d.mutable_notify_dppd_capability_ind(); });
    ASSERT_TRUE(gCalls.waitFor(3));
    EXPECT_EQ(calls(), (std::vector<std::string>{"hst_ind 1", "dppd_cap_ind 1", "dppd_cap_ind 0"}));
}

TEST_F(ClientApiTest, ServiceLossGivesSixAndTheNextRequestReconnects) {
    registerWithService();
    ASSERT_TRUE(connected.waitFor(1));
    connected.get()[0].disconnect();
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls()[0], "status 6");  // the receiver thread

    const int tid = set_subway_state(RUX_SUBWAY_STATE_IN_CARRIAGE, &onPlain);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get()[0].tid, static_cast<uint64_t>(tid));
    EXPECT_EQ(connected.size(), 2u);
    answer(static_cast<uint64_t>(tid), VexProto::SET_SUBWAY_STATE_RESP, [](auto& d) {
        d.mutable_set_subway_state_resp()->set_status(VexProto::STATUS_SUCCESS);
    });
    ASSERT_TRUE(gCalls.waitFor(2));
    EXPECT_EQ(calls()[1], "plain " + num(tid) + " 0");
}

TEST_F(ClientApiTest, NoServiceGivesSixOnTheSdkThreadAfterTheConnectAttempts) {
    register_rux_client(&onStatus);  // nothing listens on the path
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls(), std::vector<std::string>{"status 6 @sdk"});
    EXPECT_EQ(rux::test::countEndingWith(log, "Connect ret: -1"), 3u);
}

TEST_F(ClientApiTest, RegisterDeregisterRegisterAgainWorks) {
    registerWithService();
    deregister_rux_client();
    EXPECT_EQ(MavoClient::getInstance(), nullptr);
    EXPECT_EQ(SdkClient::instance(), nullptr);
    EXPECT_EQ(set_hst_state(RUX_HST_STATE_SET, &onPlain), -1);

    register_rux_client(&onStatus);
    ASSERT_TRUE(requests.waitFor(1));
    EXPECT_EQ(requests.get()[0].eventId, VexProto::REGISTER_CLIENT_REQ);
    EXPECT_EQ(connected.size(), 2u);
    const int tid = set_hst_state(RUX_HST_STATE_SET, &onPlain);
    ASSERT_TRUE(requests.waitFor(2));
    answer(static_cast<uint64_t>(tid), VexProto::SET_HST_STATE_RESP,
           [](auto& d) { d.mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS); });
    ASSERT_TRUE(gCalls.waitFor(1));
    EXPECT_EQ(calls(), std::vector<std::string>{"plain " + num(tid) + " 0"});
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
    const int queued = set_hst_state(static_cast<hst_state_e>(7), &onPlain);
    const int sent = get_hst_state(&onGetHst);
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
