// The client's handshake against a peer that sends the input as packets (a length byte,
// then that many bytes). The peer writes a packet only when the client has read all
// before it, so what each of the client's reads returns is fixed by the bytes; a model of
// the handshake's rules, run over the same packets, says which RESP packets the client
// must send and whether the handshake must succeed, with which session id. The first
// status the client reports must be that outcome.
#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <string>
#include <thread>

#include "FuzzSupport.h"
#include "ipc/HandshakePacket.h"
#include "ipc/RuxIpcClientSession.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;

const std::string kPath = "/tmp/rux-fuzz-handshake-" + std::to_string(::getpid()) + ".sock";

int listener() {
    static const int fd = [] {
        const int s = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, kPath.c_str(), sizeof address.sun_path - 1);
        ::unlink(kPath.c_str());
        FUZZ_CHECK(::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
        FUZZ_CHECK(::listen(s, 4) == 0);
        return s;
    }();
    return fd;
}

// libFuzzer's timer signal interrupts waits: they are taken up again.
bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    int ready;
    while ((ready = ::poll(&p, 1, 5000)) < 0 && errno == EINTR) {
    }
    return ready == 1;
}

Bytes readUpTo(int fd, size_t n) {
    Bytes out(n);
    size_t got = 0;
    for (ssize_t r = 0; got < n && readable(fd); got += static_cast<size_t>(r))
        if ((r = ::recv(fd, out.data() + got, n - got, 0)) <= 0 && errno != EINTR) break;
    out.resize(got);
    return out;
}

uint32_t word(const Bytes& b, size_t at) {
    uint32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

size_t threadCount() {
    size_t n = 0;
    if (DIR* tasks = ::opendir("/proc/self/task")) {
        while (const dirent* e = ::readdir(tasks)) n += e->d_name[0] != '.';
        ::closedir(tasks);
    }
    return n;
}

// The session's receiver thread is detached: it may still hold its share of the
// receiver count for a moment after the session is gone. The input ends only when the
// thread has, so the leak check between inputs never sees that share. A thread that
// stays for good (none today) raises the baseline after one wait.
void awaitThreads(size_t baseline) {
    static size_t settled = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    size_t now;
    while ((now = threadCount()) > std::max(baseline, settled) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    settled = std::max(settled, now);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    rux::fuzz::Input input{data, size};
    const size_t threads = threadCount();
    const int listening = listener();  // before the client's one connect attempt
    ConnectOptions options;
    options.socketPath = kPath;
    options.maxAttempts = 1;
    auto first = std::make_shared<std::promise<bool>>();
    auto once = std::make_shared<std::once_flag>();
    auto session = std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, true, options);
    session->connectToServer([first, once](bool up) {
        std::call_once(*once, [&] { first->set_value(up); });
    });
    FUZZ_CHECK(readable(listening));
    int peer;
    while ((peer = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC)) < 0 && errno == EINTR) {
    }
    FUZZ_CHECK(peer >= 0);

    // The model: bytes written and not yet read, and what the client has made of them.
    Bytes queued;
    bool haveInit = false, done = false, success = false;
    uint32_t offered = 0;
    while (!done && input.left() > 0) {
        const Bytes packet = input.bytes(input.byte());
        if (packet.empty()) continue;
        FUZZ_CHECK(::send(peer, packet.data(), packet.size(), MSG_NOSIGNAL) ==
                   static_cast<ssize_t>(packet.size()));
        queued.insert(queued.end(), packet.begin(), packet.end());
        while (!done && !queued.empty()) {
            // Before the INIT a read takes up to 1023 bytes, after it 8: it must be 8.
            const size_t n = std::min(queued.size(), haveInit ? kHandshakeShortSize : size_t{1023});
            const Bytes read(queued.begin(), queued.begin() + static_cast<long>(n));
            queued.erase(queued.begin(), queued.begin() + static_cast<long>(n));
            if (n != kHandshakeShortSize) {
                done = true;
            } else if (word(read, 0) == HANDSHAKE_INIT) {
                haveInit = true;
                offered = word(read, 4);
                FUZZ_CHECK(readUpTo(peer, kHandshakeRespSize) == encodeHandshakeResp(offered, 101));
            } else {
                done = true;
                success = word(read, 0) == HANDSHAKE_COMPLETE && haveInit && word(read, 4) == offered;
            }
        }
    }
    if (!done) ::shutdown(peer, SHUT_WR);  // the client then reads the end: a failure
    auto outcome = first->get_future();
    FUZZ_CHECK(outcome.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
    FUZZ_CHECK(outcome.get() == success);
    if (success) FUZZ_CHECK(session->sessionId() == offered);
    session.reset();
    ::close(peer);
    awaitThreads(threads);
    return 0;
}
