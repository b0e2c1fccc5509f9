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
 * - Only getInstance, init, release and property_get_int32 are exported from
 *   librux_client.so; the rest of the class is the library's own logging interface.
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

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace rux {

enum DumpRequestType {
    BUFFER_IS_FULL = 0,
    USER_COMMAND = 1,
    LOGGING_TIMER_EXPIRED = 2,
    CRASH_DETECTED = 3,
    SHUTDOWN = 4,
};

class Log {
public:
    // --- host entry ----------------------------------------------------------
    // The one Log object; built when the library loads and never freed.
    RUX_EXPORT static Log& getInstance();
    // Stores `tag` (the Android log tag of every line and the name of the log files)
    // and, the first time, starts logging: see the house rules above.
    RUX_EXPORT void init(const char* tag);
    // Stops the dumper and timer threads and waits for them.
    RUX_EXPORT void release();

    // --- the library's logging interface -------------------------------------
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

}  // namespace rux

#endif /* __cplusplus */

#endif
