#include "ipc/RuxIpcMessage.h"

#include <android/log.h>

#include "log/Log.h"

namespace rux::ipc {

std::vector<uint8_t> SendBlobMessage::serialize() {
    std::vector<uint8_t> bytes;
    bytes.reserve(kTypeSize + blob.size());
    const uint32_t type = sdkType;
    for (size_t i = 0; i < kTypeSize; ++i) bytes.push_back(static_cast<uint8_t>(type >> (8 * i)));
    bytes.insert(bytes.end(), blob.begin(), blob.end());
    return bytes;
}

bool SendBlobMessage::deserialize(std::vector<uint8_t> bytes) {
    if (bytes.size() < kTypeSize) {
        RUX_LOG(ANDROID_LOG_ERROR, "RUX", "SendBlobMessage too short: %zu bytes", bytes.size());
        return false;
    }
    uint32_t type = 0;
    for (size_t i = 0; i < kTypeSize; ++i) type |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    sdkType = static_cast<RuxSdkType>(type);
    blob.assign(bytes.begin() + kTypeSize, bytes.end());
    return true;
}

}  // namespace rux::ipc
