// ProcessHandler: the receiving end of a registered socket. The socket's receiver
// thread calls handleFrame (by default handleMsg) for every frame and handleSessionEnd
// once when the socket fails or closes; both may run concurrently with the owner's
// threads.
//
// Lifetime: a handler must outlive the receiver threads that serve it. Owners call
// waitForReceivers() (after removing the registration and shutting the socket down)
// before they destroy it; ReceiverTracker counts those threads in a block that the
// threads co-own, so the count itself never dangles.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ipc/IpcFrame.h"

namespace rux::ipc {

// Receiver threads serving one handler. Guarded by mMutex.
class ReceiverTracker {
public:
    void expect();           // a receiver is about to be started
    void cancelExpected();   // ... and was not
    void attach();           // on the receiver thread, first thing
    void detach();           // on the receiver thread, last thing
    // Waits until no receiver thread other than the calling one is starting or running.
    void waitIdle();

private:
    std::mutex mMutex;
    std::condition_variable mIdle;
    int mStarting = 0;                     // guarded by mMutex
    std::vector<std::thread::id> mRunning;  // guarded by mMutex
};

class ProcessHandler {
public:
    // How long the receiver waits for more of a frame once its first byte is in, unless
    // a handler is built with another limit; between frames it waits without limit.
    static constexpr std::chrono::milliseconds kDefaultFrameStallLimit{5000};

    explicit ProcessHandler(std::chrono::milliseconds frameStallLimit = kDefaultFrameStallLimit);
    virtual ~ProcessHandler();
    ProcessHandler(const ProcessHandler&) = delete;
    ProcessHandler& operator=(const ProcessHandler&) = delete;

    // Default: logs and drops the frame. `msg` lives only during the call.
    virtual void handleMsg(ipcMsg_t* msg);
    // What the receiver calls for every frame: its header and its payload, which the
    // handler may keep. Default: the frame laid out whole (header, then payload) for
    // handleMsg.
    virtual void handleFrame(const ipcMsg_t& header, std::vector<uint8_t> payload);
    // A frame whose payload (header.length bytes) the receiver still holds in its
    // read-ahead, valid only during the call. Default: the payload copied into a vector
    // of its own for handleFrame.
    virtual void handleBufferedFrame(const ipcMsg_t& header, const uint8_t* payload);
    // Default: nothing.
    virtual void handleSessionEnd(unsigned int sessionId);
    // What the receiver of a registered socket calls when the socket ends: `registration`
    // is the token the socket was registered with (ProcessUtils.h), so a handler that
    // reconnects can tell the end of an earlier socket from the end of its current one.
    // Default: handleSessionEnd(sessionId).
    virtual void handleSocketEnd(unsigned int sessionId, uint64_t registration);

    // Returns once no receiver thread serves this handler any more; a call from one of
    // those threads does not wait for itself.
    void waitForReceivers() { mReceivers->waitIdle(); }

    const std::shared_ptr<ReceiverTracker>& receiverTracker() const { return mReceivers; }
    // A peer that sends part of a frame and then nothing for this long ends the session.
    std::chrono::milliseconds frameStallLimit() const { return mFrameStallLimit; }

private:
    std::shared_ptr<ReceiverTracker> mReceivers;
    const std::chrono::milliseconds mFrameStallLimit;
};

}  // namespace rux::ipc
