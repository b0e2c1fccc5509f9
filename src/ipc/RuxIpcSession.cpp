#include "ipc/RuxIpcSession.h"

#include <android/log.h>
#include <errno.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <system_error>
#include <thread>

#include "ipc/HandshakePacket.h"
#include "ipc/SocketPath.h"
#include "log/Log.h"

namespace rux::ipc {

namespace {

constexpr const char* kTag = "RUX";
constexpr size_t kHandshakeBufferSize = 1023;

// The peer is gone: the socket can never carry another frame.
bool peerGone(int err) { return err == EPIPE || err == ECONNRESET; }

void setReceiveTimeout(int fd, std::chrono::milliseconds timeout) {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(timeout.count() / 1000);
    tv.tv_usec = static_cast<suseconds_t>((timeout.count() % 1000) * 1000);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
}

}  // namespace

RuxIpcSession::RuxIpcSession(int fd, unsigned int sessionId, ProcessId own, ProcessId peer,
                             bool threaded, ConnectOptions options)
    : IpcHandler(threaded, options.frameStallLimit),
      mSocketFd(fd),
      mSessionId(sessionId),
      mOwnProcessId(own),
      mPeerProcessId(peer),
      mGlobals(getProcessUtilsGlobals()),
      mOptions(std::move(options)) {
    // A socket handed in is not held by any connect path: cleanup() must not wait.
    if (fd >= 0) mThreadSemaphore.increase();
    if (threaded) {
        try {
            mThread = std::make_unique<std::thread>([this] { start(); });
        } catch (const std::system_error&) {
            // Without a worker every message is handled on its poster's thread.
            mRunning.store(false);
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "cannot start the session thread");
        }
    }
}

RuxIpcSession::~RuxIpcSession() { shutdownSession(); }

void RuxIpcSession::shutdownSession() {
    std::call_once(mShutdownOnce, [this] {
        cleanup();
        stop();
        if (mThread && mThread->joinable()) {
            if (mThread->get_id() == std::this_thread::get_id())
                mThread->detach();  // destroyed from its own worker: it cannot join itself
            else
                mThread->join();
        }
    });
}

bool RuxIpcSession::send(std::shared_ptr<RuxIpcMessage> msg) {
    if (!msg) return false;
    postToSelf(std::move(msg));
    return true;
}

bool RuxIpcSession::send(unsigned int subsystemId, unsigned int msgId, std::vector<uint8_t> payload) {
    return send(std::make_shared<RuxIpcRawMessage>(subsystemId, msgId, std::move(payload)));
}

void RuxIpcSession::registerForMessages(IpcMessageRegistry registry) {
    std::lock_guard<std::mutex> lock(mRegistryLock);
    mMessageRegistry = std::move(registry);
}

void RuxIpcSession::setRawHandler(RawHandler handler) {
    std::lock_guard<std::mutex> lock(mRegistryLock);
    mRawHandler = std::move(handler);
}

void RuxIpcSession::deregister() {
    if (mGlobals)
        mGlobals->deregisterSocket(mPeerProcessId, mSessionId.load());
    else
        deregisterSocket(mPeerProcessId, mSessionId.load());
}

// Close, wait, deregister. The wait is released by the connect path, which posts
// mThreadSemaphore when it lets go of the socket: after a socket vanished under it, and
// also after every successful connect, so tearing down a connected session never
// waits for a post that will not come. The socket is only shut down before the wait
// (which wakes a handshake read and makes the peer see the end at once) and closed
// after it, so the connect path never works on a closed descriptor.
void RuxIpcSession::cleanup() {
    mRegistration.store(0);  // a late end of this socket reports nothing
    int fd;
    {
        std::lock_guard<std::mutex> lock(mReportLock);
        mReportState = kReportCancelled;
        fd = mSocketFd.exchange(-1);
    }
    mConnected.store(false);
    if (fd >= 0) {
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "closing socket Fd %d", fd);
        ::shutdown(fd, SHUT_RDWR);
        mThreadSemaphore.decrease();
        ::close(fd);
    }
    deregister();
    waitForReceivers();
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "EXIT");
}

