#include "sdk/SdkClientBase.h"

#include <android/log.h>

#include <exception>
#include <system_error>
#include <utility>

#include "sdk/SdkCoreLog.h"

namespace rux::sdk {

#if defined(RUX_PLATFORM_HOST) && RUX_PLATFORM_HOST
namespace {
std::atomic<bool> gFailNextThreadStart{false};
}  // namespace
void failNextThreadStart() {
    gFailNextThreadStart.store(true);
}
#endif

SdkClientBase::SdkClientBase(rux::utils::RuxTimer* timer, rux::utils::EventManager* em)
    : RuxEventHandler(timer, em, "SdkClientBase"), mClientTypes(kClientTypeCount, false) {}

SdkClientBase::~SdkClientBase() {
    // Normally done by the subclass already; here for a subclass that did not.
    stopThread();
    detachFromLoop();
}

bool SdkClientBase::start(RuxSdkClientType type, std::shared_ptr<SdkClientEvent> event) {
    std::lock_guard<std::mutex> lock(mThreadLock);
    if (mThread.joinable()) return mRunning.load();
    // Running from here on, so that a caller that finds this instance before the
    // thread is scheduled can post to it.
    mRunning.store(true);
    // The first event is queued before the thread exists: requests that the caller
    // posts right after this returns then queue behind it, never ahead.
    if (event) postEvent(std::move(event));
    try {
#if defined(RUX_PLATFORM_HOST) && RUX_PLATFORM_HOST
        if (gFailNextThreadStart.exchange(false))
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
#endif
        mThread = std::thread([this, type]() { sdkThread(type, nullptr); });
        mThreadId.store(mThread.get_id());
        return true;
    } catch (const std::system_error& e) {
        mRunning.store(false);
        RUXSDK_LOG("cannot start the SDK thread: %s", e.what());
        return false;
    }
}

void SdkClientBase::sdkThread(RuxSdkClientType /*type*/, std::shared_ptr<SdkClientEvent> event) {
    // Known before the first event is handled; start() stores the same id, possibly later.
    mThreadId.store(std::this_thread::get_id());
    RUXSDK_LOG("sdkThread called");
    if (event) postEvent(std::move(event));
    try {
        while (mRunning.load()) {
            RUXSDK_LOG("sdkThread loop");
            mTimer->processEvents();
            mEventManager->processEvents(mTimer);
        }
    } catch (const std::exception& e) {
        mRunning.store(false);
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "sdkThread: loop failed: %s", e.what());
    } catch (...) {
        mRunning.store(false);
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "sdkThread: loop failed");
    }
    RUXSDK_LOG("sdkThread loop END");
}

bool SdkClientBase::stopThread() {
    mRunning.store(false);  // the loop ends after the pass in hand
    if (mEventManager != nullptr) mEventManager->wake();
    return waitForThreadEnd();
}

bool SdkClientBase::waitForThreadEnd() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(mThreadLock);
        thread = std::move(mThread);
    }
    if (!thread.joinable()) return true;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
        return false;
    }
    thread.join();
    return true;
}

bool SdkClientBase::onSdkThread() const {
    return mThreadId.load() == std::this_thread::get_id();
}

void SdkClientBase::handleEvent(std::shared_ptr<SdkClientEvent> ev) {
    RUXSDK_LOG("handleEvent");
    if (!ev) return;
    if (!mRunning.load()) {
        RUXSDK_LOG("handleEvent called while thread not running");
        return;
    }
    if (ev->toClient) {
        // Without a listener the event falls through to the send path.
        const SharedListener listener = listenerInsertingEmpty(ev->type);
        if (listener) {
            RUXSDK_LOG("sendClient");
            callListener(*listener, RESPONSE, ev->blob);
            return;
        }
    }
    if (!isConnected(ev->type) && !ev->cleanup) {
        RUXSDK_LOG("Reconnect client");
        connectRuxSdkClient(ev->type);
    }
    // Not connected: nothing is sent; the connect attempt has already reported
    // SERVICE_DOWN, and the blob goes back to its client (unless it is leaving), which
    // forgets the request. The event's blob is not needed after this: it is handed on,
    // not copied.
    if (!isConnected(ev->type)) {
        if (!ev->cleanup && !ev->blob.empty() && hasClientType(ev->type)) {
            const SharedListener listener = listenerInsertingEmpty(ev->type);
            if (listener) callListener(*listener, NOT_SENT, ev->blob);
        }
    } else if (!sendBlobToService(ev->type, std::move(ev->blob))) {
        const SharedListener listener = listenerInsertingEmpty(ev->type);
        if (listener) callListener(*listener, SEND_FAILED, {});
    }
    if (!ev->cleanup) return;
    RUXSDK_LOG("cleanup");
    if (!removeClientType(ev->type)) mRunning.store(false);  // the loop ends after this pass
}

