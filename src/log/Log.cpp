#include "log/Log.h"

#include <android/log.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "log/DiagCmdProcessor.h"
#include "log/LogFormat.h"

namespace rux {

bool Log::isVerboseLogEnabled = true;
std::atomic<void*> Log::_libalog_handle{nullptr};
std::atomic<Log::AlogFn> Log::rux_alog_fn{nullptr};
std::atomic<Log::PersistSettingFn> Log::ruxGetPersistSetting{nullptr};
std::atomic<Log::DecodeBufferFn> Log::ruxDecodeBuffer{nullptr};

namespace {

constexpr char kLevelLetters[] = "XXVDIWEF";

// Set while a record line is being built on this thread, so that the line reporting
// a failed time conversion does not try to build a record line of its own.
thread_local bool tBuildingEntry = false;

unsigned long currentTid() { return static_cast<unsigned long>(syscall(SYS_gettid)); }

// The Log object is built when the library loads and is never freed: threads that
// are still logging while the process exits keep a valid object. Unloading stops the
// log threads.
struct LogLifetime {
    LogLifetime() { Log::getInstance(); }
    ~LogLifetime() { Log::getInstance().release(); }
} gLogLifetime;

}  // namespace

const char* dumpRequestName(int type) {
    switch (type) {
        case BUFFER_IS_FULL: return "BUFFER_IS_FULL";
        case USER_COMMAND: return "USER_COMMAND";
        case LOGGING_TIMER_EXPIRED: return "LOGGING_TIMER_EXPIRED";
        case CRASH_DETECTED: return "CRASH_DETECTED";
        case SHUTDOWN: return "SHUTDOWN";
        default: return "UNKNOWN";
    }
}

Log& Log::getInstance() {
    static Log* const instance = new Log();
    return *instance;
}

void Log::LogRecord::init(int lvl, const std::string& msg) {
    level = lvl;
    tid = currentTid();
    pid = getpid();
    gettimeofday(&timestamp, nullptr);
    message = msg;
}

std::string Log::LogRecord::getDiagEntry() const {
    struct tm tmv {};
    const time_t seconds = timestamp.tv_sec;
    if (localtime_r(&seconds, &tmv) == nullptr) {
        if (!tBuildingEntry) {
            tBuildingEntry = true;
            RUX_LOG(2, "RUX", "Unable to obtain valid time");
            tBuildingEntry = false;
        }
        return {};
    }
    char date[50];
    std::strftime(date, sizeof date, "%F %X", &tmv);
    char stamp[100];
    std::snprintf(stamp, sizeof stamp, "%s.%03d", date,
                  static_cast<int>(timestamp.tv_usec / 1000));
    char line[log::kLineBufferSize];
    const char letter = (level >= 0 && level <= 7) ? kLevelLetters[level] : 'X';
    int n = std::snprintf(line, sizeof line, "%s %5d %5lu %c %s : ", stamp, pid, tid, letter,
                          isDmap ? "DMAP" : "RUX");
    if (n < 0) return {};
    if (static_cast<size_t>(n) < sizeof line)
        std::snprintf(line + n, sizeof line - n, "%s", message.c_str());
    return std::string(line);
}

std::string Log::tag() const { return *std::atomic_load(&mTag); }

void Log::setTag(const std::string& tag) {
    std::atomic_store(&mTag, std::make_shared<const std::string>(tag));
}

void Log::postDumpIfQueueFull() {
    if (mRecords.size() > kQueueDumpThreshold) addDumpRequest(BUFFER_IS_FULL);
}

void Log::addLogRecord(int level, const char* tag, const char* file, const char* function,
                       int line, const char* format, ...) {
    std::lock_guard<std::recursive_mutex> lock(mRecordMutex);
    va_list args;
    va_start(args, format);
    const std::string text = log::formatMessage(tag, file, function, line, format, args);
    va_end(args);

    const std::string logTag = this->tag();
    if (AlogFn alog = rux_alog_fn.load()) {
        alog(level, logTag.c_str(), "%s", text.c_str());
    } else {
        __android_log_print(level, logTag.c_str(), "%s", text.c_str());
    }
    if (tBuildingEntry) return;  // reporting on a record line that could not be built

    postDumpIfQueueFull();
    auto record = std::make_shared<LogRecord>();
    record->init(level, text);
    if (mEncryptionActive.load()) encryptLogMsg(record->getDiagEntry(), mCurrentFileName);
    if (!mBufferedDiag.load()) {
        const std::string entry = record->getDiagEntry();
        if (!entry.empty()) writeToDiag(entry);
    } else {
        mRecords.push(std::move(record));
    }
}

void Log::printToAdb(int level, const char* tag, const char* file, const char* function,
                     int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = log::formatMessage(tag, file, function, line, format, args);
    va_end(args);
    __android_log_print(level, this->tag().c_str(), "%s", text.c_str());
    postDumpIfQueueFull();
    auto record = std::make_shared<LogRecord>();
    record->init(level, text);
    mRecords.push(std::move(record));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void Log::logModuleDebug(const char* format, ...) {
    const std::string full = std::string("| ruxLog |") + " " + (format ? format : "");
    va_list args;
    va_start(args, format);
    const std::string text = log::formatLine(full.c_str(), args);
    va_end(args);
    __android_log_print(ANDROID_LOG_DEBUG, tag().c_str(), "%s", text.c_str());
}
#pragma GCC diagnostic pop

std::vector<std::string> Log::formatBuffer(const std::string& name,
                                           const std::vector<uint8_t>& bytes) {
    std::string text = name + ": len[" + std::to_string(bytes.size()) + "][";
    char hex[8];
    for (uint8_t b : bytes) {
        std::snprintf(hex, sizeof hex, "0x%x, ", b);
        text += hex;
    }
    text += "]";
    std::vector<std::string> pieces;
    for (size_t pos = 0; pos < text.size(); pos += 150) pieces.push_back(text.substr(pos, 150));
    return pieces;
}

void Log::printBuffer(const std::string& name, const std::vector<uint8_t>& bytes, int) {
    // The hex dump is prepared but has no outlet in this system.
    (void)formatBuffer(name, bytes);
}

void Log::printKPI(const std::string&) {}

void Log::printVersion() { RUX_LOG(4, "RUX", "version %s", kVersion); }

void Log::addDumpRequest(DumpRequestType type) { mDumpRequests.push(type); }

void Log::writeToDiag(const std::string& line) { DiagCmdProcessor::getInstance()->writeToDiag(line); }

void Log::encryptLogMsg(const std::string&, const std::string&) {
    // Encrypted log files are written once log encryption is initialised.
}

void Log::release() { addDumpRequest(SHUTDOWN); }

}  // namespace rux