void RuxIpcSession::notifyConnectionStatus(bool) {}

void RuxIpcSession::handleMsg(ipcMsg_t* frame) {
    if (frame == nullptr) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "ipcMsg is null");
        return;
    }
    const uint8_t* payload = ipcPayload(frame);
    handleFrame(*frame, std::vector<uint8_t>(payload, payload + frame->length));
}

// The receiver's frames: the payload it read travels on in the message, uncopied.
void RuxIpcSession::handleFrame(const ipcMsg_t& header, std::vector<uint8_t> payload) {
    postIncoming(header, std::make_shared<RuxIpcIncomingRawMessage>(
                             static_cast<uint32_t>(header.subsystemId),
                             static_cast<uint32_t>(header.msgId), std::move(payload)));
}

// Without a worker the message is handled right here, while the receiver still holds the
// payload: it is lent, and copied once, into whatever the message becomes. A worker
// handles it later, so then it gets a copy of its own first.
void RuxIpcSession::handleBufferedFrame(const ipcMsg_t& header, const uint8_t* payload) {
    if (isRunning()) {
        ProcessHandler::handleBufferedFrame(header, payload);
        return;
    }
    auto raw = std::make_shared<RuxIpcIncomingRawMessage>(
        static_cast<uint32_t>(header.subsystemId), static_cast<uint32_t>(header.msgId),
        std::vector<uint8_t>());
    raw->borrowed = payload;
    raw->borrowedSize = static_cast<size_t>(header.length);
    postIncoming(header, raw);
    // A message still held after its handling gets the bytes as its own; one nobody kept
    // is dropped here without copying them.
    if (raw.use_count() > 1) raw->ownPayload();
}

void RuxIpcSession::postIncoming(const ipcMsg_t& header,
                                 std::shared_ptr<RuxIpcIncomingRawMessage> raw) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Received IPC message id: %d, state: %d",
            static_cast<int>(header.msgId), static_cast<int>(header.subsystemId));
    postToSelf(std::move(raw));
}

void RuxIpcSession::handleSessionEnd(unsigned int sessionId) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "handleSessionEnd for session %u", sessionId);
    postToSelf(std::make_shared<RuxIpcSessionEndMessage>());
}

void RuxIpcSession::handleSocketEnd(unsigned int sessionId, uint64_t registration) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "handleSessionEnd for session %u", sessionId);
    postToSelf(std::make_shared<RuxIpcSessionEndMessage>(registration));
}

void RuxIpcSession::handleEvent(std::shared_ptr<RuxIpcMessage> msg) {
    if (!msg) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "msg is nullptr!!!!");
        return;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "msg id: %d", static_cast<int>(msg->id));
    switch (msg->id) {
        case RuxIpcConnectToServerMessage::ID:
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "case RuxIpcConnectToServerMessage::ID: %d",
                    static_cast<int>(msg->id));
            handleConnectToRuxEvent();
            break;
        case RuxIpcIncomingRawMessage::ID:
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "case RuxIpcIncomingRawMessage::ID: %d",
                    static_cast<int>(msg->id));
            handleRuxIpcIncomingRawMessage(msg);
            break;
        case RuxIpcRawMessage::ID:
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "case RuxIpcRawMessage::ID: %d",
                    static_cast<int>(msg->id));
            handleRuxIpcRawMessage(msg);
            break;
        case RuxIpcSessionEndMessage::ID:
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "case RuxIpcSessionEndMessage::ID: %d",
                    static_cast<int>(msg->id));
            if (auto end = std::dynamic_pointer_cast<RuxIpcSessionEndMessage>(msg))
                handleSessionEndEvent(end->registration);
            else
                handleSessionEndEvent(0);
            break;
        default:
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "case default");
            handleSendMessage(msg);
            break;
    }
}

