// A list that threads fill and tests wait on, each wait with a deadline.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace rux::test {

template <typename T>
class Inbox {
public:
    // Notifies under the lock: a test may destroy the inbox as soon as it sees the value.
    void put(T value) {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.push_back(std::move(value));
        mChanged.notify_all();
    }
    // Waits until `predicate` holds over the values so far, or `timeout` passes.
    template <typename Predicate>
    bool waitUntil(Predicate predicate,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return predicate(mItems); });
    }
    bool waitFor(size_t n) {
        return waitUntil([n](const std::vector<T>& items) { return items.size() >= n; });
    }
    std::vector<T> get() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems;
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

}  // namespace rux::test
