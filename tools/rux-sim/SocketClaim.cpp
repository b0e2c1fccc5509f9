#include "SocketClaim.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace rux::sim {

namespace {

// The path with its folder resolved, so "/tmp/./x.sock" and "/tmp/x.sock" are one path.
std::string canonical(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    char resolved[PATH_MAX];
    if (::realpath(dir.c_str(), resolved) == nullptr) return path;
    return std::string(resolved) + "/" + name;
}

// An address in the abstract namespace (a leading NUL byte, then `name`), or for the
// path `name`; 0 when it does not fit.
socklen_t address(const std::string& name, bool abstract, sockaddr_un& out) {
    out = sockaddr_un{};
    out.sun_family = AF_UNIX;
    const size_t offset = abstract ? 1 : 0;
    if (name.empty() || name.size() + 1 > sizeof out.sun_path) return 0;
    std::memcpy(out.sun_path + offset, name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + offset + name.size());
}

std::string claimName(const std::string& path) {
    const std::string name = "rux-sim " + canonical(path);
    if (name.size() + 1 <= sizeof(sockaddr_un::sun_path)) return name;
    return "rux-sim #" + std::to_string(std::hash<std::string>{}(name));
}

// Connects to the address; the listener's process id, 0 when it is unknown, or nothing
// when no one listens there. The connect does not wait: nobody accepts these
// connections, and a listener whose queue is full is a listener all the same.
std::optional<long> listenerAt(const sockaddr_un& addr, socklen_t size) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return std::nullopt;
    std::optional<long> pid;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), size) == 0) {
        ucred cred{};
        socklen_t length = sizeof cred;
        pid = ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &length) == 0 ? cred.pid : 0;
    } else if (errno == EAGAIN) {
        pid = 0;
    }
    ::close(fd);
    return pid;
}

std::string byWhom(long pid) {
    return pid > 0 ? " (pid " + std::to_string(pid) + ")" : "";
}

}  // namespace

std::optional<SocketClaim> SocketClaim::take(const std::string& path, std::string& why) {
    sockaddr_un claim;
    const socklen_t claimSize = address(claimName(path), true, claim);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        why = std::string("cannot create a socket: ") + std::strerror(errno);
        return std::nullopt;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&claim), claimSize) != 0 ||
        ::listen(fd, 64) != 0) {
        const int error = errno;
        ::close(fd);
        if (error != EADDRINUSE) {
            why = std::string("cannot claim ") + path + ": " + std::strerror(error);
            return std::nullopt;
        }
        why = path + " is already served by another rux-sim" +
              byWhom(listenerAt(claim, claimSize).value_or(0));
        return std::nullopt;
    }
    sockaddr_un served;
    const socklen_t servedSize = address(path, false, served);
    if (const auto pid = servedSize ? listenerAt(served, servedSize) : std::nullopt) {
        ::close(fd);
        why = path + " is already served by another process" + byWhom(*pid);
        return std::nullopt;
    }
    return SocketClaim(fd);
}

SocketClaim::SocketClaim(SocketClaim&& other) noexcept : mFd(other.mFd) {
    other.mFd = -1;
}

SocketClaim::~SocketClaim() {
    if (mFd >= 0) ::close(mFd);
}

}  // namespace rux::sim
