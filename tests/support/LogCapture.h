// Captures every line written to the Android log through liblog's logger hook, so tests
// can assert exact priorities, tags and texts. A null tag is recorded as kNullTag.
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

    // Installs the hook (once per process), lets every priority through and forgets
    // what was captured before.
    LogCapture();

    std::vector<LogLine> lines() const;
    // Lines whose text contains `needle`.
    std::vector<LogLine> matching(const std::string& needle) const;
    bool contains(const std::string& needle) const { return !matching(needle).empty(); }
    // The first line whose text ends with `suffix` (log prefixes vary with the line
    // number of the call site), or an empty line with priority -1.
    LogLine findEndingWith(const std::string& suffix) const;
    void clear();

    // Waits until `predicate` holds over the captured lines, or the deadline passes.
    bool waitFor(const std::function<bool(const std::vector<LogLine>&)>& predicate,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    bool waitForText(const std::string& needle,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

    // All captured lines as "P/tag: text" rows; dump() joins them for failure messages.
    std::vector<std::string> rows() const;
    std::string dump() const;
};

// Sets liblog's minimum priority for the lifetime of the object, then lets every
// priority through again as LogCapture does.
class MinimumPriority {
public:
    explicit MinimumPriority(int priority);
    ~MinimumPriority();
    MinimumPriority(const MinimumPriority&) = delete;
    MinimumPriority& operator=(const MinimumPriority&) = delete;
};

}  // namespace rux::test
