// ruxctl against a real rux-sim: every subcommand reaches the service with the values given
// and prints the answer with the right exit status; bad usage; no answer; watch. A record's
// bytes are pinned by RuxctlRecordsTest; here it only has to arrive.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <sstream>

#include "Subprocess.h"

namespace rux::test {
namespace {

using Lines = std::vector<std::string>;

// ruxctl with `command` (split at spaces), with `input` on its stdin.
std::unique_ptr<Subprocess> start(const std::string& command, const std::string& input = "") {
    Lines argv{RUX_RUXCTL_PATH};
    std::istringstream words(command);
    for (std::string w; words >> w;) argv.push_back(w);
    auto p = std::make_unique<Subprocess>(argv, true);
    if (!input.empty()) p->writeLine(input);
    p->closeStdin();
    return p;
}

// Waits for ruxctl's exit and checks its exit status, its stdout exactly and how its stderr
// starts ("": nothing on stderr).
void expectRun(Subprocess& p, int exitStatus, const Lines& out, const std::string& errStart) {
    EXPECT_EQ(p.waitExit(), exitStatus);
    EXPECT_EQ(p.lines(), out);
    const Lines err = p.errorLines();
    EXPECT_TRUE(err.empty() ? errStart.empty()
                            : !errStart.empty() && err[0].rfind(errStart, 0) == 0)
        << ::testing::PrintToString(err);
}

struct Row {
    const char* command;
    const char* simSees;  // as rux-sim logs the request (a record: its first values); nullptr: none
    const char* printed = nullptr;  // the one line on stdout (nullptr: a plain success); with
    int exitStatus = 0;             // exit status 2, how stderr starts
    const char* json = "";  // on stdin; a record file /dev/stdin is read as a file, - as stdin
};

#define OK_V2(request) request " tid=3 status=RUX_STATUS_V2_SUCCESS"

// clang-format off
// Answers other than the simulator's default, for the rows below.
const char* const kSimSetup[] = {
    "value hst-state HST_STATE_SET", "status SET_COVERAGE_STATE_REQ RUX_STATUS_NOT_SUPPORTED",
    "status SET_SUBWAY_STATE_REQ RUX_STATUS_INVALID", "value dppd-capable false",
    "value recommendation DATA_NOT_ALLOWED NDDS", "status GET_MULTI_SUM_SUBMODE_INFO_REQ 2"};

const Row kRows[] = {
    {"set-hst-state HST_STATE_SET", "SET_HST_STATE_REQ {hst_state: HST_STATE_SET}"},
    {"get-hst-state", "GET_HST_STATE_REQ {}", "get-hst-state tid=3 status=RUX_STATUS_SUCCESS state=RUX_HST_STATE_SET"},
    {"set-coverage-state second 1", "SET_COVERAGE_STATE_REQ {slot_id: SLOT_ID_SECOND, coverage_state: "
     "COVERAGE_STATE_IN_COVERAGE_HOLE}", "set-coverage-state tid=3 status=RUX_STATUS_NOT_SUPPORTED", 1},
    {"set-out-of-service-state RUX_SLOT_ID_THIRD normal", "SET_OUT_OF_SERVICE_REQ {slot_id: SLOT_ID_THIRD, scan_state: NORMAL}"},
    {"set-l2nr-selection 0", "SET_L2NR_SELECTION_REQ {slot_id: SLOT_ID_FIRST}"},
    {"enable-cell-barring-feature first off", "ENABLE_CELL_BARRING_FEATURE_REQ {slot_id: SLOT_ID_FIRST, enable: false}"},
    {"set-cell-barring-info first", "SET_CELL_BARRING_INFO_REQ {slot_id: SLOT_ID_FIRST, param: 7, lte_cell_list: [{plmn: "
     "{mcc: 310,", nullptr, 0, R"({"value": 7, "lte_cells": [{"mcc": 310}], "nr_cells": [{}]})"},
    // Thresholds left out are -1, "no value".
    {"set-data-stall-parameters second /dev/stdin", "SEND_DATA_STALL_PARAMETERS_REQ {slot_id: SLOT_ID_SECOND, params: "
     "{traffic_direction: DOWNLINK, flag: false, application_type: UNSPECIFIED, param1: 5, param2: -1, param3: -1, "
     "param4: -1}}", nullptr, 0, R"({"traffic_direction": "DOWNLINK", "param1": 5})"},
    {"set-lte-dubious-cell-array third", "SET_LTE_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_THIRD, lte_cell_list: [{plmn: "
     "{mcc: 101,", nullptr, 0, R"([{"mcc": 101}])"},
    {"set-nr-dubious-cell-array first", "SET_NR_DUBIOUS_CELL_LIST_REQ {slot_id: SLOT_ID_FIRST, nr_cell_list: [{plmn: "
     "{mcc: 102,", nullptr, 0, R"([{"mcc": 102}])"},
    {"set-preferred-cell-list second -", "SET_PREFERRED_CELL_LIST_REQ {slot_id: SLOT_ID_SECOND, param: 9, cell_list: "
     "[{cell_info: {plmn: {mcc: 3,", nullptr, 0, R"({"value": 9, "cells": [{"cell_info": {"plmn": {"mcc": 3}}}]})"},
    {"set-flight-mode-state landing", "SET_FLIGHT_MODE_STATE_REQ {flight_mode_state: FLIGHT_MODE_STATE_LANDING}"},
    {"set-device-fold-state DEVICE_FOLD_STATE_OPEN", "SET_DEVICE_FOLD_STATE_REQ {device_fold_state: DEVICE_FOLD_STATE_OPEN}"},
    {"set-subway-state in_carriage", "SET_SUBWAY_STATE_REQ {subway_state: SUBWAY_STATE_IN_CARRIAGE}",
     "set-subway-state tid=3 status=RUX_STATUS_INVALID", 1},
    {"--json get-dppd-capability", "GET_DPPD_CAPABILITY_REQ {}",
     R"({"request":"get-dppd-capability","tid":3,"status":"RUX_STATUS_SUCCESS","flag":false})"},
    {"update-dppd-ui-option true", "UPDATE_DPPD_UI_REQ {ui_option_enabled: true}",
     "update-dppd-ui-option tid=3 status=RUX_STATUS_SUCCESS flag=true"},
    {"get-dppd-recommendation", "GET_DPPD_RECOMMENDATION_REQ {}", "get-dppd-recommendation tid=3 "
     "status=RUX_STATUS_SUCCESS action=RUX_DATA_NOT_ALLOWED subscription=RUX_SUBS_NDDS"},
    // The values are printed whatever the status.
    {"get-multi-sim-submode-info --json", "GET_MULTI_SUM_SUBMODE_INFO_REQ {}",
     R"({"request":"get-multi-sim-submode-info","tid":3,"status":"RUX_STATUS_INTERNAL_ERR",)"
     R"("sub_mode":"RUX_SUBMODE_DSDA","tx_concurrency":"RUX_TX_CONCURRENCY_FULL"})", 1},
    // Bad usage, found before connecting: the next request's session number shows none came.
    {"set-nothing 1", nullptr, "ruxctl: unknown request 'set-nothing' (ruxctl --help lists", 2},
    {"set-hst-state 4294967297", nullptr, "ruxctl: STATE: unknown value '4294967297' (one of HST_STATE_UNKNOWN, "
     "HST_STATE_SET, HST_STATE_NOT_SET, or a number)", 2},
    {"set-hst-state 1x", nullptr, "ruxctl: STATE: unknown value '1x' (", 2},
    {"set-cell-list-info", nullptr, "ruxctl: set-cell-list-info: stdin: not JSON: ", 2, R"({"flag": )"},
    {"watch --cell-list /nonexistent.json", nullptr, "ruxctl: watch: /nonexistent.json: cannot read", 2},
    {"set-cell-list-info", "SET_CELL_LIST_INFO_REQ {mitigation_type: CELL_INFO, flag: false, lte_cell_list: [{",
     OK_V2("set-cell-list-info"), 0, R"({"mitigation_type": "INFO", "lte_cell_list": [{"param1": 2}]})"},
    {"set-dubious-cell-array-v2", "SET_DUBIOUS_LIST_V2_REQ {slot_id: SLOT_ID_SECOND, lte_list_valid: true, lte_cell_list: "
     "[{plmn: {mcc: 4,", OK_V2("set-dubious-cell-array-v2"), 0, R"({"slot": "second", "lte_cell_list": [{"plmn": {"mcc": 4}}]})"},
};

// The simulator's control line and the line watch prints for it.
const std::pair<const char*, const char*> kIndications[] = {
    {"indicate hst-state HST_STATE_SET", "hst-state state=RUX_HST_STATE_SET"},
    {"indicate subway-state SUBWAY_STATE_OUT_SUBWAY", "subway-state state=RUX_SUBWAY_STATE_OUT_SUBWAY"},
    {"indicate dppd-capability false", "dppd-capability capable=false"},
    {"indicate dppd-recommendation DATA_NOT_ALLOWED NDDS",
     "dppd-recommendation action=RUX_DATA_NOT_ALLOWED subscription=RUX_SUBS_NDDS"},
    {"indicate submode DSDA DSDA_TX_SHARING",
     "multi-sim-submode sub_mode=RUX_SUBMODE_DSDA tx_concurrency=RUX_TX_CONCURRENCY_SHARING"},
    {"indicate service-status RUX_STATUS_SERVICE_UP", "service-status status=RUX_STATUS_SERVICE_UP"},
    {"indicate cell-list CELL_INFO lte mcc=310 mnc=260 pcs=1 id=6699 band=E_UTRA_OPERATING_BAND_3 freq=1850 "
     "pci=101 cause=5 feedback=CELL_FB_CAUSE_DELETE shared=311-480-1,312-530 nr mcc=1 id=68719476735",
     "cell-list mitigation_type=RUX_CELL_MITIGATION_INFO lte_cell_list=[{cell_info={plmn={mcc=310 mnc=260 "
     "mnc_includes_pcs_digit=1} cell_identity=6699 band=122 freq=1850 pci=101} cause_bitmask=5 "
     "feedback_cause=RUX_CELL_FB_CAUSE_DELETE shared_plmn=[{mcc=311 mnc=480 mnc_includes_pcs_digit=1} "
     "{mcc=312 mnc=530 mnc_includes_pcs_digit=0}]}] nr_cell_list=[{cell_info={plmn={mcc=1 mnc=0 "
     "mnc_includes_pcs_digit=0} cell_identity=68719476735 band=0 freq=0 pci=0} cause_bitmask=0 "
     "feedback_cause=RUX_CELL_FB_CAUSE_CONFLICT shared_plmn=[]}]"},
};
// clang-format on

TEST(RuxctlE2E, EverySubcommandAndWatchAgainstTheSimulator) {
    const std::string path = uniqueSocketPath("rux-e2e-ruxctl");
    ::setenv("RUX_SOCKET_PATH", path.c_str(), 1);
    // No service yet: the library is still trying to connect at the timeout.
    expectRun(*start("--timeout 0.5 get-hst-state"), 3, {},
              "ruxctl: get-hst-state: no answer within 0.5 s");
    SimProcess sim(path);
    ASSERT_TRUE(sim.ready()) << sim.dump();
    for (const char* line : kSimSetup) ASSERT_EQ(sim.command(line), "ok") << line;
    int sessions = 0;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.command);
        const std::string command = row.command, name = command.substr(0, command.find(' '));
        const std::string printed =
            row.printed ? row.printed : name + " tid=3 status=RUX_STATUS_SUCCESS";
        const bool usage = row.exitStatus == 2;
        expectRun(*start(command, row.json), row.exitStatus, usage ? Lines{} : Lines{printed},
                  usage ? printed : "");
        if (!row.simSees) continue;
        const std::string sees =
            "request session=" + std::to_string(++sessions) + " tid=3 " + row.simSees;
        EXPECT_TRUE(sim.waitForLine(sees)) << sees << "\n" << sim.dump();
    }

