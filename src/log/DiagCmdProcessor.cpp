#include "log/DiagCmdProcessor.h"

#include <android/log.h>

#include <algorithm>
#include <cstring>

#include "rux/platform/diag.h"

namespace rux {

namespace {

// The channel keeps a pointer to the table: both live for the whole process.
const rux_diag_cmd_entry_t kCmdEntries[] = {
    {DiagCmdProcessor::kSubsystemCmd, DiagCmdProcessor::kSubsystemCmd,
     &DiagCmdProcessor::diagCmdHandler},
};
const rux_diag_cmd_table_t kCmdTable = {
    0, DiagCmdProcessor::kCmdCode, DiagCmdProcessor::kSubsystemId, 1, 0, kCmdEntries,
};

}  // namespace

std::shared_ptr<DiagCmdProcessor> DiagCmdProcessor::getInstance() {
    struct Constructible : DiagCmdProcessor {};
    // Never freed: logging threads may still write while the process exits.
    static const auto* const instance =
        new std::shared_ptr<DiagCmdProcessor>(std::make_shared<Constructible>());
    return *instance;
}

void DiagCmdProcessor::initialize(Callback callback) {
    {
        std::lock_guard<std::mutex> lock(mCallbackMutex);
        cmdCallback = std::make_shared<const Callback>(std::move(callback));
    }
    rux_diag_init(nullptr);
    rux_diag_register_table(&kCmdTable);
}

void* DiagCmdProcessor::diagCmdHandler(void* request, uint16_t length) {
    if (request == nullptr || length == 0) return nullptr;
    DiagCmdProcessor& self = *getInstance();
    std::shared_ptr<const Callback> callback;
    {
        std::lock_guard<std::mutex> lock(self.mCallbackMutex);
        callback = self.cmdCallback;
    }
    std::vector<uint8_t> response;
    bool result = false;
    // No callback yet means nothing to decode; the channel's thread never sees a throw.
    if (callback && *callback) {
        try {
            result = (*callback)(static_cast<uint8_t*>(request), length, response);
        } catch (...) {
            result = false;
        }
    }
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Rux-Diag: retVal: %d, size: %d",
                        result ? 1 : 0, static_cast<int>(response.size()));
    return nullptr;
}

bool DiagCmdProcessor::logCodeEnabled() {
    return rux_diag_log_enabled(kLogCode) != 0;
}

void DiagCmdProcessor::writeToDiag(const std::string& line) {
    if (!logCodeEnabled()) return;
    uint8_t payload[kPayloadSize] = {};
    std::memcpy(payload + 4, line.data(), std::min(line.size(), kMaxLineBytes));
    auto* packet = static_cast<uint8_t*>(rux_diag_log_alloc(kLogCode, kPacketSize));
    if (packet == nullptr) return;
    std::memcpy(packet + RUX_DIAG_PACKET_HEADER_SIZE, payload, sizeof payload);
    rux_diag_log_commit(packet);
}

}  // namespace rux
