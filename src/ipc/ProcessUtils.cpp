#include "ipc/ProcessUtils.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <system_error>
#include <vector>

#include "log/Log.h"

namespace rux::ipc {

namespace {

constexpr const char* kTag = "RUX";

// strerror_r comes in two flavours (GNU returns the text, XSI fills the buffer).
[[maybe_unused]] const char* errorMessage(int result, const char* buffer) {
    return result == 0 ? buffer : "Unknown error";
}
[[maybe_unused]] const char* errorMessage(const char* result, const char*) { return result; }

// Room for exactly `length` payload bytes, none of them written yet; false when it
// cannot be had.
bool reservePayload(std::vector<uint8_t>& payload, uint64_t length) {
    if (length != static_cast<size_t>(length)) return false;
    try {
        payload.reserve(static_cast<size_t>(length));
    } catch (const std::exception&) {  // bad_alloc, or length_error past max_size()
        return false;
    }
    return true;
}

// Reads `length` bytes into `payload` (reserved for them), a piece at a time: the
// vector grows only just ahead of the bytes that fill it. What recv returned in the
// end: `length`, fewer when the peer closed, -1 on an error.
ssize_t receivePayload(int fd, std::vector<uint8_t>& payload, uint64_t length) {
    constexpr size_t kPiece = 64 * 1024;
    while (payload.size() < length) {
        const size_t at = payload.size();
        const size_t want = static_cast<size_t>(std::min<uint64_t>(length - at, kPiece));
        payload.resize(at + want);
        ssize_t got;
        do {
            got = ::recv(fd, payload.data() + at, want, MSG_WAITALL);
        } while (got < 0 && errno == EINTR);
        if (got < 0) return at == 0 ? -1 : static_cast<ssize_t>(at);
        payload.resize(at + static_cast<size_t>(got));
        if (static_cast<size_t>(got) < want) break;  // the peer closed mid-payload
    }
    return static_cast<ssize_t>(payload.size());
}

}  // namespace

std::string errnoText(int err) {
    char buffer[128] = {0};
    return errorMessage(strerror_r(err, buffer, sizeof buffer), buffer);
}

uint64_t nextRegistrationToken() {
    static std::atomic<uint64_t> next{1};
    return next.fetch_add(1);
}

SocketDescriptor::~SocketDescriptor() {
    if (owned && fd >= 0) ::close(fd);
}

// The socket registry is never freed: receiver threads and sessions owned by static
// objects of the host process may still reach it while the process exits.
std::shared_ptr<ProcessUtilsGlobals> getProcessUtilsGlobals() {
    static const auto* const globals =
        new std::shared_ptr<ProcessUtilsGlobals>(std::make_shared<ProcessUtilsGlobals>());
    return *globals;
}

ProcessUtilsGlobals::~ProcessUtilsGlobals() {
    RUX_LOG(ANDROID_LOG_INFO, kTag, "ProcessUtilsGlobals dtor");
}

bool ProcessUtilsGlobals::startReceiver(const SocketKey& key, int fd, ProcessHandler& handler,
                                        uint64_t token) {
    // The receiver reads through its own duplicate, so the caller may close its
    // descriptor at any time without this layer touching a reused number.
    const int dup = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (dup < 0) {
        const int err = errno;
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "cannot duplicate socket %d: errno: %d(%s)", fd, err,
                errnoText(err).c_str());
        return false;
    }
    auto io = std::make_shared<SocketDescriptor>(dup, true);
    auto tracker = handler.receiverTracker();
    tracker->expect();
    bool registered = false;
    bool threadFailed = false;
    {
        std::unique_lock<std::shared_mutex> guard(lock);
        if (sockets.find(key) == sockets.end()) {
            std::thread thread;
            try {
                // The receiver co-owns these globals, so they outlive it even at exit.
                thread = std::thread(&ProcessUtilsGlobals::receiverMain, shared_from_this(), io,
                                     fd, &handler, tracker);
            } catch (const std::system_error&) {
                threadFailed = true;
            }
            if (thread.joinable()) {
                sockets.emplace(key, SocketEntry{fd, io, token});
                auto inserted = receiverThreads.emplace(key, std::move(thread));
                if (inserted.second) {
                    inserted.first->second.detach();
                }
                registered = true;
            }
        }
    }
    if (!registered) tracker->cancelExpected();
    if (threadFailed) RUX_LOG(ANDROID_LOG_ERROR, kTag, "cannot start receiver for socket %d", fd);
    return registered;
}

