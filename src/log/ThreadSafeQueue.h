// A deque guarded by a mutex, with a condition variable for consumers that block.
// No capacity limit: callers apply their own thresholds. size() takes no lock: it reads
// a count kept beside the deque, so a logging call can look at it for nothing.
#pragma once

#include <atomic>
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
            mCount.store(mItems.size(), std::memory_order_relaxed);
        }
        mCond.notify_one();
    }

    // The count after the last change; exact whenever no change is under way.
    size_t size() const { return mCount.load(std::memory_order_relaxed); }

    bool empty() const { return size() == 0; }

    // Blocks until an element is present and removes the front.
    T waitAndPop() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return !mItems.empty(); });
        T value = std::move(mItems.front());
        mItems.pop_front();
        mCount.store(mItems.size(), std::memory_order_relaxed);
        return value;
    }

    // Removes the front element if there is one; never blocks.
    std::optional<T> tryPop() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mItems.empty()) return std::nullopt;
        T value = std::move(mItems.front());
        mItems.pop_front();
        mCount.store(mItems.size(), std::memory_order_relaxed);
        return value;
    }

    // Removes every element for which `pred` holds; returns how many went.
    template <typename Pred>
    size_t removeIf(Pred pred) {
        std::lock_guard<std::mutex> lock(mMutex);
        const size_t before = mItems.size();
        for (auto it = mItems.begin(); it != mItems.end();) it = pred(*it) ? mItems.erase(it) : it + 1;
        mCount.store(mItems.size(), std::memory_order_relaxed);
        return before - mItems.size();
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.clear();
        mCount.store(0, std::memory_order_relaxed);
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mCond;
    std::deque<T> mItems;  // guarded by mMutex
    std::atomic<size_t> mCount{0};  // mItems.size(), written under mMutex
};

}  // namespace rux::utils
