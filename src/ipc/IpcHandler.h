// IpcHandler<T>: a ProcessHandler with a message queue and an optional worker.
//
// Lifecycle: built with `threaded` true, the owner (a session) starts a thread running
// start(), which handles queued messages in FIFO order until stop(); the owner joins it.
// Built with `threaded` false, postToSelf handles every message at once on the posting
// thread, and concurrent posters are not serialised.
//
// Threads: postToSelf and stop may be called from any thread; handleEvent runs on the
// worker (threaded) or on the poster (unthreaded). No lock is held while it runs.
#pragma once

#include <android/log.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "ipc/AtomicQueue.h"
#include "ipc/ProcessHandler.h"
#include "ipc/Semaphore.h"
#include "log/Log.h"

namespace rux::ipc {

template <typename T>
class IpcHandler : public ProcessHandler {
public:
    explicit IpcHandler(bool threaded,
                        std::chrono::milliseconds frameStallLimit = kDefaultFrameStallLimit)
        : ProcessHandler(frameStallLimit), mRunning(threaded) {}

    ~IpcHandler() override {
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "dtor");
        while (mQueue.pop()) {
        }
    }

    virtual void handleEvent(T msg) = 0;

    void postToSelf(T msg) {
        if (mRunning.load()) {
            mQueue.push(std::move(msg));
            mWakeSemaphore.increase();
        } else {
            handleEvent(std::move(msg));
        }
    }

    // The worker's body.
    void start() {
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "running infinite loop");
        while (mRunning.load()) {
            while (auto msg = mQueue.pop()) {
                try {
                    handleEvent(std::move(*msg));
                } catch (...) {
                    RUX_LOG(ANDROID_LOG_ERROR, "RUX", "handleEvent threw; message dropped");
                }
            }
            mWakeSemaphore.decrease();
        }
    }

    // Asks the worker to leave after the message in hand; nothing when not running.
    void stop() {
        RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "IpcHandler stop called");
        bool wasRunning;
        {
            std::lock_guard<std::mutex> lock(mStateLock);
            wasRunning = mRunning.exchange(false);
        }
        if (wasRunning) mWakeSemaphore.increase();
    }

    bool isRunning() const { return mRunning.load(); }
    size_t queuedMessages() const { return mQueue.size(); }

protected:
    Semaphore mThreadSemaphore;        // posted by the connect path of a session
    std::mutex mStateLock;             // guards start and stop
    Semaphore mWakeSemaphore;          // posted for each queued message
    AtomicQueue<T> mQueue;
    std::atomic<bool> mRunning;        // the worker is wanted
    std::unique_ptr<std::thread> mThread;  // the worker, owned and joined by the session
};

}  // namespace rux::ipc