bool ProcessUtilsGlobals::registerSocket(unsigned long pid, unsigned int sessionId, int fd,
                                         ProcessHandler& handler) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "id: 0x%lx, sessionId: %d, sockFd: %d", pid,
            static_cast<int>(sessionId), fd);
    if (fd <= 0) return false;
    return startReceiver(SocketKey{pid, sessionId}, fd, handler, nextRegistrationToken());
}

bool ProcessUtilsGlobals::registerSocket(unsigned long pid, unsigned int sessionId, int fd,
                                         ProcessHandler& handler, uint64_t token) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "id: 0x%lx, sessionId: %d, sockFd: %d", pid,
            static_cast<int>(sessionId), fd);
    if (fd <= 0) return false;
    return startReceiver(SocketKey{pid, sessionId}, fd, handler, token);
}

void ProcessUtilsGlobals::deregisterSocket(unsigned long pid, unsigned int sessionId) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "deregisterSocket: ENTER");
    const SocketKey key{pid, sessionId};
    SocketEntry entry;  // dropped after the lock is released
    {
        std::unique_lock<std::shared_mutex> guard(lock);
        auto it = sockets.find(key);
        if (it != sockets.end()) {
            entry = std::move(it->second);
            sockets.erase(it);
        }
        receiverThreads.erase(key);
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "deregister socket debug log");
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "deregisterSocket: EXIT");
}

bool ProcessUtilsGlobals::regProcess(unsigned long pid, const std::string& name,
                                     unsigned long sessionId, const std::string& /*peerName*/,
                                     int fd, ProcessHandler& handler) {
    {
        std::unique_lock<std::shared_mutex> guard(lock);
        if (firstRegistration) {
            processId = pid;
            processName = name;
            firstRegistration = false;
        }
    }
    bool ok = true;
    if (fd >= 0) {
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "id: 0x%lx, sessionId: %d, sockFd: %d", pid,
                static_cast<int>(sessionId), fd);
        ok = startReceiver(SocketKey{pid, sessionId}, fd, handler, nextRegistrationToken());
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "child listening to sock: %d", fd);
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "registered: %s", name.c_str());
    return ok;
}

bool ProcessUtilsGlobals::sendIpc(const ipcMsg_t* msg) { return sendIpc(msg, nullptr); }

bool ProcessUtilsGlobals::sendIpc(const ipcMsg_t* msg, int* error) {
    if (error != nullptr) *error = 0;
    if (msg == nullptr) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "data null");
        return false;
    }
    return sendBytes(*msg, reinterpret_cast<const uint8_t*>(msg), kIpcHeaderSize + msg->length,
                     error);
}

bool ProcessUtilsGlobals::sendFrame(const std::vector<uint8_t>& frame, int* error) {
    if (error != nullptr) *error = 0;
    ipcMsg_t header{};
    if (!decodeFrameHeader(frame.data(), frame.size(), header)) return false;
    return sendBytes(header, frame.data(), frame.size(), error);
}

