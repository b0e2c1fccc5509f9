// RuxIpcSession: one conversation with one peer process over one Unix stream socket.
// It connects and runs the three-step handshake (HandshakePacket.h) that fixes the
// session id, registers the socket with the socket layer (ProcessUtils.h), sends
// messages as frames, turns received frames into messages and dispatches them through
// the message registry, and notices the end of the session.
//
// Threads:
// - Messages posted with send()/postToSelf are handled on the worker when the session
//   is threaded, otherwise on the posting thread (the connect path then blocks its
//   caller for up to maxAttempts x retryDelay plus the handshake).
// - Frames and the session end arrive on the socket's receiver thread; an unthreaded
//   session dispatches them there, so registry handlers run on the receiver thread.
// - cleanup() may be called from any thread. It returns once the connect path in
//   progress (if any) has let go of the socket and the receiver thread has finished
//   with this session, so the session can then be destroyed. Called from a callback of
//   this session it does not wait for its own thread.
// - Never destroy a session from one of its own callbacks.
//
// Shared state: mConnected, mSocketFd and mSessionId are atomics; the socket descriptor
// is closed by exactly one party (the connect path on failure, cleanup(), or the
// session end), decided by who swaps mSocketFd to -1. A connection ends on a receive
// error or end of stream, and also when a send finds the peer gone (EPIPE,
// ECONNRESET): either way once, with one false status. mRegistryLock guards the registry
// and the raw handler; it is never held while one of them runs.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ipc/IpcHandler.h"
#include "ipc/IpcTypes.h"
#include "ipc/ProcessUtils.h"
#include "ipc/RuxIpcMessage.h"

namespace rux::ipc {

// How a session connects and receives. The defaults are the system's: the service's
// socket, 50 attempts 100 ms apart. The handshake timeout bounds each handshake read, so
// a peer that accepts and then stays silent cannot hold the connecting thread forever;
// the frame stall limit ends a session whose peer stops in the middle of a frame.
struct ConnectOptions {
    std::string socketPath;  // empty: socketPath()
    int maxAttempts = 50;
    std::chrono::microseconds retryDelay{100000};
    std::chrono::milliseconds handshakeTimeout{5000};  // 0: wait without limit
    std::chrono::milliseconds frameStallLimit = ProcessHandler::kDefaultFrameStallLimit;
    // Test seam: runs on the connecting thread after a successful handshake, once the
    // socket is registered (its receiver running) and before the status is reported.
    std::function<void()> afterHandshake;
};

using IpcMessageRegistry = std::unordered_map<unsigned int, IpcMsgConstructorHandlerPair_t>;

class RuxIpcSession : public IpcHandler<std::shared_ptr<RuxIpcMessage>> {
public:
    using RawHandler = std::function<void(std::shared_ptr<RuxIpcIncomingRawMessage>)>;

    RuxIpcSession(int fd, unsigned int sessionId, ProcessId own, ProcessId peer, bool threaded,
                  ConnectOptions options = {});
    ~RuxIpcSession() override;

    // False for a null message; otherwise the message is posted (true says nothing about
    // delivery: a send failure below is only logged).
    bool send(std::shared_ptr<RuxIpcMessage> msg);
    // Posts a RuxIpcRawMessage.
    bool send(unsigned int subsystemId, unsigned int msgId, std::vector<uint8_t> payload);

    void registerForMessages(IpcMessageRegistry registry);
    // When set, every incoming raw message goes here instead of the registry.
    void setRawHandler(RawHandler handler);

    void cleanup();

    bool isConnected() const { return mConnected.load(); }
    int socketFd() const { return mSocketFd.load(); }
    unsigned int sessionId() const { return mSessionId.load(); }
    ProcessId ownProcessId() const { return mOwnProcessId; }
    ProcessId peerProcessId() const { return mPeerProcessId; }

    void handleMsg(ipcMsg_t* frame) override;
    void handleFrame(const ipcMsg_t& header, std::vector<uint8_t> payload) override;
    void handleBufferedFrame(const ipcMsg_t& header, const uint8_t* payload) override;
    void handleSessionEnd(unsigned int sessionId) override;
    void handleSocketEnd(unsigned int sessionId, uint64_t registration) override;
    void handleEvent(std::shared_ptr<RuxIpcMessage> msg) override;
    // Connection status of this session; nothing here, the client session reports it.
    virtual void notifyConnectionStatus(bool up);

protected:
    // cleanup(), stop() and joining the worker, once. The destructor of the most derived
    // class calls it first, so no thread runs a virtual of a half-destroyed session.
    void shutdownSession();
    // Removes this session's registration from the socket layer.
    void deregister();

private:
    void handleConnectToRuxEvent();
    bool performHandshake(int fd);
    void postIncoming(const ipcMsg_t& header, std::shared_ptr<RuxIpcIncomingRawMessage> raw);
    void handleRuxIpcIncomingRawMessage(const std::shared_ptr<RuxIpcMessage>& msg);
    void handleRuxIpcRawMessage(const std::shared_ptr<RuxIpcMessage>& msg);
    void handleSendMessage(const std::shared_ptr<RuxIpcMessage>& msg);
    bool sendAsFrame(RuxIpcMessage& msg, uint64_t msgId, uint64_t subsystemId, int* err);
    void handleSessionEndEvent(uint64_t registration);
    void endAfterSendFailure(uint64_t registration, int err);
    // Takes the socket (if still there), closes it and reports the loss once.
    void endConnection(bool shutDown);
    // The report of a connection that the connect path has registered: up, then down
    // if it ended meanwhile; nothing once cleanup() has begun.
    void reportConnected();

    // Who reports the status of a connection in the making. Pending: the connect path
    // has a registered socket and will report it up. EndedWhilePending: the socket ended
    // before that report, and the connect path reports the loss right after it.
    // Cancelled: cleanup() took the socket; nothing more is reported.
    enum ReportState : int {
        kReportIdle,
        kReportPending,
        kReportEndedWhilePending,
        kReportCancelled
    };

    std::mutex mRegistryLock;
    IpcMessageRegistry mMessageRegistry;  // guarded by mRegistryLock
    RawHandler mRawHandler;               // guarded by mRegistryLock
    std::atomic<bool> mConnected{false};
    std::atomic<int> mSocketFd;
    std::atomic<unsigned int> mSessionId;
    const ProcessId mOwnProcessId;
    const ProcessId mPeerProcessId;
    const std::shared_ptr<ProcessUtilsGlobals> mGlobals;
    const ConnectOptions mOptions;
    // Guards mReportState; also makes cleanup()'s taking of the socket and a connect's
    // installing of a new one atomic with the state they set. Never held while a status
    // is reported or a system call other than the socket's exchange runs.
    std::mutex mReportLock;
    ReportState mReportState = kReportIdle;  // guarded by mReportLock
    // The token of the current socket registration, 0 when none. Taking it (compare and
    // swap to 0) decides who ends the connection: the receiver's end, a send that found
    // the peer gone, or cleanup(); so a connection ends once, and the late end of an
    // earlier socket never touches a newer one.
    std::atomic<uint64_t> mRegistration{0};
    std::once_flag mShutdownOnce;
};

}  // namespace rux::ipc
