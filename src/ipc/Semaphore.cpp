#include "ipc/Semaphore.h"

namespace rux::ipc {

void Semaphore::increase() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (binary)
            count = 1;
        else
            ++count;
    }
    std::lock_guard<std::mutex> lock(*notifyMutex);
    condition.notify_one();
}

void Semaphore::decrease() {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait(lock, [this] { return count != 0; });
    --count;
}

bool Semaphore::tryDecrease() {
    std::lock_guard<std::mutex> lock(mutex);
    if (count == 0) return false;
    --count;
    return true;
}

}  // namespace rux::ipc
