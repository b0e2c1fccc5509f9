// The framed IPC record: a 48-byte header of six 64-bit words in host byte order,
// followed directly by `length` payload bytes. docs/ipc-wire-format.md has the table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rux::ipc {

struct ipcMsg_t {
    uint64_t srcProcessId;
    uint64_t dstProcessId;
    uint64_t msgId;
    uint64_t subsystemId;
    uint64_t sessionId;
    uint64_t length;  // payload bytes that follow the header
};

constexpr size_t kIpcHeaderSize = 48;
static_assert(sizeof(ipcMsg_t) == kIpcHeaderSize, "the frame header has no padding");

// The longest payload a receiver takes. The largest message of the protocol is a few
// kilobytes; a frame announcing more than this ends the session unread.
constexpr uint64_t kMaxReceivedPayload = 1024 * 1024;

// The payload of a frame that was allocated as header + payload in one block.
inline uint8_t* ipcPayload(ipcMsg_t* msg) { return reinterpret_cast<uint8_t*>(msg + 1); }
inline const uint8_t* ipcPayload(const ipcMsg_t* msg) {
    return reinterpret_cast<const uint8_t*>(msg + 1);
}

// Writes the header and `header.length` bytes of `payload` (null when the length is 0)
// to `out`, which holds at least 48 + length bytes.
void encodeFrame(const ipcMsg_t& header, const uint8_t* payload, uint8_t* out);
// The same, as a new buffer.
std::vector<uint8_t> encodeFrame(const ipcMsg_t& header, const uint8_t* payload);

// Reads the header from the first 48 bytes; false when fewer are given.
bool decodeFrameHeader(const uint8_t* bytes, size_t size, ipcMsg_t& header);

}  // namespace rux::ipc
