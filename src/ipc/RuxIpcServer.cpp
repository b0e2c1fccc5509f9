#include "ipc/RuxIpcServer.h"

#include <android/log.h>
#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <system_error>

#include "ipc/HandshakePacket.h"
#include "ipc/ProcessHandler.h"
#include "ipc/ProcessUtils.h"
#include "ipc/RuxIpcMessage.h"
#include "log/Log.h"

namespace rux::ipc {

namespace {

constexpr const char* kTag = "RUX";

std::atomic<uint32_t> gNextSessionId{1};

uint32_t freshSessionId() {
    uint32_t id;
    do {
        id = gNextSessionId.fetch_add(1);
    } while (id == 0);
    return id;
}

bool sendAll(int fd, const std::vector<uint8_t>& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

// Reads exactly `size` bytes, waiting at most `timeout` for each piece.
bool recvExactly(int fd, uint8_t* out, size_t size, std::chrono::milliseconds timeout) {
    size_t got = 0;
    while (got < size) {
        pollfd p{fd, POLLIN, 0};
        const int ready = ::poll(&p, 1, static_cast<int>(timeout.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        const ssize_t n = ::recv(fd, out + got, size - got, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        got += static_cast<size_t>(n);
    }
    return true;
}

int openListener(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: bad socket path '%s'", path.c_str());
        return -1;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        const int err = errno;
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: socket: errno: %d(%s)", err, errnoText(err).c_str());
        return -1;
    }
    ::unlink(path.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 16) != 0) {
        const int err = errno;
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: cannot listen on %s: errno: %d(%s)", path.c_str(),
                err, errnoText(err).c_str());
        ::close(fd);
        return -1;
    }
    RUX_LOG(ANDROID_LOG_INFO, kTag, "server: listening on %s", path.c_str());
    return fd;
}

}  // namespace

// Shared by the server and its connections; connections keep only a weak reference.
struct RuxIpcServer::Core {
    Core(Callbacks cb, Options opt) : callbacks(std::move(cb)), options(std::move(opt)) {}

    void wake() {
        const uint64_t one = 1;
        if (wakeFd >= 0) (void)!::write(wakeFd, &one, sizeof one);
    }
    void connectionEnded(const std::shared_ptr<RuxIpcServerConnection>& connection,
                         unsigned int sessionId);

    const Callbacks callbacks;
    const Options options;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::map<unsigned int, std::shared_ptr<RuxIpcServerConnection>> live;  // guarded by mutex
    std::vector<std::shared_ptr<RuxIpcServerConnection>> ended;            // guarded by mutex
    bool refuse = false;                // guarded by mutex
    uint64_t refuseRequested = 0;       // guarded by mutex
    uint64_t refuseApplied = 0;         // guarded by mutex
    bool stopping = false;              // guarded by mutex
    bool running = false;               // guarded by mutex

