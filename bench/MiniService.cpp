#include "MiniService.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "BenchWire.h"
#include "vex.pb.h"

namespace rux::bench {

namespace {

std::atomic<uint32_t> gNextSession{1};

bool handshake(int fd) {
    const uint32_t session = gNextSession.fetch_add(1);
    const uint32_t init[2] = {kHandshakeInit, session};
    uint32_t resp[3] = {};
    const uint32_t complete[2] = {kHandshakeComplete, session};
    return writeFull(fd, init, sizeof init) && readFull(fd, resp, sizeof resp) &&
           resp[0] == kHandshakeResp && resp[1] == session &&
           writeFull(fd, complete, sizeof complete);
}

// Appends the answer to one frame, if it gets one.
void answer(const FrameHeader& h, const uint8_t* payload, std::vector<uint8_t>& out) {
    if (h.msgId != kBlobMsgId || h.length < 4) return;
    VexProto::ClientMsg request;
    if (!request.ParseFromArray(payload + 4, static_cast<int>(h.length - 4))) return;
    if (request.event_id() != VexProto::SET_HST_STATE_REQ) return;
    VexProto::ServiceMsg reply;
    reply.set_event_id(VexProto::SET_HST_STATE_RESP);
    reply.set_transaction_id(request.transaction_id());
    reply.mutable_data()->mutable_set_hst_state_resp()->set_status(VexProto::STATUS_SUCCESS);
    appendBlobFrame(out, kServiceProcess, h.srcProcessId, h.sessionId,
                    reply.SerializeAsString());
}

void serve(int fd) {
    pthread_setname_np(pthread_self(), "service");
    if (handshake(fd)) {
        std::vector<uint8_t> in;
        std::vector<uint8_t> out;
        size_t used = 0;
        uint8_t chunk[64 * 1024];
        for (;;) {
            const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            in.insert(in.end(), chunk, chunk + n);
            out.clear();
            while (in.size() - used >= sizeof(FrameHeader)) {
                FrameHeader h;
                std::memcpy(&h, in.data() + used, sizeof h);
                if (in.size() - used - sizeof h < h.length) break;
                answer(h, in.data() + used + sizeof h, out);
                used += sizeof h + h.length;
            }
            in.erase(in.begin(), in.begin() + static_cast<long>(used));
            used = 0;
            if (!out.empty() && !writeFull(fd, out.data(), out.size())) break;
        }
    }
    ::close(fd);
}

[[noreturn]] void serviceMain(int listener, int readyFd) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const char ready = 1;
    (void)::write(readyFd, &ready, 1);
    ::close(readyFd);
    for (;;) {
        const int fd = ::accept(listener, nullptr, nullptr);
        if (fd < 0) {
            if (errno == EINTR) continue;
            _exit(1);
        }
        std::thread(serve, fd).detach();
    }
}

}  // namespace

bool MiniService::start(const std::string& path) {
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ::unlink(path.c_str());
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 16) != 0) {
        ::close(listener);
        return false;
    }
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) return false;
    mChild = ::fork();
    if (mChild == 0) {
        ::close(ready[0]);
        serviceMain(listener, ready[1]);
    }
    ::close(listener);
    ::close(ready[1]);
    char byte = 0;
    const bool up = mChild > 0 && ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    return up;
}

void MiniService::stop() {
    if (mChild <= 0) return;
    ::kill(mChild, SIGKILL);
    ::waitpid(mChild, nullptr, 0);
    mChild = -1;
}

}  // namespace rux::bench
