#include "log/LogFormat.h"

#include <cstdio>
#include <cstring>

namespace rux::log {

std::string baseName(const char* file) {
    if (file == nullptr) return {};
    std::string path(file);
    const auto slash = path.rfind('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = base.rfind('.');
    return dot == std::string::npos ? base : base.substr(0, dot);
}

std::string prefixedFormat(const char* tag, const char* file, const char* function, int line,
                           const char* format) {
    std::string out;
    out.reserve(64 + (format ? std::strlen(format) : 0));
    out += '|';
    out += tag ? tag : "";
    out += '|';
    out += baseName(file);
    out += "::";
    out += function ? function : "";
    out += ':';
    out += std::to_string(line);
    out += ' ';
    out += format ? format : "";
    return out;
}

std::string formatLine(const char* format, va_list args) {
    char buffer[kLineBufferSize];
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (n < 0) return {};
    return std::string(buffer, static_cast<size_t>(n) < sizeof buffer ? n : sizeof buffer - 1);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string formatMessage(const char* tag, const char* file, const char* function, int line,
                          const char* format, va_list args) {
    const std::string full = prefixedFormat(tag, file, function, line, format);
    return formatLine(full.c_str(), args);
}
#pragma GCC diagnostic pop

}  // namespace rux::log
