// Log: the fronts (addLogRecord, printToAdb, dMapLog), the record queue with its
// dumper thread, the log timer thread, the log plug-in and the encryption set-up (the
// files themselves are in LogFiles.cpp), and the host process's entry of rux_log.h.
//
// Lifecycle: the object is built when the library loads and never freed. init() runs
// under the record mutex and moves the phase from idle to running; release() takes the
// thread handles under the same mutex (phase stopping), posts SHUTDOWN, wakes the timer
// and joins both threads outside the mutex (the dumper logs, so it needs the mutex to
// finish); only then is the phase idle again. A second init while running or stopping
// only replaces the tag.
//
// The timer waits on a POSIX semaphore so that the SIGUSR1 handler can wake it: the
// handler only stores the signal number and posts (both async-signal-safe), and the
// timer thread writes the "Received signal" line.
#include "log/Log.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <thread>

#include "log/CryptoUtil.h"
#include "log/DiagCmdProcessor.h"
#include "log/LogFileFormat.h"
#include "log/LogFormat.h"
#include "log/LogSeams.h"
#include "log/LogState.h"
#include "log/RecordFields.h"

namespace rux::log {

bool Log::isVerboseLogEnabled = true;
std::atomic<void*> Log::_libalog_handle{nullptr};
std::atomic<Log::AlogFn> Log::rux_alog_fn{nullptr};
std::atomic<Log::PersistSettingFn> Log::ruxGetPersistSetting{nullptr};
std::atomic<Log::DecodeBufferFn> Log::ruxDecodeBuffer{nullptr};

namespace {

constexpr char kLevelLetters[] = "XXVDIWEF";
constexpr const char* kLoggingProperty = "persist.vendor.data.rux.logging";
constexpr const char* kPermsProperty = "persist.vendor.data.rux.log_perms";
constexpr const char* kConfigFile = "/config/rux_log_config";
constexpr size_t kMaxConfigBytes = 64 * 1024;

// Set while a record line is being built on this thread, so that the line reporting
// a failed time conversion does not try to build a record line of its own.
thread_local bool tBuildingEntry = false;

// Wakes the log timer: release() to stop it, the SIGUSR1 handler to have it log.
struct TimerWake {
    sem_t sem;
    std::atomic<bool> stopRequested{false};
    std::atomic<int> pendingSignal{0};
    TimerWake() { sem_init(&sem, 0, 0); }
    void drain() {
        while (sem_trywait(&sem) == 0) {
        }
    }
};
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler needs a lock-free int");
TimerWake gTimerWake;

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

void eintrTestHandler(int sig) {
    gTimerWake.pendingSignal.store(sig);
    sem_post(&gTimerWake.sem);
}

Log::Log() : mState(new State()) {}

Log& Log::getInstance() {
    static Log* const instance = new Log();
    return *instance;
}

// --- records -----------------------------------------------------------------

void Log::LogRecord::init(int lvl, const std::string& msg) {
    level = lvl;
    tid = currentTid();
    pid = currentPid();
    gettimeofday(&timestamp, nullptr);
    message = msg;
}

std::string Log::LogRecord::getDiagEntry() const {
    const char* date = localTimeText(timestamp.tv_sec);
    if (date == nullptr) {
        if (!tBuildingEntry) {
            tBuildingEntry = true;
            RUX_LOG(2, "RUX", "Unable to obtain valid time");
            tBuildingEntry = false;
        }
        return {};
    }
    // "%s.%03d %5d %5lu %c %s : " and the message up to its first zero byte, cut at 511
    // characters; written piece by piece, as snprintf would.
    char line[kLineBufferSize];
    LineWriter w(line);
    w.put(date);
    w.put(".");
    w.putDecimal(static_cast<int>(timestamp.tv_usec / 1000), 3, '0');
    w.put(" ");
    w.putDecimal(pid, 5, ' ');
    w.put(" ");
    w.putDecimal(tid, 5, ' ');
    w.put(" ");
    const char letter[2] = {(level >= 0 && level <= 7) ? kLevelLetters[level] : 'X', '\0'};
    w.put(letter);
    w.put(isDmap ? " DMAP : " : " RUX : ");
    w.put(message.c_str());
    return std::string(line, w.length());
}

std::string Log::tag() const {
    return *mState->tag.load(std::memory_order_acquire);
}

void Log::setTag(const std::string& tag) {
    State& s = *mState;
    std::lock_guard<std::mutex> lock(s.tagLock);
    auto it = std::find(s.tags.begin(), s.tags.end(), tag);
    if (it == s.tags.end()) it = s.tags.insert(s.tags.end(), tag);
    s.tag.store(&*it, std::memory_order_release);
}

void Log::postDumpIfQueueFull() {
    if (mState->records.size() > kQueueDumpThreshold) addDumpRequest(BUFFER_IS_FULL);
}

// --- who reads a line ------------------------------------------------------------
//
// Every front first asks who will read the line, before it formats anything: the
// plug-in's alog takes every line; liblog says whether the Android log writes it (the
// question it asks itself inside __android_log_print); a record is wanted when the
// diagnostic channel has the log code enabled, when records are buffered for the
// dumper, or when log files are encrypted. A line nobody reads costs a few atomic
// loads, no system call and no lock.
//
// The record mutex is taken only when a record is made, and only to hand the line to
// the outlets in one order; the text, the record and its line are built before it.

struct Log::Audience {
    AlogFn alog = nullptr;
    const char* logTag = "";
    bool androidLog = false;  // the Android log or the plug-in writes the line
    bool record = false;      // a record goes to the channel, the queue or a log file
    bool queueFull = false;   // the record queue asks for a dump
};

Log::Audience Log::audienceFor(int level) const {
    const State& s = *mState;
    Audience a;
    a.alog = rux_alog_fn.load(std::memory_order_acquire);
    a.logTag = s.tag.load(std::memory_order_acquire)->c_str();
    a.androidLog =
        a.alog != nullptr || __android_log_is_loggable(level, a.logTag, ANDROID_LOG_VERBOSE);
    if (tBuildingEntry) return a;  // reporting on a record line: the Android log only
    a.record = s.encryptionActive.load(std::memory_order_relaxed) ||
               s.bufferedDiag.load(std::memory_order_relaxed) || DiagCmdProcessor::logCodeEnabled();
    a.queueFull = s.records.size() > kQueueDumpThreshold;
    return a;
}

void Log::writeAndroidLog(const Audience& a, int level, const char* text) {
    if (a.alog != nullptr)
        a.alog(level, a.logTag, "%s", text);
    else if (a.androidLog)
        __android_log_write(level, a.logTag, text);  // the text as "%s" would give it
}

// Hands a record to the encrypted file and then to the channel or the queue. `entry` is
// its line if already built.
void Log::dispatchRecord(const std::shared_ptr<LogRecord>& record, std::string entry,
                         bool entryBuilt, bool queueAllowed) {
    State& s = *mState;
    auto line = [&]() -> const std::string& {
        if (!entryBuilt) {
            entry = record->getDiagEntry();
            entryBuilt = true;
        }
        return entry;
    };
    if (s.encryptionActive.load()) encryptLogMsg(line(), s.currentFileName);
    if (queueAllowed && s.bufferedDiag.load()) {
        s.records.push(record);
    } else if (!line().empty()) {
        writeToDiag(line());
    }
}

void Log::addLogRecord(int level, const char* tag, const char* file, const char* function,
                       int line, const char* format, ...) {
    State& s = *mState;
    const Audience a = audienceFor(level);
    if (!a.androidLog && !a.record) {
        if (a.queueFull) addDumpRequest(BUFFER_IS_FULL);  // asked for even when nobody reads
        return;
    }
    char text[kLineBufferSize];
    va_list args;
    va_start(args, format);
    const size_t length = formatMessage(text, tag, file, function, line, format, args);
    va_end(args);

    if (!a.record) {
        writeAndroidLog(a, level, text);
        if (!tBuildingEntry) postDumpIfQueueFull();
        return;
    }
    auto record = std::make_shared<LogRecord>();
    record->init(level, std::string(text, length));
    const bool entryBuilt = s.encryptionActive.load() || !s.bufferedDiag.load();
    std::string entry = entryBuilt ? record->getDiagEntry() : std::string();

    Lock lock(s.recordMutex);
    writeAndroidLog(a, level, text);
    postDumpIfQueueFull();
    dispatchRecord(record, std::move(entry), entryBuilt, true);
}

void Log::printToAdb(int level, const char* tag, const char* file, const char* function,
                     int line, const char* format, ...) {
    char text[kLineBufferSize];
    va_list args;
    va_start(args, format);
    const size_t length = formatMessage(text, tag, file, function, line, format, args);
    va_end(args);
    __android_log_write(level, mState->tag.load(std::memory_order_acquire)->c_str(), text);
    postDumpIfQueueFull();
    auto record = std::make_shared<LogRecord>();
    record->init(level, std::string(text, length));
    mState->records.push(std::move(record));
}

void Log::dMapLog(int level, const std::string& message) {
    State& s = *mState;
    if (s.dmapOff.load() || (s.dmapDebugOff.load() && level == ANDROID_LOG_DEBUG)) return;
    const Audience a = audienceFor(level);
    // Diagnostic-map lines reach the Android log only through the plug-in.
    if (a.alog == nullptr && !a.record && !a.queueFull) return;
    auto record = std::make_shared<LogRecord>();
    record->isDmap = true;
    record->init(level, message);
    std::string entry = a.record ? record->getDiagEntry() : std::string();

    Lock lock(s.recordMutex);
    if (a.alog != nullptr) a.alog(level, "DMAP", "%s", message.c_str());
    postDumpIfQueueFull();
    if (a.record) dispatchRecord(record, std::move(entry), true, false);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void Log::logModuleDebug(const char* format, ...) {
    const char* logTag = mState->tag.load(std::memory_order_acquire)->c_str();
    if (!__android_log_is_loggable(ANDROID_LOG_DEBUG, logTag, ANDROID_LOG_VERBOSE)) return;
    const std::string full = std::string("| ruxLog |") + " " + (format ? format : "");
    va_list args;
    va_start(args, format);
    const std::string text = formatLine(full.c_str(), args);
    va_end(args);
    __android_log_write(ANDROID_LOG_DEBUG, logTag, text.c_str());
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

void Log::addDumpRequest(DumpRequestType type) { mState->dumpRequests.push(type); }

void Log::writeToDiag(const std::string& line) { DiagCmdProcessor::getInstance()->writeToDiag(line); }

// --- lifecycle -----------------------------------------------------------------

void Log::init(const char* tag) {
    State& s = *mState;
    Lock lock(s.recordMutex);
    setTag(tag != nullptr ? tag : "");
    if (tag == nullptr) RUX_LOG(6, "RUX", "init without a tag");
    if (s.phase != State::Phase::kIdle) return;

    // No dumper or timer runs now: a SHUTDOWN or a stop left by a release without
    // threads would end the new ones at once.
    s.dumpRequests.removeIf([](DumpRequestType t) { return t == SHUTDOWN; });
    gTimerWake.stopRequested.store(false);
    gTimerWake.drain();
    // The files of an earlier init are done with; the lines of this one start afresh.
    s.encryptionActive.store(false);
    s.recordsInFile = 0;
    s.fileIndex = 0;

    const int32_t bits = property_get_int32(kLoggingProperty, 0);
    s.bufferedDiag.store((bits & 0x1) != 0);
    s.dmapDebugOff.store((bits & 0x6) != 0);
    s.dmapOff.store((bits & 0x4) != 0);
    s.groupWritable.store(property_get_bool(kPermsProperty, 0) != 0);

    DiagCmdProcessor::getInstance()->initialize(
        [this](uint8_t* request, uint16_t length, std::vector<uint8_t>& response) {
            const bool decoded = decodeBuff(request, length, response);
            addDumpRequest(USER_COMMAND);
            return decoded;
        });
    loadPlugin();
    initLogEncryption();

    try {
        s.dumperThread = std::thread(&Log::dumper, this);
        s.timerThread = std::thread(&Log::timerLoop, this);
    } catch (const std::system_error& e) {
        RUX_LOG(6, "RUX", "cannot start the log threads: %s", e.what());
    }
    s.phase = State::Phase::kRunning;
    s.initialized.store(true);
    printVersion();
}

void Log::release() {
    State& s = *mState;
    std::thread dumperThread;
    std::thread timerThread;
    {
        Lock lock(s.recordMutex);
        addDumpRequest(SHUTDOWN);
        gTimerWake.stopRequested.store(true);
        sem_post(&gTimerWake.sem);
        if (s.phase != State::Phase::kRunning) return;  // idle, or another release waits
        s.phase = State::Phase::kStopping;
        dumperThread = std::move(s.dumperThread);
        timerThread = std::move(s.timerThread);
    }
    for (std::thread* t : {&timerThread, &dumperThread}) {
        if (!t->joinable()) continue;
        if (t->get_id() == std::this_thread::get_id())
            t->detach();  // released from a log thread: it ends by itself
        else
            t->join();
    }
    Lock lock(s.recordMutex);
    s.phase = State::Phase::kIdle;
    s.initialized.store(false);
}

void Log::dumper() {
    State& s = *mState;
    for (;;) {
        try {
            const DumpRequestType request = s.dumpRequests.waitAndPop();
            if (request == SHUTDOWN) return;  // records still queued stay unsent
            const auto start = std::chrono::steady_clock::now();
            while (auto record = s.records.tryPop()) {
                const std::string entry = (*record)->getDiagEntry();
                if (!entry.empty()) writeToDiag(entry);
            }
            const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start);
            RUX_LOG(3, "RUX", "Dump completed, request type: %s, elapsed time = %d ms",
                    dumpRequestName(request), static_cast<int>(elapsed.count()));
        } catch (...) {
            // Out of memory while draining: the next request tries again.
        }
    }
}

void Log::timerLoop() {
    for (;;) {
        timespec deadline{};
        clock_gettime(CLOCK_REALTIME, &deadline);
        const long long periodMs = timerPeriodMs();
        deadline.tv_sec += static_cast<time_t>(periodMs / 1000);
        deadline.tv_nsec += static_cast<long>((periodMs % 1000) * 1000000);
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        for (;;) {
            if (sem_timedwait(&gTimerWake.sem, &deadline) == 0) {
                if (gTimerWake.stopRequested.exchange(false)) return;
                if (const int sig = gTimerWake.pendingSignal.exchange(0)) {
                    try {
                        RUX_LOG(4, "RUX", "Received signal %d", sig);
                    } catch (...) {
                    }
                }
                continue;  // same deadline
            }
            if (errno == EINTR) continue;
            break;  // ETIMEDOUT (or a broken deadline): the period is over
        }
        addDumpRequest(LOGGING_TIMER_EXPIRED);
    }
}

// --- plug-in and diagnostic commands ---------------------------------------------

void Log::loadPlugin() {
    rux_alog_fn.store(nullptr);
    ruxGetPersistSetting.store(nullptr);
    ruxDecodeBuffer.store(nullptr);
    void* handle = dlopen(pluginPath().c_str(), RTLD_NOW);
    _libalog_handle.store(handle);
    if (handle == nullptr) {
        RUX_LOG(6, "RUX", "cannot open libruxalog.so");
        return;
    }
    dlerror();
    void* alog = dlsym(handle, "alog");
    if (dlerror() != nullptr || alog == nullptr) {
        RUX_LOG(6, "RUX", "cannot find main function");
        dlclose(handle);
        return;
    }
    rux_alog_fn.store(reinterpret_cast<AlogFn>(alog));
    void* persist = dlsym(handle, "getPersistSetting");
    if (dlerror() != nullptr || persist == nullptr) {
        RUX_LOG(6, "RUX", "cannot find debug cmd function");
        return;
    }
    ruxGetPersistSetting.store(reinterpret_cast<PersistSettingFn>(persist));
    void* decode = dlsym(handle, "decodeBuffer");
    if (dlerror() != nullptr || decode == nullptr) {
        RUX_LOG(6, "RUX", "cannot find debug cmd function");
        return;
    }
    ruxDecodeBuffer.store(reinterpret_cast<DecodeBufferFn>(decode));

    // No SA_RESTART: the signal is meant to interrupt blocking calls.
    struct sigaction action {};
    action.sa_handler = eintrTestHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGUSR1, &action, nullptr);
}

bool Log::decodeBuff(uint8_t* request, uint16_t length, std::vector<uint8_t>& output) {
    if (request == nullptr || length == 0) return false;
    constexpr uint16_t kOutputSize = 64;
    output.assign(kOutputSize, 0);
    uint16_t outputLength = kOutputSize;
    bool decoded = false;
    if (DecodeBufferFn decode = ruxDecodeBuffer.load())
        decoded = decode(request, length, output.data(), &outputLength);
    RUX_LOG(3, "RUX", "outputlen:%d ", outputLength);
    if (decoded) output.resize(std::min(outputLength, kOutputSize));
    return decoded;
}

bool Log::getPersistSetting(uint8_t& setting, std::vector<uint8_t>& output) {
    PersistSettingFn get = ruxGetPersistSetting.load();
    if (get == nullptr) return false;
    constexpr int kOutputSize = 50;
    output.assign(kOutputSize, 0);
    const int n = get(setting, output.data());
    if (n >= 1) output.resize(static_cast<size_t>(std::min(n, kOutputSize)));
    return true;
}

// --- encrypted log files ---------------------------------------------------------

void Log::initLogEncryption() {
    State& s = *mState;
    FILE* f = std::fopen((logRoot() + kConfigFile).c_str(), "rb");
    if (f == nullptr) return;  // no configuration: encryption stays off
    std::vector<uint8_t> bytes(kMaxConfigBytes);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
    std::fclose(f);

    const logfile::Config config = logfile::decodeConfig(bytes);
    s.maxRecordsPerFile = logfile::clampMaxRecords(config.maxRecordsPerFile);
    s.maxFiles = logfile::clampMaxFiles(config.maxFiles);

    CryptoUtil crypto;
    if (!crypto.initializeRsaEncryption(s.aesKey, s.fileHeader, config.publicKeyPem)) {
        RUX_ADB_LOG(6, "RUX", "C-Logging Init failed");
        return;
    }
    prepareLogFiles();
    s.encryptionActive.store(true);
}

// --- observers -------------------------------------------------------------------

bool Log::initialized() const { return mState->initialized.load(); }
size_t Log::queuedRecords() const { return mState->records.size(); }
size_t Log::pendingDumpRequests() const { return mState->dumpRequests.size(); }
bool Log::bufferedDiag() const { return mState->bufferedDiag.load(); }
bool Log::dmapDebugOff() const { return mState->dmapDebugOff.load(); }
bool Log::dmapOff() const { return mState->dmapOff.load(); }
bool Log::groupWritable() const { return mState->groupWritable.load(); }
bool Log::encryptionActive() const { return mState->encryptionActive.load(); }

int Log::fileIndex() const {
    Lock lock(mState->recordMutex);
    return mState->fileIndex;
}
int Log::recordsInFile() const {
    Lock lock(mState->recordMutex);
    return mState->recordsInFile;
}
uint64_t Log::maxRecordsPerFile() const {
    Lock lock(mState->recordMutex);
    return mState->maxRecordsPerFile;
}
uint64_t Log::maxFiles() const {
    Lock lock(mState->recordMutex);
    return mState->maxFiles;
}
std::string Log::currentFileName() const {
    Lock lock(mState->recordMutex);
    return mState->currentFileName;
}

}  // namespace rux::log

// --- the host process's entry (rux/rux_log.h) --------------------------------------

namespace rux {

Log& Log::getInstance() {
    static Log entry;
    return entry;
}

void Log::init(const char* tag) {
    log::Log::getInstance().init(tag);
}

void Log::release() {
    log::Log::getInstance().release();
}

}  // namespace rux
