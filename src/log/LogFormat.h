// Shared by the two log fronts: the message prefix and the fixed-size formatting.
#pragma once

#include <cstdarg>
#include <cstddef>
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

// Prefix and format in one step, as both fronts do: the text vsnprintf makes of
// prefixedFormat(...) and `args`, cut at kLineBufferSize - 1 characters, written to
// `out` with its terminating zero. Returns its length (0 when formatting fails, as
// formatLine gives ""). The text may hold zero bytes that "%c" put there.
size_t formatMessage(char (&out)[kLineBufferSize], const char* tag, const char* file,
                     const char* function, int line, const char* format, va_list args);
std::string formatMessage(const char* tag, const char* file, const char* function, int line,
                          const char* format, va_list args);

}  // namespace rux::log
