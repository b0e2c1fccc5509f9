// Playing the peer of the code under test on a Unix stream socket: whole writes, reads
// with a deadline, a connected pair whose `local` end the code under test gets, and socket
// paths of this test process.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace rux::test {

inline void writeAll(int fd, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
}

// The next `n` bytes from `fd`; fewer at the other end's close or the receive timeout.
inline std::vector<uint8_t> readExactly(int fd, size_t n) {
    std::vector<uint8_t> out(n);
    const ssize_t got = ::recv(fd, out.data(), n, MSG_WAITALL);
    out.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return out;
}

inline void setReadDeadline(int fd) {  // reads give up after 10 s instead of hanging
    const timeval deadline{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
}

// /tmp/<stem>-<pid>-<n>.sock, a new one each call.
inline std::string uniqueSocketPath(const std::string& stem) {
    static std::atomic<int> counter{0};
    return "/tmp/" + stem + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) +
           ".sock";
}

// A stream socket listening on `path`, or connected to it; -1 when that fails.
inline int unixSocket(const std::string& path, bool listen) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto at = reinterpret_cast<sockaddr*>(&address);
    const bool ok = listen ? ::bind(fd, at, sizeof address) == 0 && ::listen(fd, 8) == 0
                           : ::connect(fd, at, sizeof address) == 0;
    return ok ? fd : (::close(fd), -1);
}

// Whoever closes an end sets it to -1 here, so that nothing is closed twice.
struct SocketPair {
    explicit SocketPair(int flags = 0) {
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0, fds), 0);
        local = fds[0];
        peer = fds[1];
        setReadDeadline(peer);
    }
    ~SocketPair() {
        if (local >= 0) ::close(local);
        if (peer >= 0) ::close(peer);
    }
    void closePeer() {
        ::close(peer);
        peer = -1;
    }
    void write(const std::vector<uint8_t>& bytes) const { writeAll(peer, bytes); }
    std::vector<uint8_t> read(size_t n) const { return readExactly(peer, n); }

    int local = -1;
    int peer = -1;
};

}  // namespace rux::test
