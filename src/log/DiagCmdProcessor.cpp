#include "log/DiagCmdProcessor.h"

#include <algorithm>
#include <cstring>

#include "rux/platform/diag.h"

namespace rux {

std::shared_ptr<DiagCmdProcessor> DiagCmdProcessor::getInstance() {
    struct Constructible : DiagCmdProcessor {};
    // Never freed: logging threads may still write while the process exits.
    static const auto* const instance =
        new std::shared_ptr<DiagCmdProcessor>(std::make_shared<Constructible>());
    return *instance;
}

void DiagCmdProcessor::writeToDiag(const std::string& line) {
    if (!rux_diag_log_enabled(kLogCode)) return;
    uint8_t payload[kPayloadSize] = {};
    std::memcpy(payload + 4, line.data(), std::min(line.size(), kMaxLineBytes));
    auto* packet = static_cast<uint8_t*>(rux_diag_log_alloc(kLogCode, kPacketSize));
    if (packet == nullptr) return;
    std::memcpy(packet + RUX_DIAG_PACKET_HEADER_SIZE, payload, sizeof payload);
    rux_diag_log_commit(packet);
}

}  // namespace rux
