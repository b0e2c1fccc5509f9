// A deque guarded by a mutex, with a condition variable for consumers that block.
// No capacity limit: callers apply their own thresholds.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

namespace rux::utils {

template <typename T>
class ThreadSafeQueue {
public:
    void push(T value) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mItems.push_back(std::move(value));
        }
        mCond.notify_one();
    }

    size_t size() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems.size();
    }

    bool empty() const { return size() == 0; }

    // Blocks until an element is present and removes the front.
    T waitAndPop() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return !mItems.empty(); });
        T value = std::move(mItems.front());
        mItems.pop_front();
        return value;
    }

    // Removes the front element if there is one; never blocks.
    std::optional<T> tryPop() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mItems.empty()) return std::nullopt;
        T value = std::move(mItems.front());
        mItems.pop_front();
        return value;
    }

    // Removes every element for which `pred` holds; returns how many went.
    template <typename Pred>
    size_t removeIf(Pred pred) {
        std::lock_guard<std::mutex> lock(mMutex);
        const size_t before = mItems.size();
        for (auto it = mItems.begin(); it != mItems.end();) it = pred(*it) ? mItems.erase(it) : it + 1;
        return before - mItems.size();
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.clear();
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mCond;
    std::deque<T> mItems;  // guarded by mMutex
};

}  // namespace rux::utils
