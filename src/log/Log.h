// The Log singleton: the logging front of the IPC, socket and logging code, and the
// state behind it (records waiting for the dumper, dump requests, the diagnostic
// channel, encrypted log files).
//
// Threads: any thread may log. Log::init (called by a host process, never by the
// library itself) starts the dumper and log timer threads; release() stops them.
//
// Locks: mRecordMutex serialises addLogRecord and dMapLog, so records reach the
// queue, the Android log and the diagnostic channel in call order. It is recursive
// because a line that fails to build its time stamp logs about it from inside the
// same call. The queues have their own locks, taken inside mRecordMutex only.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "log/ThreadSafeQueue.h"
#include "rux/rux_export.h"

namespace rux {

enum DumpRequestType {
    BUFFER_IS_FULL = 0,
    USER_COMMAND = 1,
    LOGGING_TIMER_EXPIRED = 2,
    CRASH_DETECTED = 3,
    SHUTDOWN = 4,
};

// "BUFFER_IS_FULL" ... "SHUTDOWN"; "UNKNOWN" for any other value.
const char* dumpRequestName(int type);

class Log {
public:
    struct LogRecord {
        std::string message;
        unsigned long tid = 0;
        int pid = 0;
        timeval timestamp{};
        int level = 0;
        bool isDmap = false;

        void init(int level, const std::string& message);
        // "<date> <time>.<ms> <pid> <tid> <letter> RUX : <message>", at most 511
        // characters; "" when the time cannot be converted.
        std::string getDiagEntry() const;
    };

    using AlogFn = int (*)(int priority, const char* tag, const char* format, ...);
    using PersistSettingFn = int (*)(uint8_t setting, uint8_t* buffer);
    using DecodeBufferFn = bool (*)(uint8_t* request, uint16_t length, uint8_t* output,
                                    uint16_t* outputLength);

    // Records waiting in the queue above this count make every logging call ask the
    // dumper for a BUFFER_IS_FULL dump.
    static constexpr size_t kQueueDumpThreshold = 2999;
    static constexpr const char* kVersion = "RUX-20250524-d9c57ad5";

    static Log& getInstance();

    // Part of the interface for callers; nothing in the library reads it.
    static bool isVerboseLogEnabled;

    // Android log (or the plug-in's alog), then a record for the diagnostic channel
    // (at once, or through the dumper when buffered) and the encrypted log file.
    void addLogRecord(int level, const char* tag, const char* file, const char* function,
                      int line, const char* format, ...) __attribute__((format(printf, 7, 8)));
    // Android log, and a record queued for the dumper whatever the configuration.
    void printToAdb(int level, const char* tag, const char* file, const char* function,
                    int line, const char* format, ...) __attribute__((format(printf, 7, 8)));
    // Android log only, at debug priority.
    void logModuleDebug(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Formats a hex dump of `bytes`; the pieces are not emitted anywhere.
    void printBuffer(const std::string& name, const std::vector<uint8_t>& bytes, int unused);
    void printKPI(const std::string& text);
    void printVersion();

    void addDumpRequest(DumpRequestType type);
    void writeToDiag(const std::string& line);

    // Stops the log threads (if running); records still queued are not sent.
    void release();

    // --- observers, for the host process and tests --------------------------
    std::string tag() const;
    size_t queuedRecords() const { return mRecords.size(); }
    size_t pendingDumpRequests() const { return mDumpRequests.size(); }
    bool bufferedDiag() const { return mBufferedDiag.load(); }

    // The 150-character pieces printBuffer produces (exposed so the format is testable).
    static std::vector<std::string> formatBuffer(const std::string& name,
                                                 const std::vector<uint8_t>& bytes);

    // Plug-in entries ("libruxalog.so"); null when absent.
    static std::atomic<void*> _libalog_handle;
    static std::atomic<AlogFn> rux_alog_fn;
    static std::atomic<PersistSettingFn> ruxGetPersistSetting;
    static std::atomic<DecodeBufferFn> ruxDecodeBuffer;

private:
    Log() = default;
    ~Log() = default;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void setTag(const std::string& tag);
    void postDumpIfQueueFull();
    void encryptLogMsg(const std::string& line, const std::string& fileName);

    std::recursive_mutex mRecordMutex;  // serialises addLogRecord and dMapLog
    rux::utils::ThreadSafeQueue<std::shared_ptr<LogRecord>> mRecords;
    rux::utils::ThreadSafeQueue<DumpRequestType> mDumpRequests;

    std::shared_ptr<const std::string> mTag = std::make_shared<const std::string>();  // atomic access
    std::atomic<bool> mBufferedDiag{false};
    std::atomic<bool> mDmapDebugOff{false};
    std::atomic<bool> mDmapOff{false};
    std::atomic<bool> mEncryptionActive{false};
    std::string mCurrentFileName;  // guarded by mRecordMutex
};

}  // namespace rux

// Call-site macros: the file, function and line come from the call site.
#define RUX_LOG(level, tag, ...)                                                      \
    ::rux::Log::getInstance().addLogRecord((level), (tag), __FILE__, __func__, __LINE__, \
                                           __VA_ARGS__)
#define RUX_ADB_LOG(level, tag, ...)                                                \
    ::rux::Log::getInstance().printToAdb((level), (tag), __FILE__, __func__, __LINE__, \
                                         __VA_ARGS__)
