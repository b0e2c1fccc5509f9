// The C interface of librux_client.so against rux-sim over a real Unix socket. Each test
// case runs in its own process (ctest runs every discovered case separately): the
// library's client, SDK thread and transaction counter are per process.
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <set>

#include "CellRecords.h"
#include "ClientSink.h"
#include "LogCapture.h"
#include "Subprocess.h"
#include "rux/rux_client.h"

namespace rux::test {

Sink& sink() {
    static Sink* instance = new Sink();  // never destroyed: callbacks may run until exit
    return *instance;
}

namespace {
void record(const char* kind, long tid, int status, int value1 = 0, int value2 = 0) {
    Call call;
    call.kind = kind;
    call.tid = tid;
    call.status = status;
    call.value1 = value1;
    call.value2 = value2;
    sink().add(std::move(call));
}
}  // namespace

void onStatus(status_e s) { record("status", 0, s); }
void onResponse(int tid, status_e s) { record("response", tid, s); }
void onResponseB(int tid, status_e s) { record("responseB", tid, s); }
void onGetHst(int tid, status_e s, hst_state_e st) { record("hst", tid, s, st); }
void onDppdFlag(int tid, status_e s, bool* flag) {
    record("dppd", tid, s, flag ? static_cast<int>(*flag) : -1);
}
void onRecommendation(int tid, status_e s, data_recommendation_s* r) {
    record("rec", tid, s, r ? r->action : -9, r ? r->subscription : -9);
}
void onSubmode(int tid, status_e s, submode_info_s const* i) {
    record("submode", tid, s, i ? i->sub_mode : -9, i ? i->tx_concurrency : -9);
}
void onHstInd(hst_state_e st) { record("hst-ind", 0, 0, st); }
void onSubwayInd(rux_subway_state_e st) { record("subway-ind", 0, 0, st); }
void onDppdCapabilityInd(bool capable) { record("dppd-cap-ind", 0, 0, capable); }
void onDppdRecommendationInd(data_recommendation_s r) {
    record("dppd-rec-ind", 0, 0, r.action, r.subscription);
}
void onSubmodeInd(submode_info_s const* i) {
    record("submode-ind", 0, 0, i ? i->sub_mode : -9, i ? i->tx_concurrency : -9);
}
void onResponseV2(long tid, status_v2_e s) { record("v2", tid, s); }
void onCellListInd(cell_list_info_ind_s info) {
    Call call;
    call.kind = "cell-ind";
    call.text = describe(info);
    sink().add(std::move(call));
}

namespace {

using namespace std::chrono_literals;

// Starts rux-sim on a private socket, points the library at it and registers.
class ClientE2E : public ::testing::Test {
protected:
    void SetUp() override {
        static int casesInThisProcess = 0;
        if (++casesInThisProcess > 1)
            GTEST_SKIP() << "library state is per process: run each case alone (ctest does)";
        path = SimProcess::uniqueSocketPath("client");
        ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
        if (!startSimFirst()) return;
        startSim();
        if (registerFirst()) registerClient();
    }
    void TearDown() override {
        deregister_rux_client();
        sim.reset();
    }
    virtual bool startSimFirst() const { return true; }
    virtual bool registerFirst() const { return true; }

    void startSim() {
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready()) << sim->dump();
    }
    void registerClient() {
        register_rux_client(onStatus);
        ASSERT_TRUE(sim->waitForLine("tid=1 REGISTER_CLIENT_REQ {}")) << sim->dump();
    }
    // The sim saw the request with this tid, decoded as `text`.
    bool simSaw(int tid, const std::string& text) {
        return sim->waitForLine("tid=" + std::to_string(tid) + " " + text);
    }

    size_t simLinesStartingWith(const std::string& prefix) {
        size_t n = 0;
        for (const auto& l : sim->process().lines())
            if (l.rfind(prefix, 0) == 0) ++n;
        return n;
    }

