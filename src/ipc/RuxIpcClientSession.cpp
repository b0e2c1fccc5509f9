#include "ipc/RuxIpcClientSession.h"

#include <android/log.h>

#include <cstdint>

#include "log/Log.h"

namespace rux::ipc {

namespace {
constexpr const char* kTag = "RUX";

unsigned int addressOf(const void* p) {
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(p));
}
}  // namespace

RuxIpcClientSession::RuxIpcClientSession(ProcessId own, bool threaded, ConnectOptions options)
    : RuxIpcSession(-1, 0, own, PROCESS_ID_SERVICE, threaded, std::move(options)) {
    RUX_LOG(ANDROID_LOG_INFO, kTag, "ctor[%x]", addressOf(this));
}

RuxIpcClientSession::~RuxIpcClientSession() {
    RUX_LOG(ANDROID_LOG_INFO, kTag, "dtor: ENTER[ %x]", addressOf(this));
    deregister();
    // Stopped here rather than in the base destructor, so that neither the receiver
    // nor the worker calls into this object once its own destructor has finished.
    shutdownSession();
}

void RuxIpcClientSession::connectToServer(std::function<void(bool)> cb) {
    {
        std::lock_guard<std::mutex> lock(mCallbackLock);
        mConnectionCallback = std::move(cb);
    }
    postToSelf(std::make_shared<RuxIpcConnectToServerMessage>());
}

void RuxIpcClientSession::notifyConnectionStatus(bool up) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "notifyConnectionStatus: %d", up ? 1 : 0);
    std::function<void(bool)> cb;
    {
        std::lock_guard<std::mutex> lock(mCallbackLock);
        cb = mConnectionCallback;
    }
    if (!cb) return;
    try {
        cb(up);
    } catch (...) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "connection callback threw");
    }
}

}  // namespace rux::ipc
