// Subprocess: a program run by a test, with a pipe to its stdin and its stdout collected
// line by line by a reader thread. Its stderr is the test's (the library's Android log
// lines show up in the test output) unless merged into stdout or captured. Waiting is on the
// events themselves (a new line, end of output, the process's exit through a pidfd), each
// with a deadline.
//
// SimProcess: rux-sim as a real subprocess on a private socket path, driven through its
// control lines on stdin (--stdin); its readable event log is its stdout.
//
// Threads: one test thread drives an object; the reader thread only appends lines.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace rux::test {

using std::chrono::milliseconds;
constexpr milliseconds kDeadline{20000};

class Subprocess {
public:
    // Inherit: the test's stderr; Merge: into the stdout lines; Capture: errorLines().
    enum class Stderr { Inherit, Merge, Capture };
    // `env` entries ("NAME=value") are added to, or replace, the test's environment.
    Subprocess(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
               Stderr stderrMode = Stderr::Inherit);
    // Closes stdin and waits for the exit; a process still running at the deadline is killed.
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    bool started() const { return mPid > 0; }
    pid_t pid() const { return mPid; }

    bool writeLine(const std::string& line);
    void closeStdin();

    std::vector<std::string> lines() const;
    // Waits until `predicate` holds over the lines so far (or output ended without it).
    bool waitFor(const std::function<bool(const std::vector<std::string>&)>& predicate,
                 milliseconds timeout = kDeadline) const;
    bool waitForLine(const std::string& needle, milliseconds timeout = kDeadline) const;
    // Lines containing `needle`.
    size_t count(const std::string& needle) const;
    std::string dump() const;
    // What a process started with Stderr::Capture wrote to stderr, once it has exited.
    std::vector<std::string> errorLines();

    // The wait status once the process has exited, or nothing at the deadline.
    std::optional<int> waitExit(milliseconds timeout = kDeadline);
    void kill(int signal);

private:
    void readLoop(int fd);

    pid_t mPid = -1;
    int mPidFd = -1;
    int mStdin = -1;
    int mStderr = -1;  // Stderr::Capture: an in-memory file
    std::optional<int> mExitStatus;
    std::thread mReader;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<std::string> mLines;  // guarded by mMutex
    bool mEof = false;                // guarded by mMutex
};

class SimProcess {
public:
    // Starts rux-sim serving `socketPath` with `args` added, and waits until it is ready.
    // Without `stdinControl` it runs as in the background of a shell: stdin is not read.
    explicit SimProcess(const std::string& socketPath, const std::vector<std::string>& args = {},
                        bool stdinControl = true);

    bool ready() const { return mReady; }
    // One control line; the reply ("ok ..." or "error: ..."), or "" at the deadline.
    std::string command(const std::string& line);
    Subprocess& process() { return *mProcess; }
    bool waitForLine(const std::string& needle, milliseconds timeout = kDeadline) const {
        return mProcess->waitForLine(needle, timeout);
    }
    // Waits for `n` lines containing `needle`.
    bool waitForCount(const std::string& needle, size_t n, milliseconds timeout = kDeadline) const;
    size_t count(const std::string& needle) const { return mProcess->count(needle); }
    std::string dump() const { return mProcess->dump(); }
    // SIGKILL, as a crashing service; returns once the process is gone.
    void crash();

    // A socket path unique to this process and call: /tmp/rux-e2e-<pid>-<n>-<name>.sock
    static std::string uniqueSocketPath(const std::string& name);
    // The rux-sim program, for tests that start one themselves.
    static std::string binary();

private:
    std::unique_ptr<Subprocess> mProcess;
    bool mReady = false;
};

}  // namespace rux::test