    LogCapture log;
    std::string path;
    std::unique_ptr<SimProcess> sim;
};

// --- every request type, round trip ---------------------------------------------------

struct RoundTrip {
    const char* name;
    std::vector<std::string> simSetup;  // control lines before the request
    std::function<int()> call;
    const char* kind;          // the sink kind of the completion
    std::string requestText;   // what the sim decoded
    int status;
    int value1 = 0;
    int value2 = 0;
};
void PrintTo(const RoundTrip& c, std::ostream* os) { *os << c.name; }

class RoundTripTest : public ClientE2E, public ::testing::WithParamInterface<RoundTrip> {};

// The sample cells of CellRecords.h as rux-sim shows them.
const std::string kLteText =
    "{plmn: {mcc: 310, mnc: 260, mnc_includes_pcs_digit: true}, cell_identity: 1715004, band: "
    "E_UTRA_OPERATING_BAND_3, freq: 1850, pci: 101, aux_value: 7, aux_values: []}";
const std::string kNrText =
    "{plmn: {mcc: 311, mnc: 480, mnc_includes_pcs_digit: false}, cell_identity: 38654705665, "
    "band: NR5G_BAND_257, freq: 628000, pci: 500, scs: NR5G_SCS_30, aux_value: 9, aux_values: []}";

TEST_P(RoundTripTest, ReachesTheServiceAndCompletesWithConvertedValuesOnAnotherThread) {
    const auto& c = GetParam();
    for (const auto& line : c.simSetup) ASSERT_EQ(sim->command(line), "ok") << line;
    const int tid = c.call();
    EXPECT_EQ(tid, 3);  // the registration took 1
    const Call got = sink().waitForTid(c.kind, tid);
    ASSERT_EQ(got.kind, c.kind) << sink().dump() << sim->dump();
    EXPECT_EQ(got.status, c.status);
    EXPECT_EQ(got.value1, c.value1);
    EXPECT_EQ(got.value2, c.value2);
    EXPECT_NE(got.thread, std::this_thread::get_id());
    EXPECT_TRUE(simSaw(tid, c.requestText)) << sim->dump();
}

INSTANTIATE_TEST_SUITE_P(
    Requests, RoundTripTest,
    ::testing::Values(
        RoundTrip{"SetHst", {}, [] { return set_hst_state(RUX_HST_STATE_SET, onResponse); },
                  "response", "SET_HST_STATE_REQ {hst_state: HST_STATE_SET}", 0},
        RoundTrip{"SetHstNotSupported", {"status SET_HST_STATE_REQ STATUS_NOT_SUPPORTED"},
                  [] { return set_hst_state(RUX_HST_STATE_NOT_SET, onResponse); }, "response",
                  "SET_HST_STATE_REQ {hst_state: HST_STATE_NOT_SET}", 3},
        RoundTrip{"Coverage", {"status SET_COVERAGE_STATE_REQ STATUS_INVALID_OPERATION"},
                  [] {
                      return set_coverage_state(RUX_SLOT_ID_SECOND,
                                                RUX_COVERAGE_STATE_IN_COVERAGE_HOLE, onResponse);
                  },
                  "response",
                  "SET_COVERAGE_STATE_REQ {slot_id: SLOT_ID_SECOND, coverage_state: "
                  "COVERAGE_STATE_IN_COVERAGE_HOLE}",
                  4},
        RoundTrip{"OutOfService", {},
                  [] {
                      return set_out_of_service_state(RUX_SLOT_ID_FIRST, RUX_SCAN_STATE_NORMAL,
                                                      onResponse);
                  },
                  "response", "SET_OUT_OF_SERVICE_REQ {slot_id: SLOT_ID_FIRST, scan_state: NORMAL}",
                  0},
        RoundTrip{"OutOfServiceUnknownScanIsSentAsInvalid", {},
                  [] {
                      return set_out_of_service_state(RUX_SLOT_ID_THIRD,
                                                      static_cast<scan_state_e>(7), onResponse);
                  },
                  "response",
                  "SET_OUT_OF_SERVICE_REQ {slot_id: SLOT_ID_THIRD, scan_state: INVALID_SCAN}", 0},
        RoundTrip{"L2nrWireStatusOutOfRange", {"status SET_L2NR_SELECTION_REQ 9"},
                  [] { return set_l2nr_selection(RUX_SLOT_ID_THIRD, onResponse); }, "response",
                  "SET_L2NR_SELECTION_REQ {slot_id: SLOT_ID_THIRD}", -1},
        RoundTrip{"CellBarringFeature", {"status ENABLE_CELL_BARRING_FEATURE_REQ STATUS_SERVICE_DOWN"},
                  [] { return enable_cell_barring_feature(RUX_SLOT_ID_FIRST, true, onResponse); },
                  "response",
                  "ENABLE_CELL_BARRING_FEATURE_REQ {slot_id: SLOT_ID_FIRST, enable: true}", 6},
        RoundTrip{"FlightMode", {"status SET_FLIGHT_MODE_STATE_REQ STATUS_INVALID_SLOT"},
                  [] { return set_flight_mode_state(RUX_FLIGHT_MODE_STATE_LANDING, onResponse); },
                  "response", "SET_FLIGHT_MODE_STATE_REQ {flight_mode_state: FLIGHT_MODE_STATE_LANDING}",
                  7},
        RoundTrip{"DeviceFold", {},
                  [] { return set_device_fold_state(RUX_DEVICE_FOLD_STATE_CLOSE, onResponse); },
                  "response", "SET_DEVICE_FOLD_STATE_REQ {device_fold_state: DEVICE_FOLD_STATE_CLOSE}",
                  0},
        RoundTrip{"SubwayWireStatusInvalid", {"status SET_SUBWAY_STATE_REQ STATUS_INVALID"},
                  [] { return set_subway_state(RUX_SUBWAY_STATE_IN_CARRIAGE, onResponse); },
                  "response", "SET_SUBWAY_STATE_REQ {subway_state: SUBWAY_STATE_IN_CARRIAGE}", -1},
        RoundTrip{"GetHst", {"value hst-state HST_STATE_SET"}, [] { return get_hst_state(onGetHst); },
                  "hst", "GET_HST_STATE_REQ {}", 0, RUX_HST_STATE_SET},
        RoundTrip{"GetHstUnknownStateAndError",
                  {"value hst-state 7", "status GET_HST_STATE_REQ STATUS_INTERNAL_ERR"},
                  [] { return get_hst_state(onGetHst); }, "hst", "GET_HST_STATE_REQ {}", 2,
                  RUX_HST_STATE_UNKNOWN},
        RoundTrip{"DppdCapability", {"value dppd-capable false"},
                  [] { return get_dppd_capability(onDppdFlag); }, "dppd",
                  "GET_DPPD_CAPABILITY_REQ {}", 0, 0},
        RoundTrip{"DppdUiOptionEchoed", {}, [] { return update_dppd_ui_option(true, onDppdFlag); },
                  "dppd", "UPDATE_DPPD_UI_REQ {ui_option_enabled: true}", 0, 1},
        RoundTrip{"DppdRecommendation", {"value recommendation DATA_NOT_ALLOWED NDDS"},
                  [] { return get_dppd_recommendation(onRecommendation); }, "rec",
                  "GET_DPPD_RECOMMENDATION_REQ {}", 0, RUX_DATA_NOT_ALLOWED, RUX_SUBS_NDDS},
        RoundTrip{"DppdRecommendationDefaults", {},
                  [] { return get_dppd_recommendation(onRecommendation); }, "rec",
                  "GET_DPPD_RECOMMENDATION_REQ {}", 0, RUX_DATA_ALLOWED, RUX_SUBS_DDS},
        RoundTrip{"Submode",
                  {"value submode DSDA DSDA_TX_SHARING",
                   "status GET_MULTI_SUM_SUBMODE_INFO_REQ STATUS_NOT_SUPPORTED"},
                  [] { return get_multi_sim_submode_info(onSubmode); }, "submode",
                  "GET_MULTI_SUM_SUBMODE_INFO_REQ {}", 3, RUX_SUBMODE_DSDA,
                  RUX_TX_CONCURRENCY_SHARING},
        RoundTrip{"SubmodeInvalidConcurrency", {"value submode DSDS TX_CONCURRENCY_INVALID"},
                  [] { return get_multi_sim_submode_info(onSubmode); }, "submode",
                  "GET_MULTI_SUM_SUBMODE_INFO_REQ {}", 0, RUX_SUBMODE_DSDS,
                  RUX_TX_CONCURRENCY_INVALID},
        // The cell records (each converter's bytes have a table of their own). Records are
        // locals: the library copies them before returning.
        RoundTrip{"CellBarring", {"status SET_CELL_BARRING_INFO_REQ STATUS_INVALID_OPERATION"},
                  [] {
                      const auto lte = sampleLteCell();
                      const auto nr = sampleNrCell();
                      const cell_barring_info_s info{9, 1, &lte, 1, &nr};
                      return set_cell_barring_info(RUX_SLOT_ID_SECOND, &info, onResponse);
                  },
                  "response", "SET_CELL_BARRING_INFO_REQ {slot_id: SLOT_ID_SECOND, param: 9, "
                  "lte_cell_list: [" + kLteText + "], nr_cell_list: [" + kNrText + "]}", 4},
        RoundTrip{"DataStall", {},
                  [] {
                      const data_stall_params_s params{RUX_TRAFFIC_DIRECTION_UPLINK, false,
                                                       RUX_APPLICATION_TYPE_CONV_VIDEO, 1, 2, 3, -1};
                      return set_data_stall_parameters(RUX_SLOT_ID_THIRD, &params, onResponse);
                  },
                  "response", "SEND_DATA_STALL_PARAMETERS_REQ {slot_id: SLOT_ID_THIRD, params: "
                  "{traffic_direction: UPLINK, flag: false, application_type: CONV_VIDEO, ", 0},
        RoundTrip{"LteDubiousCells", {},
                  [] {
                      const auto cell = sampleLteCell();
                      return set_lte_dubious_cell_array(RUX_SLOT_ID_FIRST, 1, &cell, onResponse);
                  },
                  "response", "SET_LTE_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_FIRST, lte_cell_list: "
                  "[{plmn: {mcc: 310", 0},
        RoundTrip{"NrDubiousCells", {"status SET_NR_DUBIOUS_CELL_LIST_REQ STATUS_INVALID_ARG"},
                  [] {
                      const auto cell = sampleNrCell();
                      return set_nr_dubious_cell_array(RUX_SLOT_ID_FIRST, 1, &cell, onResponse);
                  },
                  "response", "SET_NR_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_FIRST, nr_cell_list: "
                  "[{plmn: {mcc: 311", 1},
        RoundTrip{"PreferredCells", {},
                  [] {
                      const auto cell = samplePreferredCell();
                      const preferred_cell_list_s list{5, 0, nullptr, 1, &cell};
                      return set_preferred_cell_list(RUX_SLOT_ID_SECOND, &list, onResponse);
                  },
                  "response", "SET_PREFERRED_CELL_LIST_REQ {slot_id: SLOT_ID_SECOND, param: 5, "
                  "cell_list: [], cell_list2: [{cell_info: {plmn: {mcc: 312, mnc: 530, "
                  "mnc_includes_pcs_digit: true}, cell_identity: 4886718345, band: "
                  "E_UTRA_OPERATING_BAND_250, freq: 2600, pci: 42}, param1: 77, flag1: true, flag2: "
                  "false, flag3: true, location: {latitude: -1, longitude: 2000000}}]}", 0},
        RoundTrip{"CellListInfo", {"status SET_CELL_LIST_INFO_REQ STATUS_NOT_SUPPORTED"},
                  [] {
                      set_cell_list_info_s info{};
                      info.mitigation_type = RUX_CELL_MITIGATION_PREFERRED;
                      info.nr_cell_list_len = 1;
                      info.nr_cell_list[0] = sampleListedCell();
                      return set_cell_list_info(&info, onResponseV2, onCellListInd);
                  },
                  "v2", "SET_CELL_LIST_INFO_REQ {mitigation_type: CELL_PREFERRED, flag: false, "
                  "lte_cell_list: [], nr_cell_list: [{cell_info: {plmn: {mcc: 313, mnc: 340, "
                  "mnc_includes_pcs_digit: false}, cell_identity: 42, band: E_UTRA_OPERATING_BAND_6, "
                  "freq: 5230, pci: 301}, param1_valid: true, param1: 11, flag2_valid: true, flag2: "
                  "true, param3: 33, param4: 44, property: {common_valid: true, common: {value_valid: "
                  "true, value: 55, flag: true, location: {latitude: -3, longitude: 4}}, hdr_valid: "
                  "true, hdr: {value1_valid: true, value1: 66, value2_valid: true, value2: 4294967294, "
                  "value3: 88}, rs_valid: true, rs: {shared_plmn: [{mcc: 314, mnc: 150, "
                  "mnc_includes_pcs_digit: true}, {mcc: 315, mnc: 20, mnc_includes_pcs_digit: "
                  "false}]}}}]}", RUX_STATUS_V2_NOT_SUPPORTED},
        RoundTrip{"DubiousCellsV2", {"status SET_DUBIOUS_LIST_V2_REQ STATUS_INVALID_SLOT"},
                  [] {
                      dubious_cell_info_v2_s info{};
                      info.lte_list_valid = info.lte_cell_list_len = 1;
                      info.lte_cell_list[0] = sampleV2Cell();
                      return set_dubious_cell_array_v2(&info, onResponseV2);
                  },
                  "v2", "SET_DUBIOUS_LIST_V2_REQ {slot_id: SLOT_ID_FIRST, lte_list_valid: true, "
                  "lte_cell_list: [{plmn: {mcc: 316, mnc: 10, mnc_includes_pcs_digit: false}, "
                  "cell_identity: 591751049, band: E_UTRA_OPERATING_BAND_3, freq: 100, pci: 5, "
                  "aux_value: 0, aux_values: [1, 300]}], nr_list_valid: false, nr_cell_list: []}",
                  RUX_STATUS_V2_INVALID_SLOT}),
    [](const ::testing::TestParamInfo<RoundTrip>& info) { return std::string(info.param.name); });

// --- transaction ids and threads -------------------------------------------------------

TEST_F(ClientE2E, TransactionIdsStepByTwoFromOneOnTheWireAndInCallbacks) {
    std::vector<int> tids{set_hst_state(RUX_HST_STATE_SET, onResponse), get_hst_state(onGetHst),
                          set_subway_state(RUX_SUBWAY_STATE_OUT_SUBWAY, onResponse),
                          get_dppd_capability(onDppdFlag)};
    EXPECT_EQ(tids, (std::vector<int>{3, 5, 7, 9}));
    ASSERT_TRUE(sink().waitForCount(4)) << sink().dump();
    std::set<long> delivered;
    for (const auto& c : sink().calls()) delivered.insert(c.tid);
    EXPECT_EQ(delivered, (std::set<long>{3, 5, 7, 9}));
    for (int tid : tids) EXPECT_TRUE(simSaw(tid, "")) << sim->dump();
}

struct LocalCase {
    std::function<int()> call;
    int status;
};

TEST_F(ClientE2E, BadEnumsAndSlotsAreAnsweredLocallyOnTheSdkThreadAndNeverSent) {
    // A service reply first, to learn the receiver thread.
    const int first = set_hst_state(RUX_HST_STATE_SET, onResponse);
    const Call served = sink().waitForTid("response", first);
    ASSERT_EQ(served.kind, "response");

    const std::vector<LocalCase> cases{
        {[] { return set_hst_state(static_cast<hst_state_e>(99), onResponse); }, 1},
        {[] { return set_coverage_state(static_cast<slot_id_e>(5), RUX_COVERAGE_STATE_DEFAULT, onResponse); }, 7},
        {[] { return set_coverage_state(RUX_SLOT_ID_FIRST, static_cast<coverage_state_e>(9), onResponse); }, 1},
        {[] { return set_coverage_state(static_cast<slot_id_e>(-1), static_cast<coverage_state_e>(9), onResponse); }, 7},
        {[] { return set_flight_mode_state(static_cast<rux_flight_mode_state_e>(4), onResponse); }, 1},
        {[] { return set_device_fold_state(static_cast<rux_device_fold_state_e>(-1), onResponse); }, 1},
        {[] { return set_subway_state(static_cast<rux_subway_state_e>(4), onResponse); }, 1},
        {[] { return enable_cell_barring_feature(static_cast<slot_id_e>(3), true, onResponse); }, 7},
        {[] { return set_l2nr_selection(static_cast<slot_id_e>(-1), onResponse); }, 7},
        {[] { return set_out_of_service_state(static_cast<slot_id_e>(4), RUX_SCAN_STATE_SLOW, onResponse); }, 7},
    };
    std::vector<int> tids;
    for (const auto& c : cases) tids.push_back(c.call());
    // Requests are sent in order, so once the marker is answered any of the bad ones
    // would have reached the sim before it.
    const int marker = set_device_fold_state(RUX_DEVICE_FOLD_STATE_OPEN, onResponse);
    ASSERT_EQ(sink().waitForTid("response", marker).kind, "response");

    std::set<std::thread::id> localThreads;
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("case " + std::to_string(i) + " tid " + std::to_string(tids[i]));
        EXPECT_GT(tids[i], 0);
        const Call got = sink().waitForTid("response", tids[i]);
        ASSERT_EQ(got.kind, "response") << sink().dump();
        EXPECT_EQ(got.status, cases[i].status);
        localThreads.insert(got.thread);
        EXPECT_EQ(sim->count("tid=" + std::to_string(tids[i]) + " "), 0u) << sim->dump();
    }
    ASSERT_EQ(localThreads.size(), 1u);  // the one SDK thread
    EXPECT_NE(*localThreads.begin(), served.thread);
    EXPECT_NE(*localThreads.begin(), std::this_thread::get_id());
    EXPECT_EQ(sink().of("response").size(), cases.size() + 2);  // each exactly once
}

