// SdkClient: the process-wide SdkClientBase, bound to the IPC layer. It keeps one
// client session (RuxIpcClientSession, unthreaded) per peer process id, connects it on
// demand from the SDK thread, sends a client type's blobs as SendBlobMessages and turns
// the SendBlobMessages received on a session back into listener calls.
//
// Threads:
// - getInstance, destroyInstance: application threads (the request client's register
//   and deregister). destroyInstance waits for the SDK thread when the last type
//   leaves, so it must not run on the SDK thread (if it does, it cannot wait: the
//   instance is then kept alive for good rather than destroyed under its own thread).
// - connectRuxSdkClient, isConnected, sendBlobToService: the SDK thread (handleEvent).
//   A connect runs whole on the SDK thread: up to 50 attempts 100 ms apart, then the
//   handshake. SERVICE_UP, and SERVICE_DOWN for a failed connect, arrive there too.
// - handleSendBlobMessage and SERVICE_DOWN for a lost session: the receiver thread.
//
// Locks: sInstanceLock guards mInstance and the connect options; mStateLock (from
// SdkClientBase) guards mRuxIpcSession together with the client-type table, so a type
// that is leaving can never gain a new session. Neither is held while a session is
// built, connected, used or cleaned up, nor while a listener runs.
//
// Lifecycle: created by the first getInstance; destroyInstance(type) retires a type,
// cleaning up its session at once (which also cuts short a connect in progress); when
// the last type has left it waits for the SDK loop to end (it ends with the cleanup
// event of the last type) and releases the instance. The RuxTimer and EventManager are
// owned through SdkLoopResources, a base that outlives the event queue.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "event/EventManager.h"
#include "event/RuxTimer.h"
#include "ipc/IpcTypes.h"
#include "ipc/RuxIpcClientSession.h"
#include "ipc/RuxIpcMessage.h"
#include "sdk/SdkClientBase.h"

namespace rux::sdk {

// The loop's timer queue and event manager, constructed before and destroyed after the
// SdkClientBase that registers its event queue with them.
struct SdkLoopResources {
    SdkLoopResources();
    std::unique_ptr<rux::utils::RuxTimer> loopTimer;
    std::unique_ptr<rux::utils::EventManager> loopEventManager;
};

class SdkClient : private SdkLoopResources, public SdkClientBase {
public:
    SdkClient();
    ~SdkClient() override;

    // The instance: the existing one (posting `event` to it, or failing with "Instance
    // and atomic bool miss match." when its loop has ended or `event` is null), or a new
    // one with its SDK thread. Then registers `type` with `listener`. Null on failure.
    static std::shared_ptr<SdkClient> getInstance(RuxSdkClientType type, Listener listener,
                                                  std::shared_ptr<SdkClientEvent> event);
    static void destroyInstance(RuxSdkClientType type);
    // The current instance, or null.
    static std::shared_ptr<SdkClient> instance();

    // Client-type tables. Types 6 and 8, and any type outside 4..11, share process 108
    // and wire type 0; wire types outside 4..9 give type 0.
    static rux::ipc::ProcessId convertSdkTypeToProcessId(RuxSdkClientType type);
    static rux::ipc::RuxSdkType convertSdkTypeToIpc(RuxSdkClientType type);
    static RuxSdkClientType convertSdkTypeToSdk(rux::ipc::RuxSdkType type);

    // How later sessions connect: the system's defaults (the service's socket, 50 x
    // 100 ms) unless a test shortens them.
    static void setConnectOptions(rux::ipc::ConnectOptions options);
    static rux::ipc::ConnectOptions connectOptions();

    void connectRuxSdkClient(RuxSdkClientType type) override;
    bool isConnected(RuxSdkClientType type) override;
    bool sendBlobToService(RuxSdkClientType type, std::vector<uint8_t> blob) override;

    // The session of the type's process, or null.
    std::shared_ptr<rux::ipc::RuxIpcClientSession> sessionFor(RuxSdkClientType type);

protected:
    std::shared_ptr<rux::ipc::RuxIpcClientSession> createRuxSdkClient(rux::ipc::ProcessId id);
    void handleSendBlobMessage(std::shared_ptr<rux::ipc::SendBlobMessage> msg);

private:
    static std::mutex sInstanceLock;
    static std::shared_ptr<SdkClient> mInstance;  // guarded by sInstanceLock

    // guarded by mStateLock
    std::map<rux::ipc::ProcessId, std::shared_ptr<rux::ipc::RuxIpcClientSession>> mRuxIpcSession;
};

}  // namespace rux::sdk