    std::string path;   // set by start() before the accept thread runs
    int wakeFd = -1;    // set by start() before the accept thread runs
    int listenFd = -1;  // owned by the accept thread while it runs
};

// One accepted client: the ProcessHandler its receiver thread calls.
class RuxIpcServerConnection : public ProcessHandler,
                               public std::enable_shared_from_this<RuxIpcServerConnection> {
public:
    RuxIpcServerConnection(std::weak_ptr<RuxIpcServer::Core> core, int fd, unsigned int sessionId,
                           ProcessId own, ProcessId peer)
        : mCore(std::move(core)), mFd(fd), mSessionId(sessionId), mOwn(own), mPeer(peer) {}

    // Only ever destroyed once its receiver has finished or from the receiver itself.
    ~RuxIpcServerConnection() override {
        if (auto globals = getProcessUtilsGlobals()) globals->deregisterSocket(mPeer, mSessionId);
        ::shutdown(mFd, SHUT_RDWR);
        waitForReceivers();
        ::close(mFd);
    }

    RuxIpcServerClient handle() {
        RuxIpcServerClient h;
        h.mConnection = weak_from_this();
        h.mSessionId = mSessionId;
        h.mPeerProcessId = mPeer;
        return h;
    }

    // Lets the receiver's callbacks through once onConnected has returned.
    void announce() {
        {
            std::lock_guard<std::mutex> lock(mAnnounceMutex);
            mAnnounced = true;
        }
        mAnnounceCond.notify_all();
    }

    void handleMsg(ipcMsg_t* msg) override {
        if (msg == nullptr) return;
        handleFrame(*msg, std::vector<uint8_t>(ipcPayload(msg), ipcPayload(msg) + msg->length));
    }

    void handleFrame(const ipcMsg_t& header, std::vector<uint8_t> payload) override {
        auto self = weak_from_this().lock();
        auto core = mCore.lock();
        if (!self || !core) return;
        waitAnnounced();
        IncomingFrame frame;
        frame.srcProcessId = header.srcProcessId;
        frame.dstProcessId = header.dstProcessId;
        frame.msgId = header.msgId;
        frame.subsystemId = header.subsystemId;
        frame.sessionId = header.sessionId;
        frame.payload = std::move(payload);
        if (frame.msgId == SendBlobMessage::ID && frame.subsystemId == 0) {
            SendBlobMessage blob;
            if (blob.deserialize(frame.payload)) {
                if (core->callbacks.onBlob) core->callbacks.onBlob(handle(), blob.sdkType, std::move(blob.blob));
                return;
            }
        }
        if (core->callbacks.onFrame) core->callbacks.onFrame(handle(), frame);
    }

    void handleSessionEnd(unsigned int) override {
        auto self = weak_from_this().lock();
        if (!self || mEnded.exchange(true)) return;
        waitAnnounced();
        RUX_LOG(ANDROID_LOG_INFO, kTag, "server: client %lu disconnected; sessionId: %u",
                static_cast<unsigned long>(mPeer), mSessionId);
        if (auto core = mCore.lock()) {
            if (core->callbacks.onDisconnected) {
                try {
                    core->callbacks.onDisconnected(handle());
                } catch (...) {
                    RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: onDisconnected threw");
                }
            }
            core->connectionEnded(self, mSessionId);
        }
    }

    bool send(uint32_t subsystemId, uint32_t msgId, std::vector<uint8_t> payload) {
        if (mEnded.load()) return false;
        return ProcessUtilsWrapper::sendMsg(payload.data(), payload.size(), msgId, subsystemId, mOwn,
                                            mPeer, mSessionId);
    }

    void shutdownSocket() { ::shutdown(mFd, SHUT_RDWR); }
    bool ended() const { return mEnded.load(); }

private:
    void waitAnnounced() {
        std::unique_lock<std::mutex> lock(mAnnounceMutex);
        mAnnounceCond.wait(lock, [this] { return mAnnounced; });
    }

    const std::weak_ptr<RuxIpcServer::Core> mCore;
    const int mFd;  // closed by the destructor only
    const unsigned int mSessionId;
    const ProcessId mOwn;
    const ProcessId mPeer;
    std::atomic<bool> mEnded{false};
    std::mutex mAnnounceMutex;
    std::condition_variable mAnnounceCond;
    bool mAnnounced = false;  // guarded by mAnnounceMutex
};

void RuxIpcServer::Core::connectionEnded(const std::shared_ptr<RuxIpcServerConnection>& connection,
                                         unsigned int sessionId) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        auto it = live.find(sessionId);
        if (it != live.end() && it->second == connection) live.erase(it);
        ended.push_back(connection);
    }
    changed.notify_all();
    wake();
}

// --- RuxIpcServerClient -----------------------------------------------------------

bool RuxIpcServerClient::isConnected() const {
    auto connection = mConnection.lock();
    return connection && !connection->ended();
}

