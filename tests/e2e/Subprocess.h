// Subprocess: a program run by a test in the test's environment, with a pipe to its stdin
// and its stdout collected line by line by a reader thread, which reaps the process once
// the output ends. Every wait is on an event (a new line, the exit) with a deadline.
// SimProcess: rux-sim on a private socket path, driven through its control lines on stdin;
// its readable event log is its stdout.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace rux::test {

constexpr std::chrono::seconds kDeadline{20};

class Subprocess {
public:
    // Inherit: the test's (the library's log lines show up in the test output); Merge: into
    // the stdout lines; Capture: errorLines().
    enum class Stderr { Inherit, Merge, Capture };
    explicit Subprocess(const std::vector<std::string>& argv, Stderr stderrMode = Stderr::Inherit);
    // Closes stdin and waits for the exit; a process still running at the deadline is killed.
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    bool started() const { return mPid > 0; }
    pid_t pid() const { return mPid; }
    Subprocess& process() { return *this; }  // for tests written against a SimProcess member

    bool writeLine(const std::string& line);
    void closeStdin();

    std::vector<std::string> lines() const;
    // Waits until `predicate` holds over the lines so far (false once the process ended).
    bool waitFor(const std::function<bool(const std::vector<std::string>&)>& predicate) const;
    // Waits for `n` lines containing `needle`.
    bool waitForCount(const std::string& needle, size_t n) const;
    bool waitForLine(const std::string& needle) const { return waitForCount(needle, 1); }
    size_t count(const std::string& needle) const;
    std::string dump() const;
    // What a process started with Stderr::Capture wrote to stderr, once it has exited.
    std::vector<std::string> errorLines();

    // The wait status once the process has exited, or nothing at the deadline.
    std::optional<int> waitExit();
    void kill(int signal);

private:
    void readAndReap(FILE* out);

    pid_t mPid = -1;
    FILE* mStdin = nullptr;
    int mStderr = -1;  // Stderr::Capture: an in-memory file
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<std::string> mLines;  // guarded by mMutex
    std::optional<int> mExitStatus;   // guarded by mMutex; set when the process is reaped
    std::thread mReader;
};

class SimProcess : public Subprocess {
public:
    // Starts rux-sim serving `socketPath` with `args` added, and waits until it is ready.
    explicit SimProcess(const std::string& socketPath, const std::vector<std::string>& args = {});

    bool ready() const { return mReady; }
    // One control line; the reply ("ok ..." or "error: ..."), or "" at the deadline.
    std::string command(const std::string& line);
    void crash();  // SIGKILL, as a crashing service; returns once the process is gone

    static bool isReply(const std::string& line);
    // A socket path unique to this process and call: /tmp/rux-e2e-<pid>-<n>-<name>.sock
    static std::string uniqueSocketPath(const std::string& name);
    static std::string binary();  // for tests that start one themselves

private:
    bool mReady = false;
};

}  // namespace rux::test
