// The request benchmark's service: a child process that listens on a Unix socket, runs
// the service's side of the handshake with every client, and answers every
// SET_HST_STATE_REQ at once with SET_HST_STATE_RESP and STATUS_SUCCESS (other requests
// get no answer). It reads whatever has arrived and answers it with one write, so it
// keeps up with many requests in flight. It has no code of the library in it: the
// library and the bare topology meet the same service.
#pragma once

#include <sys/types.h>

#include <string>

namespace rux::bench {

class MiniService {
public:
    // Forks the service, which listens on `path`; returns once it accepts connections.
    // Call it before the process starts any thread. False when it cannot start.
    bool start(const std::string& path);
    // Ends the child and waits for it (also done by the destructor).
    void stop();
    ~MiniService() { stop(); }

private:
    pid_t mChild = -1;
};

}  // namespace rux::bench