void RuxIpcSession::handleConnectToRuxEvent() {
    if (mSocketFd.load() != -1) {
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "mSocketFd != -1; RETURNING!!!");
        return;
    }
    const std::string path = mOptions.socketPath.empty() ? socketPath() : mOptions.socketPath;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path));

    // A post left by an earlier connect must not release a cleanup of this one early;
    // drained before the new socket becomes visible in mSocketFd.
    mThreadSemaphore.tryDecrease();
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Created socket; mSocketFd: %d", fd);
    if (fd < 0) return;
    bool installed = false;
    {
        std::lock_guard<std::mutex> lock(mReportLock);
        int expected = -1;
        if (mSocketFd.compare_exchange_strong(expected, fd)) {
            mReportState = kReportIdle;
            installed = true;
        }
    }
    if (!installed) {  // another connect got there first
        ::close(fd);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "mSocketFd != -1; RETURNING!!!");
        return;
    }

    mConnected.store(false);
    bool registered = false;
    for (int attempt = 1;; ++attempt) {
        if (mSocketFd.load() == -1) {
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Connect fail: mSocketFd is -1; break");
            break;
        }
        const int ret = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Connect ret: %d", ret);
        if (ret == 0) {
            if (mOptions.handshakeTimeout.count() > 0) setReceiveTimeout(fd, mOptions.handshakeTimeout);
            if (!performHandshake(fd)) break;
            setReceiveTimeout(fd, std::chrono::milliseconds(0));  // the receiver blocks for good
            {
                std::lock_guard<std::mutex> lock(mReportLock);
                if (mReportState == kReportCancelled) break;  // cleanup() has the socket
                mReportState = kReportPending;
            }
            // Known before the receiver starts, so that its end always matches.
            const uint64_t registration = nextRegistrationToken();
            mRegistration.store(registration);
            registered = mGlobals && mGlobals->registerSocket(mPeerProcessId, mSessionId.load(),
                                                              fd, *this, registration);
            if (!registered) {
                mRegistration.store(0);
                std::lock_guard<std::mutex> lock(mReportLock);
                if (mReportState == kReportPending) mReportState = kReportIdle;
                RUX_LOG(ANDROID_LOG_ERROR, kTag, "Connect fail: socket not registered");
                break;
            }
            // The socket may already have ended (its end takes the registration first and
            // clears mConnected after): connected only while the registration stands.
            mConnected.store(true);
            if (mRegistration.load() != registration) mConnected.store(false);
            RUX_LOG(ANDROID_LOG_INFO, kTag, "Connect success: Handshake success");
            break;
        }
        if (attempt >= mOptions.maxAttempts) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Connect fail: Max retry reached!!");
            break;
        }
        std::this_thread::sleep_for(mOptions.retryDelay);
    }

    if (registered) {
        if (mOptions.afterHandshake) mOptions.afterHandshake();
        mThreadSemaphore.increase();  // lets a later cleanup() through
        reportConnected();
        return;
    }
    int mine = fd;
    if (mSocketFd.compare_exchange_strong(mine, -1)) {
        ::shutdown(fd, SHUT_RDWR);
        ::close(fd);
        notifyConnectionStatus(false);
        return;
    }
    // cleanup() took the socket from under this attempt: no status.
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Connect fail: mThreadSemaphore.increase");
    mThreadSemaphore.increase();
}

// A handshake that succeeded is always reported up, even when the socket has ended
// since (its end left the loss to this path): up, then down, once each and in that
// order. A cleanup() that has begun reports neither.
void RuxIpcSession::reportConnected() {
    {
        std::lock_guard<std::mutex> lock(mReportLock);
        if (mReportState == kReportCancelled) return;
    }
    notifyConnectionStatus(true);
    bool ended;
    {
        std::lock_guard<std::mutex> lock(mReportLock);
        ended = mReportState == kReportEndedWhilePending;
        if (mReportState != kReportCancelled) mReportState = kReportIdle;
    }
    if (ended) notifyConnectionStatus(false);
}

