// Every line written to the Android log, captured through liblog's logger hook with its
// priority and tag (a null tag as kNullTag).
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace rux::test {

struct LogLine {
    int priority = 0;
    std::string tag;
    std::string text;
};

class LogCapture {
public:
    static constexpr const char* kNullTag = "(null)";

    // Installs the hook once per process and forgets what was captured before.
    LogCapture();

    std::vector<LogLine> lines() const;
    // Lines whose text contains `needle`.
    std::vector<LogLine> matching(const std::string& needle) const;
    bool contains(const std::string& needle) const { return !matching(needle).empty(); }
    // The first line whose text ends with `suffix`, or an empty line with priority -1.
    LogLine findEndingWith(const std::string& suffix) const;
    void clear();

    bool waitFor(const std::function<bool(const std::vector<LogLine>&)>& predicate,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    bool waitForText(const std::string& needle,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

    // "P/tag: text" per line; dump() joins them for failure messages.
    std::vector<std::string> rows() const;
    std::string dump() const;
};

// Sets liblog's minimum priority while it lives, then lets every priority through again.
class MinimumPriority {
public:
    explicit MinimumPriority(int priority);
    ~MinimumPriority();
    MinimumPriority(const MinimumPriority&) = delete;
    MinimumPriority& operator=(const MinimumPriority&) = delete;
};

}  // namespace rux::test
