// A counting or binary semaphore. Binary (the default) keeps at most one post, so
// posts that nobody has consumed yet do not pile up.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace rux::ipc {

class Semaphore {
public:
    explicit Semaphore(bool binary = true) : binary(binary) {}

    void increase();
    // Blocks until a post is available, then consumes it.
    void decrease();
    // Consumes a post if one is available; never blocks.
    bool tryDecrease();

private:
    const bool binary;
    int64_t count = 0;  // guarded by mutex
    std::mutex mutex;
    std::condition_variable_any condition;
    std::shared_ptr<std::mutex> notifyMutex = std::make_shared<std::mutex>();  // around notify
};

}  // namespace rux::ipc
