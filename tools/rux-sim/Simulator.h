// Simulator: the behaviour of rux-sim. It serves the service's socket through
// RuxIpcServer (real handshake, frames and SendBlobMessage), decodes every ClientMsg,
// writes one readable line per event to its LineWriter, and answers each request with
// its response event, as told by the control commands (execute()).
//
// Threads: execute(), start() and stop() are called by the control thread only (the
// server forbids stop() and refusing from its own callbacks). The server's callbacks
// run on its accept thread and on one receiver thread per client; they read the
// behaviour under mMutex, copy what they need, and send and write after releasing it.
// A delayed answer waits on mChanged in its client's receiver thread, so each client's
// answers keep their order; a new delay or stop() wakes it. mMutex and the writer's
// lock are never held together.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SimProtocol.h"
#include "ipc/RuxIpcServer.h"

namespace rux::sim {

// One line at a time to a FILE (stdout or the --log file), flushed at once so a reader
// sees each line as soon as it is written. Thread-safe.
class LineWriter {
public:
    explicit LineWriter(std::FILE* out) : mOut(out) {}
    void write(const std::string& line);

private:
    std::mutex mMutex;
    std::FILE* mOut;  // guarded by mMutex
};

// What the simulator does with requests; "reset" restores these defaults.
struct Behaviour {
    Behaviour() {
        status.fill(VexProto::STATUS_SUCCESS);
        silent.fill(false);
    }
    std::array<int, kClientEventCount> status;   // wire Status per request event
    std::array<bool, kClientEventCount> silent;  // no reply at all
    std::chrono::milliseconds delay{0};          // before every answer
    AnswerValues values;
};

class Simulator {
public:
    explicit Simulator(LineWriter& log);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Listens on `path`; writes "ready socket=<path>" once it does (also when refusing).
    bool start(const std::string& path);
    void stop();

    // Runs one control line. Returns the reply ("ok ..." or "error: ..."), or nothing for
    // an empty line or a comment ("# ...").
    std::optional<std::string> execute(const std::string& line);
    bool quitRequested() const;

private:
    void onConnected(const ipc::RuxIpcServerClient& client);
    void onBlob(const ipc::RuxIpcServerClient& client, ipc::RuxSdkType type,
                std::vector<uint8_t> blob);
    void onFrame(const ipc::RuxIpcServerClient& client, const ipc::IncomingFrame& frame);
    void onDisconnected(const ipc::RuxIpcServerClient& client);

    std::string commandStatus(const std::vector<std::string>& args);
    std::string commandSilent(const std::vector<std::string>& args);
    std::string commandDelay(const std::vector<std::string>& args);
    std::string commandValue(const std::vector<std::string>& args);
    std::string commandIndicate(const std::vector<std::string>& args);
    std::string commandReply(const std::vector<std::string>& args);
    std::string commandBlob(const std::vector<std::string>& args);
    std::string commandDrop();
    std::string commandRefuse(const std::vector<std::string>& args);
    std::string commandClients();

    // Sends `msg` to every connected client and logs it as `kind`; the count reached.
    int sendToAll(const VexProto::ServiceMsg& msg, const std::string& kind);
    bool sendTo(const ipc::RuxIpcServerClient& client, ipc::RuxSdkType type,
                const VexProto::ServiceMsg& msg, const std::string& kind);
    Behaviour behaviour() const;
    // Holds an answer to a request that arrived at `since` for the current delay; false
    // when the simulator stops meanwhile.
    bool waitOutDelay(std::chrono::steady_clock::time_point since);
    std::vector<ipc::RuxIpcServerClient> liveClients() const;

    LineWriter& mLog;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;  // the delay changed or the simulator stops
    Behaviour mBehaviour;      // guarded by mMutex
    bool mQuit = false;        // guarded by mMutex
    bool mStopping = false;    // guarded by mMutex
    std::string mPath;         // set by start()
    std::unique_ptr<ipc::RuxIpcServer> mServer;
};

// The control commands, one per line, for "help" and the documentation.
extern const char* const kControlHelp;

}  // namespace rux::sim