// --- fallback callback -----------------------------------------------------------------

TEST_F(ClientE2E, FirstSetCallbackIsTheFallbackForPlainRepliesOnly) {
    const int a = set_hst_state(RUX_HST_STATE_SET, onResponse);  // becomes the fallback
    ASSERT_EQ(sink().waitForTid("response", a).kind, "response");
    const int b = set_hst_state(RUX_HST_STATE_SET, onResponseB);  // does not replace it
    ASSERT_EQ(sink().waitForTid("responseB", b).kind, "responseB");
    const int orphan = set_flight_mode_state(RUX_FLIGHT_MODE_STATE_IN_FLIGHT, nullptr);
    EXPECT_EQ(sink().waitForTid("response", orphan).status, 0) << sink().dump();

    // A reply nobody asked for goes to the fallback; a get_* reply does not.
    ASSERT_EQ(sim->command("reply SET_HST_STATE_RESP 999 STATUS_NOT_SUPPORTED"), "ok sent=1");
    EXPECT_EQ(sink().waitForTid("response", 999).status, 3) << sink().dump();
    ASSERT_EQ(sim->command("reply GET_HST_STATE_RESP 1001"), "ok sent=1");
    get_hst_state(nullptr);
    const int marker = set_hst_state(RUX_HST_STATE_SET, onResponseB);
    ASSERT_EQ(sink().waitForTid("responseB", marker).kind, "responseB");
    EXPECT_EQ(sink().of("response").size(), 3u) << sink().dump();
    EXPECT_EQ(sink().of("hst").size(), 0u);
    EXPECT_EQ(sink().calls().size(), 5u) << sink().dump();
}

