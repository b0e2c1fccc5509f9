// Shared by the two log fronts: the message prefix and the fixed-size formatting.
#pragma once

#include <cstdarg>
#include <string>

namespace rux::log {

constexpr size_t kLineBufferSize = 512;  // lines are cut at kLineBufferSize - 1 characters

// The file name without directory and extension: "a/b/Log.cpp" gives "Log".
// A name without "." keeps its whole base name; a null file gives "".
std::string baseName(const char* file);

// "|" tag "|" base "::" function ":" line " " format
std::string prefixedFormat(const char* tag, const char* file, const char* function, int line,
                           const char* format);

// vsnprintf into a kLineBufferSize buffer.
std::string formatLine(const char* format, va_list args)
    __attribute__((format(printf, 1, 0)));

// Prefix and format in one step, as both fronts do.
std::string formatMessage(const char* tag, const char* file, const char* function, int line,
                          const char* format, va_list args);

}  // namespace rux::log
