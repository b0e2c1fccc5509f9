// ruxctl: the Rux service from the command line. One subcommand per request of the C
// interface, and `watch` for the indications (docs/ruxctl.md, man ruxctl).
//
//   ruxctl [--json] [--timeout SECONDS] [-v] REQUEST [ARGUMENT...] [FILE]
//   ruxctl [--json] [-v] watch [--cell-list FILE]
//
// Exit status: 0 success; 1 the answer carried a status other than success (or the
// library refused the request at once); 2 bad usage or a bad record; 3 no answer within
// the timeout, the service not there or lost, or interrupted before the answer.
//
// It uses librux_client.so through rux/rux_client.h only. The library's callbacks post
// to an inbox (Callbacks.h); this thread waits on it and on the signals, and prints.
#include <android/log.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Callbacks.h"
#include "Output.h"
#include "Requests.h"

#ifndef RUX_VERSION
#error "RUX_VERSION must be the project version"
#endif

namespace {

using namespace ruxctl;
using Clock = std::chrono::steady_clock;

enum ExitStatus { kSuccess = 0, kFailureStatus = 1, kUsage = 2, kNoAnswer = 3 };
constexpr double kMaxTimeout = 1e6;  // seconds; keeps the deadline arithmetic in range

struct Options {
    bool json = false;
    double timeout = 10.0;
    int signalFd = -1;
};

void complain(const std::string& what) {
    std::fprintf(stderr, "ruxctl: %s\n", what.c_str());
}

std::string seconds(double s) {
    std::ostringstream out;
    out << s << " s";
    return out.str();
}

// A request's answer or status, with what it is in front.
Json described(const char* key, const std::string& name, const Json& fields) {
    Json out{{key, name}};
    out.update(fields);
    return out;
}

enum class Wake { Events, Signal, Timeout };

constexpr Clock::time_point kNoDeadline = Clock::time_point::max();

Clock::time_point deadlineAfter(double seconds) {
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// Waits for events in the inbox or SIGINT/SIGTERM, until `deadline`.
Wake waitForWork(int signalFd, Clock::time_point deadline) {
    for (;;) {
        int timeoutMs = -1;
        if (deadline != kNoDeadline) {
            const auto left = deadline - Clock::now();
            if (left <= Clock::duration::zero()) return Wake::Timeout;
            timeoutMs = static_cast<int>(
                std::ceil(std::chrono::duration<double, std::milli>(left).count()));
        }
        pollfd fds[] = {{signalFd, POLLIN, 0}, {inbox().fd(), POLLIN, 0}};
        const int ready = ::poll(fds, 2, timeoutMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) {
            std::perror("ruxctl: poll");
            return Wake::Signal;
        }
        if (fds[0].revents != 0) {
            signalfd_siginfo info;
            (void)!::read(signalFd, &info, sizeof info);
            return Wake::Signal;
        }
        if (fds[1].revents != 0) return Wake::Events;
    }
}

// The service status callback reports a loss of service (6) and a request that could not
// be sent (2): either way no answer will come.
bool serviceGone(const Event& e) {
    return e.kind == Event::ServiceStatus &&
           (e.status == RUX_STATUS_SERVICE_DOWN || e.status == RUX_STATUS_INTERNAL_ERR);
}

std::string goneText(const Event& e) {
    return e.status == RUX_STATUS_SERVICE_DOWN ? "the Rux service is not there or went away"
                                               : "the library could not send to the Rux service";
}

// A negative return value: a status_v2_e for the cell-list family, otherwise -1 "no client".
int refused(const std::string& name, bool v2, int code, const Options& options) {
    if (v2) {
        printRecord(described("request", name, Json{{"status", enumJson(kStatusV2, code)}}),
                    options.json);
    } else {
        complain(name + ": the library refused the request (" + std::to_string(code) +
                 ": no client)");
    }
    return kFailureStatus;
}

int runRequest(const Request& request, const Send& send, const Options& options) {
    register_rux_client(onServiceStatus);
    const int tid = send();
    if (tid < 0) return refused(request.name, request.v2, tid, options);
    const auto deadline = deadlineAfter(options.timeout);
    for (;;) {
        switch (waitForWork(options.signalFd, deadline)) {
            case Wake::Timeout:
                complain(std::string(request.name) + ": no answer within " +
                         seconds(options.timeout));
                return kNoAnswer;
            case Wake::Signal:
                complain(std::string(request.name) + ": interrupted before an answer came");
                return kNoAnswer;
            case Wake::Events:
                break;
        }
        for (const Event& e : inbox().take()) {
            if (e.kind == Event::Answer && e.tid == tid) {
                printRecord(described("request", request.name, e.fields), options.json);
                return e.status == 0 ? kSuccess : kFailureStatus;
            }
            if (serviceGone(e)) {
                complain(std::string(request.name) + ": no answer: " + goneText(e));
                return kNoAnswer;
            }
        }
    }
}

// Registers every indication and prints each as it comes, until SIGINT or SIGTERM. The
// cell-list feedback needs a cell list sent by this client (the library installs that
// callback with set_cell_list_info), hence --cell-list.
int runWatch(const std::optional<Send>& cellList, const Options& options) {
    register_rux_client(onServiceStatus);
    register_hst_state_report(onHstStateInd);
    register_subway_state_report(onSubwayStateInd);
    register_dppd_indication(onDppdCapabilityInd, onDppdRecommendationInd);
    register_multi_sim_submode_indication(onSubmodeInfoInd);
    const std::string cellListName = "set-cell-list-info";
    int cellListTid = 0;
    Clock::time_point deadline = kNoDeadline;
    if (cellList) {
        cellListTid = (*cellList)();
        if (cellListTid < 0) return refused(cellListName, true, cellListTid, options);
        deadline = deadlineAfter(options.timeout);
    }
    for (;;) {
        switch (waitForWork(options.signalFd, deadline)) {
            case Wake::Timeout:
                complain("watch: no answer to " + cellListName + " within " +
                         seconds(options.timeout));
                return kNoAnswer;
            case Wake::Signal:
                return kSuccess;
            case Wake::Events:
                break;
        }
        for (const Event& e : inbox().take()) {
            if (e.kind == Event::Answer) {
                if (e.tid != cellListTid) continue;
                printRecord(described("request", cellListName, e.fields), options.json);
                if (e.status != 0) return kFailureStatus;
                deadline = kNoDeadline;
                continue;
            }
            printRecord(e.fields, options.json);
            if (serviceGone(e)) {
                complain("watch: " + goneText(e));
                return kNoAnswer;
            }
        }
    }
}

// SIGINT and SIGTERM are taken through a descriptor: blocked before the library starts
// its threads, so every thread inherits the mask.
int blockStopSignals() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    return ::signalfd(-1, &stop, SFD_CLOEXEC);
}

// The text of an argument as the C value: an enum's number, or 1/0 for a flag.
int argumentValue(const Argument& argument, const std::string& text) {
    if (argument.table != nullptr) return *parseEnum(*argument.table, text);
    return *parseBool(text) ? 1 : 0;
}

CLI::Validator argumentValidator(const Argument& argument) {
    const EnumTable* table = argument.table;
    const std::string choices = table ? enumChoices(*table) : "true, false, on, off, 1, 0";
    return CLI::Validator(
        [table, choices](std::string& text) -> std::string {
            const bool ok =
                table ? parseEnum(*table, text).has_value() : parseBool(text).has_value();
            return ok ? "" : "unknown value '" + text + "' (one of " + choices + ", or a number)";
        },
        table ? std::string(table->type) + ": " + choices + ", or a number" : choices, "");
}

CLI::Validator secondsValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            char* end = nullptr;
            const double seconds = std::strtod(text.c_str(), &end);
            const bool ok =
                end != text.c_str() && *end == '\0' && seconds > 0 && seconds <= kMaxTimeout;
            return ok ? ""
                      : "wants seconds above 0, at most " + std::to_string(int(kMaxTimeout)) +
                            ", got '" + text + "'";
        },
        "SECONDS", "");
}

