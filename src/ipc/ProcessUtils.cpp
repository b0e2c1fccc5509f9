#include "ipc/ProcessUtils.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
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

enum class Wait { kReadable, kStalled, kFailed };

// Waits until `fd` has bytes (or its end) to read; `limit` below 0 waits for good.
Wait waitReadable(int fd, std::chrono::milliseconds limit) {
    pollfd p{fd, POLLIN, 0};
    const int timeout = limit.count() < 0 ? -1 : static_cast<int>(limit.count());
    int ready;
    do {
        ready = ::poll(&p, 1, timeout);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return Wait::kFailed;
    return ready == 0 ? Wait::kStalled : Wait::kReadable;
}

// How a read of part of a frame ended.
enum class Read { kDone, kClosed, kFailed, kStalled };

// Waits for more of a frame: at most `stall`.
Read waitForMore(int fd, std::chrono::milliseconds stall) {
    const Wait w = waitReadable(fd, stall);
    if (w == Wait::kReadable) return Read::kDone;
    return w == Wait::kStalled ? Read::kStalled : Read::kFailed;
}

// Reads `length` payload bytes into `payload` (reserved for them). The vector grows
// only by bytes already waiting in the socket, so no payload memory is written before
// its bytes have arrived; each wait for more is at most `stall`.
Read receivePayload(int fd, std::vector<uint8_t>& payload, uint64_t length,
                    std::chrono::milliseconds stall) {
    while (payload.size() < length) {
        int waiting = 0;
        if (::ioctl(fd, FIONREAD, &waiting) < 0) return Read::kFailed;
        if (waiting <= 0) {
            const Read w = waitForMore(fd, stall);
            if (w != Read::kDone) return w;
            uint8_t probe;
            const ssize_t r = ::recv(fd, &probe, 1, MSG_PEEK | MSG_DONTWAIT);
            if (r == 0) return Read::kClosed;
            if (r < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)
                return Read::kFailed;
            continue;
        }
        const size_t at = payload.size();
        const size_t want =
            static_cast<size_t>(std::min<uint64_t>(length - at, static_cast<uint64_t>(waiting)));
        payload.resize(at + want);
        const ssize_t r = ::recv(fd, payload.data() + at, want, MSG_DONTWAIT);
        payload.resize(at + (r > 0 ? static_cast<size_t>(r) : 0));
        if (r == 0) return Read::kClosed;
        if (r < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)
            return Read::kFailed;
    }
    return Read::kDone;
}

// The receiver's read-ahead: one recv takes whatever the socket holds, up to a fixed
// size, and the frames in it are handed on from here without another system call.
// Unread bytes are [mBegin, mEnd) of a block that never grows.
class ReceiveBuffer {
public:
    static constexpr size_t kCapacity = 16 * 1024;

    ReceiveBuffer() : mBytes(new uint8_t[kCapacity]) {}
    const uint8_t* data() const { return mBytes.get() + mBegin; }
    size_t size() const { return mEnd - mBegin; }
    void consume(size_t n) {
        mBegin += n;
        if (mBegin == mEnd) mBegin = mEnd = 0;
    }

    // One recv into the free space, after moving what is unread (never more than a part
    // of a header: payload bytes are taken out before the buffer is filled again) to the
    // front. The first read of a frame (nothing buffered and `idle`) waits without limit;
    // any other wait is at most `stall`.
    Read fill(int fd, bool idle, std::chrono::milliseconds stall) {
        if (mBegin > 0) {
            std::memmove(mBytes.get(), mBytes.get() + mBegin, size());
            mEnd -= mBegin;
            mBegin = 0;
        }
        const bool waitForGood = idle && mEnd == 0;
        for (;;) {
            const ssize_t r =
                ::recv(fd, mBytes.get() + mEnd, kCapacity - mEnd, waitForGood ? 0 : MSG_DONTWAIT);
            if (r > 0) {
                mEnd += static_cast<size_t>(r);
                return Read::kDone;
            }
            if (r == 0) return Read::kClosed;
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return Read::kFailed;
            const Read w = waitForMore(fd, stall);
            if (w != Read::kDone) return w;
        }
    }

private:
    std::unique_ptr<uint8_t[]> mBytes;
    size_t mBegin = 0;
    size_t mEnd = 0;
};

// Buffers the next frame's header, reading only while fewer than its 48 bytes are in.
Read receiveHeader(int fd, ReceiveBuffer& buffer, std::chrono::milliseconds stall) {
    while (buffer.size() < kIpcHeaderSize) {
        const Read r = buffer.fill(fd, true, stall);
        if (r != Read::kDone) return r;
    }
    return Read::kDone;
}

// Takes `length` payload bytes into `payload` (reserved for them): first what is
// buffered, then more as it arrives, so every byte is copied once and none of the
// vector is written before its bytes are in. The rest of a payload that would not fit
// in the buffer is read straight into the vector.
Read takePayload(int fd, ReceiveBuffer& buffer, std::vector<uint8_t>& payload, uint64_t length,
                 std::chrono::milliseconds stall) {
    for (;;) {
        const size_t take =
            static_cast<size_t>(std::min<uint64_t>(length - payload.size(), buffer.size()));
        payload.insert(payload.end(), buffer.data(), buffer.data() + take);
        buffer.consume(take);
        if (payload.size() == length) return Read::kDone;
        if (length - payload.size() >= ReceiveBuffer::kCapacity)
            return receivePayload(fd, payload, length, stall);
        const Read r = buffer.fill(fd, false, stall);
        if (r != Read::kDone) return r;
    }
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
    const std::chrono::milliseconds stall = handler.frameStallLimit();
    ReceiveBuffer buffer;
    int err = 0;
    for (;;) {
        const Read headerRead = receiveHeader(io.fd, buffer, stall);
        err = errno;
        const size_t headerBytes = std::min(buffer.size(), kIpcHeaderSize);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "recv: len: %d",
                headerRead == Read::kFailed && headerBytes == 0 ? -1
                                                                : static_cast<int>(headerBytes));
        if (headerRead == Read::kStalled) {
            err = ETIMEDOUT;
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Frame stalled: %zu of %zu header bytes in %lld ms",
                    headerBytes, kIpcHeaderSize, static_cast<long long>(stall.count()));
        }
        // A header cut short by the peer closing is as fatal as no header at all.
        if (headerRead != Read::kDone) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Error 1st recv");
            break;
        }
        ipcMsg_t header{};
        std::memcpy(&header, buffer.data(), kIpcHeaderSize);
        buffer.consume(kIpcHeaderSize);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Received data size: %d", static_cast<int>(header.length));
        // Checked before anything is allocated: no frame of this protocol comes near it.
        if (header.length > kMaxReceivedPayload) {
            err = EMSGSIZE;
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Received data size %llu exceeds the limit of %llu",
                    static_cast<unsigned long long>(header.length),
                    static_cast<unsigned long long>(kMaxReceivedPayload));
            break;
        }
        // A payload already in the read-ahead is handed on from there.
        if (buffer.size() >= header.length) {
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "recv: length: %d", static_cast<int>(header.length));
            try {
                handler.handleBufferedFrame(header, buffer.data());
            } catch (...) {
                RUX_LOG(ANDROID_LOG_ERROR, kTag, "handleMsg threw; frame dropped");
            }
            buffer.consume(static_cast<size_t>(header.length));
            continue;
        }
        // Within the limit a length that cannot be allocated ends the process.
        std::vector<uint8_t> payload;
        if (!reservePayload(payload, header.length)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "malloc failed");
            std::exit(-1);
        }
        {
            const Read payloadRead = takePayload(io.fd, buffer, payload, header.length, stall);
            if (payloadRead == Read::kFailed) {
                err = errno;
                RUX_LOG(ANDROID_LOG_ERROR, kTag, "Error 2nd recv: errno: %d(%s)", err,
                        errnoText(err).c_str());
                break;
            }
            if (payloadRead == Read::kStalled) {
                err = ETIMEDOUT;
                RUX_LOG(ANDROID_LOG_ERROR, kTag,
                        "Frame stalled: %zu of %llu payload bytes in %lld ms", payload.size(),
                        static_cast<unsigned long long>(header.length),
                        static_cast<long long>(stall.count()));
                break;
            }
            if (payloadRead == Read::kClosed) {
                err = errno;
                RUX_LOG(ANDROID_LOG_ERROR, kTag,
                        "Unexpected data received: expected size: %d, received size: %d",
                        static_cast<int>(header.length), static_cast<int>(payload.size()));
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