TEST_F(ClientE2E, GetRequestsNeverSetTheFallback) {
    const int g = get_hst_state(onGetHst);
    ASSERT_EQ(sink().waitForTid("hst", g).kind, "hst");
    set_hst_state(RUX_HST_STATE_SET, nullptr);  // no fallback yet: dropped
    const int marker = get_hst_state(onGetHst);
    ASSERT_EQ(sink().waitForTid("hst", marker).kind, "hst");
    EXPECT_EQ(sink().calls().size(), 2u) << sink().dump();
}

// --- DPPD, indications, unknown events --------------------------------------------------

TEST_F(ClientE2E, DppdCompletionsReportSuccessWhateverTheServiceSays) {
    ASSERT_EQ(sim->command("status all STATUS_INTERNAL_ERR"), "ok");
    const int cap = get_dppd_capability(onDppdFlag);
    const int ui = update_dppd_ui_option(false, onDppdFlag);
    const int rec = get_dppd_recommendation(onRecommendation);
    const int hst = get_hst_state(onGetHst);
    EXPECT_EQ(sink().waitForTid("dppd", cap).status, 0);
    EXPECT_EQ(sink().waitForTid("dppd", ui).status, 0);
    EXPECT_EQ(sink().waitForTid("rec", rec).status, 0);
    EXPECT_EQ(sink().waitForTid("hst", hst).status, 2);  // the others carry the status
}

