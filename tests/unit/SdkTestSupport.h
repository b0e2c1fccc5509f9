// Helpers shared by the SDK core and request client tests: an inbox that threads put
// values into and the test waits on with a deadline, and a per-test socket path.
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace rux::test {

template <typename T>
class Inbox {
public:
    void put(T value) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mItems.push_back(std::move(value));
        }
        mChanged.notify_all();
    }
    // Waits until at least `n` values are in, or 10 s pass.
    bool waitFor(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return mItems.size() >= n; });
    }
    std::vector<T> get() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems;
    }
    size_t size() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems.size();
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.clear();
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<T> mItems;
};

inline std::string uniqueSocketPath(const char* stem) {
    static std::atomic<int> counter{0};
    return std::string("/tmp/") + stem + "-" + std::to_string(::getpid()) + "-" +
           std::to_string(counter++) + ".sock";
}

// How many captured lines end with `suffix`.
inline size_t countEndingWith(const LogCapture& capture, const std::string& suffix) {
    size_t n = 0;
    for (auto& line : capture.lines())
        if (line.text.size() >= suffix.size() &&
            line.text.compare(line.text.size() - suffix.size(), suffix.size(), suffix) == 0)
            ++n;
    return n;
}

}  // namespace rux::test
