// Log front of the client API and SDK code: Android log only, always at debug
// priority with no tag. Call sites use SDK_LOG so the file, function and line are
// filled in.
#pragma once

namespace rux {

class SdkLog {
public:
    // `level` is accepted for symmetry with Log::addLogRecord; lines are written at
    // debug priority whatever it says.
    static void print(int level, const char* tag, const char* file, const char* function,
                      int line, const char* format, ...)
        __attribute__((format(printf, 6, 7)));
};

}  // namespace rux

#define SDK_LOG(level, tag, ...) \
    ::rux::SdkLog::print((level), (tag), __FILE__, __func__, __LINE__, __VA_ARGS__)