bool RuxIpcServerClient::sendBlob(RuxSdkType type, const std::vector<uint8_t>& blob) const {
    auto connection = mConnection.lock();
    if (!connection) return false;
    SendBlobMessage message(type, blob);
    return connection->send(0, SendBlobMessage::ID, message.serialize());
}

bool RuxIpcServerClient::sendFrame(uint32_t subsystemId, uint32_t msgId,
                                   const std::vector<uint8_t>& payload) const {
    auto connection = mConnection.lock();
    return connection && connection->send(subsystemId, msgId, payload);
}

void RuxIpcServerClient::disconnect() const {
    if (auto connection = mConnection.lock()) connection->shutdownSocket();
}

// --- RuxIpcServer -----------------------------------------------------------------

RuxIpcServer::RuxIpcServer(Callbacks callbacks) : RuxIpcServer(std::move(callbacks), Options{}) {}

RuxIpcServer::RuxIpcServer(Callbacks callbacks, Options options)
    : mCore(std::make_shared<Core>(std::move(callbacks), std::move(options))) {}

RuxIpcServer::~RuxIpcServer() { stop(); }

bool RuxIpcServer::isRunning() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->running;
}

bool RuxIpcServer::start(const std::string& path) {
    bool refuse;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        if (mCore->running) return false;
        refuse = mCore->refuse;
    }
    int listenFd = -1;
    if (!refuse) {
        listenFd = openListener(path);
        if (listenFd < 0) return false;
    }
    const int wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: eventfd failed");
        if (listenFd >= 0) ::close(listenFd);
        return false;
    }
    mCore->path = path;
    mCore->listenFd = listenFd;
    mCore->wakeFd = wakeFd;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        mCore->stopping = false;
        mCore->running = true;
        mCore->refuseApplied = mCore->refuseRequested;
    }
    try {
        mAcceptThread = std::thread(&RuxIpcServer::acceptLoop, this);
    } catch (const std::system_error&) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: cannot start the accept thread");
        {
            std::lock_guard<std::mutex> lock(mCore->mutex);
            mCore->running = false;
        }
        if (listenFd >= 0) ::close(listenFd);
        ::close(wakeFd);
        mCore->listenFd = mCore->wakeFd = -1;
        return false;
    }
    return true;
}

void RuxIpcServer::stop() {
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        if (!mCore->running) return;
        mCore->stopping = true;
    }
    mCore->wake();
    if (mAcceptThread.joinable()) mAcceptThread.join();

    // End every client; each reports its end (onDisconnected) on its receiver thread.
    std::vector<std::shared_ptr<RuxIpcServerConnection>> live;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        for (auto& entry : mCore->live) live.push_back(entry.second);
    }
    for (auto& connection : live) connection->shutdownSocket();
    std::vector<std::shared_ptr<RuxIpcServerConnection>> ended;
    {
        std::unique_lock<std::mutex> lock(mCore->mutex);
        mCore->changed.wait(lock, [this] { return mCore->live.empty(); });
        ended.swap(mCore->ended);
    }
    live.clear();
    for (auto& connection : ended) connection->waitForReceivers();
    ended.clear();

    ::close(mCore->wakeFd);
    mCore->wakeFd = -1;
    ::unlink(mCore->path.c_str());
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        mCore->running = false;
        mCore->refuseApplied = mCore->refuseRequested;
    }
    mCore->changed.notify_all();
    RUX_LOG(ANDROID_LOG_INFO, kTag, "server: stopped");
}

void RuxIpcServer::setRefuseConnections(bool refuse) {
    std::unique_lock<std::mutex> lock(mCore->mutex);
    mCore->refuse = refuse;
    const uint64_t request = ++mCore->refuseRequested;
    if (!mCore->running) {
        mCore->refuseApplied = request;
        return;
    }
    lock.unlock();
    mCore->wake();
    lock.lock();
    mCore->changed.wait(lock, [&] { return mCore->refuseApplied >= request || !mCore->running; });
}