TEST_F(ClientE2E, IndicationsReachTheirCallbacksConverted) {
    register_hst_state_report(onHstInd);
    register_subway_state_report(onSubwayInd);
    register_dppd_indication(onDppdCapabilityInd, onDppdRecommendationInd);
    register_multi_sim_submode_indication(onSubmodeInd);
    ASSERT_TRUE(sim->waitForLine("REGISTER_DPPD_INDICATION_REQ {}")) << sim->dump();
    ASSERT_TRUE(sim->waitForLine("REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ {}")) << sim->dump();
    EXPECT_EQ(sim->count("reply session="), 0u);  // registrations get no reply

    for (const char* line :
         {"indicate hst-state HST_STATE_NOT_SET", "indicate subway-state SUBWAY_STATE_OUT_SUBWAY",
          "indicate dppd-capability true", "indicate dppd-recommendation DATA_NOT_ALLOWED DDS",
          "indicate submode DSDA DSDA_FULL_CONCURRENCY", "indicate service-status STATUS_SERVICE_UP"})
        ASSERT_EQ(sim->command(line), "ok sent=1") << line;
    ASSERT_TRUE(sink().waitForCount(6)) << sink().dump();
    EXPECT_EQ(sink().of("hst-ind").at(0).value1, RUX_HST_STATE_NOT_SET);
    EXPECT_EQ(sink().of("subway-ind").at(0).value1, RUX_SUBWAY_STATE_OUT_SUBWAY);
    EXPECT_EQ(sink().of("dppd-cap-ind").at(0).value1, 1);
    EXPECT_EQ(sink().of("dppd-rec-ind").at(0).value1, RUX_DATA_NOT_ALLOWED);
    EXPECT_EQ(sink().of("dppd-rec-ind").at(0).value2, RUX_SUBS_DDS);
    EXPECT_EQ(sink().of("submode-ind").at(0).value1, RUX_SUBMODE_DSDA);
    EXPECT_EQ(sink().of("submode-ind").at(0).value2, RUX_TX_CONCURRENCY_FULL);
    EXPECT_EQ(sink().of("status").at(0).status, RUX_STATUS_SERVICE_UP);
}