void SdkClientBase::notifyReceivedBlob(RuxSdkClientType type, std::vector<uint8_t> blob) {
    SharedListener listener;
    bool found = false;
    {
        std::lock_guard<std::mutex> lock(mListenerLock);
        auto it = mListeners.find(type);
        if (it != mListeners.end()) {
            listener = it->second;
            found = true;
        }
    }
    if (!found) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "RuxSdkClientType %d is not registered with this client. Should never "
                            "occur!",
                            static_cast<int>(type));
        return;
    }
    if (!listener) {
        RUXSDK_LOG("second null");
        return;
    }
    RUXSDK_LOG("Send response RESPONSE %d", static_cast<int>(type));
    callListener(*listener, RESPONSE, blob);
}

void SdkClientBase::notifyServiceUp(RuxSdkClientType type) {
    SharedListener listener;
    {
        std::lock_guard<std::mutex> lock(mListenerLock);
        auto it = mListeners.find(type);
        if (it != mListeners.end()) listener = it->second;
    }
    if (listener) callListener(*listener, SERVICE_UP, {});
}

void SdkClientBase::notifyServiceDown() {
    std::vector<std::pair<RuxSdkClientType, SharedListener>> listeners;
    {
        std::lock_guard<std::mutex> lock(mListenerLock);
        listeners.assign(mListeners.begin(), mListeners.end());
    }
    for (const auto& [type, listener] : listeners) {
        if (!listener) {
            RUXSDK_LOG("No listener for RuxSdkClientType %d; SERVICE_DOWN not delivered",
                       static_cast<int>(type));
            continue;
        }
        callListener(*listener, SERVICE_DOWN, {});
    }
}

void SdkClientBase::setClientListener(RuxSdkClientType type, Listener listener) {
    // An empty callable is stored as no listener, so a held one is always callable.
    auto shared = listener ? std::make_shared<const Listener>(std::move(listener)) : nullptr;
    std::lock_guard<std::mutex> lock(mListenerLock);
    mListeners[type] = std::move(shared);
}

SdkClientBase::SharedListener SdkClientBase::listenerInsertingEmpty(RuxSdkClientType type) {
    std::lock_guard<std::mutex> lock(mListenerLock);
    return mListeners[type];
}

void SdkClientBase::callListener(const Listener& listener, SdkStatus status,
                                 const std::vector<uint8_t>& blob) {
    // Listeners are called from the SDK and receiver threads, which must survive them.
    try {
        listener(status, blob);
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "listener threw: %s", e.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "listener threw");
    }
}

void SdkClientBase::addClientType(RuxSdkClientType type) {
    if (!validType(type)) {
        RUXSDK_LOG("RuxSdkClientType %d out of range", static_cast<int>(type));
        return;
    }
    std::lock_guard<std::mutex> lock(mStateLock);
    mClientTypes[type] = true;
}

bool SdkClientBase::removeClientType(RuxSdkClientType type) {
    std::lock_guard<std::mutex> lock(mStateLock);
    if (validType(type)) mClientTypes[type] = false;
    return anyClientTypeLocked();
}

bool SdkClientBase::hasClientType(RuxSdkClientType type) {
    std::lock_guard<std::mutex> lock(mStateLock);
    return hasClientTypeLocked(type);
}

bool SdkClientBase::hasClientTypeLocked(RuxSdkClientType type) const {
    return validType(type) && mClientTypes[type];
}

bool SdkClientBase::anyClientTypeLocked() const {
    for (bool set : mClientTypes)
        if (set) return true;
    return false;
}

}  // namespace rux::sdk
