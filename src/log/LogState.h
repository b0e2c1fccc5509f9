// What stands behind the Log object of Log.h, shared by the files that implement it
// (Log.cpp: the fronts, the threads, the plug-in; LogFiles.cpp: the encrypted files).
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "log/CryptoUtil.h"
#include "log/Log.h"
#include "log/LogFileFormat.h"
#include "log/ThreadSafeQueue.h"

namespace rux::log {

struct Log::State {
    enum class Phase { kIdle, kRunning, kStopping };

    std::recursive_mutex recordMutex;
    rux::utils::ThreadSafeQueue<std::shared_ptr<LogRecord>> records;
    rux::utils::ThreadSafeQueue<DumpRequestType> dumpRequests;

    // Lifecycle, guarded by recordMutex (initialized is also read without it).
    Phase phase = Phase::kIdle;
    std::atomic<bool> initialized{false};
    std::thread dumperThread;
    std::thread timerThread;

    // The tag, read by every logging call without a lock: every tag ever set is kept
    // (there are few), so a reader's pointer never dangles.
    std::mutex tagLock;
    std::list<std::string> tags{std::string()};  // guarded by tagLock
    std::atomic<const std::string*> tag{&tags.front()};
    std::atomic<bool> bufferedDiag{false};
    std::atomic<bool> dmapDebugOff{false};
    std::atomic<bool> dmapOff{false};
    std::atomic<bool> encryptionActive{false};
    std::atomic<bool> groupWritable{false};

    // The log files, guarded by recordMutex.
    std::vector<uint8_t> aesKey;
    std::vector<uint8_t> fileHeader;
    int recordsInFile = 0;
    int fileIndex = 0;
    uint64_t maxRecordsPerFile = logfile::kDefaultMaxRecords;
    uint64_t maxFiles = logfile::kDefaultMaxFiles;
    std::string currentFileName;
    std::string fileTag;
    // The log file that records are appended to, kept open between records; closed
    // whenever files are removed or renamed. Guarded by recordMutex.
    int recordFd = -1;
    std::string recordFdName;
    CryptoUtil recordCrypto;  // encrypts every record; guarded by recordMutex
    // Buffers of the record being encrypted, reused from record to record. Guarded by
    // recordMutex.
    std::vector<uint8_t> plain, cipher, iv, gcmTag;
};

using Lock = std::lock_guard<std::recursive_mutex>;

// The folder standing in for "/data/vendor/rux_logs": the device's, or on a host the
// test seam's or RUX_LOG_ROOT (LogSeams.cpp, as the two below).
std::string logRoot();
// What dlopen is given for the log plug-in ("libruxalog.so").
std::string pluginPath();
// The log timer's period in milliseconds (30 s).
long long timerPeriodMs();

}  // namespace rux::log
