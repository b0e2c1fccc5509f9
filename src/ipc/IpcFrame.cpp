#include "ipc/IpcFrame.h"

#include <cstring>

namespace rux::ipc {

void encodeFrame(const ipcMsg_t& header, const uint8_t* payload, uint8_t* out) {
    std::memcpy(out, &header, kIpcHeaderSize);
    if (header.length > 0 && payload != nullptr)
        std::memcpy(out + kIpcHeaderSize, payload, header.length);
}

std::vector<uint8_t> encodeFrame(const ipcMsg_t& header, const uint8_t* payload) {
    std::vector<uint8_t> bytes(kIpcHeaderSize + header.length);
    encodeFrame(header, payload, bytes.data());
    return bytes;
}

bool decodeFrameHeader(const uint8_t* bytes, size_t size, ipcMsg_t& header) {
    if (bytes == nullptr || size < kIpcHeaderSize) return false;
    std::memcpy(&header, bytes, kIpcHeaderSize);
    return true;
}

}  // namespace rux::ipc
