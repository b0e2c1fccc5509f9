// Test seams of the logging backend, host builds only. Device builds use the system's
// fixed values: a 30-second log timer, logs under "/data/vendor/rux_logs" and the
// plug-in "libruxalog.so" from the library path.
#pragma once

#include <chrono>
#include <string>

#if RUX_PLATFORM_HOST
namespace rux::log {

// Period of the log timer started by the next Log::init (30 s by default).
void setTimerPeriod(std::chrono::milliseconds period);
// Folder standing in for "/data/vendor/rux_logs"; empty restores RUX_LOG_ROOT (or the
// device folder when that is unset).
void setLogRoot(const std::string& root);
// Name given to dlopen by the next Log::init instead of "libruxalog.so"; empty
// restores it.
void setPluginPath(const std::string& path);

}  // namespace rux::log
#endif
