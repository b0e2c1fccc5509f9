// RuxIpcClientSession: the client end of a session with the service (process 1). It
// connects to the service's socket and reports the connection status through one
// callback: true after a successful handshake, false when the connect or handshake
// fails or a connected session ends. Nothing is reported when cleanup() takes the
// socket away, and nothing reconnects by itself.
//
// The status callback runs on the thread that handles the connect (the caller of
// connectToServer for an unthreaded session) or, for the loss of a connected session,
// on the receiver thread; when a send finds the peer gone first, on the thread that
// sent. It is never called under a library lock.
//
// A class deriving from this one calls shutdownSession() first in its destructor.
#pragma once

#include <functional>
#include <mutex>

#include "ipc/RuxIpcSession.h"

namespace rux::ipc {

class RuxIpcClientSession : public RuxIpcSession {
public:
    RuxIpcClientSession(ProcessId own, bool threaded, ConnectOptions options = {});
    ~RuxIpcClientSession() override;

    // Stores `cb` and posts a connect: for an unthreaded session the call returns after
    // the whole attempt (up to maxAttempts x retryDelay, then the handshake).
    void connectToServer(std::function<void(bool)> cb);

    void notifyConnectionStatus(bool up) override;

private:
    std::mutex mCallbackLock;
    std::function<void(bool)> mConnectionCallback;  // guarded by mCallbackLock
};

}  // namespace rux::ipc
