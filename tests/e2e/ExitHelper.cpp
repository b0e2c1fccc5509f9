// A process that registers and ends without deregistering, for the exit tests:
//   exit-helper reply         one query answered, then return from main
//   exit-helper outstanding   one query answered (so the client is connected), then
//                             requests the service leaves unanswered, return from main
//   exit-helper thread-exit   the same, ending with exit(0) from an application thread
// The library's atexit hook and its static objects must take it down with status 0.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "rux/rux_client.h"

namespace {

std::promise<void> gAnswered;
std::once_flag gOnce;

void answered(int tid, status_e status) {
    std::printf("query %d %d\n", tid, status);
    std::call_once(gOnce, [] { gAnswered.set_value(); });
}
bool waitAnswered() {
    return gAnswered.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const char* mode = argc > 1 ? argv[1] : "reply";
    register_rux_client([](status_e) {});
    get_hst_state([](int tid, status_e status, hst_state_e) { answered(tid, status); });
    if (!waitAnswered()) return 3;
    if (std::strcmp(mode, "reply") == 0) return 0;
    for (int i = 0; i < 8; ++i) set_hst_state(RUX_HST_STATE_SET, [](int, status_e) {});
    std::printf("issued\n");
    if (std::strcmp(mode, "thread-exit") == 0) std::thread([] { std::exit(0); }).join();
    return 0;
}
