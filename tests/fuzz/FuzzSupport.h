// Shared by the fuzz targets (libFuzzer). FUZZ_CHECK stops the run on a wrong outcome as a
// sanitizer report does (the input is kept as the finding); Input reads values off the front
// of the fuzz bytes. No log line is written: formatting them would be most of each run.
#pragma once

#include <android/log.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#define FUZZ_CHECK(condition)                                                              \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                  \
        }                                                                                  \
    } while (0)

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    return 0;
}

namespace rux::fuzz {

struct Input {
    const uint8_t* data;
    size_t size;
    size_t at = 0;
    size_t left() const { return size - at; }
    uint8_t byte() { return at < size ? data[at++] : 0; }
    std::vector<uint8_t> bytes(size_t n) {  // up to `n` (fewer when the input ends)
        const size_t from = at;
        at += std::min(n, left());
        return std::vector<uint8_t>(data + from, data + at);
    }
};

}  // namespace rux::fuzz
