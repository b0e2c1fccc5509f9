// rux-sim: a stand-in for the Rux service, for testing applications and the library.
// It serves the service's socket with the real handshake and frames, answers every
// request, and takes control lines (docs/rux-sim.md) on a control socket and, when
// asked to, on stdin. Without --stdin it never reads stdin, so it runs in the
// background of a shell or a script as it is.
//
//   rux-sim [--socket PATH] [--log FILE] [--control-socket PATH] [--stdin]
//           [-c COMMAND]... [--status REQUEST=STATUS]... [--silent REQUEST]... [--refuse] [-v]
//
// Exit status: 0 after "quit", end of stdin (with --stdin) or SIGINT/SIGTERM; 1 when the
// socket cannot be served (also when another simulator serves it); 2 for bad arguments
// or a start-up command that fails.
#include <android/log.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Simulator.h"
#include "SocketClaim.h"
#include "ipc/SocketPath.h"

namespace {

using rux::sim::LineWriter;
using rux::sim::Simulator;

// Collects bytes from one descriptor and hands out whole lines.
struct LineBuffer {
    std::string pending;
    template <typename F>
    void feed(const char* data, size_t size, F onLine) {
        pending.append(data, size);
        for (size_t pos; (pos = pending.find('\n')) != std::string::npos;) {
            std::string line = pending.substr(0, pos);
            pending.erase(0, pos + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            onLine(line);
        }
    }
};

int openControlSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return -1;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    ::unlink(path.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 4) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

void sendLine(int fd, const std::string& text) {
    const std::string line = text + "\n";
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = ::send(fd, line.data() + done, line.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // the controller went away; its next read finds nothing
        done += static_cast<size_t>(n);
    }
}

// The control loop: stdin, the control socket and its connections, and the signals.
int runControlLoop(Simulator& sim, LineWriter& replies, int signalFd, bool readStdin,
                   int controlFd) {
    struct Source {
        int fd;
        LineBuffer buffer;
    };
    std::map<int, Source> controllers;  // control-socket connections by descriptor
    LineBuffer stdinBuffer;
    char chunk[4096];

    while (!sim.quitRequested()) {
        std::vector<pollfd> fds{{signalFd, POLLIN, 0}};
        if (readStdin) fds.push_back({STDIN_FILENO, POLLIN, 0});
        if (controlFd >= 0) fds.push_back({controlFd, POLLIN, 0});
        for (auto& entry : controllers) fds.push_back({entry.first, POLLIN, 0});
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            std::perror("rux-sim: poll");
            return 1;
        }
        for (const auto& p : fds) {
            if (p.revents == 0) continue;
            if (p.fd == signalFd) return 0;
            if (p.fd == controlFd) {
                const int fd = ::accept4(controlFd, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) controllers.emplace(fd, Source{fd, {}});
                continue;
            }
            const ssize_t n = ::read(p.fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (p.fd == STDIN_FILENO) {
                if (n <= 0) return 0;
                stdinBuffer.feed(chunk, static_cast<size_t>(n), [&](const std::string& line) {
                    if (auto reply = sim.execute(line)) replies.write(*reply);
                });
                continue;
            }
            auto it = controllers.find(p.fd);
            if (it == controllers.end()) continue;
            if (n <= 0) {
                ::close(p.fd);
                controllers.erase(it);
                continue;
            }
            it->second.buffer.feed(chunk, static_cast<size_t>(n), [&](const std::string& line) {
                if (auto reply = sim.execute(line)) sendLine(p.fd, *reply);
            });
        }
    }
    for (auto& entry : controllers) ::close(entry.first);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"rux-sim: serves the Rux service's socket and answers the client library"};
    std::string socketPath = rux::ipc::socketPath();
    std::string logPath;
    std::string controlPath;
    bool readStdin = false;
    bool noStdin = false;
    bool refuse = false;
    bool verbose = false;
    std::vector<std::string> commands;
    std::vector<std::string> statuses;
    std::vector<std::string> silent;
    app.add_option("-s,--socket", socketPath,
                   "socket to serve (default: $RUX_SOCKET_PATH, else /dev/socket/rux)");
    app.add_option("-l,--log", logPath, "write the readable event log to FILE, not stdout");
    app.add_option("--control-socket", controlPath, "take control lines on this Unix socket");
    app.add_flag("-i,--stdin", readStdin,
                 "take control lines on stdin; its end stops the simulator");
    app.add_flag("--no-stdin", noStdin, "the default: stdin is not read")->group("");
    app.add_option("-c,--command", commands, "run a control line at start (repeatable)");
    app.add_option("--status", statuses, "REQUEST=STATUS: same as -c 'status REQUEST STATUS'");
    app.add_option("--silent", silent, "REQUEST: same as -c 'silent REQUEST'");
    app.add_flag("--refuse", refuse, "start refusing connections (same as -c 'refuse on')");
    app.add_flag("-v,--verbose", verbose, "show the transport's own log lines on stderr");
    app.set_version_flag("--version", std::string("rux-sim ") + RUX_VERSION);
    CLI11_PARSE(app, argc, argv);
    if (noStdin) readStdin = false;

