// A stand-in for the optional log plug-in "libruxalog.so", built in three variants.
// alog writes to the Android log under "alog:<tag>", so tests see what reached it;
// decodeBuffer answers with the request reversed (and fails for a first byte 0xFF);
// getPersistSetting writes "setting-<id>" (nothing for id 0).
#include <android/log.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

#ifndef RUX_TEST_PLUGIN_NO_ALOG
PLUGIN_EXPORT int alog(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
PLUGIN_EXPORT int alog(int priority, const char* tag, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    const std::string pluginTag = std::string("alog:") + (tag ? tag : "");
    return __android_log_write(priority, pluginTag.c_str(), text);
}
#endif

PLUGIN_EXPORT int getPersistSetting(uint8_t setting, uint8_t* buffer) {
    if (setting == 0) return 0;
    return std::snprintf(reinterpret_cast<char*>(buffer), 50, "setting-%u", setting);
}

#ifndef RUX_TEST_PLUGIN_NO_DECODE
PLUGIN_EXPORT bool decodeBuffer(uint8_t* request, uint16_t length, uint8_t* output,
                                uint16_t* outputLength) {
    if (length == 0 || request[0] == 0xFF) {
        *outputLength = 0;
        return false;
    }
    const uint16_t n = length < *outputLength ? length : *outputLength;
    for (uint16_t i = 0; i < n; ++i) output[i] = request[length - 1 - i];
    *outputLength = n;
    return true;
}
#endif
