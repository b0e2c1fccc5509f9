#include "log/SdkLog.h"

#include <android/log.h>

#include <cstdarg>
#include <string>

#include "log/LogFormat.h"

namespace rux {

namespace {

// The formatted text is handed to the Android log as a format string of its own, so a
// "%%" that survives formatting is written as "%". Any other conversion in the text
// would read arguments that do not exist; it is written as it stands instead.
std::string collapsePercents(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return out;
}

}  // namespace

void SdkLog::print(int /*level*/, const char* tag, const char* file, const char* function,
                   int line, const char* format, ...) {
    // The Android log is the only reader: a line it would drop is not even formatted.
    // liblog asks the same question, with the same arguments, before it writes.
    if (!__android_log_is_loggable(ANDROID_LOG_DEBUG, nullptr, ANDROID_LOG_VERBOSE)) return;
    va_list args;
    va_start(args, format);
    const std::string text = log::formatMessage(tag, file, function, line, format, args);
    va_end(args);
    __android_log_write(ANDROID_LOG_DEBUG, nullptr, collapsePercents(text).c_str());
}

}  // namespace rux
