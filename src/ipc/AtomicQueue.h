// A deque with its own lock: any thread may push, pop or ask whether it is empty.
#pragma once

#include <deque>
#include <mutex>
#include <optional>

namespace rux::ipc {

template <typename T>
class AtomicQueue {
public:
    void push(T value) {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.push_back(std::move(value));
    }

    // Removes and returns the front; empty when there is none.
    std::optional<T> pop() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mItems.empty()) return std::nullopt;
        T front = std::move(mItems.front());
        mItems.pop_front();
        return front;
    }

    bool empty() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems.empty();
    }

    size_t size() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mItems.size();
    }

private:
    mutable std::mutex mMutex;
    std::deque<T> mItems;  // guarded by mMutex
};

}  // namespace rux::ipc
