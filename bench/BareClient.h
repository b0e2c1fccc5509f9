// The request benchmark's baseline: the library's threads and hand-offs with nothing
// else. The caller serialises the request, stores its callback under the transaction
// id, queues the blob and writes an eventfd; a worker thread wakes on the eventfd,
// pops every queued blob and sends each as a frame on the Unix socket; a receiver
// thread reads each reply frame, parses it, takes the callback and runs it.
#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace rux::bench {

class BareClient {
public:
    using Callback = void (*)(int transactionId, int status);

    ~BareClient();
    // Connects to the service at `path`, runs the handshake and starts both threads.
    bool connect(const std::string& path);
    // A SET_HST_STATE_REQ; `cb` gets the answer on the receiver thread.
    int setHstState(int state, Callback cb);

private:
    void workerMain();
    void receiverMain();

    int mSocket = -1;
    int mEventFd = -1;
    uint32_t mSessionId = 0;
    std::atomic<int> mNextId{1};
    std::atomic<bool> mStopping{false};

    std::mutex mQueueLock;
    std::deque<std::string> mQueue;  // guarded by mQueueLock

    std::mutex mCallbackLock;
    std::unordered_map<int, Callback> mCallbacks;  // guarded by mCallbackLock

    std::thread mWorker;
    std::thread mReceiver;
};

}  // namespace rux::bench
