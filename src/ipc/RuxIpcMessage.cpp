#include "ipc/RuxIpcMessage.h"

#include <android/log.h>

#include "log/Log.h"

namespace rux::ipc {

std::vector<uint8_t> SendBlobMessage::serialize() {
    std::vector<uint8_t> bytes;
    appendSerialized(bytes);
    return bytes;
}

void SendBlobMessage::appendSerialized(std::vector<uint8_t>& out) {
    out.reserve(out.size() + kTypeSize + blob.size());
    const uint32_t type = sdkType;
    for (size_t i = 0; i < kTypeSize; ++i) out.push_back(static_cast<uint8_t>(type >> (8 * i)));
    out.insert(out.end(), blob.begin(), blob.end());
}

namespace {

// The 4-byte type in front of the blob; false (logged) when there are fewer bytes.
bool readSdkType(const uint8_t* bytes, size_t size, RuxSdkType& out) {
    if (size < SendBlobMessage::kTypeSize) {
        RUX_LOG(ANDROID_LOG_ERROR, "RUX", "SendBlobMessage too short: %zu bytes", size);
        return false;
    }
    uint32_t type = 0;
    for (size_t i = 0; i < SendBlobMessage::kTypeSize; ++i)
        type |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    out = static_cast<RuxSdkType>(type);
    return true;
}

}  // namespace

bool SendBlobMessage::deserialize(const uint8_t* bytes, size_t size) {
    if (!readSdkType(bytes, size, sdkType)) return false;
    blob.assign(bytes + kTypeSize, bytes + size);
    return true;
}

bool SendBlobMessage::deserialize(std::vector<uint8_t> bytes) {
    if (!readSdkType(bytes.data(), bytes.size(), sdkType)) return false;
    // The bytes are this message's own: the blob is what follows the type, moved down
    // in place rather than copied out.
    bytes.erase(bytes.begin(), bytes.begin() + kTypeSize);
    blob = std::move(bytes);
    return true;
}

}  // namespace rux::ipc
