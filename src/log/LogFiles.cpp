// The encrypted log files of Log: naming, review of the files already there, rotation
// and the records themselves. The configuration is read by Log::initLogEncryption
// (Log.cpp). Everything here runs under the record mutex.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "log/LogState.h"

namespace rux::log {

namespace {

constexpr const char* kMainDir = "/main";
constexpr const char* kOtherDir = "/other";
constexpr const char* kFilePrefix = "rux_log_";
constexpr const char* kSkipConfig = "rux_log_config";
constexpr const char* kSkipTrace = "rux_log_trace";
constexpr int kStaleAgeSeconds = 3600;
constexpr size_t kFilesKept = 3;

// Set while a record is being encrypted on this thread: a line logged from inside
// the encryption (a failing random source) is not encrypted again.
thread_local bool tEncrypting = false;

bool fileExists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

void Log::prepareLogFiles() {
    State& s = *mState;
    closeRecordFile();
    // The folder normally exists on the device; a fresh host root may lack it.
    if (s.groupWritable.load()) umask(002);
    ::mkdir(getLogFilePath().c_str(), 0770);
    checkExistingFiles();
    s.fileTag = getFileTag();
    createNewlogFileName();
    if (fileExists(s.currentFileName)) std::remove(s.currentFileName.c_str());
    writeToFile(s.fileHeader, s.currentFileName);
}

std::string Log::getFileTag() const {
    const std::string t = tag();
    return t == "rux" ? "p0" : t;
}

std::string Log::getLogFilePath() const {
    return logRoot() + (tag() == "rux" ? kMainDir : kOtherDir);
}

bool Log::createNewlogFileName() {
    State& s = *mState;
    Lock lock(s.recordMutex);
    s.currentFileName =
        getLogFilePath() + "/" + kFilePrefix + s.fileTag + "_0" + std::to_string(s.fileIndex);
    if (s.groupWritable.load()) umask(002);
    if (FILE* f = std::fopen(s.currentFileName.c_str(), "ab")) std::fclose(f);
    return true;
}

void Log::checkExistingFiles() {
    State& s = *mState;
    Lock lock(s.recordMutex);
    const std::string dirPath = getLogFilePath();
    DIR* dir = opendir(dirPath.c_str());
    if (dir == nullptr) return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::string wanted = std::string(kFilePrefix) + s.fileTag;
    std::map<int, std::string> filesByAge;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == kSkipConfig || name == kSkipTrace) continue;
        if (name.find(wanted) == std::string::npos) continue;
        const std::string path = dirPath + "/" + name;
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0) continue;
        const long long age = std::max<long long>(now.tv_sec - st.st_mtime, 0);
        filesByAge.emplace(static_cast<int>(std::min<long long>(age, INT32_MAX)), path);
    }
    closedir(dir);
    if (!filesByAge.empty()) reviewExistingFiles(filesByAge);
}

void Log::reviewExistingFiles(const std::map<int, std::string>& filesByAge) {
    State& s = *mState;
    Lock lock(s.recordMutex);
    if (filesByAge.empty()) return;
    closeRecordFile();  // it may be one of those removed below
    const std::string& newest = filesByAge.begin()->second;
    // Only the last digit counts; anything else than a digit starts again at 0.
    const int next = newest.empty() ? 0 : newest.back() - '0' + 1;
    s.fileIndex = (next >= 0 && static_cast<uint64_t>(next) < s.maxFiles) ? next : 0;

    if (filesByAge.size() > kFilesKept) {
        size_t position = 0;
        for (const auto& [age, path] : filesByAge)
            if (++position > kFilesKept) std::remove(path.c_str());
        return;
    }
    for (const auto& [age, path] : filesByAge)
        if (age > kStaleAgeSeconds) std::remove(path.c_str());
}

void Log::writeToFile(const std::vector<uint8_t>& bytes, const std::string& fileName) {
    if (bytes.empty()) return;
    if (mState->groupWritable.load()) umask(002);
    FILE* f = std::fopen(fileName.c_str(), "ab");
    if (f == nullptr) return;
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

void Log::encryptLogMsg(const std::string& line, const std::string& fileName) {
    State& s = *mState;
    Lock lock(s.recordMutex);
    if (tEncrypting) return;
    tEncrypting = true;
    struct Reset {
        ~Reset() { tEncrypting = false; }
    } reset;
    // The caller's name, taken before rotating: the record that triggers a rotation
    // still lands in the old file.
    const std::string target = fileName;

    if (static_cast<uint64_t>(s.recordsInFile) > s.maxRecordsPerFile) {
        closeRecordFile();  // files are removed and created below
        s.recordsInFile = 0;
        s.fileIndex += 1;
        createNewlogFileName();
        if (fileExists(s.currentFileName)) std::remove(s.currentFileName.c_str());
        writeToFile(s.fileHeader, s.currentFileName);
        if (static_cast<uint64_t>(s.fileIndex) >= s.maxFiles) {
            s.fileIndex = 0;
            const std::string first = getLogFilePath() + "/" + kFilePrefix + s.fileTag + "_00";
            if (fileExists(first)) std::remove(first.c_str());
        }
    }

    s.plain.assign(line.begin(), line.end());
    if (!s.recordCrypto.encryptMsg2(s.plain, s.aesKey, s.cipher, s.iv, s.gcmTag)) return;
    appendRecord(logfile::encodeRecord(s.iv, s.gcmTag, s.cipher), target);
    s.recordsInFile += 1;
}

// writeToFile's append without opening and closing the file for every record: the same
// bytes land in the same file. Called under the record mutex.
void Log::appendRecord(const std::vector<uint8_t>& bytes, const std::string& fileName) {
    State& s = *mState;
    if (bytes.empty()) return;
    if (s.recordFd >= 0 && s.recordFdName != fileName) closeRecordFile();
    if (s.recordFd < 0) {
        if (s.groupWritable.load()) umask(002);
        s.recordFd = ::open(fileName.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        if (s.recordFd < 0) return;
        s.recordFdName = fileName;
    }
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(s.recordFd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            closeRecordFile();  // the next record opens the file again
            return;
        }
        done += static_cast<size_t>(n);
    }
}

void Log::closeRecordFile() {
    State& s = *mState;
    Lock lock(s.recordMutex);
    if (s.recordFd >= 0) ::close(s.recordFd);
    s.recordFd = -1;
    s.recordFdName.clear();
}

}  // namespace rux::log
