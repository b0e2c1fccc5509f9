#include "log/RecordFields.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace rux::log {

namespace {

std::atomic<int> gPid{0};
std::atomic<unsigned> gForkGeneration{0};
thread_local unsigned tTidGeneration = ~0u;
thread_local unsigned long tTid = 0;

// In the child after fork: its process id and every thread id are new.
void forgetIdsInChild() {
    gPid.store(0, std::memory_order_relaxed);
    gForkGeneration.fetch_add(1, std::memory_order_relaxed);
}

const int gAtFork = pthread_atfork(nullptr, nullptr, forgetIdsInChild);

struct TimeText {
    bool valid = false;
    time_t second = 0;
    char text[50];
};
thread_local TimeText tTimeText;

}  // namespace

int currentPid() {
    int pid = gPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        gPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

unsigned long currentTid() {
    const unsigned generation = gForkGeneration.load(std::memory_order_relaxed);
    if (tTidGeneration != generation) {
        tTid = static_cast<unsigned long>(syscall(SYS_gettid));
        tTidGeneration = generation;
    }
    return tTid;
}

const char* localTimeText(time_t second) {
    (void)gAtFork;
    TimeText& t = tTimeText;
    if (!t.valid || t.second != second) {
        struct tm tmv {};
        if (localtime_r(&second, &tmv) == nullptr) return nullptr;
        std::strftime(t.text, sizeof t.text, "%F %X", &tmv);
        t.second = second;
        t.valid = true;
    }
    return t.text;
}

}  // namespace rux::log
