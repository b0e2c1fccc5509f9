// Helpers shared by the SDK, transport and request client tests: the SDK pointed at a
// socket, and renderings of log lines and bytes.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Inbox.h"
#include "LogCapture.h"
#include "SocketPair.h"
#include "sdk/SdkClient.h"

namespace rux::test {

// `attempts` quick connects to `socketPath`, not the service's 50 x 100 ms.
inline rux::ipc::ConnectOptions quickConnect(const std::string& socketPath, int attempts = 3) {
    rux::ipc::ConnectOptions options;
    options.socketPath = socketPath;
    options.maxAttempts = attempts;
    options.retryDelay = std::chrono::milliseconds(1);
    return options;
}

// The items in one line, e.g. "a; b", for comparing a whole sequence at once.
inline std::string join(const std::vector<std::string>& items, const char* separator = "; ") {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
    return out;
}

// Every captured line without its "|tag|Class::function:line " prefix, one per row.
inline std::string loggedTexts(const LogCapture& capture) {
    std::string out;
    for (const auto& line : capture.lines())
        out += (out.empty() ? "" : "\n") + line.text.substr(line.text.find(' ') + 1);
    return out;
}

// "08 01 1A 00": bytes as a failure message can show them.
inline std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char b : bytes) {
        if (!out.empty()) out += ' ';
        out += digits[b >> 4];
        out += digits[b & 0xF];
    }
    return out;
}

}  // namespace rux::test
