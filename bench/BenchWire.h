// What the request benchmark's own service and bare client need of the wire: the frame
// header, the handshake words and whole reads and writes. Written out here on purpose,
// so that the baseline never runs library code (docs/ipc-wire-format.md has the table).
#pragma once

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace rux::bench {

struct FrameHeader {
    uint64_t srcProcessId;
    uint64_t dstProcessId;
    uint64_t msgId;
    uint64_t subsystemId;
    uint64_t sessionId;
    uint64_t length;
};
static_assert(sizeof(FrameHeader) == 48, "six 64-bit words");

constexpr uint64_t kServiceProcess = 1;
constexpr uint64_t kClientProcess = 101;
constexpr uint64_t kBlobMsgId = 5;       // SendBlobMessage
constexpr uint32_t kRequestClientType = 4;
constexpr uint32_t kHandshakeInit = 1;
constexpr uint32_t kHandshakeResp = 2;
constexpr uint32_t kHandshakeComplete = 3;

inline bool readFull(int fd, void* data, size_t size) {
    auto* p = static_cast<uint8_t*>(data);
    while (size > 0) {
        const ssize_t n = ::recv(fd, p, size, MSG_WAITALL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

inline bool writeFull(int fd, const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const ssize_t n = ::send(fd, p, size, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Appends one SendBlobMessage frame (header, 4-byte client kind, blob) to `out`.
inline void appendBlobFrame(std::vector<uint8_t>& out, uint64_t src, uint64_t dst,
                            uint64_t sessionId, const std::string& blob) {
    FrameHeader h{src, dst, kBlobMsgId, 0, sessionId, 4 + blob.size()};
    const size_t at = out.size();
    out.resize(at + sizeof h + 4 + blob.size());
    std::memcpy(out.data() + at, &h, sizeof h);
    const uint32_t type = kRequestClientType;
    std::memcpy(out.data() + at + sizeof h, &type, 4);
    std::memcpy(out.data() + at + sizeof h + 4, blob.data(), blob.size());
}

}  // namespace rux::bench
