// WakelockWrapper: the one place where code handling queued events would keep the
// device awake. This platform has no wakelock facility, so every operation is a
// stub that returns at once and has no effect; the class keeps the calling pattern
// fixed for a build that has one. Nothing in the library calls it.
//
// Threads: any thread may call anything; getInstance() creates the instance once.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>


namespace rux::utils {

class WakelockWrapper {
public:
    // The process-wide instance, created on first use and released at exit.
    static std::shared_ptr<WakelockWrapper> getInstance();

    void start();
    // Returns false: there is no timer to reset.
    bool doResetTimer();
    void acquireWakelock();
    void releaseWakelock();

    WakelockWrapper(const WakelockWrapper&) = delete;
    WakelockWrapper& operator=(const WakelockWrapper&) = delete;

private:
    WakelockWrapper();

    // State a platform with wakelocks would use; constructed and never read here.
    struct State {
        std::mutex lock;
        uint64_t acquireCount = 0;
        uint64_t releaseCount = 0;
        uint64_t timerDeadline = 0;
        uint64_t flags = 0;
        int enabled = 1;
        int held = 0;
        std::mutex timerLock;
        std::condition_variable timerCond;
        std::shared_ptr<std::mutex> sharedLock = std::make_shared<std::mutex>();
        std::mutex startLock;
    };
    State mState;
};

}  // namespace rux::utils
