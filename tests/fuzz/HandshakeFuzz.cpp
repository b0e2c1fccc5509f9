// The client's handshake against a peer sending the input as packets (a length byte, then
// that many bytes), each once the client has read all before it, so each read's result is
// fixed by the bytes. A model of the handshake over the same packets says which RESP packets
// the client must send and whether it must succeed, with which session id.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <thread>

#include "FuzzSupport.h"
#include "ipc/HandshakePacket.h"
#include "ipc/RuxIpcClientSession.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;

const std::string kPath = "/tmp/rux-fuzz-handshake-" + std::to_string(::getpid()) + ".sock";

// Listening before any input, so before the client's one connect attempt.
const int kListener = [] {
    const int s = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strncpy(address.sun_path, kPath.c_str(), sizeof address.sun_path - 1);
    ::unlink(kPath.c_str());
    FUZZ_CHECK(::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
    FUZZ_CHECK(::listen(s, 4) == 0);
    return s;
}();

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
        if ((r = ::recv(fd, out.data() + got, n - got, 0)) <= 0) break;  // readable: no wait
    out.resize(got);
    return out;
}

size_t threadCount() {
    namespace fs = std::filesystem;
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

// The detached receiver thread drops its share of the session a moment after the session:
// an input ends when it has, or libFuzzer's leak check could see that share.
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
    ConnectOptions options;
    options.socketPath = kPath;
    options.maxAttempts = 1;
    auto first = std::make_shared<std::pair<std::promise<bool>, std::once_flag>>();
    auto session = std::make_unique<RuxIpcClientSession>(PROCESS_ID_CLIENT_101, true, options);
    session->connectToServer(
        [first](bool up) { std::call_once(first->second, [&] { first->first.set_value(up); }); });
    FUZZ_CHECK(readable(kListener));
    int peer;
    while ((peer = ::accept4(kListener, nullptr, nullptr, SOCK_CLOEXEC)) < 0 && errno == EINTR) {
    }
    FUZZ_CHECK(peer >= 0);

    // The model: bytes written and not yet read, and what the client has made of them.
    Bytes queued;
    bool haveInit = false, done = false, success = false;
    uint32_t offered = 0;
    while (!done && input.left() > 0) {
        const Bytes packet = input.bytes(input.byte());
        FUZZ_CHECK(::send(peer, packet.data(), packet.size(), MSG_NOSIGNAL) ==
                   static_cast<ssize_t>(packet.size()));
        queued.insert(queued.end(), packet.begin(), packet.end());
        while (!done && !queued.empty()) {
            // Before the INIT a read takes up to 1023 bytes, after it 8: it must be 8.
            const size_t n = std::min(queued.size(), haveInit ? kHandshakeShortSize : size_t{1023});
            uint32_t word[2] = {};  // type and session id, when n is 8
            std::memcpy(word, queued.data(), std::min(n, sizeof word));
            queued.erase(queued.begin(), queued.begin() + static_cast<long>(n));
            done = n != kHandshakeShortSize || word[0] != HANDSHAKE_INIT;
            success = done && n == kHandshakeShortSize && word[0] == HANDSHAKE_COMPLETE &&
                      haveInit && word[1] == offered;
            if (done) break;
            haveInit = true;
            offered = word[1];
            FUZZ_CHECK(readUpTo(peer, kHandshakeRespSize) == encodeHandshakeResp(offered, 101));
        }
    }
    if (!done) ::shutdown(peer, SHUT_WR);  // the client then reads the end: a failure
    auto outcome = first->first.get_future();
    FUZZ_CHECK(outcome.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
    FUZZ_CHECK(outcome.get() == success);
    FUZZ_CHECK(!success || session->sessionId() == offered);
    session.reset();
    ::close(peer);
    awaitThreads(threads);
    return 0;
}