// The subcommand of one request; what the user typed lands in `texts` and `recordPath`.
CLI::App* addRequestCommand(CLI::App& app, const Request& request, std::vector<std::string>& texts,
                            std::string& recordPath) {
    std::string usage = std::string(request.function) + "(";
    for (size_t i = 0; i < request.arguments.size(); ++i)
        usage += std::string(i ? ", " : "") + request.arguments[i].name;
    if (request.record)
        usage += std::string(request.arguments.empty() ? "" : ", ") + request.record + " from JSON";
    usage += ")";
    CLI::App* command = app.add_subcommand(request.name, usage);
    command->fallthrough();
    texts.resize(request.arguments.size());
    for (size_t i = 0; i < request.arguments.size(); ++i)
        command->add_option(request.arguments[i].name, texts[i])
            ->required()
            ->check(argumentValidator(request.arguments[i]));
    if (request.record)
        command->add_option(
            "FILE", recordPath,
            std::string("JSON file with the ") + request.record + " (default: - for stdin)");
    return command;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "ruxctl: sends one request to the Rux service and prints the answer, or "
        "watches its indications"};
    app.set_version_flag("--version", "ruxctl " RUX_VERSION);
    Options options;
    bool verbose = false;
    app.add_flag("--json", options.json, "print each answer or indication as a JSON object");
    app.add_option("-t,--timeout", options.timeout, "seconds to wait for an answer (default 10)")
        ->check(secondsValidator());
    app.add_flag("-v,--verbose", verbose, "show the library's own log lines on stderr");
    // Words nobody takes are reported below, with the request named when it is unknown.
    app.require_subcommand(0, 1);
    app.allow_extras();
    app.failure_message([](const CLI::App*, const CLI::Error& e) {
        return "ruxctl: " + std::string(e.what()) + "\nRun with --help for more information.\n";
    });

    const auto& table = requests();
    std::vector<std::vector<std::string>> texts(table.size());
    std::vector<std::string> recordPaths(table.size());
    std::vector<CLI::App*> commands;
    for (size_t i = 0; i < table.size(); ++i)
        commands.push_back(addRequestCommand(app, table[i], texts[i], recordPaths[i]));
    std::string cellListPath;
    CLI::App* watch = app.add_subcommand(
        "watch", "register every indication and print each as it comes, until interrupted");
    watch->fallthrough();
    watch->add_option("--cell-list", cellListPath,
                      "also send this set_cell_list_info_s (JSON file, - for stdin) to receive "
                      "the service's feedback on it");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kSuccess : kUsage;  // --help and --version exit 0
    }
    const auto extra = app.remaining(true);
    if (app.get_subcommands().empty()) {
        complain(extra.empty() ? "a request or watch is wanted (ruxctl --help lists them)"
                               : "unknown request '" + extra[0] + "' (ruxctl --help lists them)");
        return kUsage;
    }
    if (!extra.empty()) {
        complain("unexpected argument '" + extra[0] + "'");
        return kUsage;
    }

    // Everything the user gave is checked before the service is contacted.
    const Request* request = nullptr;
    std::optional<Send> send;
    try {
        for (size_t i = 0; i < table.size(); ++i) {
            if (!commands[i]->parsed()) continue;
            request = &table[i];
            std::vector<int> args;
            for (size_t a = 0; a < request->arguments.size(); ++a)
                args.push_back(argumentValue(request->arguments[a], texts[i][a]));
            std::optional<Json> record;
            if (request->record) record = readJson(recordPaths[i].empty() ? "-" : recordPaths[i]);
            send = request->prepare(args, record ? &*record : nullptr);
        }
        if (watch->parsed() && !cellListPath.empty())
            send = prepareCellListInfo(readJson(cellListPath));
    } catch (const RecordError& e) {
        complain(std::string(request ? request->name : "watch") + ": " + e.what());
        return kUsage;
    }

    // The library's Android log lines go to stderr on a host; they are shown on request.
    __android_log_set_minimum_priority(verbose ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);
    options.signalFd = blockStopSignals();
    if (options.signalFd < 0) {
        std::perror("ruxctl: signalfd");
        return kFailureStatus;
    }
    const int status = request ? runRequest(*request, *send, options) : runWatch(send, options);
    deregister_rux_client();
    ::close(options.signalFd);
    return status;
}