// The service's feedback on cell lists reaches the callback set_cell_list_info installed
// (also when that call refused its record), as one whole record, every field converted.
TEST_F(ClientE2E, CellListFeedbackReachesTheIndicationCallbackWhole) {
    set_cell_list_info_s tooLong{};
    tooLong.lte_cell_list_len = MAX_SIZE_CELL_LIST + 1;
    ASSERT_EQ(set_cell_list_info(&tooLong, onResponseV2, onCellListInd), RUX_STATUS_V2_INVALID_ARG);
    ASSERT_EQ(sim->command("indicate cell-list CELL_INFO lte mcc=310 mnc=260 pcs=1 id=6699 "
                           "band=E_UTRA_OPERATING_BAND_3 freq=1850 pci=101 cause=5 feedback=1 "
                           "shared=311-480-1,312-530 nr mnc=2 id=68719476735 band=277 feedback=9"),
              "ok sent=1");
    const Call got = sink().waitFor([](const Call& c) { return c.kind == "cell-ind"; });
    EXPECT_EQ(got.text, "type=2 lte=[310/260/1 id=6699 band=122 freq=1850 pci=101 cause=5 fb=1 "
                        "shared=311/480/1,312/530/0] nr=[0/2/0 id=68719476735 band=277 freq=0 pci=0 "
                        "cause=0 fb=0 shared=] rest=0")
        << sink().dump();
    EXPECT_NE(got.thread, std::this_thread::get_id());
    EXPECT_TRUE(sim->waitForLine("indication session=1 CELL_LIST_INFO_IND_RESP {mitigation_type: "
                                 "CELL_INFO, lte_cell_list: [{cell_info: {plmn: {mcc: 310, mnc: 260"))
        << sim->dump();
}

TEST_F(ClientE2E, UnknownEventIsOnlyLogged) {
    ASSERT_EQ(sim->command("reply 27 3"), "ok sent=1");
    ASSERT_TRUE(log.waitForText("Unknown VEX proto event!")) << log.dump();
    const auto line = log.matching("Unknown VEX proto event!").at(0);
    EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(line.tag, LogCapture::kNullTag);
    const int marker = set_hst_state(RUX_HST_STATE_SET, onResponse);
    ASSERT_EQ(sink().waitForTid("response", marker).kind, "response");
    EXPECT_EQ(sink().calls().size(), 1u) << sink().dump();
}

// --- service loss and reconnection -------------------------------------------------------

TEST_F(ClientE2E, KilledServiceGivesStatusSixAndTheNextRequestReconnects) {
    const int before = set_hst_state(RUX_HST_STATE_SET, onResponse);
    const Call served = sink().waitForTid("response", before);
    ASSERT_EQ(served.kind, "response");
    sim->crash();
    const Call down = sink().waitForStatus(RUX_STATUS_SERVICE_DOWN);
    ASSERT_EQ(down.kind, "status") << sink().dump();
    EXPECT_EQ(down.thread, served.thread);  // both on that connection's receiver thread

    startSim();
    const int after = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);
    EXPECT_EQ(sink().waitForTid("response", after).status, 0) << sink().dump();
    EXPECT_TRUE(simSaw(after, "SET_HST_STATE_REQ {hst_state: HST_STATE_NOT_SET}")) << sim->dump();
}

TEST_F(ClientE2E, DroppedConnectionIsReestablishedByTheNextRequest) {
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_EQ(sink().waitForStatus(RUX_STATUS_SERVICE_DOWN).kind, "status") << sink().dump();
    const int tid = set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onResponse);
    EXPECT_EQ(sink().waitForTid("response", tid).status, 0) << sink().dump() << sim->dump();
    // The reply can overtake the simulator's own log lines.
    EXPECT_TRUE(simSaw(tid, "SET_SUBWAY_STATE_REQ")) << sim->dump();
    EXPECT_EQ(simLinesStartingWith("connected session="), 2u) << sim->dump();
}

TEST_F(ClientE2E, RefusedReconnectReportsDownAndAcceptingAgainRecovers) {
    ASSERT_EQ(sim->command("refuse on"), "ok");
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_EQ(sink().waitForStatus(RUX_STATUS_SERVICE_DOWN).kind, "status");
    const int lost = set_hst_state(RUX_HST_STATE_SET, onResponse);  // ~5 s of connect attempts
    ASSERT_TRUE(sink().waitForCountOf("status", 2)) << sink().dump();  // the failed reconnect
    EXPECT_EQ(sink().of("status").at(1).status, RUX_STATUS_SERVICE_DOWN);
    ASSERT_EQ(sim->command("refuse off"), "ok");
    const int tid = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);
    EXPECT_EQ(sink().waitForTid("response", tid).status, 0) << sink().dump();
    EXPECT_EQ(sink().of("response").size(), 1u);
    EXPECT_EQ(sim->count("tid=" + std::to_string(lost) + " "), 0u);
}

// --- a connection dropped under load ------------------------------------------------------

// How many times a log line containing `needle` has been captured.
size_t logCount(const LogCapture& log, const std::string& needle) {
    return log.matching(needle).size();
}

size_t serviceDowns() {
    size_t n = 0;
    for (const auto& c : sink().of("status"))
        if (c.status == RUX_STATUS_SERVICE_DOWN) ++n;
    return n;
}

// A burst posted at once, and the connection dropped while it is still being written:
// the loss is reported once (status 6), and requests made after it reconnect and are
// answered.
TEST_F(ClientE2E, DropWhileABurstIsBeingSentReportsDownOnceAndTheNextRequestReconnects) {
    constexpr int kBurst = 120;
    for (int i = 0; i < kBurst; ++i) {
        const int tid = i % 2 ? set_hst_state(RUX_HST_STATE_SET, onResponse) : get_hst_state(onGetHst);
        ASSERT_GT(tid, 0);
    }
    ASSERT_TRUE(sim->waitForCount("request session=", 10)) << sim->dump();
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_EQ(sink().waitForStatus(RUX_STATUS_SERVICE_DOWN).kind, "status") << sink().dump();

    const int after = set_hst_state(RUX_HST_STATE_NOT_SET, onResponseB);
    EXPECT_EQ(sink().waitForTid("responseB", after).status, 0) << sink().dump() << sim->dump();
    EXPECT_TRUE(simSaw(after, "SET_HST_STATE_REQ {hst_state: HST_STATE_NOT_SET}")) << sim->dump();
    // The first connection's receiver has finished (it logs this last), so every report
    // of that loss has been made.
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    EXPECT_EQ(serviceDowns(), 1u) << sink().dump();
    EXPECT_EQ(simLinesStartingWith("connected session="), 2u) << sim->dump();
    // Nothing of the burst was answered twice.
    std::multiset<long> answered;
    for (const auto& c : sink().calls())
        if (c.kind == "response" || c.kind == "hst") answered.insert(c.tid);
    for (long tid : answered) EXPECT_EQ(answered.count(tid), 1u) << tid;
}