    // Two watchers: one sent a cell list (the only way to the cell-list feedback) and is
    // interrupted; the other did not and sees the service go, as a request left unanswered does.
    ASSERT_TRUE(sim.waitForCount("disconnected session=", sessions)) << sim.dump();
    auto withCells = start("watch --cell-list -", R"({"mitigation_type": "PREFERRED"})");
    auto plain = start("watch");
    // The answer first: the simulator answers and indicates from different threads.
    ASSERT_TRUE(withCells->waitFor([](const Lines& l) { return !l.empty(); })) << sim.dump();
    ASSERT_TRUE(sim.waitForCount("REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ", 2)) << sim.dump();
    Lines want{OK_V2("set-cell-list-info")};
    for (const auto& [control, printed] : kIndications) {
        ASSERT_EQ(sim.command(control), "ok sent=2") << control;
        want.push_back(printed);
    }
    ASSERT_TRUE(withCells->waitFor([&](const Lines& l) { return l.size() >= want.size(); }))
        << withCells->dump();
    withCells->kill(SIGINT);
    expectRun(*withCells, 0, want, "");
    ASSERT_EQ(sim.command("silent all"), "ok");
    auto lost = start("get-hst-state");
    ASSERT_TRUE(sim.waitForCount("tid=3 GET_HST_STATE_REQ", 2)) << sim.dump();
    sim.command("drop");
    expectRun(*lost, 3, {},
              "ruxctl: get-hst-state: no answer: the Rux service is not there or went away");
    // The other watcher printed the same but the answer and the cell-list feedback (the last).
    Lines wantPlain(want.begin() + 1, want.end() - 1);
    wantPlain.push_back("service-status status=RUX_STATUS_SERVICE_DOWN");
    expectRun(*plain, 3, wantPlain, "ruxctl: watch: the Rux service is not there or went away");
}

}  // namespace
}  // namespace rux::test
