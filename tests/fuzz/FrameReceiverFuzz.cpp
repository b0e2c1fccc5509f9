// The receiver loop over a socket pair whose peer end writes the input and closes. The
// frames delivered, headers and payloads, must be exactly those the bytes carry, in order,
// up to where the bytes stop making a frame (cut short, or longer than the receive limit).
// The first input byte picks how the rest is written: 0 in one write (several frames per
// read), otherwise in pieces of that many bytes, each read before the next is written, so
// frames arrive split at every offset, the header/payload boundary included.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "FuzzSupport.h"
#include "ipc/IpcFrame.h"
#include "ipc/ProcessUtils.h"

namespace {

using namespace rux::ipc;
using Bytes = std::vector<uint8_t>;
using Frames = std::vector<std::pair<Bytes, Bytes>>;  // header, payload

struct Recorder : ProcessHandler {
    // A writer that waits for each piece to be read never stalls a frame on purpose.
    Recorder() : ProcessHandler(std::chrono::minutes(10)) {}
    void handleFrame(const ipcMsg_t& header, Bytes payload) override {
        const auto* h = reinterpret_cast<const uint8_t*>(&header);
        frames.emplace_back(Bytes(h, h + kIpcHeaderSize), std::move(payload));
    }
    Frames frames;
};

// Writes `bytes` in pieces of `piece` bytes (all at once for 0), each once the reader has
// taken the one before or has stopped; what does not fit in the socket is not sent.
// Returns how many bytes were sent, then closes the writing side.
size_t writeInPieces(int fd, const uint8_t* bytes, size_t size, size_t piece,
                     const std::atomic<bool>& readerDone) {
    size_t sent = 0;
    while (sent < size) {
        const size_t want = piece == 0 ? size - sent : std::min(piece, size - sent);
        const ssize_t n = ::send(fd, bytes + sent, want, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<size_t>(n);
        int unread = 0;
        while (piece != 0 && !readerDone.load() && ::ioctl(fd, TIOCOUTQ, &unread) == 0 &&
               unread > 0)
            std::this_thread::yield();
    }
    ::shutdown(fd, SHUT_WR);
    return sent;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t piece = data[0];
    ++data;
    --size;
    int fds[2];
    FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
    std::atomic<bool> readerDone{false};
    size_t sent = 0;
    std::thread writer([&] { sent = writeInPieces(fds[1], data, size, piece, readerDone); });
    Recorder recorder;
    ipcReceiver(fds[0], recorder);
    readerDone.store(true);
    writer.join();
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
