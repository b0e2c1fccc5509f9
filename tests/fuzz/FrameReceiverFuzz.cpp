// The receiver loop over a socket pair: the input is written to the peer's end, which then
// closes. The frames delivered must be exactly those the bytes carry, in order, headers
// and payloads, up to where the bytes stop making a frame (cut short, or announcing more
// than the receive limit).
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "FuzzSupport.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;
using Frame = std::pair<Bytes, Bytes>;  // header, payload

struct Recorder : ProcessHandler {
    void handleFrame(const ipcMsg_t& header, Bytes payload) override {
        const auto* h = reinterpret_cast<const uint8_t*>(&header);
        frames.emplace_back(Bytes(h, h + kIpcHeaderSize), std::move(payload));
    }
    std::vector<Frame> frames;
};

// The frames in `bytes`, read independently of the receiver.
std::vector<Frame> framesIn(const Bytes& bytes) {
    std::vector<Frame> out;
    for (size_t at = 0; bytes.size() - at >= kIpcHeaderSize;) {
        ipcMsg_t header{};
        decodeFrameHeader(bytes.data() + at, kIpcHeaderSize, header);
        const auto body = bytes.begin() + static_cast<long>(at + kIpcHeaderSize);
        if (header.length > kMaxReceivedPayload || header.length > size_t(bytes.end() - body))
            break;
        out.emplace_back(Bytes(bytes.begin() + static_cast<long>(at), body),
                         Bytes(body, body + static_cast<long>(header.length)));
        at += kIpcHeaderSize + header.length;
    }
    return out;
}

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
    FUZZ_CHECK(recorder.frames == framesIn(Bytes(data, data + sent)));
    return 0;
}