bool ProcessUtilsGlobals::sendBytes(const ipcMsg_t& header, const uint8_t* bytes, size_t size,
                                    int* error) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "dstProcessId: 0x%lx, sessionId: %ld",
            static_cast<unsigned long>(header.dstProcessId), static_cast<long>(header.sessionId));
    std::shared_ptr<SocketDescriptor> io;
    {
        std::shared_lock<std::shared_mutex> guard(lock);
        auto it = sockets.find(SocketKey{header.dstProcessId, header.sessionId});
        if (it == sockets.end()) return false;
        io = it->second.io;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "send: length: %ld", static_cast<long>(header.length));
    const ssize_t sent = ::send(io->fd, bytes, size, MSG_NOSIGNAL);
    if (sent < 1) {
        const int err = errno;
        if (error != nullptr) *error = err;
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "send: failure, errno: %d(%s)", err,
                errnoText(err).c_str());
        return false;
    }
    return true;
}

unsigned long ProcessUtilsGlobals::assignedProcessId() const {
    std::shared_lock<std::shared_mutex> guard(lock);
    return processId;
}

std::string ProcessUtilsGlobals::assignedProcessName() const {
    std::shared_lock<std::shared_mutex> guard(lock);
    return processName;
}

int ProcessUtilsGlobals::registeredFd(unsigned long pid, unsigned long sessionId) const {
    std::shared_lock<std::shared_mutex> guard(lock);
    auto it = sockets.find(SocketKey{pid, sessionId});
    return it == sockets.end() ? -1 : it->second.fd;
}

void ProcessUtilsGlobals::receiverMain(std::shared_ptr<ProcessUtilsGlobals> globals,
                                       std::shared_ptr<SocketDescriptor> io, int fd,
                                       ProcessHandler* handler,
                                       std::shared_ptr<ReceiverTracker> tracker) {
    tracker->attach();
    try {
        globals->receiveLoop(*io, fd, true, *handler);
    } catch (...) {
        // Nothing may leave a receiver thread; the loop already reports what it can.
    }
    // Let go of everything before reporting the thread done: whoever waits for it may
    // then release the last reference itself.
    io.reset();
    globals.reset();
    tracker->detach();
}

// One frame at a time: header, then exactly `length` payload bytes. Any failure ends
// the loop; then every registration served by this socket is reported as a session end
// and removed. Registered receivers match their entries by descriptor identity (each
// registration has its own duplicate), the public loop by descriptor number.
void ProcessUtilsGlobals::receiveLoop(const SocketDescriptor& io, int fd, bool matchByIdentity,
                                      ProcessHandler& handler) {
    int err = 0;
    for (;;) {
        ipcMsg_t header{};
        ssize_t len;
        do {
            len = ::recv(io.fd, &header, kIpcHeaderSize, MSG_WAITALL);
        } while (len < 0 && errno == EINTR);
        err = errno;
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "recv: len: %d", static_cast<int>(len));
        // A header cut short by the peer closing is as fatal as no header at all.
        if (len < static_cast<ssize_t>(kIpcHeaderSize)) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Error 1st recv");
            break;
        }
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Received data size: %d", static_cast<int>(header.length));
        // The length is trusted: the payload is allocated whole, and a size that cannot
        // be allocated ends the process.
        std::vector<uint8_t> payload;
        if (!reservePayload(payload, header.length)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "malloc failed");
            std::exit(-1);
        }
        if (header.length > 0) {
            const ssize_t got = receivePayload(io.fd, payload, header.length);
            if (got == -1) {
                err = errno;
                RUX_LOG(ANDROID_LOG_ERROR, kTag, "Error 2nd recv: errno: %d(%s)", err,
                        errnoText(err).c_str());
                break;
            }
            if (static_cast<uint64_t>(got) != header.length) {
                err = errno;
                RUX_LOG(ANDROID_LOG_ERROR, kTag,
                        "Unexpected data received: expected size: %d, received size: %d",
                        static_cast<int>(header.length), static_cast<int>(got));
                break;
            }
        }
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "recv: length: %d", static_cast<int>(header.length));
        try {
            handler.handleFrame(header, std::move(payload));
        } catch (...) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "handleMsg threw; frame dropped");
        }
    }

    RUX_LOG(ANDROID_LOG_ERROR, kTag, "ipc recv error: %d for socket %d", err, fd);
    std::vector<std::pair<SocketKey, SocketEntry>> ended;
    {
        std::unique_lock<std::shared_mutex> guard(lock);
        for (auto it = sockets.begin(); it != sockets.end();) {
            const bool mine = matchByIdentity ? it->second.io.get() == &io : it->second.fd == fd;
            if (mine) {
                receiverThreads.erase(it->first);
                ended.emplace_back(it->first, std::move(it->second));
                it = sockets.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& [key, entry] : ended) {
        const auto sessionId = static_cast<unsigned int>(key.second);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Cleaning up session %d, socket %d",
                static_cast<int>(sessionId), entry.fd);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Notifying session %d", static_cast<int>(sessionId));
        try {
            handler.handleSocketEnd(sessionId, entry.token);
        } catch (...) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "handleSessionEnd threw");
        }
    }
    // Registered receivers close their duplicate when the last owner lets go; the
    // public loop closes the descriptor it was given, as its registrations are gone.
    if (!matchByIdentity && !ended.empty()) ::close(fd);
}

