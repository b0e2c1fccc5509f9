// ruxctl as a user runs it, against rux-sim over a real socket: every subcommand reaches
// the service with the values given (the request as rux-sim decodes it) and prints the
// answer, as a line or as JSON, with the right exit status; watch prints every indication
// until stopped; no service; bad usage. The records' bytes are pinned by the unit tests
// (RuxctlRecordsTest); here a record only has to arrive.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Subprocess.h"

#ifndef RUX_RUXCTL_PATH
#error "RUX_RUXCTL_PATH must name the ruxctl binary"
#endif

namespace rux::test {
namespace {

using Lines = std::vector<std::string>;

struct ToolRun {
    int exitStatus = -1;  // -1: did not exit by itself
    Lines out;
    Lines err;
    std::string dump() const {
        std::string s = "exit " + std::to_string(exitStatus) + "\n";
        for (const auto& l : out) s += "  out| " + l + "\n";
        for (const auto& l : err) s += "  err| " + l + "\n";
        return s;
    }
};

Lines words(const std::string& text) {
    Lines out;
    std::istringstream in(text);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

class RuxctlE2E : public ::testing::Test {
protected:
    void SetUp() override { startSim(); }
    void startSim() {
        sim = std::make_unique<SimProcess>(path);
        ASSERT_TRUE(sim->ready()) << sim->dump();
    }
    // Waits for this exact line in the simulator's event log.
    bool simSaw(const std::string& line) {
        return sim->process().waitFor(
            [&](const Lines& l) { return std::find(l.begin(), l.end(), line) != l.end(); });
    }
    // ruxctl with `args`, pointed at the simulator, with `input` on its stdin.
    std::unique_ptr<Subprocess> start(const Lines& args, const std::string& input = "") {
        Lines argv{RUX_RUXCTL_PATH};
        argv.insert(argv.end(), args.begin(), args.end());
        auto p = std::make_unique<Subprocess>(argv, Lines{"RUX_SOCKET_PATH=" + path},
                                              Subprocess::Stderr::Capture);
        if (!input.empty()) p->writeLine(input);
        p->closeStdin();
        return p;
    }
    ToolRun finish(Subprocess& p) {
        ToolRun run;
        const auto wait = p.waitExit();
        run.exitStatus = wait && WIFEXITED(*wait) ? WEXITSTATUS(*wait) : -1;
        run.err = p.errorLines();
        p.waitFor([](const Lines&) { return false; });  // returns at the end of stdout
        run.out = p.lines();
        return run;
    }
    ToolRun run(const Lines& args, const std::string& input = "") {
        return finish(*start(args, input));
    }

    std::string path = SimProcess::uniqueSocketPath("ruxctl");
    std::unique_ptr<SimProcess> sim;
};

// --- one row per subcommand -------------------------------------------------------------

struct RequestRow {
    const char* name;
    const char* simSetup;  // a control line first, or ""
    const char* command;   // split at spaces; "{file}" is a file holding `json`
    const char* json;      // the record: in {file}, else on stdin
    const char* simSees;   // the request as the simulator decodes it
    const char* printed;
    int exitStatus;
};
void PrintTo(const RequestRow& r, std::ostream* os) {
    *os << r.name;
}

class RequestTest : public RuxctlE2E, public ::testing::WithParamInterface<RequestRow> {};

TEST_P(RequestTest, ReachesTheServiceAndPrintsTheAnswer) {
    const auto& row = GetParam();
    if (*row.simSetup) {
        ASSERT_EQ(sim->command(row.simSetup), "ok");
    }
    const std::string file =
        ::testing::TempDir() + "ruxctl-" + std::to_string(::getpid()) + ".json";
    Lines args = words(row.command);
    std::string input = row.json;
    for (auto& arg : args)
        if (arg == "{file}") {
            std::ofstream(file) << row.json;
            arg = file;
            input.clear();
        }
    const ToolRun got = run(args, input);
    ::unlink(file.c_str());
    EXPECT_EQ(got.exitStatus, row.exitStatus) << got.dump();
    EXPECT_EQ(got.out, Lines{row.printed}) << got.dump();
    EXPECT_EQ(got.err, Lines{}) << got.dump();
    EXPECT_TRUE(simSaw(std::string("request session=1 tid=3 ") + row.simSees)) << sim->dump();
}

// Fields every decoded cell shows; the rows give one value each and the rest are 0.
#define PLMN0 "plmn: {mcc: 0, mnc: 0, mnc_includes_pcs_digit: false}"
#define CELL_INFO0 "cell_info: {" PLMN0 ", cell_identity: 0, band: BC_0, freq: 0, pci: 0}"

// clang-format off
INSTANTIATE_TEST_SUITE_P(Subcommands, RequestTest, ::testing::Values(
    RequestRow{"SetHstState", "", "set-hst-state HST_STATE_SET", "",
        "SET_HST_STATE_REQ {hst_state: HST_STATE_SET}",
        "set-hst-state tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"GetHstState", "value hst-state HST_STATE_SET", "get-hst-state", "",
        "GET_HST_STATE_REQ {}",
        "get-hst-state tid=3 status=RUX_STATUS_SUCCESS state=RUX_HST_STATE_SET", 0},
    RequestRow{"SetCoverageStateNotSupported", "status SET_COVERAGE_STATE_REQ RUX_STATUS_NOT_SUPPORTED",
        "set-coverage-state second 1", "",
        "SET_COVERAGE_STATE_REQ {slot_id: SLOT_ID_SECOND, coverage_state: COVERAGE_STATE_IN_COVERAGE_HOLE}",
        "set-coverage-state tid=3 status=RUX_STATUS_NOT_SUPPORTED", 1},
    RequestRow{"SetOutOfServiceState", "", "set-out-of-service-state RUX_SLOT_ID_THIRD normal", "",
        "SET_OUT_OF_SERVICE_REQ {slot_id: SLOT_ID_THIRD, scan_state: NORMAL}",
        "set-out-of-service-state tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetL2nrSelection", "", "set-l2nr-selection 0", "",
        "SET_L2NR_SELECTION_REQ {slot_id: SLOT_ID_FIRST}",
        "set-l2nr-selection tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"EnableCellBarringFeature", "", "enable-cell-barring-feature first off", "",
        "ENABLE_CELL_BARRING_FEATURE_REQ {slot_id: SLOT_ID_FIRST, enable: false}",
        "enable-cell-barring-feature tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetCellBarringInfo", "", "set-cell-barring-info first",
        R"({"value": 7, "lte_cells": [{"mcc": 310}], "nr_cells": [{"scs": "NR5G_SCS_30"}]})",
        "SET_CELL_BARRING_INFO_REQ {slot_id: SLOT_ID_FIRST, param: 7, lte_cell_list: [{plmn: {mcc: 310, "
        "mnc: 0, mnc_includes_pcs_digit: false}, cell_identity: 0, band: BC_0, freq: 0, pci: 0, aux_value: 0, "
        "aux_values: []}], nr_cell_list: [{" PLMN0 ", cell_identity: 0, band: BC_0, freq: 0, pci: 0, "
        "scs: NR5G_SCS_30, aux_value: 0, aux_values: []}]}",
        "set-cell-barring-info tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetDataStallParametersFromAFile", "", "set-data-stall-parameters second {file}",
        R"({"traffic_direction": "DOWNLINK", "flag": true, "application_type": "GAMING", "param1": 5, "param4": 0})",
        "SEND_DATA_STALL_PARAMETERS_REQ {slot_id: SLOT_ID_SECOND, params: {traffic_direction: DOWNLINK, "
        "flag: true, application_type: TYPE_GAMING, param1: 5, param2: -1, param3: -1, param4: 0}}",
        "set-data-stall-parameters tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetLteDubiousCellArray", "", "set-lte-dubious-cell-array third", R"([{"pci": 101}])",
        "SET_LTE_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_THIRD, lte_cell_list: [{" PLMN0 ", cell_identity: 0, "
        "band: BC_0, freq: 0, pci: 101, aux_value: 0, aux_values: []}]}",
        "set-lte-dubious-cell-array tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetNrDubiousCellArray", "", "set-nr-dubious-cell-array first",
        R"([{"cell_identity": 68719476735, "scs": "NR5G_SCS_120"}])",
        "SET_NR_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_FIRST, nr_cell_list: [{" PLMN0 ", "
        "cell_identity: 68719476735, band: BC_0, freq: 0, pci: 0, scs: NR5G_SCS_120, aux_value: 0, aux_values: []}]}",
        "set-nr-dubious-cell-array tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetPreferredCellList", "", "set-preferred-cell-list second -",
        R"({"value": 9, "cells": [{"param1": 1}], "cells2": [{"flag2": true}]})",
        "SET_PREFERRED_CELL_LIST_REQ {slot_id: SLOT_ID_SECOND, param: 9, cell_list: [{" CELL_INFO0 ", "
        "param1: 1, flag1: false, flag2: false, flag3: false, location: {latitude: 0, longitude: 0}}], "
        "cell_list2: [{" CELL_INFO0 ", param1: 0, flag1: false, flag2: true, flag3: false, "
        "location: {latitude: 0, longitude: 0}}]}",
        "set-preferred-cell-list tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetFlightModeState", "", "set-flight-mode-state landing", "",
        "SET_FLIGHT_MODE_STATE_REQ {flight_mode_state: FLIGHT_MODE_STATE_LANDING}",
        "set-flight-mode-state tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetDeviceFoldState", "", "set-device-fold-state DEVICE_FOLD_STATE_OPEN", "",
        "SET_DEVICE_FOLD_STATE_REQ {device_fold_state: DEVICE_FOLD_STATE_OPEN}",
        "set-device-fold-state tid=3 status=RUX_STATUS_SUCCESS", 0},
    RequestRow{"SetSubwayStateInvalidStatus", "status SET_SUBWAY_STATE_REQ RUX_STATUS_INVALID",
        "set-subway-state in_carriage", "",
        "SET_SUBWAY_STATE_REQ {subway_state: SUBWAY_STATE_IN_CARRIAGE}",
        "set-subway-state tid=3 status=RUX_STATUS_INVALID", 1},
    RequestRow{"GetDppdCapabilityAsJson", "value dppd-capable false", "--json get-dppd-capability", "",
        "GET_DPPD_CAPABILITY_REQ {}",
        R"({"request":"get-dppd-capability","tid":3,"status":"RUX_STATUS_SUCCESS","flag":false})", 0},
    RequestRow{"UpdateDppdUiOption", "", "update-dppd-ui-option true", "",
        "UPDATE_DPPD_UI_REQ {ui_option_enabled: true}",
        "update-dppd-ui-option tid=3 status=RUX_STATUS_SUCCESS flag=true", 0},
    RequestRow{"GetDppdRecommendation", "value recommendation DATA_NOT_ALLOWED NDDS",
        "get-dppd-recommendation", "", "GET_DPPD_RECOMMENDATION_REQ {}",
        "get-dppd-recommendation tid=3 status=RUX_STATUS_SUCCESS action=RUX_DATA_NOT_ALLOWED "
        "subscription=RUX_SUBS_NDDS", 0},
    // The answer's values are printed whatever its status.
    RequestRow{"GetMultiSimSubmodeInfoAsJson", "status GET_MULTI_SUM_SUBMODE_INFO_REQ 2",
        "get-multi-sim-submode-info --json", "", "GET_MULTI_SUM_SUBMODE_INFO_REQ {}",
        R"({"request":"get-multi-sim-submode-info","tid":3,"status":"RUX_STATUS_INTERNAL_ERR",)"
        R"("sub_mode":"RUX_SUBMODE_DSDA","tx_concurrency":"RUX_TX_CONCURRENCY_FULL"})", 1},
    RequestRow{"SetCellListInfo", "", "set-cell-list-info",
        R"({"mitigation_type": "INFO", "flag": 1, "lte_cell_list": [{"param1": 2}]})",
        "SET_CELL_LIST_INFO_REQ {mitigation_type: CELL_INFO, flag: true, lte_cell_list: [{" CELL_INFO0 ", "
        "param1_valid: true, param1: 2, flag2_valid: false, flag2: false, param3: 0, param4: 0, "
        "property: {common_valid: false, common: {value_valid: false, value: 0, flag: false, "
        "location: {latitude: 0, longitude: 0}}, hdr_valid: false, hdr: {value1_valid: false, value1: 0, "
        "value2_valid: false, value2: 0, value3: 0}, rs_valid: false}}], nr_cell_list: []}",
        "set-cell-list-info tid=3 status=RUX_STATUS_V2_SUCCESS", 0},
    RequestRow{"SetDubiousCellArrayV2", "", "set-dubious-cell-array-v2",
        R"({"slot": "second", "lte_cell_list": [{"band_list": [1, 3]}]})",
        "SET_DUBIOUS_LIST_V2_REQ {slot_id: SLOT_ID_SECOND, lte_list_valid: true, lte_cell_list: [{" PLMN0 ", "
        "cell_identity: 0, band: BC_0, freq: 0, pci: 0, aux_value: 0, aux_values: [1, 3]}], "
        "nr_list_valid: false, nr_cell_list: []}",
        "set-dubious-cell-array-v2 tid=3 status=RUX_STATUS_V2_SUCCESS", 0}),
    [](const ::testing::TestParamInfo<RequestRow>& info) { return std::string(info.param.name); });
// clang-format on

// --- watch ------------------------------------------------------------------------------

// What watch prints, in order: the answer to the cell list it sends, then one record per
// indication the simulator is told to send. The line form of every record is derived from
// its JSON, so JSON is checked where the value types show (a flag, numbers).
struct Printed {
    const char* control;  // the simulator's control line; nullptr for the answer
    const char* line;
    const char* json;  // nullptr: not sent in the JSON run
};

// clang-format off
const Printed kWatchOutput[] = {
    {nullptr, "set-cell-list-info tid=3 status=RUX_STATUS_V2_SUCCESS",
     R"({"request":"set-cell-list-info","tid":3,"status":"RUX_STATUS_V2_SUCCESS"})"},
    {"indicate hst-state HST_STATE_SET", "hst-state state=RUX_HST_STATE_SET", nullptr},
    {"indicate subway-state SUBWAY_STATE_OUT_SUBWAY", "subway-state state=RUX_SUBWAY_STATE_OUT_SUBWAY", nullptr},
    {"indicate dppd-capability false", "dppd-capability capable=false",
     R"({"indication":"dppd-capability","capable":false})"},
    {"indicate dppd-recommendation DATA_NOT_ALLOWED NDDS",
     "dppd-recommendation action=RUX_DATA_NOT_ALLOWED subscription=RUX_SUBS_NDDS", nullptr},
    {"indicate submode DSDA DSDA_TX_SHARING",
     "multi-sim-submode sub_mode=RUX_SUBMODE_DSDA tx_concurrency=RUX_TX_CONCURRENCY_SHARING", nullptr},
    {"indicate service-status RUX_STATUS_SERVICE_UP", "service-status status=RUX_STATUS_SERVICE_UP", nullptr},
    {"indicate cell-list CELL_INFO lte mcc=310 mnc=260 pcs=1 id=6699 band=E_UTRA_OPERATING_BAND_3 freq=1850 "
     "pci=101 cause=5 feedback=CELL_FB_CAUSE_DELETE shared=311-480-1,312-530 nr mcc=1 id=68719476735",
     "cell-list mitigation_type=RUX_CELL_MITIGATION_INFO lte_cell_list=[{cell_info={plmn={mcc=310 mnc=260 "
     "mnc_includes_pcs_digit=1} cell_identity=6699 band=122 freq=1850 pci=101} cause_bitmask=5 "
     "feedback_cause=RUX_CELL_FB_CAUSE_DELETE shared_plmn=[{mcc=311 mnc=480 mnc_includes_pcs_digit=1} "
     "{mcc=312 mnc=530 mnc_includes_pcs_digit=0}]}] nr_cell_list=[{cell_info={plmn={mcc=1 mnc=0 "
     "mnc_includes_pcs_digit=0} cell_identity=68719476735 band=0 freq=0 pci=0} cause_bitmask=0 "
     "feedback_cause=RUX_CELL_FB_CAUSE_CONFLICT shared_plmn=[]}]",
     R"({"indication":"cell-list","mitigation_type":"RUX_CELL_MITIGATION_INFO","lte_cell_list":[{"cell_info":)"
     R"({"plmn":{"mcc":310,"mnc":260,"mnc_includes_pcs_digit":1},"cell_identity":6699,"band":122,"freq":1850,)"
     R"("pci":101},"cause_bitmask":5,"feedback_cause":"RUX_CELL_FB_CAUSE_DELETE","shared_plmn":[{"mcc":311,)"
     R"("mnc":480,"mnc_includes_pcs_digit":1},{"mcc":312,"mnc":530,"mnc_includes_pcs_digit":0}]}],)"
     R"("nr_cell_list":[{"cell_info":{"plmn":{"mcc":1,"mnc":0,"mnc_includes_pcs_digit":0},)"
     R"("cell_identity":68719476735,"band":0,"freq":0,"pci":0},"cause_bitmask":0,)"
     R"("feedback_cause":"RUX_CELL_FB_CAUSE_CONFLICT","shared_plmn":[]}]})"},
};
// clang-format on

struct WatchRow {
    const char* name;
    int signal;
    bool json;
};
void PrintTo(const WatchRow& r, std::ostream* os) {
    *os << r.name;
}

class WatchTest : public RuxctlE2E, public ::testing::WithParamInterface<WatchRow> {};

// The cell-list feedback comes only to a client that sent a cell list, hence --cell-list.
TEST_P(WatchTest, PrintsEveryIndicationUntilStoppedThenExitsZero) {
    const auto& row = GetParam();
    Lines args{"watch", "--cell-list", "-"};
    if (row.json) args.insert(args.begin(), "--json");
    auto watch = start(args, R"({"mitigation_type": "PREFERRED"})");
    // The answer first: the simulator sends answers and indications from different threads.
    ASSERT_TRUE(watch->waitFor([](const Lines& l) { return !l.empty(); })) << sim->dump();
    Lines want;
    for (const auto& p : kWatchOutput) {
        if (row.json && !p.json) continue;
        if (p.control) {
            ASSERT_EQ(sim->command(p.control), "ok sent=1") << p.control;
        }
        want.push_back(row.json ? p.json : p.line);
    }
    ASSERT_TRUE(watch->waitFor([&](const Lines& l) { return l.size() >= want.size(); }))
        << watch->dump();
    watch->kill(row.signal);
    const ToolRun got = finish(*watch);
    EXPECT_EQ(got.exitStatus, 0) << got.dump();
    EXPECT_EQ(got.out, want) << got.dump();
    EXPECT_EQ(got.err, Lines{}) << got.dump();
    EXPECT_TRUE(sim->waitForLine("disconnected session=1")) << sim->dump();
}

INSTANTIATE_TEST_SUITE_P(Signals, WatchTest,
                         ::testing::Values(WatchRow{"LinesUntilSigint", SIGINT, false},
                                           WatchRow{"JsonUntilSigterm", SIGTERM, true}),
                         [](const ::testing::TestParamInfo<WatchRow>& i) {
                             return std::string(i.param.name);
                         });

TEST_F(RuxctlE2E, WatchEndsWithThreeWhenTheServiceGoes) {
    auto watch = start({"watch"});
    ASSERT_TRUE(sim->waitForLine("REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ")) << sim->dump();
    ASSERT_EQ(sim->command("drop"), "ok dropped=1");
    const ToolRun got = finish(*watch);
    EXPECT_EQ(got.exitStatus, 3) << got.dump();
    EXPECT_EQ(got.out, Lines{"service-status status=RUX_STATUS_SERVICE_DOWN"});
    EXPECT_EQ(got.err, Lines{"ruxctl: watch: the Rux service is not there or went away"});
}

// --- no answer, bad usage ---------------------------------------------------------------

struct FailureRow {
    const char* name;
    bool service;
    const char* command;  // split at spaces
    const char* input;
    int exitStatus;
    const char* error;  // how the first line on stderr starts
};
void PrintTo(const FailureRow& r, std::ostream* os) {
    *os << r.name;
}

class FailureTest : public RuxctlE2E, public ::testing::WithParamInterface<FailureRow> {
protected:
    void SetUp() override {
        if (GetParam().service) startSim();
    }
};

TEST_P(FailureTest, PrintsNothingAndSaysWhyOnStderr) {
    const auto& row = GetParam();
    const ToolRun got = run(words(row.command), row.input);
    EXPECT_EQ(got.exitStatus, row.exitStatus) << got.dump();
    EXPECT_EQ(got.out, Lines{}) << got.dump();
    ASSERT_FALSE(got.err.empty());
    EXPECT_EQ(got.err[0].substr(0, std::strlen(row.error)), row.error) << got.dump();
    // Bad usage is found before the service is contacted.
    if (sim) {
        EXPECT_EQ(sim->count("connected session="), 0u) << sim->dump();
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(NoAnswerOrBadUsage, FailureTest, ::testing::Values(
    FailureRow{"NoServiceWithinTheTimeout", false, "--timeout 0.5 get-hst-state", "", 3,
        "ruxctl: get-hst-state: no answer within 0.5 s"},
    // The library gives up connecting after about five seconds, within the default 10 s.
    FailureRow{"NoServiceIsNamed", false, "set-hst-state set", "", 3,
        "ruxctl: set-hst-state: no answer: the Rux service is not there or went away"},
    FailureRow{"NoSubcommand", true, "--json", "", 2,
        "ruxctl: a request or watch is wanted (ruxctl --help lists them)"},
    FailureRow{"UnknownSubcommand", true, "set-nothing 1", "", 2,
        "ruxctl: unknown request 'set-nothing' (ruxctl --help lists them)"},
    FailureRow{"ExtraArgument", true, "set-l2nr-selection first second", "", 2,
        "ruxctl: unexpected argument 'second'"},
    FailureRow{"UnknownName", true, "set-hst-state HALF_SET", "", 2,
        "ruxctl: STATE: unknown value 'HALF_SET' (one of HST_STATE_UNKNOWN, HST_STATE_SET, "
        "HST_STATE_NOT_SET, or a number)"},
    FailureRow{"MissingArgument", true, "set-coverage-state first", "", 2,
        "ruxctl: STATE is required"},
    FailureRow{"NoTimeLeft", true, "--timeout 0 get-hst-state", "", 2,
        "ruxctl: --timeout: wants seconds above 0, at most 1000000, got '0'"},
    FailureRow{"NotJson", true, "set-cell-list-info", "{\"flag\": ", 2,
        "ruxctl: set-cell-list-info: stdin: not JSON: "},
    FailureRow{"MissingFile", true, "watch --cell-list /nonexistent.json", "", 2,
        "ruxctl: watch: /nonexistent.json: cannot read"}),
    [](const ::testing::TestParamInfo<FailureRow>& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
}  // namespace rux::test
