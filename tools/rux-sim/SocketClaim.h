// SocketClaim: one simulator per socket path. A second rux-sim started on a path that is
// already served refuses instead of replacing the socket file (which would cut the first
// one's clients off from new connections and, when either stops, remove the other's
// socket).
//
// The claim is a listening socket in Linux's abstract namespace named after the path:
// the kernel releases it when the process ends, however it ends, and it also covers a
// simulator that is refusing connections (nothing listens on the path then). A live
// listener on the path itself (a service or another server) is found by connecting.
#pragma once

#include <optional>
#include <string>

namespace rux::sim {

class SocketClaim {
public:
    // Claims `path`; nothing, with the reason in `why`, when it is already served.
    static std::optional<SocketClaim> take(const std::string& path, std::string& why);

    SocketClaim(SocketClaim&& other) noexcept;
    SocketClaim& operator=(SocketClaim&&) = delete;
    ~SocketClaim();

private:
    explicit SocketClaim(int fd) : mFd(fd) {}
    int mFd;
};

}  // namespace rux::sim
