// SdkClientBase: the SDK thread and the rules that turn a posted SdkClientEvent into an
// action: hand a locally made reply back to its client, (re)connect and send a blob to
// the service, or retire a client type. SdkClient binds it to the IPC sessions.
//
// Threads:
// - postEvent (RuxEventHandler): any thread.
// - handleEvent, connectRuxSdkClient, sendBlobToService: the SDK thread only. So every
//   send, every reconnect, every local reply, SEND_FAILED and the SERVICE_UP/DOWN of a
//   connect attempt reach listeners on the SDK thread.
// - notifyReceivedBlob and notifyServiceDown after a lost session: the receiver thread
//   of the socket; but when a send finds the service gone before the receiver notices,
//   the loss (SERVICE_DOWN) is reported on the SDK thread. A listener may thus be
//   entered from two threads at once.
// - setClientListener, addClientType, removeClientType: any thread.
//
// Locks: mListenerLock guards mListeners; mStateLock guards mClientTypes (and, in
// SdkClient, the session table). Neither is held while a listener runs, while logging
// through the IPC log, or together with the other: a listener is copied out under
// mListenerLock and called after it is released.
//
// Lifecycle: construct (registers the event queue with the EventManager) -> start()
// (mRunning true, the SDK thread loops) -> the cleanup event of the last client type
// clears mRunning and the loop ends after that pass -> waitForThreadEnd() joins the
// thread -> destroy. A subclass calls stopThread() (which ends a loop still running)
// and then detachFromLoop() first in its destructor; the RuxTimer and EventManager
// must outlive this object.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "event/EventManager.h"
#include "event/RuxTimer.h"
#include "sdk/RuxEventHandler.h"
#include "sdk/SdkClientEvent.h"

namespace rux::sdk {

class SdkClientBase : public rux::utils::RuxEventHandler<std::shared_ptr<SdkClientEvent>> {
public:
    enum SdkStatus : int {
        RESPONSE = 0,      // a blob from the service, or a local reply
        SEND_FAILED = 1,   // the blob could not be handed to the IPC session
        SERVICE_DOWN = 2,  // the connection was lost or could not be made
        SERVICE_UP = 3,    // the connection is established
        NOT_SENT = 4,      // no connection could be made: the blob comes back, never sent
    };
    using Listener = std::function<void(SdkStatus, const std::vector<uint8_t>&)>;

    SdkClientBase(rux::utils::RuxTimer* timer, rux::utils::EventManager* em);
    ~SdkClientBase() override;

    // Marks the loop running and starts the SDK thread, which posts `event` (if any)
    // first. False when the thread cannot be started (mRunning is then false again).
    bool start(RuxSdkClientType type, std::shared_ptr<SdkClientEvent> event);
    bool isRunning() const { return mRunning.load(); }

    void handleEvent(std::shared_ptr<SdkClientEvent> ev) override;

    virtual void connectRuxSdkClient(RuxSdkClientType type) = 0;
    virtual bool isConnected(RuxSdkClientType type) = 0;
    virtual bool sendBlobToService(RuxSdkClientType type, std::vector<uint8_t> blob) = 0;

    // Delivery to listeners (see the thread notes above).
    void notifyReceivedBlob(RuxSdkClientType type, std::vector<uint8_t> blob);
    void notifyServiceUp(RuxSdkClientType type);
    void notifyServiceDown();
    void setClientListener(RuxSdkClientType type, Listener listener);

    // The client-type table. A type outside 0..13 is logged and ignored.
    void addClientType(RuxSdkClientType type);
    // Clears the type; true while another type is still registered.
    bool removeClientType(RuxSdkClientType type);
    bool hasClientType(RuxSdkClientType type);

    // Whether the calling thread is this object's SDK thread.
    bool onSdkThread() const;

protected:
    // Waits for the SDK thread to end; the loop ends by itself with the cleanup event
    // of the last client type. Called on the SDK thread itself it cannot wait: the
    // thread is detached and false returned, and the caller must then keep this object
    // alive for good.
    bool waitForThreadEnd();
    // The same after ending the loop at once: events still queued are not handled.
    bool stopThread();

    static bool validType(RuxSdkClientType type) { return type >= 0 && type < kClientTypeCount; }
    bool hasClientTypeLocked(RuxSdkClientType type) const;  // mStateLock held
    bool anyClientTypeLocked() const;                       // mStateLock held

    std::mutex mStateLock;
    std::vector<bool> mClientTypes;  // guarded by mStateLock; kClientTypeCount entries

private:
    // Listeners are held by shared pointer, so that taking one out for a call is a
    // reference count, not a copy of the callable. An entry is null or callable.
    using SharedListener = std::shared_ptr<const Listener>;

    void sdkThread(RuxSdkClientType type, std::shared_ptr<SdkClientEvent> event);
    // The listener of `type`, inserting an empty entry when there is none (the lookups
    // of handleEvent do that, and notifyServiceDown then skips the empty entry).
    SharedListener listenerInsertingEmpty(RuxSdkClientType type);
    static void callListener(const Listener& listener, SdkStatus status,
                             const std::vector<uint8_t>& blob);

    std::atomic<bool> mRunning{false};
    std::mutex mListenerLock;
    std::map<RuxSdkClientType, SharedListener> mListeners;  // guarded by mListenerLock
    std::mutex mThreadLock;                           // guards mThread (start, join, detach)
    std::thread mThread;                              // guarded by mThreadLock
    std::atomic<std::thread::id> mThreadId{};
};

#if defined(RUX_PLATFORM_HOST) && RUX_PLATFORM_HOST
// Test seam: the next start() fails as if no thread could be created.
void failNextThreadStart();
#endif

}  // namespace rux::sdk
