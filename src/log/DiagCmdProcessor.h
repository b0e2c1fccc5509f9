// The library's side of the device's diagnostic channel: record lines go out as log
// packets under one log code, and one registered command (subsystem 18, command 137)
// reaches the callback given to initialize.
//
// Threads: writeToDiag is called from logging threads and the log dumper; the command
// handler runs on a thread of the channel. The callback is copied under mCallbackMutex
// and called outside it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace rux {

class DiagCmdProcessor {
public:
    static constexpr uint16_t kLogCode = 7701;          // 0x1E15
    static constexpr size_t kPacketSize = 528;          // channel header + payload
    static constexpr size_t kPayloadSize = 516;         // 4 zero bytes + up to 512 of text
    static constexpr size_t kMaxLineBytes = 512;
    static constexpr uint16_t kCmdCode = 0x00FF;
    static constexpr uint16_t kSubsystemId = 0x0012;
    static constexpr uint16_t kSubsystemCmd = 0x0089;

    // Request bytes, request length, response bytes (the response is never sent).
    using Callback = std::function<bool(uint8_t*, uint16_t, std::vector<uint8_t>&)>;

    static std::shared_ptr<DiagCmdProcessor> getInstance();
    virtual ~DiagCmdProcessor() = default;

    // Stores the callback, initialises the channel and registers the command table.
    void initialize(Callback callback);

    // Registered with the channel: hands a non-empty request to the callback and logs
    // its result. Always returns null (no response packet).
    static void* diagCmdHandler(void* request, uint16_t length);

    // Sends one record line as a log packet; nothing when the code is disabled or no
    // packet can be had. Callable from any thread.
    void writeToDiag(const std::string& line);
    // Whether the channel wants packets of kLogCode now. Callable from any thread.
    static bool logCodeEnabled();

protected:
    DiagCmdProcessor() = default;

private:
    std::mutex mCallbackMutex;
    std::shared_ptr<const Callback> cmdCallback;  // guarded by mCallbackMutex
};

}  // namespace rux
