// The three handshake packets exchanged before any frame: 32-bit words in host order.
//   HANDSHAKE_INIT     service -> client, 8 bytes:  type 1, offered session id
//   HANDSHAKE_RESP     client -> service, 12 bytes: type 2, session id, client process id
//   HANDSHAKE_COMPLETE service -> client, 8 bytes:  type 3, confirmed session id
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rux::ipc {

enum HandshakeType : uint32_t {
    HANDSHAKE_INIT = 1,
    HANDSHAKE_RESP = 2,
    HANDSHAKE_COMPLETE = 3,
};

constexpr size_t kHandshakeShortSize = 8;   // INIT and COMPLETE
constexpr size_t kHandshakeRespSize = 12;   // RESP

struct HandshakePacket {
    uint32_t type = 0;
    uint32_t sessionId = 0;
    uint32_t processId = 0;  // RESP only
};

std::vector<uint8_t> encodeHandshakeInit(uint32_t sessionId);
std::vector<uint8_t> encodeHandshakeResp(uint32_t sessionId, uint32_t processId);
std::vector<uint8_t> encodeHandshakeComplete(uint32_t sessionId);

// Decodes an 8-byte packet (type, session id) or a 12-byte one (type, session id,
// process id). Any other size fails; the type is not checked here.
bool decodeHandshake(const uint8_t* bytes, size_t size, HandshakePacket& packet);

}  // namespace rux::ipc
