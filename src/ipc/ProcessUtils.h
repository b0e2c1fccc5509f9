// The socket layer: the process-wide registry of connected sockets, one receiver
// thread per registered socket, and the framed send.
//
// Threads: registerSocket/regProcess/deregisterSocket/sendIpc may be called from any
// thread. Each registered socket gets a detached receiver thread that reads frames
// and calls its ProcessHandler; the handler's owner waits for it through
// ProcessHandler::waitForReceivers() before destroying the handler.
//
// Locking: ProcessUtilsGlobals::lock guards every field of the globals. It is held
// exclusively to add or remove entries and shared to look one up for sending; it is
// never held while logging, sending, or calling a handler.
//
// Descriptors: a registered socket is served through a duplicate of the caller's
// descriptor, owned by the registry entry, the receiver thread and any send in
// progress. The caller keeps its own descriptor and closes it when it likes; shutting
// it down ends the receiver. So no descriptor number is closed twice or used after a
// close by this layer.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ipc/IpcFrame.h"
#include "ipc/ProcessHandler.h"

namespace rux::ipc {

// errno as text ("No such file or directory"), thread-safe.
std::string errnoText(int err);

// A descriptor that the registry owns (a duplicate) or merely borrows.
struct SocketDescriptor {
    SocketDescriptor(int fd, bool owned) : fd(fd), owned(owned) {}
    ~SocketDescriptor();
    SocketDescriptor(const SocketDescriptor&) = delete;
    SocketDescriptor& operator=(const SocketDescriptor&) = delete;
    const int fd;
    const bool owned;
};

// (process id, session id), ordered lexicographically.
using SocketKey = std::pair<unsigned long, unsigned long>;

struct SocketEntry {
    int fd = -1;                             // the descriptor as registered (for logs)
    std::shared_ptr<SocketDescriptor> io;    // what receives and sends use
    uint64_t token = 0;                      // names this registration (never reused)
};

// A fresh registration token, unique in the process and never 0.
uint64_t nextRegistrationToken();

class ProcessUtilsGlobals : public std::enable_shared_from_this<ProcessUtilsGlobals> {
public:
    ProcessUtilsGlobals() = default;
    ~ProcessUtilsGlobals();
    ProcessUtilsGlobals(const ProcessUtilsGlobals&) = delete;
    ProcessUtilsGlobals& operator=(const ProcessUtilsGlobals&) = delete;

    // Implementations behind the free functions below.
    bool registerSocket(unsigned long processId, unsigned int sessionId, int fd,
                        ProcessHandler& handler);
    // The same under a token from nextRegistrationToken(), which the receiver hands back
    // in ProcessHandler::handleSocketEnd. The caller can store it before the receiver runs.
    bool registerSocket(unsigned long processId, unsigned int sessionId, int fd,
                        ProcessHandler& handler, uint64_t token);
    void deregisterSocket(unsigned long processId, unsigned int sessionId);
    bool regProcess(unsigned long processId, const std::string& name, unsigned long sessionId,
                    const std::string& peerName, int fd, ProcessHandler& handler);
    bool sendIpc(const ipcMsg_t* msg);
    // The same; on failure *error is the send's errno, or 0 when nothing was sent
    // (no frame, no such registration).
    bool sendIpc(const ipcMsg_t* msg, int* error);
    // The same for a frame built in a byte vector (header, then exactly its payload).
    bool sendFrame(const std::vector<uint8_t>& frame, int* error);

    unsigned long assignedProcessId() const;
    std::string assignedProcessName() const;
    // Whether (processId, sessionId) is registered, and under which descriptor (-1 if not).
    int registeredFd(unsigned long processId, unsigned long sessionId) const;

    mutable std::shared_mutex lock;
    bool firstRegistration = true;                    // guarded by lock
    std::string processName = "UNKNOWN";              // guarded by lock
    unsigned long processId = ~0UL;                   // guarded by lock
    std::map<SocketKey, std::thread> receiverThreads;  // guarded by lock; detached threads
    std::map<SocketKey, SocketEntry> sockets;          // guarded by lock

private:
    friend void ipcReceiver(int fd, ProcessHandler& handler);
    bool startReceiver(const SocketKey& key, int fd, ProcessHandler& handler, uint64_t token);
    bool sendBytes(const ipcMsg_t& header, const uint8_t* bytes, size_t size, int* error);
    static void receiverMain(std::shared_ptr<ProcessUtilsGlobals> globals,
                             std::shared_ptr<SocketDescriptor> io, int fd,
                             ProcessHandler* handler, std::shared_ptr<ReceiverTracker> tracker);
    void receiveLoop(const SocketDescriptor& io, int fd, bool matchByIdentity,
                     ProcessHandler& handler);
};

// The process's globals, created on first use and released at exit (null afterwards).
std::shared_ptr<ProcessUtilsGlobals> getProcessUtilsGlobals();

// Registers a connected socket under (processId, sessionId) and starts its receiver
// thread. fd must be > 0; an existing key is kept. True when the socket was registered.
bool registerSocket(unsigned long processId, unsigned int sessionId, int fd,
                    ProcessHandler& handler);
// Forgets (processId, sessionId). The caller's descriptor is not closed.
void deregisterSocket(unsigned long processId, unsigned int sessionId);
// Serving side: the first call fixes the process's assigned id and name; a socket
// (fd >= 0) is registered as registerSocket does. True unless the socket was refused.
bool regProcess(unsigned long processId, std::string name, unsigned long sessionId,
                std::string peerName, int fd, ProcessHandler& handler);
// One send of 48 + length bytes to the socket registered for (dstProcessId, sessionId).
bool sendIpc(ipcMsg_t* msg);
// The receive loop, run on the calling thread over `fd` until the socket fails; then
// every registration of `fd` is reported to `handler` as a session end, removed and
// the socket closed. registerSocket runs the same loop on its own thread.
void ipcReceiver(int fd, ProcessHandler& handler);

unsigned long getAssignedProcessId();
std::string getAssignedProcessName();

class ProcessUtilsWrapper {
public:
    // Frames `data` (length bytes) and sends it with sendIpc.
    static bool sendMsg(unsigned char* data, unsigned long length, unsigned long msgId,
                        long subsystemId, unsigned long srcProcessId, unsigned long dstProcessId,
                        unsigned int sessionId);
    // The same; on failure *error is the send's errno, or 0 when nothing was sent.
    static bool sendMsg(unsigned char* data, unsigned long length, unsigned long msgId,
                        long subsystemId, unsigned long srcProcessId, unsigned long dstProcessId,
                        unsigned int sessionId, int* error);
};

}  // namespace rux::ipc
