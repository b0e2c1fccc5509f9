#include "Subprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#ifndef RUX_SIM_PATH
#error "RUX_SIM_PATH must name the rux-sim binary"
#endif

extern char** environ;

namespace rux::test {

namespace {

size_t countIn(const std::vector<std::string>& lines, const std::string& needle) {
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& l) { return l.find(needle) != std::string::npos; });
}

}  // namespace

Subprocess::Subprocess(const std::vector<std::string>& argv, bool captureStderr) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return;
    if (captureStderr) mStderr = ::memfd_create("stderr", MFD_CLOEXEC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, captureStderr ? mStderr : out[1], STDERR_FILENO);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    if (::posix_spawn(&mPid, args[0], &actions, nullptr, args.data(), environ) != 0) mPid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    mStdin = ::fdopen(in[1], "w");
    mReader = std::thread(&Subprocess::readAndReap, this, ::fdopen(out[0], "r"));
}

Subprocess::~Subprocess() {
    closeStdin();
    if (!waitExit()) kill(SIGKILL);
    if (mReader.joinable()) mReader.join();
    if (mStderr >= 0) ::close(mStderr);
}

void Subprocess::readAndReap(FILE* out) {
    char* line = nullptr;
    size_t size = 0;
    for (ssize_t n; (n = ::getline(&line, &size, out)) >= 0;) {
        std::lock_guard<std::mutex> lock(mMutex);
        mLines.emplace_back(line, n > 0 && line[n - 1] == '\n' ? n - 1 : n);
        mChanged.notify_all();
    }
    std::free(line);
    std::fclose(out);
    if (!started()) return;
    // Reaped only under the lock, so that kill() never signals a reused pid.
    siginfo_t info;
    while (::waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    std::lock_guard<std::mutex> lock(mMutex);
    int status = -1;
    ::waitpid(mPid, &status, 0);
    mExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    mChanged.notify_all();
}

bool Subprocess::writeLine(const std::string& line) {
    return mStdin && std::fprintf(mStdin, "%s\n", line.c_str()) > 0 && std::fflush(mStdin) == 0;
}

void Subprocess::closeStdin() {
    if (mStdin) std::fclose(mStdin);
    mStdin = nullptr;
}

std::vector<std::string> Subprocess::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

bool Subprocess::waitFor(
    const std::function<bool(const std::vector<std::string>&)>& predicate) const {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait_for(lock, kDeadline, [&] { return predicate(mLines) || mExitStatus; });
    return predicate(mLines);
}

bool Subprocess::waitForCount(const std::string& needle, size_t n) const {
    return waitFor(
        [&](const std::vector<std::string>& lines) { return countIn(lines, needle) >= n; });
}

size_t Subprocess::count(const std::string& needle) const {
    return countIn(lines(), needle);
}

std::string Subprocess::dump() const {
    std::ostringstream out;
    for (const auto& l : lines()) out << "  | " << l << "\n";
    return out.str();
}

std::vector<std::string> Subprocess::errorLines() {
    std::vector<std::string> out;
    if (mStderr < 0 || !waitExit()) return out;
    std::ifstream in("/proc/self/fd/" + std::to_string(mStderr));  // from the start
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

std::optional<int> Subprocess::waitExit() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait_for(lock, kDeadline, [&] { return mExitStatus.has_value() || !started(); });
    return mExitStatus;
}

void Subprocess::kill(int signal) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (started() && !mExitStatus) ::kill(mPid, signal);
}

SimProcess::SimProcess(const std::string& socketPath, const std::vector<std::string>& args)
    : Subprocess([&] {
          std::vector<std::string> argv{RUX_SIM_PATH, "--socket", socketPath, "--stdin"};
          argv.insert(argv.end(), args.begin(), args.end());
          return argv;
      }()),
      mReady(started() && waitForLine("ready socket=" + socketPath)) {}

bool SimProcess::isReply(const std::string& line) {
    return line.rfind("ok", 0) == 0 || line.rfind("error:", 0) == 0;
}

// Replies come only to control lines, one each: this line's is the first after those so far.
std::string SimProcess::command(const std::string& line) {
    const size_t from = lines().size();
    const auto reply = [from](const std::vector<std::string>& l) {
        return std::find_if(l.begin() + static_cast<long>(from), l.end(), isReply);
    };
    if (!writeLine(line) || !waitFor([&](const auto& l) { return reply(l) != l.end(); })) return "";
    const auto all = lines();
    return *reply(all);
}

}  // namespace rux::test
