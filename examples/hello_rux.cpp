// A minimal C++ application: registers, sends a few requests, a few queries and one cell
// list, prints every answer and waits for all of them. Only the public header and the library:
//
//     c++ -std=c++17 hello_rux.cpp -lrux_client -o hello_rux_cpp
//
// Exit status 0 when every answer arrived within ten seconds, 1 otherwise.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "rux/rux_client.h"

namespace {

std::mutex gLock;
std::condition_variable gChanged;
int gAnswers = 0;  // guarded by gLock

void answered() {
    {
        std::lock_guard<std::mutex> lock(gLock);
        ++gAnswers;
    }
    gChanged.notify_all();
}

// Callbacks run on the library's threads; pointers they get live only during the call.
void onStatus(status_e status) { std::printf("service status: %d\n", status); }

void onDone(int tid, status_e status) {
    std::printf("request #%d: status %d\n", tid, status);
    answered();
}

void onHst(int tid, status_e status, hst_state_e state) {
    std::printf("get_hst_state #%d: status %d, state %d\n", tid, status, state);
    answered();
}

void onCapability(int tid, status_e status, bool* capable) {
    std::printf("get_dppd_capability #%d: status %d, capable %s\n", tid, status,
                *capable ? "yes" : "no");
    answered();
}

void onRecommendation(int tid, status_e status, data_recommendation_s* rec) {
    std::printf("get_dppd_recommendation #%d: status %d, action %d, subscription %d\n", tid,
                status, rec->action, rec->subscription);
    answered();
}

void onSubmode(int tid, status_e status, submode_info_s const* info) {
    std::printf("get_multi_sim_submode_info #%d: status %d, sub-mode %d, tx concurrency %d\n",
                tid, status, info->sub_mode, info->tx_concurrency);
    answered();
}

void onCellList(long tid, status_v2_e status) {
    std::printf("set_cell_list_info #%ld: status %d\n", tid, status);
    answered();
}

// The service's later feedback on the cells it was given.
void onCellFeedback(cell_list_info_ind_s info) {
    std::printf("cell-list feedback: %d LTE and %d NR cells\n", info.lte_cell_list_len,
                info.nr_cell_list_len);
}

// One LTE cell the service should know about. Optional values the application does not
// have are RUX_VALUE_NOT_GIVEN; the record is copied before set_cell_list_info returns.
int sendCellList() {
    set_cell_list_info_s info{};
    info.mitigation_type = RUX_CELL_MITIGATION_INFO;
    info.lte_cell_list_len = 1;
    cell_list_entry_s& cell = info.lte_cell_list[0];
    cell.cell_info.plmn = {310, 260, 1};
    cell.cell_info.cell_identity = 0x1A2B3C;
    cell.cell_info.band = 122;  // E-UTRA band 3, in the service's band numbering
    cell.cell_info.freq = 1850;
    cell.cell_info.pci = 101;
    cell.param1 = RUX_VALUE_NOT_GIVEN;
    cell.flag2 = RUX_VALUE_NOT_GIVEN;
    cell.common_value = RUX_VALUE_NOT_GIVEN;
    cell.hdr_value1 = RUX_VALUE_NOT_GIVEN;
    cell.hdr_value2 = RUX_VALUE_NOT_GIVEN;
    return set_cell_list_info(&info, onCellList, onCellFeedback);
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    register_rux_client(onStatus);

    const int tids[] = {
        set_hst_state(RUX_HST_STATE_SET, onDone),
        set_subway_state(RUX_SUBWAY_STATE_IN_SUBWAY, onDone),
        set_coverage_state(RUX_SLOT_ID_FIRST, RUX_COVERAGE_STATE_IN_COVERAGE_HOLE, onDone),
        get_hst_state(onHst),
        get_dppd_capability(onCapability),
        get_dppd_recommendation(onRecommendation),
        get_multi_sim_submode_info(onSubmode),
        sendCellList(),
    };
    const int expected = static_cast<int>(sizeof tids / sizeof tids[0]);
    for (int tid : tids) {
        if (tid < 0) {
            std::fprintf(stderr, "hello_rux_cpp: no client\n");
            return 1;
        }
    }

    bool all;
    {
        std::unique_lock<std::mutex> lock(gLock);
        all = gChanged.wait_for(lock, std::chrono::seconds(10), [&] { return gAnswers == expected; });
    }
    deregister_rux_client();
    std::printf("hello_rux_cpp: %d of %d answered\n", gAnswers, expected);
    return all ? 0 : 1;
}