    for (const auto& s : statuses) {
        const auto eq = s.find('=');
        if (eq == std::string::npos) {
            std::fprintf(stderr, "rux-sim: --status wants REQUEST=STATUS, got '%s'\n", s.c_str());
            return 2;
        }
        commands.push_back("status " + s.substr(0, eq) + " " + s.substr(eq + 1));
    }
    for (const auto& s : silent) commands.push_back("silent " + s);
    if (refuse) commands.push_back("refuse on");

    // The transport logs a client's normal disconnect as an error; the event log already
    // says "disconnected", so its lines are shown only on request.
    __android_log_set_minimum_priority(verbose ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);

    // Signals are taken through a descriptor: block them before any thread starts so
    // every thread inherits the mask. A vanished controller must not kill the process.
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    const int signalFd = ::signalfd(-1, &stopSignals, SFD_CLOEXEC);
    if (signalFd < 0) {
        std::perror("rux-sim: signalfd");
        return 1;
    }

    // Before anything that could disturb a simulator already serving the path (its log
    // file, its control socket).
    std::string why;
    const auto claim = rux::sim::SocketClaim::take(socketPath, why);
    if (!claim) {
        std::fprintf(stderr, "rux-sim: %s\n", why.c_str());
        ::close(signalFd);
        return 1;
    }

    LineWriter replies(stdout);
    std::FILE* logFile = nullptr;
    if (!logPath.empty()) {
        logFile = std::fopen(logPath.c_str(), "w");
        if (logFile == nullptr) {
            std::fprintf(stderr, "rux-sim: cannot write %s: %s\n", logPath.c_str(),
                         std::strerror(errno));
            return 2;
        }
    }
    auto fileWriter = logFile ? std::make_unique<LineWriter>(logFile) : nullptr;
    LineWriter& log = fileWriter ? *fileWriter : replies;

    int status = 0;
    {
        Simulator sim(log);
        for (const auto& command : commands) {
            const auto reply = sim.execute(command);
            if (reply && reply->rfind("ok", 0) != 0) {
                std::fprintf(stderr, "rux-sim: %s: %s\n", command.c_str(), reply->c_str());
                status = 2;
                break;
            }
        }
        int controlFd = -1;
        if (status == 0 && !controlPath.empty()) {
            controlFd = openControlSocket(controlPath);
            if (controlFd < 0) {
                std::fprintf(stderr, "rux-sim: cannot listen on control socket %s\n",
                             controlPath.c_str());
                status = 2;
            }
        }
        if (status == 0 && !sim.start(socketPath)) status = 1;
        // Whoever started the simulator waits for the ready line on stdout.
        if (status == 0 && fileWriter) replies.write("ready socket=" + socketPath);
        if (status == 0) status = runControlLoop(sim, replies, signalFd, readStdin, controlFd);
        sim.stop();
        if (controlFd >= 0) {
            ::close(controlFd);
            ::unlink(controlPath.c_str());
        }
    }
    if (logFile) std::fclose(logFile);
    ::close(signalFd);
    return status;
}
