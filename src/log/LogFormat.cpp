#include "log/LogFormat.h"

#include <cstdio>
#include <cstring>

namespace rux::log {

namespace {

struct Piece {
    const char* data;
    size_t size;
};

Piece baseOf(const char* file) {
    if (file == nullptr) return {"", 0};
    const char* slash = std::strrchr(file, '/');
    const char* base = slash == nullptr ? file : slash + 1;
    const char* dot = std::strrchr(base, '.');
    return {base, dot == nullptr ? std::strlen(base) : static_cast<size_t>(dot - base)};
}

// Appends to out[0, kLineBufferSize - 1), keeping what does not fit out.
class Writer {
public:
    explicit Writer(char* out) : mOut(out) {}
    void put(const char* data, size_t size) {
        const size_t room = kLineBufferSize - 1 - mLength;
        std::memcpy(mOut + mLength, data, size < room ? size : room);
        mLength += size < room ? size : room;
    }
    void put(const char* text) { put(text, std::strlen(text)); }
    size_t length() const { return mLength; }

private:
    char* mOut;
    size_t mLength = 0;
};

bool hasPercent(const char* data, size_t size) {
    return std::memchr(data, '%', size) != nullptr;
}

}  // namespace

std::string baseName(const char* file) {
    const Piece base = baseOf(file);
    return std::string(base.data, base.size);
}

std::string prefixedFormat(const char* tag, const char* file, const char* function, int line,
                           const char* format) {
    const Piece base = baseOf(file);
    std::string out;
    out.reserve(64 + (format ? std::strlen(format) : 0));
    out += '|';
    out += tag ? tag : "";
    out += '|';
    out.append(base.data, base.size);
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
// The prefix is copied in as it stands and only the caller's format goes through
// vsnprintf: the same text as formatting the whole prefixed format, without building
// it. A prefix with a "%" in it is formatted as part of the format, as it always was.
size_t formatMessage(char (&out)[kLineBufferSize], const char* tag, const char* file,
                     const char* function, int line, const char* format, va_list args) {
    const char* safeTag = tag ? tag : "";
    const char* safeFunction = function ? function : "";
    const Piece base = baseOf(file);
    if (hasPercent(safeTag, std::strlen(safeTag)) || hasPercent(base.data, base.size) ||
        hasPercent(safeFunction, std::strlen(safeFunction))) {
        const std::string text =
            formatLine(prefixedFormat(tag, file, function, line, format).c_str(), args);
        std::memcpy(out, text.data(), text.size());
        out[text.size()] = '\0';
        return text.size();
    }
    Writer w(out);
    // The line number in decimal, as "%d" writes it.
    char number[16];
    char* end = number + sizeof number;
    char* first = end;
    unsigned int magnitude =
        line < 0 ? 0u - static_cast<unsigned int>(line) : static_cast<unsigned int>(line);
    do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (line < 0) *--first = '-';
    w.put("|", 1);
    w.put(safeTag);
    w.put("|", 1);
    w.put(base.data, base.size);
    w.put("::", 2);
    w.put(safeFunction);
    w.put(":", 1);
    w.put(first, static_cast<size_t>(end - first));
    w.put(" ", 1);
    const size_t prefix = w.length();
    const char* safeFormat = format ? format : "";
    if (std::strchr(safeFormat, '%') == nullptr) {  // nothing to convert: vsnprintf would copy
        w.put(safeFormat);
        out[w.length()] = '\0';
        return w.length();
    }
    const int n = std::vsnprintf(out + prefix, kLineBufferSize - prefix, safeFormat, args);
    if (n < 0) {
        out[0] = '\0';
        return 0;
    }
    const size_t length = prefix + static_cast<size_t>(n);
    return length < kLineBufferSize ? length : kLineBufferSize - 1;
}
#pragma GCC diagnostic pop

std::string formatMessage(const char* tag, const char* file, const char* function, int line,
                          const char* format, va_list args) {
    char text[kLineBufferSize];
    const size_t n = formatMessage(text, tag, file, function, line, format, args);
    return std::string(text, n);
}

}  // namespace rux::log
