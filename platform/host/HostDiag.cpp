// Host backend of the diagnostic channel: packets are kept in memory for tests and,
// when RUX_DIAG_FILE names a file, appended to it as one readable line each.
//
// Header layout of a host packet (the channel's own business on the device):
//   0  uint16 code   2  uint16 total size   4  uint64 CLOCK_REALTIME nanoseconds

#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "rux/platform/diag.h"
#include "rux/platform/host.h"

namespace {

struct Allocated {
    uint16_t code;
    size_t size;
};

std::mutex gMutex;  // guards everything below but gEnabled
int gFailAllocs = 0;
int gInitCount = 0;
std::map<uint8_t*, Allocated> gOutstanding;
std::vector<rux::platform::DiagPacket> gPackets;
std::vector<rux_diag_cmd_table_t> gTables;

// Enabled codes, one bit each: asked on every logging call, so read without the lock.
std::atomic<uint64_t> gEnabled[65536 / 64];

uint64_t bitOf(uint16_t code) {
    return uint64_t{1} << (code % 64);
}

bool diagFileNamed() {
    const char* f = std::getenv("RUX_DIAG_FILE");
    return f != nullptr && *f != '\0';
}

// Whether RUX_DIAG_FILE names a file, as read when the library loaded or at the last
// diagReset(): the enabled check runs on every logging call.
std::atomic<bool> gAllCodes{diagFileNamed()};

bool allCodesEnabled() {
    return gAllCodes.load(std::memory_order_relaxed);
}

void appendToFile(const rux::platform::DiagPacket& p) {
    const char* path = std::getenv("RUX_DIAG_FILE");
    if (path == nullptr || *path == '\0') return;
    std::string line = "code=" + std::to_string(p.code) + " ";
    std::vector<uint8_t> payload = p.payload();
    while (!payload.empty() && payload.back() == 0) payload.pop_back();
    for (uint8_t b : payload) {
        if (b >= 0x20 && b < 0x7f && b != '\\') {
            line += static_cast<char>(b);
        } else {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\x%02x", b);
            line += esc;
        }
    }
    line += '\n';
    if (FILE* f = std::fopen(path, "a")) {
        std::fwrite(line.data(), 1, line.size(), f);
        std::fclose(f);
    }
}

}  // namespace

extern "C" int rux_diag_init(void*) {
    std::lock_guard<std::mutex> lock(gMutex);
    ++gInitCount;
    return 1;
}

extern "C" void rux_diag_register_table(const rux_diag_cmd_table_t* table) {
    if (table == nullptr) return;
    std::lock_guard<std::mutex> lock(gMutex);
    gTables.push_back(*table);
}

extern "C" int rux_diag_log_enabled(uint16_t code) {
    if (allCodesEnabled()) return 1;
    return (gEnabled[code / 64].load(std::memory_order_relaxed) & bitOf(code)) != 0 ? 1 : 0;
}

extern "C" void* rux_diag_log_alloc(uint16_t code, size_t size) {
    if (size < RUX_DIAG_PACKET_HEADER_SIZE || size > 0xFFFF) return nullptr;
    std::lock_guard<std::mutex> lock(gMutex);
    if (gFailAllocs > 0) {
        --gFailAllocs;
        return nullptr;
    }
    auto* p = new (std::nothrow) uint8_t[size]();
    if (p == nullptr) return nullptr;
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    const uint16_t total = static_cast<uint16_t>(size);
    const uint64_t ns = static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + ts.tv_nsec;
    std::memcpy(p, &code, 2);
    std::memcpy(p + 2, &total, 2);
    std::memcpy(p + 4, &ns, 8);
    gOutstanding[p] = {code, size};
    return p;
}

extern "C" void rux_diag_log_commit(void* packet) {
    rux::platform::DiagPacket committed;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto it = gOutstanding.find(static_cast<uint8_t*>(packet));
        if (it == gOutstanding.end()) return;  // not ours: refuse it
        committed.code = it->second.code;
        committed.bytes.assign(it->first, it->first + it->second.size);
        delete[] it->first;
        gOutstanding.erase(it);
        gPackets.push_back(committed);
    }
    appendToFile(committed);
}

namespace rux::platform {

std::vector<uint8_t> DiagPacket::payload() const {
    if (bytes.size() <= RUX_DIAG_PACKET_HEADER_SIZE) return {};
    return {bytes.begin() + RUX_DIAG_PACKET_HEADER_SIZE, bytes.end()};
}

void diagSetLogCodeEnabled(uint16_t code, bool enabled) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (enabled)
        gEnabled[code / 64].fetch_or(bitOf(code));
    else
        gEnabled[code / 64].fetch_and(~bitOf(code));
}

void diagFailNextAllocs(int count) {
    std::lock_guard<std::mutex> lock(gMutex);
    gFailAllocs = count;
}

std::vector<DiagPacket> diagPackets() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gPackets;
}

void diagReset() {
    std::lock_guard<std::mutex> lock(gMutex);
    for (auto& bits : gEnabled) bits.store(0);
    gAllCodes.store(diagFileNamed());
    gFailAllocs = 0;
    gInitCount = 0;
    gPackets.clear();
    gTables.clear();
}

int diagInitCount() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gInitCount;
}

std::vector<rux_diag_cmd_table_t> diagTables() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gTables;
}

bool diagDeliverCommand(uint16_t subsysId, uint16_t subsysCmdCode, void* request,
                        uint16_t length) {
    rux_diag_cmd_handler_t handler = nullptr;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        for (const auto& t : gTables) {
            if (t.subsys_id != subsysId || t.entries == nullptr) continue;
            for (uint16_t i = 0; i < t.count; ++i) {
                const auto& e = t.entries[i];
                if (subsysCmdCode >= e.first_cmd_code && subsysCmdCode <= e.last_cmd_code)
                    handler = e.handler;
            }
        }
    }
    if (handler == nullptr) return false;
    handler(request, length);  // the channel runs handlers outside its own lock
    return true;
}

}  // namespace rux::platform
