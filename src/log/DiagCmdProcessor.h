// The library's side of the device's diagnostic channel: record lines go out as log
// packets under one log code.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace rux {

class DiagCmdProcessor {
public:
    static constexpr uint16_t kLogCode = 7701;          // 0x1E15
    static constexpr size_t kPacketSize = 528;          // channel header + payload
    static constexpr size_t kPayloadSize = 516;         // 4 zero bytes + up to 512 of text
    static constexpr size_t kMaxLineBytes = 512;

    static std::shared_ptr<DiagCmdProcessor> getInstance();
    virtual ~DiagCmdProcessor() = default;

    // Sends one record line as a log packet; nothing when the code is disabled or no
    // packet can be had. Callable from any thread.
    void writeToDiag(const std::string& line);

protected:
    DiagCmdProcessor() = default;
};

}  // namespace rux