// Lets the test hold the receiver thread inside an application callback.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;  // guarded by mutex
    bool open = false;     // guarded by mutex
};
Gate& gate() {
    static Gate* g = new Gate();  // never destroyed: a callback may still be waiting at exit
    return *g;
}
void onResponseHeld(int tid, status_e s) {
    record("held", tid, s);
    Gate& g = gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    g.entered = true;
    g.changed.notify_all();
    g.changed.wait_for(lock, 60s, [&] { return g.open; });
}
void openGate() {
    Gate& g = gate();
    {
        std::lock_guard<std::mutex> lock(g.mutex);
        g.open = true;
    }
    g.changed.notify_all();
}

// While the receiver cannot notice that the service has gone (here it is held in an
// application callback), a send that finds the peer gone ends the session itself: one
// status 6, and the next request connects again and is answered, on the SDK thread's
// new connection. The old receiver's own end, once it gets there, changes nothing.
TEST_F(ClientE2E, SendToAGoneServiceEndsTheSessionEvenIfTheReceiverCannotNotice) {
    struct OpenAtExit {
        ~OpenAtExit() { openGate(); }
    } openAtExit;
    const int held = set_hst_state(RUX_HST_STATE_SET, onResponseHeld);
    {
        Gate& g = gate();
        std::unique_lock<std::mutex> lock(g.mutex);
        ASSERT_TRUE(g.changed.wait_for(lock, 20s, [&] { return g.entered; })) << sink().dump();
    }
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    ASSERT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();

    const int lost = set_hst_state(RUX_HST_STATE_NOT_SET, onResponse);  // meets the dead socket
    const Call down = sink().waitForStatus(RUX_STATUS_SERVICE_DOWN);
    ASSERT_EQ(down.kind, "status") << sink().dump() << log.dump();
    EXPECT_NE(down.thread, sink().of("held").at(0).thread);  // not the held receiver
    const auto failure = log.matching("send: failure, errno: 32(Broken pipe)");
    ASSERT_EQ(failure.size(), 1u) << log.dump();
    EXPECT_EQ(failure[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(logCount(log, "Error 1st recv"), 0u);  // the receiver is still held

    const int next = get_hst_state(onGetHst);
    EXPECT_EQ(sink().waitForTid("hst", next).status, 0) << sink().dump() << sim->dump();
    EXPECT_TRUE(simSaw(next, "GET_HST_STATE_REQ {}")) << sim->dump();  // its lines are in
    EXPECT_EQ(simLinesStartingWith("connected session="), 2u) << sim->dump();

    // Released, the old receiver reads what is left and ends without a second report.
    openGate();
    ASSERT_TRUE(log.waitForText("ipc recv error:")) << log.dump();
    const int last = set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onResponseB);
    EXPECT_EQ(sink().waitForTid("responseB", last).status, 0) << sink().dump() << sim->dump();
    EXPECT_TRUE(simSaw(last, "SET_SUBWAY_STATE_REQ")) << sim->dump();
    EXPECT_EQ(serviceDowns(), 1u) << sink().dump();
    EXPECT_EQ(simLinesStartingWith("connected session="), 2u) << sim->dump();
    EXPECT_EQ(sim->count("tid=" + std::to_string(lost) + " "), 0u);
    EXPECT_EQ(sink().of("held").size(), 1u);
    EXPECT_EQ(sink().of("held").at(0).tid, held);
}

// --- registration and the first request ---------------------------------------------------

class UnregisteredE2E : public ClientE2E {
protected:
    bool registerFirst() const override { return false; }
};

// Requests made right after register_rux_client, without waiting for anything, follow
// the registration on the wire.
TEST_F(UnregisteredE2E, RequestsRightAfterRegisteringFollowTheRegistrationOnTheWire) {
    register_rux_client(onStatus);
    const std::vector<int> tids{set_hst_state(RUX_HST_STATE_SET, onResponse),
                                get_hst_state(onGetHst),
                                set_flight_mode_state(RUX_FLIGHT_MODE_STATE_IN_FLIGHT, onResponse)};
    EXPECT_EQ(tids, (std::vector<int>{3, 5, 7}));
    for (size_t i = 0; i < tids.size(); ++i)
        EXPECT_EQ(sink().waitForTid(i == 1 ? "hst" : "response", tids[i]).status, 0) << sink().dump();

    ASSERT_TRUE(simSaw(7, "SET_FLIGHT_MODE_STATE_REQ")) << sim->dump();
    std::vector<std::string> requests;
    for (const auto& l : sim->process().lines())
        if (l.rfind("request session=", 0) == 0) requests.push_back(l);
    ASSERT_EQ(requests.size(), 4u) << sim->dump();
    EXPECT_NE(requests[0].find(" tid=1 REGISTER_CLIENT_REQ {}"), std::string::npos) << requests[0];
    EXPECT_NE(requests[1].find(" tid=3 SET_HST_STATE_REQ"), std::string::npos) << requests[1];
    EXPECT_NE(requests[2].find(" tid=5 GET_HST_STATE_REQ"), std::string::npos) << requests[2];
    EXPECT_NE(requests[3].find(" tid=7 SET_FLIGHT_MODE_STATE_REQ"), std::string::npos) << requests[3];
}

class NoServiceE2E : public ClientE2E {
protected:
    bool startSimFirst() const override { return false; }
};

TEST_F(NoServiceE2E, RegistrationReportsServiceDownAfterTheConnectAttempts) {
    register_rux_client(onStatus);
    const Call down = sink().waitFor([](const Call& c) { return c.kind == "status"; }, 30s);
    ASSERT_EQ(down.kind, "status") << sink().dump();
    EXPECT_EQ(down.status, RUX_STATUS_SERVICE_DOWN);
    EXPECT_NE(down.thread, std::this_thread::get_id());

    startSim();
    const int tid = set_hst_state(RUX_HST_STATE_SET, onResponse);
    EXPECT_EQ(tid, 3);
    EXPECT_EQ(sink().waitForTid("response", tid).status, 0) << sink().dump();
    EXPECT_TRUE(simSaw(tid, "SET_HST_STATE_REQ")) << sim->dump();
}

// --- deregistration ---------------------------------------------------------------------

TEST_F(ClientE2E, DeregisterWithRequestsOutstandingReturnsAndTheirCallbacksNeverRun) {
    ASSERT_EQ(sim->command("silent all"), "ok");
    std::vector<int> tids;
    for (int i = 0; i < 5; ++i) tids.push_back(set_hst_state(RUX_HST_STATE_SET, onResponse));
    tids.push_back(get_hst_state(onGetHst));
    ASSERT_TRUE(sim->waitForCount("no-reply session=", tids.size())) << sim->dump();

    auto done = std::async(std::launch::async, [] { deregister_rux_client(); });
    ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(sim->waitForLine("disconnected session=")) << sim->dump();

    // A new client in the same process: ids go on, and only its own callback runs.
    ASSERT_EQ(sim->command("silent all off"), "ok");
    register_rux_client(onStatus);
    const int next = set_hst_state(RUX_HST_STATE_SET, onResponseB);
    EXPECT_EQ(next, tids.back() + 4);  // the new registration took one id
    EXPECT_EQ(sink().waitForTid("responseB", next).status, 0) << sink().dump();
    EXPECT_EQ(sink().of("response").size(), 0u) << sink().dump();
    EXPECT_EQ(sink().of("hst").size(), 0u);
}

// --- several application threads while connections come and go --------------------------

TEST_F(ClientE2E, ConcurrentRequestsSurviveDroppedConnections) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 30;
    std::mutex tidsMutex;
    std::vector<int> issued;
    // Each worker waits for its answer, or for a loss of service reported after it asked
    // (the request may then be lost), so requests keep flowing while connections drop.
    auto worker = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            const size_t losses = sink().of("status").size();
            const int tid = i % 2 ? set_hst_state(RUX_HST_STATE_SET, onResponse)
                                  : get_hst_state(onGetHst);
            {
                std::lock_guard<std::mutex> lock(tidsMutex);
                issued.push_back(tid);
            }
            sink().waitUntil(
                [&](const std::vector<Call>& calls) {
                    size_t statuses = 0;
                    for (const auto& c : calls) {
                        if (c.tid == tid && c.kind != "status") return true;
                        if (c.kind == "status") ++statuses;
                    }
                    return statuses > losses;
                },
                5s);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(worker);
    // Three times: once the client is connected again and more requests have arrived,
    // drop it, and wait until the simulator has seen it go.
    for (size_t round = 1; round <= 3; ++round) {
        EXPECT_TRUE(sim->process().waitFor([&](const std::vector<std::string>& lines) {
            size_t connects = 0, requests = 0;
            for (const auto& l : lines) {
                if (l.rfind("connected session=", 0) == 0) ++connects;
                if (l.rfind("request session=", 0) == 0) ++requests;
            }
            return connects >= round && requests >= 1 + round * 20;
        })) << "round " << round << "\n" << sim->dump();
        EXPECT_EQ(sim->command("drop"), "ok dropped=1");
        EXPECT_TRUE(sim->waitForCount("disconnected session=", round)) << sim->dump();
    }
    for (auto& t : threads) t.join();

    // After the storm a request from every thread completes.
    std::vector<int> finals(kThreads);
    std::vector<std::thread> last;
    for (int t = 0; t < kThreads; ++t)
        last.emplace_back([&finals, t] { finals[t] = set_hst_state(RUX_HST_STATE_NOT_SET, onResponseB); });
    for (auto& t : last) t.join();
    for (int tid : finals) {
        const Call got = sink().waitForTid("responseB", tid);
        EXPECT_EQ(got.kind, "responseB") << "tid " << tid << "\n" << sim->dump();
        EXPECT_EQ(got.status, 0);
    }

    std::set<int> unique(issued.begin(), issued.end());
    EXPECT_EQ(unique.size(), issued.size());
    for (int tid : issued) EXPECT_EQ(tid % 2, 1);
    std::multiset<long> delivered;
    for (const auto& c : sink().calls())
        if (c.kind == "response" || c.kind == "hst") {
            delivered.insert(c.tid);
            EXPECT_EQ(c.status, 0);
            EXPECT_TRUE(unique.count(static_cast<int>(c.tid))) << c.tid;
        }
    for (long tid : delivered) EXPECT_EQ(delivered.count(tid), 1u) << tid;
    // Every drop was reported as a loss of service.
    size_t downs = 0;
    for (const auto& c : sink().of("status"))
        if (c.status == RUX_STATUS_SERVICE_DOWN) ++downs;
    EXPECT_GE(downs, 3u) << sink().dump();
}

}  // namespace
}  // namespace rux::test
