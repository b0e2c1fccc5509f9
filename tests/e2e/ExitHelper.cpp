// Registers, has one query answered and ends without deregistering: "reply" returns from
// main then; "outstanding" first issues requests the service leaves unanswered;
// "thread-exit" does too and calls exit(0) on an application thread. The library's atexit
// hook and its static objects must take it down with status 0.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include "rux/rux_client.h"

static std::promise<void> gAnswered;

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string mode = argc > 1 ? argv[1] : "reply";
    register_rux_client([](status_e) {});
    get_hst_state([](int tid, status_e status, hst_state_e) {
        std::printf("query %d %d\n", tid, status);
        gAnswered.set_value();  // a second answer would end the process
    });
    if (gAnswered.get_future().wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        return 3;
    if (mode == "reply") return 0;
    for (int i = 0; i < 8; ++i) set_hst_state(RUX_HST_STATE_SET, [](int, status_e) {});
    std::printf("issued\n");
    if (mode == "thread-exit") std::thread([] { std::exit(0); }).join();
    return 0;
}
