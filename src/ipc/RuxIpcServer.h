// RuxIpcServer: the service's half of the transport, for the service simulator and
// for tests. It listens on a Unix socket path, runs the handshake with every client
// that connects (HANDSHAKE_INIT with a fresh session id, a checked HANDSHAKE_RESP,
// HANDSHAKE_COMPLETE), registers the accepted socket with regProcess, and then hands
// the client's frames to the callbacks. Through a RuxIpcServerClient handle the owner
// answers requests, pushes indications and drops the client.
//
// Lifecycle: construct with callbacks, start(path), then stop() (the destructor
// stops too). stop() ends every client (each gets onDisconnected), stops listening and
// removes the socket file. A server can be started again after stop().
//
// Threads: the accept loop (its own thread) accepts, runs the handshakes and calls
// onConnected; each client's receiver thread calls onBlob, onFrame and onDisconnected.
// For one client, onConnected comes before any other callback and onDisconnected is the
// last, exactly once. Callbacks run under no lock and may use any handle. stop(),
// setRefuseConnections() and the destructor must not be called from a callback.
//
// Keys: a client's socket is registered under (the client's process id, its session
// id), the address of every frame sent to it. Session ids are unique in the process.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ipc/IpcTypes.h"

namespace rux::ipc {

class RuxIpcServerConnection;

// A frame as a server callback sees it.
struct IncomingFrame {
    uint64_t srcProcessId = 0;
    uint64_t dstProcessId = 0;
    uint64_t msgId = 0;
    uint64_t subsystemId = 0;
    uint64_t sessionId = 0;
    std::vector<uint8_t> payload;
};

// Handle to one accepted client. Copyable; it stays safe to use after the client is
// gone (sends then return false).
class RuxIpcServerClient {
public:
    RuxIpcServerClient() = default;

    unsigned int sessionId() const { return mSessionId; }
    ProcessId peerProcessId() const { return mPeerProcessId; }
    bool isConnected() const;

    // A SendBlobMessage frame (msgId 5, subsystem 0) carrying `type` and `blob`.
    bool sendBlob(RuxSdkType type, const std::vector<uint8_t>& blob) const;
    // Any frame.
    bool sendFrame(uint32_t subsystemId, uint32_t msgId, const std::vector<uint8_t>& payload) const;
    // Drops the client as a crashed service would: its socket is shut down, the client
    // sees the session end, and onDisconnected follows on the receiver thread.
    void disconnect() const;

private:
    friend class RuxIpcServerConnection;
    std::weak_ptr<RuxIpcServerConnection> mConnection;
    unsigned int mSessionId = 0;
    ProcessId mPeerProcessId = PROCESS_ID_SERVICE;
};

class RuxIpcServer {
public:
    struct Callbacks {
        std::function<void(const RuxIpcServerClient&)> onConnected;
        // Frames with msgId 5 whose payload holds a SendBlobMessage.
        std::function<void(const RuxIpcServerClient&, RuxSdkType, std::vector<uint8_t>)> onBlob;
        // Every other frame.
        std::function<void(const RuxIpcServerClient&, const IncomingFrame&)> onFrame;
        std::function<void(const RuxIpcServerClient&)> onDisconnected;
    };

    struct Options {
        ProcessId ownProcessId = PROCESS_ID_SERVICE;
        std::string name = "rux-service";
        // How long a connected client may take to answer HANDSHAKE_INIT.
        std::chrono::milliseconds handshakeTimeout{2000};
    };

    explicit RuxIpcServer(Callbacks callbacks);
    RuxIpcServer(Callbacks callbacks, Options options);
    ~RuxIpcServer();
    RuxIpcServer(const RuxIpcServer&) = delete;
    RuxIpcServer& operator=(const RuxIpcServer&) = delete;

    // Listens on `path` (an old socket file there is replaced) and starts the accept
    // loop. False, with a log line, when it cannot, or when already started.
    bool start(const std::string& path);
    void stop();
    bool isRunning() const;

    // While refusing, nothing listens on the path: connects fail as they do when the
    // service is down. Connected clients stay. Takes effect before the call returns.
    void setRefuseConnections(bool refuse);

    // The clients connected now.
    std::vector<RuxIpcServerClient> clients() const;

    struct Core;  // shared with the connections

private:
    void acceptLoop();
    void acceptClient(int fd);

    std::shared_ptr<Core> mCore;
    std::thread mAcceptThread;
};

}  // namespace rux::ipc
