// The parts of a log record that would cost a system call or a lock if asked for on
// every record: the process id (asked once, and again in a forked child), the thread
// id (once per thread), the local time text (once per second per thread); and the
// writer that puts a record line together without snprintf, byte for byte as
// snprintf would.
#pragma once

#include <time.h>

#include <cstddef>

#include "log/LogFormat.h"

namespace rux::log {

int currentPid();
unsigned long currentTid();
// "%F %X" of `second` in local time, or null when it cannot be converted. Valid until
// the calling thread asks for another second.
const char* localTimeText(time_t second);

// Builds a line in a kLineBufferSize buffer, keeping what does not fit out.
class LineWriter {
public:
    explicit LineWriter(char* out) : mOut(out) {}
    void put(const char* text) {
        while (*text != '\0' && mLength < kLineBufferSize - 1) mOut[mLength++] = *text++;
    }
    // printf's "%<width>d" (pad ' ') or "%0<width>d" (pad '0') of a signed or unsigned value.
    template <typename T>
    void putDecimal(T value, int width, char pad) {
        const bool negative = value < 0;
        unsigned long long magnitude = negative ? 0ULL - static_cast<unsigned long long>(value)
                                                : static_cast<unsigned long long>(value);
        char digits[24];
        int n = 0;
        do {
            digits[n++] = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
        int fill = width - n - (negative ? 1 : 0);
        char text[48];
        int t = 0;
        if (pad == ' ')
            for (; fill > 0; --fill) text[t++] = ' ';
        if (negative) text[t++] = '-';
        for (; fill > 0; --fill) text[t++] = '0';
        while (n > 0) text[t++] = digits[--n];
        text[t] = '\0';
        put(text);
    }
    size_t length() const { return mLength; }

private:
    char* mOut;
    size_t mLength = 0;
};

}  // namespace rux::log
