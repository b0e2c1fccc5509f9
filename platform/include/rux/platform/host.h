// Test controls of the host backends of the device seam. Host builds only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "rux/platform/diag.h"

namespace rux::platform {

// --- System properties -----------------------------------------------------
// Values set here win over the RUX_PROPERTY_FILE file until cleared.
void setProperty(const std::string& key, const std::string& value);
void unsetProperty(const std::string& key);
void clearProperties();

// --- Diagnostic channel ----------------------------------------------------
struct DiagPacket {
    uint16_t code = 0;
    std::vector<uint8_t> bytes;  // the whole packet, header included

    // The bytes behind the channel's header.
    std::vector<uint8_t> payload() const;
};

// Codes are disabled until enabled here, or all enabled when RUX_DIAG_FILE is set
// (read when the library loads and again by diagReset()).
void diagSetLogCodeEnabled(uint16_t code, bool enabled);
// The next `count` allocations fail (return null).
void diagFailNextAllocs(int count);
// Committed packets, oldest first.
std::vector<DiagPacket> diagPackets();
// Forgets packets, enabled codes, registered tables and pending failures, and reads
// RUX_DIAG_FILE again.
void diagReset();
int diagInitCount();
std::vector<rux_diag_cmd_table_t> diagTables();
// Delivers a command as the channel would: to the handler of the registered entry
// whose subsystem id and command range match. Returns false when none matches.
bool diagDeliverCommand(uint16_t subsysId, uint16_t subsysCmdCode, void* request,
                        uint16_t length);

}  // namespace rux::platform
