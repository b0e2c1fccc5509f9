/*
 * librux_client logging: the host process's entry to the library's logging.
 *
 * House rules
 * - Nothing inside the library starts logging threads. A host process that wants the
 *   log dumper and log timer threads, the diagnostic-channel command, the log plug-in
 *   and encrypted log files calls rux::Log::getInstance().init(tag) once, from any
 *   thread; logging works before that (lines go to the Android log and straight to
 *   the diagnostic channel).
 * - init reads the configuration once: the system property
 *   "persist.vendor.data.rux.logging" (bit 0 buffers diagnostic records for the dumper,
 *   bit 1 drops debug diagnostic-map records, bit 2 drops all of them),
 *   "persist.vendor.data.rux.log_perms" (group-writable log files) and the optional
 *   encryption configuration "/data/vendor/rux_logs/config/rux_log_config". A second
 *   init only replaces the tag; after release() init starts everything again.
 * - release() stops both threads and waits for them; records still waiting for the
 *   dumper are not sent. It never blocks on other loggers and is also run when the
 *   library is unloaded.
 * - Failures are never thrown: a missing plug-in, configuration file or log folder
 *   leaves that outlet off and is reported in the log.
 * - rux::Log's getInstance, init and release and property_get_int32 are all that
 *   librux_client.so exports for logging.
 */
#ifndef RUX_RUX_LOG_H
#define RUX_RUX_LOG_H

#include <stdint.h>

#include "rux/rux_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The integer value of a system property, or `default_value` when the key is null,
 * the property is unset or empty, has no leading digits, is out of range or is above
 * 0x7FFFFFFF. Decimal, 0x-hexadecimal and 0-octal are accepted; trailing text is
 * ignored. */
RUX_EXPORT int32_t property_get_int32(const char* key, int32_t default_value);

#ifdef __cplusplus
}

namespace rux {

// The library's logging, as a host process starts and stops it. Everything else about
// logging is the library's own.
class Log {
public:
    // The handle; valid for the whole life of the process.
    RUX_EXPORT static Log& getInstance();
    // Stores `tag` (the Android log tag of every line and the name of the log files)
    // and, the first time, starts logging: see the house rules above.
    RUX_EXPORT void init(const char* tag);
    // Stops the dumper and timer threads and waits for them.
    RUX_EXPORT void release();

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

private:
    Log() = default;
};

}  // namespace rux

#endif /* __cplusplus */

#endif