// --- free functions --------------------------------------------------------------

bool registerSocket(unsigned long processId, unsigned int sessionId, int fd,
                    ProcessHandler& handler) {
    auto globals = getProcessUtilsGlobals();
    return globals && globals->registerSocket(processId, sessionId, fd, handler);
}

void deregisterSocket(unsigned long processId, unsigned int sessionId) {
    if (auto globals = getProcessUtilsGlobals()) globals->deregisterSocket(processId, sessionId);
}

bool regProcess(unsigned long processId, std::string name, unsigned long sessionId,
                std::string peerName, int fd, ProcessHandler& handler) {
    auto globals = getProcessUtilsGlobals();
    return globals && globals->regProcess(processId, name, sessionId, peerName, fd, handler);
}

bool sendIpc(ipcMsg_t* msg) {
    auto globals = getProcessUtilsGlobals();
    return globals && globals->sendIpc(msg);
}

void ipcReceiver(int fd, ProcessHandler& handler) {
    auto globals = getProcessUtilsGlobals();
    if (!globals) return;
    SocketDescriptor borrowed(fd, false);
    try {
        globals->receiveLoop(borrowed, fd, false, handler);
    } catch (...) {
    }
}

unsigned long getAssignedProcessId() {
    auto globals = getProcessUtilsGlobals();
    return globals ? globals->assignedProcessId() : ~0UL;
}

std::string getAssignedProcessName() {
    auto globals = getProcessUtilsGlobals();
    return globals ? globals->assignedProcessName() : "UNKNOWN";
}

bool ProcessUtilsWrapper::sendMsg(unsigned char* data, unsigned long length, unsigned long msgId,
                                  long subsystemId, unsigned long srcProcessId,
                                  unsigned long dstProcessId, unsigned int sessionId) {
    return sendMsg(data, length, msgId, subsystemId, srcProcessId, dstProcessId, sessionId,
                   nullptr);
}

bool ProcessUtilsWrapper::sendMsg(unsigned char* data, unsigned long length, unsigned long msgId,
                                  long subsystemId, unsigned long srcProcessId,
                                  unsigned long dstProcessId, unsigned int sessionId, int* error) {
    if (error != nullptr) *error = 0;
    if (data == nullptr && length > 0) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "data null");
        return false;
    }
    ipcMsg_t header{};
    header.srcProcessId = srcProcessId;
    header.dstProcessId = dstProcessId;
    header.msgId = msgId;
    header.subsystemId = static_cast<uint64_t>(subsystemId);
    header.sessionId = sessionId;
    header.length = length;
    // Built in 64-bit words so the header is aligned for sendIpc.
    std::vector<uint64_t> buffer((kIpcHeaderSize + length + 7) / 8, 0);
    encodeFrame(header, data, reinterpret_cast<uint8_t*>(buffer.data()));
    auto globals = getProcessUtilsGlobals();
    return globals && globals->sendIpc(reinterpret_cast<ipcMsg_t*>(buffer.data()), error);
}

}  // namespace rux::ipc
