#include "Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#ifndef RUX_SIM_PATH
#error "RUX_SIM_PATH must name the rux-sim binary"
#endif

extern char** environ;

namespace rux::test {

namespace {

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& extra) {
    std::map<std::string, std::string> vars;
    for (char** e = environ; e && *e; ++e) {
        const std::string entry = *e;
        vars[entry.substr(0, entry.find('='))] = entry;
    }
    for (const auto& entry : extra) vars[entry.substr(0, entry.find('='))] = entry;
    std::vector<std::string> out;
    for (auto& v : vars) out.push_back(v.second);
    return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

}  // namespace

Subprocess::Subprocess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                       Stderr stderrMode) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0) return;
    if (::pipe2(out, O_CLOEXEC) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    if (stderrMode == Stderr::Merge)
        posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
    if (stderrMode == Stderr::Capture) mStderr = ::memfd_create("stderr", MFD_CLOEXEC);
    if (mStderr >= 0) posix_spawn_file_actions_adddup2(&actions, mStderr, STDERR_FILENO);
    std::vector<std::string> args = argv;
    std::vector<std::string> vars = mergedEnvironment(env);
    auto argp = pointers(args);
    auto envp = pointers(vars);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, argp[0], &actions, nullptr, argp.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    if (rc != 0) {
        ::close(in[1]);
        ::close(out[0]);
        return;
    }
    mPid = pid;
    mPidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    mStdin = in[1];
    const int readFd = out[0];
    mReader = std::thread([this, readFd] { readLoop(readFd); });
}

Subprocess::~Subprocess() {
    closeStdin();
    if (mPid > 0 && !waitExit()) {
        kill(SIGKILL);
        waitExit();
    }
    if (mReader.joinable()) mReader.join();
    if (mPidFd >= 0) ::close(mPidFd);
    if (mStderr >= 0) ::close(mStderr);
}

void Subprocess::readLoop(int fd) {
    std::string pending;
    char chunk[4096];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        pending.append(chunk, static_cast<size_t>(n));
        std::vector<std::string> complete;
        for (size_t pos; (pos = pending.find('\n')) != std::string::npos;) {
            complete.push_back(pending.substr(0, pos));
            pending.erase(0, pos + 1);
        }
        if (complete.empty()) continue;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            for (auto& line : complete) mLines.push_back(std::move(line));
        }
        mChanged.notify_all();
    }
    ::close(fd);
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!pending.empty()) mLines.push_back(pending);
        mEof = true;
    }
    mChanged.notify_all();
}

bool Subprocess::writeLine(const std::string& line) {
    if (mStdin < 0) return false;
    const std::string text = line + "\n";
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(mStdin, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

void Subprocess::closeStdin() {
    if (mStdin >= 0) ::close(mStdin);
    mStdin = -1;
}

std::vector<std::string> Subprocess::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> Subprocess::errorLines() {
    std::vector<std::string> out;
    if (mStderr < 0 || !waitExit()) return out;
    std::ifstream in("/proc/self/fd/" + std::to_string(mStderr));  // from the start
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

bool Subprocess::waitFor(const std::function<bool(const std::vector<std::string>&)>& predicate,
                         milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return predicate(mLines) || mEof; }) &&
           predicate(mLines);
}

bool Subprocess::waitForLine(const std::string& needle, milliseconds timeout) const {
    return waitFor(
        [&](const std::vector<std::string>& lines) {
            for (const auto& l : lines)
                if (l.find(needle) != std::string::npos) return true;
            return false;
        },
        timeout);
}

size_t Subprocess::count(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(mMutex);
    size_t n = 0;
    for (const auto& l : mLines)
        if (l.find(needle) != std::string::npos) ++n;
    return n;
}

std::string Subprocess::dump() const {
    std::ostringstream out;
    for (const auto& l : lines()) out << "  | " << l << "\n";
    return out.str();
}

std::optional<int> Subprocess::waitExit(milliseconds timeout) {
    if (mExitStatus || mPid <= 0) return mExitStatus;
    if (mPidFd >= 0) {
        pollfd p{mPidFd, POLLIN, 0};
        int ready;
        do {
            ready = ::poll(&p, 1, static_cast<int>(timeout.count()));
        } while (ready < 0 && errno == EINTR);
        if (ready <= 0) return std::nullopt;
    }
    int status = 0;
    if (::waitpid(mPid, &status, 0) != mPid) return std::nullopt;
    mExitStatus = status;
    return mExitStatus;
}

void Subprocess::kill(int signal) {
    if (mPid > 0 && !mExitStatus) ::kill(mPid, signal);
}

// --- SimProcess ------------------------------------------------------------------------

SimProcess::SimProcess(const std::string& socketPath, const std::vector<std::string>& args,
                       bool stdinControl) {
    std::vector<std::string> argv{RUX_SIM_PATH, "--socket", socketPath};
    if (stdinControl) argv.push_back("--stdin");
    argv.insert(argv.end(), args.begin(), args.end());
    mProcess = std::make_unique<Subprocess>(argv);
    mReady = mProcess->started() && mProcess->waitForLine("ready socket=" + socketPath);
}

std::string SimProcess::command(const std::string& line) {
    auto isReply = [](const std::string& l) { return l.rfind("ok", 0) == 0 || l.rfind("error:", 0) == 0; };
    size_t before = 0;
    for (const auto& l : mProcess->lines())
        if (isReply(l)) ++before;
    if (!mProcess->writeLine(line)) return "";
    std::string reply;
    mProcess->waitFor([&](const std::vector<std::string>& lines) {
        size_t seen = 0;
        for (const auto& l : lines) {
            if (!isReply(l)) continue;
            if (++seen > before) {
                reply = l;
                return true;
            }
        }
        return false;
    });
    return reply;
}

bool SimProcess::waitForCount(const std::string& needle, size_t n, milliseconds timeout) const {
    return mProcess->waitFor(
        [&](const std::vector<std::string>& lines) {
            size_t seen = 0;
            for (const auto& l : lines)
                if (l.find(needle) != std::string::npos) ++seen;
            return seen >= n;
        },
        timeout);
}

void SimProcess::crash() {
    mProcess->kill(SIGKILL);
    mProcess->waitExit();
}

std::string SimProcess::binary() {
    return RUX_SIM_PATH;
}

std::string SimProcess::uniqueSocketPath(const std::string& name) {
    static std::atomic<int> counter{0};
    return "/tmp/rux-e2e-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
           name + ".sock";
}

}  // namespace rux::test
