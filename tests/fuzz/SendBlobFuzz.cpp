// SendBlobMessage decoding: four bytes or more are a little-endian type and a blob that
// serialise back to the same bytes; fewer are refused and leave the message as it was.
#include "FuzzSupport.h"
#include "ipc/RuxIpcMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using rux::ipc::SendBlobMessage;
    const std::vector<uint8_t> bytes(data, data + size), before = {7, 7};
    SendBlobMessage msg(static_cast<rux::ipc::RuxSdkType>(9), before);
    const bool ok = msg.deserialize(bytes);
    FUZZ_CHECK(ok == (size >= SendBlobMessage::kTypeSize));
    if (!ok) {
        FUZZ_CHECK(msg.sdkType == 9 && msg.blob == before);
        return 0;
    }
    const uint32_t type = data[0] | data[1] << 8 | data[2] << 16 | uint32_t{data[3]} << 24;
    FUZZ_CHECK(static_cast<uint32_t>(msg.sdkType) == type);
    FUZZ_CHECK(msg.blob == std::vector<uint8_t>(data + 4, data + size));
    FUZZ_CHECK(msg.serialize() == bytes);
    return 0;
}
