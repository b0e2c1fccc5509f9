// Where the logging backend finds its folder, its plug-in and its timer period: the
// system's fixed values on a device; on a host also RUX_LOG_ROOT and the test seams of
// LogSeams.h.
#include "log/LogSeams.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>

#include "log/LogState.h"

namespace rux::log {

namespace {

constexpr const char* kDeviceLogRoot = "/data/vendor/rux_logs";
constexpr const char* kPluginName = "libruxalog.so";
constexpr long long kDefaultTimerPeriodMs = 30000;

#if RUX_PLATFORM_HOST
std::atomic<long long> gTimerPeriodMs{kDefaultTimerPeriodMs};
std::mutex gSeamMutex;
std::string gLogRootOverride;     // guarded by gSeamMutex
std::string gPluginPathOverride;  // guarded by gSeamMutex
#endif

}  // namespace

long long timerPeriodMs() {
#if RUX_PLATFORM_HOST
    return gTimerPeriodMs.load();
#else
    return kDefaultTimerPeriodMs;
#endif
}

std::string pluginPath() {
#if RUX_PLATFORM_HOST
    std::lock_guard<std::mutex> lock(gSeamMutex);
    if (!gPluginPathOverride.empty()) return gPluginPathOverride;
#endif
    return kPluginName;
}

std::string logRoot() {
#if RUX_PLATFORM_HOST
    {
        std::lock_guard<std::mutex> lock(gSeamMutex);
        if (!gLogRootOverride.empty()) return gLogRootOverride;
    }
    const char* env = std::getenv("RUX_LOG_ROOT");
    if (env != nullptr && *env != '\0') return env;
#endif
    return kDeviceLogRoot;
}

#if RUX_PLATFORM_HOST
void setTimerPeriod(std::chrono::milliseconds period) {
    gTimerPeriodMs.store(period.count());
}

void setLogRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(gSeamMutex);
    gLogRootOverride = root;
}

void setPluginPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(gSeamMutex);
    gPluginPathOverride = path;
}
#endif

}  // namespace rux::log