bool RuxIpcSession::performHandshake(int fd) {
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "performHandshake");
    uint8_t buffer[kHandshakeBufferSize + 1];
    bool haveInit = false;
    uint32_t offeredId = 0;
    bool result = false;
    for (;;) {
        // Once INIT is in, the service sends COMPLETE and may send frames right behind
        // it; reading no further than the packet leaves those for the receiver.
        const size_t want = haveInit ? kHandshakeShortSize : kHandshakeBufferSize;
        ssize_t len;
        do {
            len = ::recv(fd, buffer, want, 0);
        } while (len < 0 && errno == EINTR);
        if (len == -1) {
            const int err = errno;
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "recv returns error: errno: %d(%s)", err,
                    errnoText(err).c_str());
            break;
        }
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "recv: len: %d", static_cast<int>(len));
        if (static_cast<size_t>(len) > kHandshakeBufferSize) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "recv: readLen is greater than max size");
            break;
        }
        HandshakePacket packet;
        if (static_cast<size_t>(len) != kHandshakeShortSize ||
            !decodeHandshake(buffer, kHandshakeShortSize, packet)) {
            RUX_LOG(ANDROID_LOG_ERROR, kTag, "Received data size does not match with expected size");
            break;
        }
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "handshakeEvtType: %d", static_cast<int>(packet.type));
        if (packet.type == HANDSHAKE_INIT) {
            haveInit = true;
            offeredId = packet.sessionId;
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Received HANDSHAKE_INIT; sessionId: %d",
                    static_cast<int>(offeredId));
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Sending HANDSHAKE_RESP");
            const auto resp = encodeHandshakeResp(offeredId, static_cast<uint32_t>(mOwnProcessId));
            (void)::send(fd, resp.data(), resp.size(), MSG_NOSIGNAL);
            continue;
        }
        if (packet.type == HANDSHAKE_COMPLETE) {
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "HANDSHAKE_COMPLETE: receivedSessionId: %d",
                    static_cast<int>(packet.sessionId));
            // A COMPLETE without an INIT confirms nothing.
            if (haveInit && packet.sessionId == offeredId) {
                mSessionId.store(packet.sessionId);
                result = true;
            }
            break;
        }
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "Unknown handshake type");
        break;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "returning: result: %d", result ? 1 : 0);
    return result;
}

void RuxIpcSession::handleRuxIpcIncomingRawMessage(const std::shared_ptr<RuxIpcMessage>& msg) {
    auto raw = std::dynamic_pointer_cast<RuxIpcIncomingRawMessage>(msg);
    if (!raw) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "msg is nullptr");
        return;
    }
    RUX_LOG(ANDROID_LOG_ERROR, kTag, "handling RuxIpcIncomingRawMessage");
    RUX_LOG(ANDROID_LOG_ERROR, kTag, "DEBUG: msgId: %d", static_cast<int>(raw->msgId));
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "SubSystemId: %d, MsgId", static_cast<int>(raw->subsystemId));

    RawHandler rawHandler;
    IpcMsgConstructorHandlerPair_t entry;
    bool found = false;
    {
        std::lock_guard<std::mutex> lock(mRegistryLock);
        rawHandler = mRawHandler;
        if (!rawHandler) {
            auto it = mMessageRegistry.find(raw->msgId);
            if (it != mMessageRegistry.end()) {
                entry = it->second;
                found = true;
            }
        }
    }
    if (rawHandler) {
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Found raw message handler");
        raw->ownPayload();
        rawHandler(raw);
        return;
    }
    if (!found || !entry.constructor) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "No MessageConstructor registered for msg: %d",
                static_cast<int>(raw->msgId));
        return;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Found message constructor; constructing msg");
    // Nothing else reads the raw message's payload: the new message takes it over, or
    // copies it out of the receiver's read-ahead.
    std::shared_ptr<RuxIpcMessage> built;
    if (raw->borrowed != nullptr && entry.constructFromBytes) {
        built = entry.constructFromBytes(raw->borrowed, raw->borrowedSize);
    } else {
        raw->ownPayload();
        built = entry.constructor(std::move(raw->payload));
    }
    if (entry.handler) {
        RUX_LOG(ANDROID_LOG_DEBUG, kTag, "Found message handler; calling handler");
        entry.handler(std::move(built));
    } else {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "Invalid MessageHandler");
    }
}

