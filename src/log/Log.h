// The Log singleton: the logging front of the IPC, socket and logging code, and the
// state behind it (records waiting for the dumper, dump requests, the diagnostic
// channel, the log plug-in, encrypted log files). The class itself is declared in the
// public header, because a host process starts logging through it (Log::init); this
// header adds the library's call-site macros.
//
// Threads: any thread may log. Log::init (called by a host process, never by the
// library itself) starts the dumper and log timer threads; release() stops them.
//
// Locks: the record mutex serialises addLogRecord, dMapLog, init and the log files, so
// records reach the Android log, the diagnostic channel and the log file in call
// order. It is recursive because a line that fails to build its time stamp logs about
// it from inside the same call, and init logs while it holds it. The queues have their
// own locks, taken inside the record mutex only. Threads are joined outside it.
#pragma once

#include "log/ThreadSafeQueue.h"
#include "rux/rux_log.h"

namespace rux {

// "BUFFER_IS_FULL" ... "SHUTDOWN"; "UNKNOWN" for any other value.
const char* dumpRequestName(int type);

// SIGUSR1 handler installed when the log plug-in is complete: its only purpose is that
// the signal interrupts blocking calls (EINTR) instead of ending the process. The line
// "Received signal %d" is written by the log timer thread, not inside the handler.
void eintrTestHandler(int sig);

}  // namespace rux

// Call-site macros: the file, function and line come from the call site.
#define RUX_LOG(level, tag, ...)                                                      \
    ::rux::Log::getInstance().addLogRecord((level), (tag), __FILE__, __func__, __LINE__, \
                                           __VA_ARGS__)
#define RUX_ADB_LOG(level, tag, ...)                                                \
    ::rux::Log::getInstance().printToAdb((level), (tag), __FILE__, __func__, __LINE__, \
                                         __VA_ARGS__)
