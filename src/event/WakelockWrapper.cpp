#include "event/WakelockWrapper.h"

namespace rux::utils {

WakelockWrapper::WakelockWrapper() = default;

std::shared_ptr<WakelockWrapper> WakelockWrapper::getInstance() {
    // A function-local static: its initialisation is thread-safe, so racing first
    // callers all receive the same instance.
    static std::shared_ptr<WakelockWrapper> instance(new WakelockWrapper());
    return instance;
}

void WakelockWrapper::start() {}

bool WakelockWrapper::doResetTimer() {
    return false;
}

void WakelockWrapper::acquireWakelock() {}

void WakelockWrapper::releaseWakelock() {}

}  // namespace rux::utils
