// The Log singleton: the logging front of the IPC, socket and logging code, and the
// state behind it (records waiting for the dumper, dump requests, the diagnostic
// channel, the log plug-in, encrypted log files), with the library's call-site macros.
// A host process reaches only init and release, through rux::Log of rux/rux_log.h.
//
// Threads: any thread may log. Log::init (called by a host process, never by the
// library itself) starts the dumper and log timer threads; release() stops them.
//
// Cost: every front first asks who will read a line (liblog, the plug-in, the
// diagnostic channel's log code, buffering, encryption); a line nobody reads is never
// formatted and costs a few atomic loads, no system call and no lock.
//
// Locks: the record mutex is taken only when a record is made, after its text and
// line are built: it hands the line to the Android log, the log file and the channel
// or queue in one order, and guards init and the log files. Lines that only the
// Android log reads are written without it. It is recursive because init logs while
// it holds it. The queues have their own locks, taken inside the record mutex only.
// Threads are joined outside it.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rux/rux_log.h"

namespace rux::log {

enum DumpRequestType {
    BUFFER_IS_FULL = 0,
    USER_COMMAND = 1,
    LOGGING_TIMER_EXPIRED = 2,
    CRASH_DETECTED = 3,
    SHUTDOWN = 4,
};

class Log {
public:
    // The one Log object; built when the library loads and never freed.
    static Log& getInstance();
    // What rux::Log::init and release of rux/rux_log.h do (see the rules there):
    // stores `tag` (the Android log tag of every line and the name of the log files)
    // and, the first time, reads the configuration and starts the threads.
    void init(const char* tag);
    // Stops the dumper and timer threads and waits for them.
    void release();

    struct LogRecord {
        std::string message;
        unsigned long tid = 0;
        int pid = 0;
        timeval timestamp{};
        int level = 0;
        bool isDmap = false;

        void init(int level, const std::string& message);
        // "<date> <time>.<ms> <pid> <tid> <letter> RUX : <message>" ("DMAP" for
        // diagnostic-map records), at most 511 characters; "" when the time cannot
        // be converted.
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

    // Part of the interface for callers; nothing in the library reads it.
    static bool isVerboseLogEnabled;

    // Android log (or the plug-in's alog), then a record for the diagnostic channel
    // (at once, or through the dumper when buffered) and the encrypted log file.
    void addLogRecord(int level, const char* tag, const char* file, const char* function, int line,
                      const char* format, ...) __attribute__((format(printf, 7, 8)));
    // Android log, and a record queued for the dumper whatever the configuration.
    void printToAdb(int level, const char* tag, const char* file, const char* function, int line,
                    const char* format, ...) __attribute__((format(printf, 7, 8)));
    // Android log only, at debug priority.
    void logModuleDebug(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Formats a hex dump of `bytes`; the pieces are not emitted anywhere.
    void printBuffer(const std::string& name, const std::vector<uint8_t>& bytes, int unused);
    void printKPI(const std::string& text);
    void printVersion();
    // A diagnostic-map record: the plug-in's alog with tag "DMAP" (no Android-log
    // fallback), the encrypted file and the diagnostic channel at once, never queued.
    void dMapLog(int level, const std::string& message);

    void addDumpRequest(DumpRequestType type);
    void writeToDiag(const std::string& line);
    // The plug-in's decodeBuffer over a diagnostic command; false without it.
    bool decodeBuff(uint8_t* request, uint16_t length, std::vector<uint8_t>& output);
    // The plug-in's getPersistSetting; false without it.
    bool getPersistSetting(uint8_t& setting, std::vector<uint8_t>& output);

    // --- log files (the encrypted outlet) --------------------------------------
    // Reads the encryption configuration and, when its key is usable, prepares the
    // first log file and turns encryption on. Called by init.
    void initLogEncryption();
    // Encrypts one record line into `fileName`, rotating to a new file first when the
    // current one is full. Called under the record lock for every record.
    void encryptLogMsg(const std::string& line, const std::string& fileName);
    // "p0" for the tag "rux", otherwise the tag.
    std::string getFileTag() const;
    // The main log folder for the tag "rux", otherwise the other log folder.
    std::string getLogFilePath() const;
    // Names (and creates) the file for the current index: <path>/rux_log_<fileTag>_0<index>.
    bool createNewlogFileName();
    // Reviews the files already in the log folder: picks the next index, prunes old ones.
    void checkExistingFiles();
    // Files by age in seconds, newest first.
    void reviewExistingFiles(const std::map<int, std::string>& filesByAge);
    // Appends `bytes` to `fileName`; failures are ignored.
    void writeToFile(const std::vector<uint8_t>& bytes, const std::string& fileName);

    // --- observers, for the host process and tests --------------------------
    std::string tag() const;
    bool initialized() const;
    size_t queuedRecords() const;
    size_t pendingDumpRequests() const;
    bool bufferedDiag() const;
    bool dmapDebugOff() const;
    bool dmapOff() const;
    bool groupWritable() const;
    bool encryptionActive() const;
    int fileIndex() const;
    int recordsInFile() const;
    uint64_t maxRecordsPerFile() const;
    uint64_t maxFiles() const;
    std::string currentFileName() const;

    // The 150-character pieces printBuffer produces (exposed so the format is testable).
    static std::vector<std::string> formatBuffer(const std::string& name,
                                                 const std::vector<uint8_t>& bytes);

    // Plug-in entries ("libruxalog.so"); null when absent.
    static std::atomic<void*> _libalog_handle;
    static std::atomic<AlogFn> rux_alog_fn;
    static std::atomic<PersistSettingFn> ruxGetPersistSetting;
    static std::atomic<DecodeBufferFn> ruxDecodeBuffer;

    struct State;  // everything behind the interface, defined by the library

private:
    Log();
    ~Log() = delete;  // never freed: threads may log while the process exits
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    struct Audience;
    Audience audienceFor(int level) const;
    static void writeAndroidLog(const Audience& audience, int level, const char* text);
    void dispatchRecord(const std::shared_ptr<LogRecord>& record, std::string entry,
                        bool entryBuilt, bool queueAllowed);
    void appendRecord(const std::vector<uint8_t>& bytes, const std::string& fileName);
    void closeRecordFile();
    void setTag(const std::string& tag);
    void postDumpIfQueueFull();
    void loadPlugin();
    void prepareLogFiles();
    void dumper();
    void timerLoop();

    State* const mState;
};

// "BUFFER_IS_FULL" ... "SHUTDOWN"; "UNKNOWN" for any other value.
const char* dumpRequestName(int type);

// SIGUSR1 handler installed when the log plug-in is complete: its only purpose is that
// the signal interrupts blocking calls (EINTR) instead of ending the process. The line
// "Received signal %d" is written by the log timer thread, not inside the handler.
void eintrTestHandler(int sig);

}  // namespace rux::log

// Call-site macros: the file, function and line come from the call site.
#define RUX_LOG(level, tag, ...)                                                              \
    ::rux::log::Log::getInstance().addLogRecord((level), (tag), __FILE__, __func__, __LINE__, \
                                                __VA_ARGS__)
#define RUX_ADB_LOG(level, tag, ...)                                                        \
    ::rux::log::Log::getInstance().printToAdb((level), (tag), __FILE__, __func__, __LINE__, \
                                              __VA_ARGS__)
