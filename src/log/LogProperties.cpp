// The library's own integer property reader, exported for host processes.
#include <cutils/properties.h>
#include <errno.h>
#include <inttypes.h>

#include <cstring>

#include "rux/rux_log.h"

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    if (key == nullptr) return default_value;
    char buf[PROPERTY_VALUE_MAX];
    std::memset(buf, 0, sizeof buf);
    if (property_get(key, buf, "") < 1) return default_value;
    char* end = nullptr;
    errno = 0;
    const intmax_t value = strtoimax(buf, &end, 0);
    if (errno == ERANGE || end == buf || value > 0x7FFFFFFF) return default_value;
    // Values below the 32-bit minimum are not rejected: the low 32 bits are returned.
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uintmax_t>(value)));
}
