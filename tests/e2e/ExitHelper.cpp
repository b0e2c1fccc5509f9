// A process that registers and ends without deregistering, for the exit tests:
//   exit-helper reply         one request answered, then return from main
//   exit-helper outstanding   one query answered (so the client is connected), then
//                             requests the service leaves unanswered, return from main
//   exit-helper thread-exit   the same, ending with exit(0) from an application thread
// The library's atexit hook and its static objects must take it down with status 0.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "rux/rux_client.h"

namespace {

std::mutex gLock;
std::condition_variable gChanged;
bool gAnswered = false;  // guarded by gLock

void onStatus(status_e) {}
void answered() {
    {
        std::lock_guard<std::mutex> lock(gLock);
        gAnswered = true;
    }
    gChanged.notify_all();
}
void onDone(int tid, status_e status) {
    std::printf("reply %d %d\n", tid, status);
    answered();
}
void onHst(int tid, status_e status, hst_state_e) {
    std::printf("query %d %d\n", tid, status);
    answered();
}
bool waitAnswered() {
    std::unique_lock<std::mutex> lock(gLock);
    return gChanged.wait_for(lock, std::chrono::seconds(10), [] { return gAnswered; });
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const char* mode = argc > 1 ? argv[1] : "reply";
    register_rux_client(onStatus);
    if (std::strcmp(mode, "reply") == 0) {
        set_hst_state(RUX_HST_STATE_SET, onDone);
        return waitAnswered() ? 0 : 3;
    }
    get_hst_state(onHst);
    if (!waitAnswered()) return 3;
    for (int i = 0; i < 8; ++i) set_hst_state(RUX_HST_STATE_SET, onDone);
    std::printf("issued\n");
    if (std::strcmp(mode, "thread-exit") == 0) {
        std::thread([] { std::exit(0); }).join();
    }
    return 0;
}