std::vector<RuxIpcServerClient> RuxIpcServer::clients() const {
    std::vector<RuxIpcServerClient> out;
    std::lock_guard<std::mutex> lock(mCore->mutex);
    for (auto& entry : mCore->live) out.push_back(entry.second->handle());
    return out;
}

void RuxIpcServer::acceptLoop() {
    Core& core = *mCore;
    for (;;) {
        pollfd fds[2] = {{core.wakeFd, POLLIN, 0}, {core.listenFd, POLLIN, 0}};
        const int ready = ::poll(fds, 2, -1);
        if (ready < 0) {
            if (errno == EINTR) continue;
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: poll failed: errno: %d", errno);
            break;
        }
        if (fds[0].revents & POLLIN) {
            uint64_t count;
            (void)!::read(core.wakeFd, &count, sizeof count);
            std::vector<std::shared_ptr<RuxIpcServerConnection>> ended;
            bool stopping, refuse;
            uint64_t requested;
            {
                std::lock_guard<std::mutex> lock(core.mutex);
                stopping = core.stopping;
                refuse = core.refuse;
                requested = core.refuseRequested;
                if (!stopping) ended.swap(core.ended);  // stop() reaps the rest itself
            }
            for (auto& connection : ended) connection->waitForReceivers();
            ended.clear();
            if (stopping) break;
            if (refuse && core.listenFd >= 0) {
                ::close(core.listenFd);  // the socket file stays: connects are refused
                core.listenFd = -1;
                RUX_LOG(ANDROID_LOG_INFO, kTag, "server: refusing connections");
            } else if (!refuse && core.listenFd < 0) {
                core.listenFd = openListener(core.path);
            }
            {
                std::lock_guard<std::mutex> lock(core.mutex);
                core.refuseApplied = requested;
            }
            core.changed.notify_all();
            continue;
        }
        if (core.listenFd >= 0 && (fds[1].revents & POLLIN)) {
            const int fd = ::accept4(core.listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) acceptClient(fd);
        }
    }
    if (core.listenFd >= 0) ::close(core.listenFd);
    core.listenFd = -1;
}

void RuxIpcServer::acceptClient(int fd) {
    Core& core = *mCore;
    const uint32_t sessionId = freshSessionId();
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "server: accepted socket %d; sending HANDSHAKE_INIT; sessionId: %u",
            fd, sessionId);
    uint8_t resp[kHandshakeRespSize];
    HandshakePacket packet;
    if (!sendAll(fd, encodeHandshakeInit(sessionId)) ||
        !recvExactly(fd, resp, sizeof resp, core.options.handshakeTimeout) ||
        !decodeHandshake(resp, sizeof resp, packet) || packet.type != HANDSHAKE_RESP ||
        packet.sessionId != sessionId) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: handshake failed on socket %d", fd);
        ::close(fd);
        return;
    }
    const auto peer = static_cast<ProcessId>(packet.processId);
    if (!sendAll(fd, encodeHandshakeComplete(sessionId))) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: cannot send HANDSHAKE_COMPLETE on socket %d", fd);
        ::close(fd);
        return;
    }
    // From here the connection owns fd.
    auto connection =
        std::make_shared<RuxIpcServerConnection>(mCore, fd, sessionId, core.options.ownProcessId, peer);
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        core.live[sessionId] = connection;
    }
    if (!regProcess(peer, core.options.name, sessionId, "client-" + std::to_string(peer), fd,
                    *connection)) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: cannot register socket %d", fd);
        {
            std::lock_guard<std::mutex> lock(core.mutex);
            core.live.erase(sessionId);
        }
        core.changed.notify_all();
        return;
    }
    RUX_LOG(ANDROID_LOG_INFO, kTag, "server: client %lu connected; sessionId: %u",
            static_cast<unsigned long>(peer), sessionId);
    if (core.callbacks.onConnected) {
        try {
            core.callbacks.onConnected(connection->handle());
        } catch (...) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "server: onConnected threw");
        }
    }
    connection->announce();
}

}  // namespace rux::ipc
