// The receiver loop over a socket pair whose peer end writes the input and closes. The
// frames delivered, headers and payloads, must be exactly those the bytes carry, in order,
// up to where the bytes stop making a frame (cut short, or longer than the receive limit).
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "FuzzSupport.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;
using Frames = std::vector<std::pair<Bytes, Bytes>>;  // header, payload

struct Recorder : ProcessHandler {
    void handleFrame(const ipcMsg_t& header, Bytes payload) override {
        const auto* h = reinterpret_cast<const uint8_t*>(&header);
        frames.emplace_back(Bytes(h, h + kIpcHeaderSize), std::move(payload));
    }
    Frames frames;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int fds[2];
    FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
    // What fits in the socket's buffer is what the receiver is given.
    const ssize_t sent = size == 0 ? 0 : ::send(fds[1], data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    FUZZ_CHECK(sent >= 0);
    ::shutdown(fds[1], SHUT_WR);
    Recorder recorder;
    ipcReceiver(fds[0], recorder);
    ::close(fds[0]);
    ::close(fds[1]);
    // The frames in the bytes sent, read independently of the receiver.
    Frames expected;
    for (const uint8_t *at = data, *end = data + sent; end - at >= long{kIpcHeaderSize};) {
        ipcMsg_t header{};
        decodeFrameHeader(at, kIpcHeaderSize, header);
        const uint8_t* body = at + kIpcHeaderSize;
        if (header.length > kMaxReceivedPayload || header.length > size_t(end - body)) break;
        expected.emplace_back(Bytes(at, body), Bytes(body, body + header.length));
        at = body + header.length;
    }
    FUZZ_CHECK(recorder.frames == expected);
    return 0;
}