void RuxIpcSession::handleRuxIpcRawMessage(const std::shared_ptr<RuxIpcMessage>& msg) {
    auto raw = std::dynamic_pointer_cast<RuxIpcRawMessage>(msg);
    if (!raw) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "msg is nullptr");
        return;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, kTag, "subsystem id: %d msg id: %d",
            static_cast<int>(raw->subsystemId), static_cast<int>(raw->msgId));
    if (!mConnected.load()) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "IPC socket is not connected");
        return;
    }
    const uint64_t registration = mRegistration.load();
    int err = 0;
    if (!sendAsFrame(*raw, raw->msgId, raw->subsystemId, &err) && peerGone(err))
        endAfterSendFailure(registration, err);
}

void RuxIpcSession::handleSendMessage(const std::shared_ptr<RuxIpcMessage>& msg) {
    if (!mConnected.load()) {
        RUX_LOG(ANDROID_LOG_ERROR, kTag, "IPC socket is not connected");
        return;
    }
    const uint64_t registration = mRegistration.load();
    int err = 0;
    if (!sendAsFrame(*msg, msg->id, 0, &err) && peerGone(err))
        endAfterSendFailure(registration, err);
}

// The message's bytes go straight behind the header into the one buffer that is sent:
// a message's payload is copied once on its way to the socket.
bool RuxIpcSession::sendAsFrame(RuxIpcMessage& msg, uint64_t msgId, uint64_t subsystemId,
                                int* err) {
    std::vector<uint8_t> frame;
    frame.reserve(kIpcHeaderSize + msg.serializedSize());
    frame.resize(kIpcHeaderSize);
    msg.appendSerialized(frame);
    ipcMsg_t header{};
    header.srcProcessId = mOwnProcessId;
    header.dstProcessId = mPeerProcessId;
    header.msgId = msgId;
    header.subsystemId = subsystemId;
    header.sessionId = mSessionId.load();
    header.length = frame.size() - kIpcHeaderSize;
    std::memcpy(frame.data(), &header, kIpcHeaderSize);
    return mGlobals && mGlobals->sendFrame(frame, err);
}

// A send found the peer gone. The session ends here as it would on a receive error,
// without waiting for the receiver: the receiver may still be busy with frames the
// peer sent before it went, or be unable to notice at all, and meanwhile every request
// would go to a dead socket. Whoever takes the registration first (this path or the
// receiver's end) ends the session; the other then finds nothing to do.
void RuxIpcSession::endAfterSendFailure(uint64_t registration, int err) {
    uint64_t expected = registration;
    if (registration == 0 || !mRegistration.compare_exchange_strong(expected, 0)) return;
    RUX_LOG(ANDROID_LOG_ERROR, kTag, "peer gone: errno: %d(%s); ending session %u", err,
            errnoText(err).c_str(), mSessionId.load());
    // Unregistered first, so nothing more is sent on it and its receiver, woken by the
    // shutdown below, finds no registration left to report.
    deregister();
    endConnection(true);
}

// The receiver has seen the socket fail and dropped its registration. The end of an
// earlier socket (one that a failed send already ended, and that the session may have
// replaced by a new connection since) must not touch the current one.
void RuxIpcSession::handleSessionEndEvent(uint64_t registration) {
    if (registration != 0) {
        uint64_t expected = registration;
        if (!mRegistration.compare_exchange_strong(expected, 0)) {
            RUX_LOG(ANDROID_LOG_DEBUG, kTag, "end of an earlier socket; nothing to do");
            return;
        }
    } else {
        mRegistration.store(0);
    }
    endConnection(false);
}

void RuxIpcSession::endConnection(bool shutDown) {
    const int fd = mSocketFd.exchange(-1);
    mConnected.store(false);
    if (fd == -1) return;  // cleanup() or the connect path got there first
    if (shutDown) ::shutdown(fd, SHUT_RDWR);
    ::close(fd);
    bool report;
    {
        std::lock_guard<std::mutex> lock(mReportLock);
        // Ended before the connect path reported it up: the loss is reported after that.
        if (mReportState == kReportPending) mReportState = kReportEndedWhilePending;
        report = mReportState == kReportIdle;
    }
    if (report) notifyConnectionStatus(false);
}

}  // namespace rux::ipc
