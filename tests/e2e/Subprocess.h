// Subprocess: a program in the test's environment, fed through its stdin; a thread reads its
// output lines and reaps it once they end. Every wait is on an event with a deadline.
// SimProcess: rux-sim on a private socket path, driven by control lines on stdin; its
// readable event log is its stdout. Socket paths come from uniqueSocketPath (SocketPair.h).
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

#include "SocketPair.h"

namespace rux::test {

constexpr std::chrono::seconds kDeadline{20};

class Subprocess {
public:
    // Stderr joins the stdout lines, or with `captureStderr` goes to errorLines().
    explicit Subprocess(const std::vector<std::string>& argv, bool captureStderr = false);
    // Closes stdin and waits for the exit; a process still running at the deadline is killed.
    ~Subprocess();

    bool started() const { return mPid > 0; }
    pid_t pid() const { return mPid; }

    bool writeLine(const std::string& line);
    void closeStdin();

    std::vector<std::string> lines() const;
    // Waits until `predicate` holds over the lines so far (false once the process ended).
    bool waitFor(const std::function<bool(const std::vector<std::string>&)>& predicate) const;
    bool waitForCount(const std::string& needle, size_t n) const;  // n lines containing it
    bool waitForLine(const std::string& needle) const { return waitForCount(needle, 1); }
    size_t count(const std::string& needle) const;
    std::string dump() const;
    std::vector<std::string> errorLines();  // once the process has exited

    std::optional<int> waitExit();  // the exit status (128 + signal if killed), or nothing
    void kill(int signal);

private:
    void readAndReap(FILE* out);

    pid_t mPid = -1;
    FILE* mStdin = nullptr;
    int mStderr = -1;  // captureStderr: an in-memory file
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

    static bool isReply(const std::string& line);

private:
    bool mReady = false;
};

}  // namespace rux::test
