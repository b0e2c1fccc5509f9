#include "BareClient.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "BenchWire.h"
#include "vex.pb.h"

namespace rux::bench {

BareClient::~BareClient() {
    mStopping.store(true);
    if (mEventFd >= 0) {
        const uint64_t one = 1;
        (void)::write(mEventFd, &one, sizeof one);
    }
    if (mSocket >= 0) ::shutdown(mSocket, SHUT_RDWR);
    if (mWorker.joinable()) mWorker.join();
    if (mReceiver.joinable()) mReceiver.join();
    if (mSocket >= 0) ::close(mSocket);
    if (mEventFd >= 0) ::close(mEventFd);
}

bool BareClient::connect(const std::string& path) {
    mSocket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    mEventFd = ::eventfd(0, EFD_CLOEXEC);
    if (mSocket < 0 || mEventFd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::connect(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return false;
    uint32_t init[2] = {};
    if (!readFull(mSocket, init, sizeof init) || init[0] != kHandshakeInit) return false;
    const uint32_t resp[3] = {kHandshakeResp, init[1], static_cast<uint32_t>(kClientProcess)};
    uint32_t complete[2] = {};
    if (!writeFull(mSocket, resp, sizeof resp) || !readFull(mSocket, complete, sizeof complete) ||
        complete[0] != kHandshakeComplete || complete[1] != init[1])
        return false;
    mSessionId = init[1];
    mWorker = std::thread(&BareClient::workerMain, this);
    mReceiver = std::thread(&BareClient::receiverMain, this);
    return true;
}

int BareClient::setHstState(int state, Callback cb) {
    const int id = mNextId.fetch_add(2);
    VexProto::ClientMsg msg;
    msg.set_event_id(VexProto::SET_HST_STATE_REQ);
    msg.set_transaction_id(static_cast<uint64_t>(id));
    msg.mutable_data()->mutable_set_hst_state_req()->set_hst_state(
        static_cast<VexProto::HstState>(state));
    std::string blob = msg.SerializeAsString();
    {
        std::lock_guard<std::mutex> lock(mCallbackLock);
        mCallbacks[id] = cb;
    }
    {
        std::lock_guard<std::mutex> lock(mQueueLock);
        mQueue.push_back(std::move(blob));
    }
    const uint64_t one = 1;
    (void)::write(mEventFd, &one, sizeof one);
    return id;
}

void BareClient::workerMain() {
    pthread_setname_np(pthread_self(), "bare-worker");
    std::deque<std::string> batch;
    std::vector<uint8_t> frame;
    while (!mStopping.load()) {
        uint64_t count = 0;
        if (::read(mEventFd, &count, sizeof count) != sizeof count) continue;
        {
            std::lock_guard<std::mutex> lock(mQueueLock);
            batch.swap(mQueue);
        }
        for (const std::string& blob : batch) {
            frame.clear();
            appendBlobFrame(frame, kClientProcess, kServiceProcess, mSessionId, blob);
            if (!writeFull(mSocket, frame.data(), frame.size())) return;
        }
        batch.clear();
    }
}

void BareClient::receiverMain() {
    pthread_setname_np(pthread_self(), "bare-receiver");
    std::vector<uint8_t> payload;
    for (;;) {
        FrameHeader h;
        if (!readFull(mSocket, &h, sizeof h)) return;
        payload.resize(h.length);
        if (h.length > 0 && !readFull(mSocket, payload.data(), payload.size())) return;
        if (h.length < 4) continue;
        VexProto::ServiceMsg reply;
        if (!reply.ParseFromArray(payload.data() + 4, static_cast<int>(h.length - 4))) continue;
        const int id = static_cast<int>(reply.transaction_id());
        Callback cb = nullptr;
        {
            std::lock_guard<std::mutex> lock(mCallbackLock);
            auto it = mCallbacks.find(id);
            if (it == mCallbacks.end()) continue;
            cb = it->second;
            mCallbacks.erase(it);
        }
        // The service's status numbering is the C interface's plus one.
        cb(id, static_cast<int>(reply.data().set_hst_state_resp().status()) - 1);
    }
}

}  // namespace rux::bench
