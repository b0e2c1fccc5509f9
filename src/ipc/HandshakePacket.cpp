#include "ipc/HandshakePacket.h"

#include <cstring>

namespace rux::ipc {

namespace {

std::vector<uint8_t> words(std::initializer_list<uint32_t> values) {
    std::vector<uint8_t> bytes(values.size() * sizeof(uint32_t));
    size_t offset = 0;
    for (uint32_t v : values) {
        std::memcpy(bytes.data() + offset, &v, sizeof v);
        offset += sizeof v;
    }
    return bytes;
}

}  // namespace

std::vector<uint8_t> encodeHandshakeInit(uint32_t sessionId) {
    return words({HANDSHAKE_INIT, sessionId});
}

std::vector<uint8_t> encodeHandshakeResp(uint32_t sessionId, uint32_t processId) {
    return words({HANDSHAKE_RESP, sessionId, processId});
}

std::vector<uint8_t> encodeHandshakeComplete(uint32_t sessionId) {
    return words({HANDSHAKE_COMPLETE, sessionId});
}

bool decodeHandshake(const uint8_t* bytes, size_t size, HandshakePacket& packet) {
    if (bytes == nullptr || (size != kHandshakeShortSize && size != kHandshakeRespSize))
        return false;
    HandshakePacket p;
    std::memcpy(&p.type, bytes, 4);
    std::memcpy(&p.sessionId, bytes + 4, 4);
    if (size == kHandshakeRespSize) std::memcpy(&p.processId, bytes + 8, 4);
    packet = p;
    return true;
}

}  // namespace rux::ipc
