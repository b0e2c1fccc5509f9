#include "Simulator.h"

#include <cctype>
#include <cstdio>
#include <sstream>

#include "SimCells.h"

namespace rux::sim {

using ipc::RuxIpcServer;
using ipc::RuxIpcServerClient;
using ipc::RuxSdkType;

const char* const kControlHelp =
    "status <request|all> <status>           answer with this status (RUX_STATUS_ name or number)\n"
    "silent <request|all> [on|off]           stay silent: no answer at all\n"
    "delay <ms>                              wait this long before every answer (0: none)\n"
    "value hst-state <HstState>              GetHstStateResp and HST indications\n"
    "value dppd-capable <bool>               GetDppdCapabilityResp and indications\n"
    "value dppd-ui <echo|bool>               UpdateDppdUiResp: the request's flag or a fixed one\n"
    "value recommendation <action> <subs>    GetDppdRecommendationResp and indications\n"
    "value submode <sub_mode> <tx>           GetMultiSimModeInfoResp and indications\n"
    "indicate hst-state <HstState>           HST_STATE_CHANGE_IND to every client\n"
    "indicate subway-state <SubwayState>     SUBWAY_STATE_CHANGE_IND\n"
    "indicate service-status <status>        SERVICE_STATUS_IND\n"
    "indicate dppd-capability <bool>         NOTIFY_DPPD_CAPABILITY_IND\n"
    "indicate dppd-recommendation <a> <s>    NOTIFY_DPPD_RECOMMENDATION_IND\n"
    "indicate submode <sub_mode> <tx>        NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND\n"
    "indicate cell-list <type> [lte|nr k=v...]...  CELL_LIST_INFO_IND_RESP with these cells\n"
    "reply <event> <tid> [status]            any ServiceMsg (any event number) to every client\n"
    "blob <hex>                              these bytes as a blob to every client\n"
    "drop                                    disconnect every client (a crashed service)\n"
    "refuse <on|off>                         refuse new connections (nothing listens)\n"
    "clients                                 how many clients are connected\n"
    "reset                                   default behaviour, accepting connections\n"
    "help                                    this list, then ok\n"
    "quit                                    stop the simulator\n";

namespace {

std::vector<std::string> split(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

std::string error(const std::string& what) { return "error: " + what; }

std::optional<std::vector<uint8_t>> parseHex(const std::string& text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::vector<uint8_t> out;
    for (size_t i = 0; i < text.size(); i += 2) {
        if (!std::isxdigit(static_cast<unsigned char>(text[i])) ||
            !std::isxdigit(static_cast<unsigned char>(text[i + 1])))
            return std::nullopt;
        out.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return out;
}

std::string session(const RuxIpcServerClient& c) {
    return "session=" + std::to_string(c.sessionId());
}

}  // namespace

void LineWriter::write(const std::string& line) {
    std::lock_guard<std::mutex> lock(mMutex);
    std::fputs(line.c_str(), mOut);
    std::fputc('\n', mOut);
    std::fflush(mOut);
}

Simulator::Simulator(LineWriter& log) : mLog(log) {
    RuxIpcServer::Callbacks callbacks;
    callbacks.onConnected = [this](const RuxIpcServerClient& c) { onConnected(c); };
    callbacks.onBlob = [this](const RuxIpcServerClient& c, RuxSdkType t, std::vector<uint8_t> b) {
        onBlob(c, t, std::move(b));
    };
    callbacks.onFrame = [this](const RuxIpcServerClient& c, const ipc::IncomingFrame& f) {
        onFrame(c, f);
    };
    callbacks.onDisconnected = [this](const RuxIpcServerClient& c) { onDisconnected(c); };
    mServer = std::make_unique<RuxIpcServer>(std::move(callbacks));
}

Simulator::~Simulator() { stop(); }

bool Simulator::start(const std::string& path) {
    mPath = path;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = false;
    }
    if (!mServer->start(path)) {
        mLog.write("error: cannot listen on " + path);
        return false;
    }
    mLog.write("ready socket=" + path);
    return true;
}

void Simulator::stop() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;  // answers still waiting out a delay are dropped
    }
    mChanged.notify_all();
    if (mServer && mServer->isRunning()) {
        mServer->stop();
        mLog.write("stopped");
    }
}

bool Simulator::quitRequested() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mQuit;
}

Behaviour Simulator::behaviour() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mBehaviour;
}

bool Simulator::waitOutDelay(std::chrono::steady_clock::time_point since) {
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        if (mStopping) return false;
        const auto due = since + mBehaviour.delay;
        if (std::chrono::steady_clock::now() >= due) return true;
        mChanged.wait_until(lock, due);
    }
}

// --- the service side ----------------------------------------------------------------

void Simulator::onConnected(const RuxIpcServerClient& client) {
    mLog.write("connected " + session(client) +
               " process=" + std::to_string(static_cast<unsigned long>(client.peerProcessId())));
}

void Simulator::onDisconnected(const RuxIpcServerClient& client) {
    mLog.write("disconnected " + session(client));
}

void Simulator::onFrame(const RuxIpcServerClient& client, const ipc::IncomingFrame& frame) {
    mLog.write("frame " + session(client) + " msgId=" + std::to_string(frame.msgId) +
               " subsystemId=" + std::to_string(frame.subsystemId) +
               " bytes=" + std::to_string(frame.payload.size()) + " (not a blob; ignored)");
}

void Simulator::onBlob(const RuxIpcServerClient& client, RuxSdkType type, std::vector<uint8_t> blob) {
    const auto arrived = std::chrono::steady_clock::now();
    const std::string kind = type == ipc::RUX_SDK_TYPE_REQUEST_CLIENT
                                 ? std::string()
                                 : " kind=" + std::to_string(static_cast<uint32_t>(type));
    if (blob.empty()) {
        // A deregistering client's last word (its cleanup event), not a request; as a
        // ClientMsg it would parse as a default SET_COVERAGE_STATE_REQ.
        mLog.write("deregister " + session(client) + kind + " (empty blob; no reply)");
        return;
    }
    VexProto::ClientMsg request;
    if (!request.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) {
        mLog.write("bad-blob " + session(client) + " bytes=" + std::to_string(blob.size()) +
                   " (not a ClientMsg; ignored)");
        return;
    }
    const int event = request.event_id();
    const std::string prefix =
        session(client) + kind + " tid=" + std::to_string(request.transaction_id()) + " ";
    mLog.write("request " + prefix + describeRequest(request));

    const auto responseEvent = responseEventFor(event);
    if (!responseEvent) {
        if (!VexProto::ClientEventId_IsValid(event)) mLog.write("unknown-event " + prefix + "(no reply)");
        return;  // the registrations get no reply
    }
    const Behaviour b = behaviour();
    if (b.silent[static_cast<size_t>(event)]) {
        mLog.write("no-reply " + prefix + "(silent)");
        return;
    }
    if (!waitOutDelay(arrived)) return;
    const auto response =
        buildResponse(request, *responseEvent, b.status[static_cast<size_t>(event)], b.values);
    sendTo(client, type, response, "reply");
}

bool Simulator::sendTo(const RuxIpcServerClient& client, RuxSdkType type,
                       const VexProto::ServiceMsg& msg, const std::string& kind) {
    std::vector<uint8_t> blob(msg.ByteSizeLong());
    msg.SerializeToArray(blob.data(), static_cast<int>(blob.size()));
    const std::string tid =
        kind == "indication" ? std::string() : " tid=" + std::to_string(msg.transaction_id());
    // Logged before it is sent, so a reader of the log sees it before the client does.
    mLog.write(kind + " " + session(client) + tid + " " + describeService(msg));
    const bool sent = client.sendBlob(type, blob);
    if (!sent) mLog.write("send-failed " + session(client) + tid);
    return sent;
}

int Simulator::sendToAll(const VexProto::ServiceMsg& msg, const std::string& kind) {
    int count = 0;
    for (const auto& client : liveClients())
        if (sendTo(client, ipc::RUX_SDK_TYPE_REQUEST_CLIENT, msg, kind)) ++count;
    return count;
}

// --- control commands ------------------------------------------------------------------

std::optional<std::string> Simulator::execute(const std::string& line) {
    auto words = split(line);
    if (words.empty() || words[0][0] == '#') return std::nullopt;
    const std::string command = words[0];
    std::vector<std::string> args(words.begin() + 1, words.end());
    if (command == "status") return commandStatus(args);
    if (command == "silent") return commandSilent(args);
    if (command == "delay") return commandDelay(args);
    if (command == "value") return commandValue(args);
    if (command == "indicate") return commandIndicate(args);
    if (command == "reply") return commandReply(args);
    if (command == "blob") return commandBlob(args);
    if (command == "drop") return commandDrop();
    if (command == "refuse") return commandRefuse(args);
    if (command == "clients") return commandClients();
    if (command == "reset") {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mBehaviour = Behaviour();
        }
        mChanged.notify_all();
        return commandRefuse({"off"});
    }
    if (command == "help") {
        // The list with each line prefixed by "# ", then the reply line: a controller
        // reads up to the "ok" as it does for every other command.
        std::string out;
        std::istringstream in(kControlHelp);
        for (std::string l; std::getline(in, l);) out += "# " + l + "\n";
        return out + "ok";
    }
    if (command == "quit") {
        std::lock_guard<std::mutex> lock(mMutex);
        mQuit = true;
        return std::string("ok");
    }
    return error("unknown command '" + command + "' (try help)");
}

std::string Simulator::commandStatus(const std::vector<std::string>& args) {
    if (args.size() != 2) return error("usage: status <request|all> <status>");
    const auto status = parseStatus(args[1]);
    if (!status) return error("unknown status '" + args[1] + "'");
    std::lock_guard<std::mutex> lock(mMutex);
    if (args[0] == "all") {
        mBehaviour.status.fill(*status);
    } else {
        const auto event = parseClientEvent(args[0]);
        if (!event) return error("unknown request '" + args[0] + "'");
        mBehaviour.status[static_cast<size_t>(*event)] = *status;
    }
    return "ok";
}

std::string Simulator::commandSilent(const std::vector<std::string>& args) {
    if (args.empty() || args.size() > 2) return error("usage: silent <request|all> [on|off]");
    const auto on = args.size() == 2 ? parseBool(args[1]) : std::optional<bool>(true);
    if (!on) return error("expected on or off, got '" + args[1] + "'");
    std::lock_guard<std::mutex> lock(mMutex);
    if (args[0] == "all") {
        mBehaviour.silent.fill(*on);
    } else {
        const auto event = parseClientEvent(args[0]);
        if (!event) return error("unknown request '" + args[0] + "'");
        mBehaviour.silent[static_cast<size_t>(*event)] = *on;
    }
    return "ok";
}

std::string Simulator::commandDelay(const std::vector<std::string>& args) {
    const auto ms = args.size() == 1 ? parseNumber(args[0]) : std::nullopt;
    if (!ms || *ms < 0) return error("usage: delay <milliseconds>");
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mBehaviour.delay = std::chrono::milliseconds(*ms);
    }
    mChanged.notify_all();  // answers already waiting take the new delay
    return "ok";
}

namespace {

// Parses the arguments of a value or an indication into `v`; an error text on failure.
std::string parseValues(const std::string& what, const std::vector<std::string>& a,
                        AnswerValues& v) {
    using namespace VexProto;
    auto need = [&](size_t n) { return a.size() == n; };
    if (what == "hst-state" && need(1)) {
        auto x = parseEnum<HstState>(a[0], HstState_Parse);
        if (!x) return "unknown HstState '" + a[0] + "'";
        v.hstState = static_cast<HstState>(*x);
    } else if ((what == "dppd-capable" || what == "dppd-capability") && need(1)) {
        auto x = parseBool(a[0]);
        if (!x) return "expected true or false";
        v.dppdCapable = *x;
    } else if (what == "dppd-ui" && need(1)) {
        v.echoUiOption = a[0] == "echo";
        if (!v.echoUiOption) {
            auto x = parseBool(a[0]);
            if (!x) return "expected echo, true or false";
            v.uiOption = *x;
        }
    } else if ((what == "recommendation" || what == "dppd-recommendation") && need(2)) {
        auto x = parseEnum<VexRecommendationAction>(a[0], VexRecommendationAction_Parse);
        auto y = parseEnum<VexRecommendationSubs>(a[1], VexRecommendationSubs_Parse);
        if (!x || !y) return "expected <VexRecommendationAction> <VexRecommendationSubs>";
        v.action = static_cast<VexRecommendationAction>(*x);
        v.subs = static_cast<VexRecommendationSubs>(*y);
    } else if (what == "submode" && need(2)) {
        auto x = parseEnum<VexSubMode>(a[0], VexSubMode_Parse);
        auto y = parseEnum<VexTxConcurrency>(a[1], VexTxConcurrency_Parse);
        if (!x || !y) return "expected <VexSubMode> <VexTxConcurrency>";
        v.subMode = static_cast<VexSubMode>(*x);
        v.txConcurrency = static_cast<VexTxConcurrency>(*y);
    } else {
        return "bad arguments for '" + what + "' (try help)";
    }
    return {};
}

}  // namespace

std::string Simulator::commandValue(const std::vector<std::string>& args) {
    if (args.empty()) return error("usage: value <what> <value...>");
    AnswerValues values = behaviour().values;
    const std::string problem = parseValues(args[0], {args.begin() + 1, args.end()}, values);
    if (!problem.empty()) return error(problem);
    std::lock_guard<std::mutex> lock(mMutex);
    mBehaviour.values = values;
    return "ok";
}

std::string Simulator::commandIndicate(const std::vector<std::string>& args) {
    using namespace VexProto;
    if (args.size() < 2) return error("usage: indicate <what> <value...>");
    const std::string& what = args[0];
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    AnswerValues values = behaviour().values;
    ServiceMsg msg;
    if (what == "subway-state" && rest.size() == 1) {
        auto x = parseEnum<SubwayState>(rest[0], SubwayState_Parse);
        if (!x) return error("unknown SubwayState '" + rest[0] + "'");
        msg.set_event_id(SUBWAY_STATE_CHANGE_IND);
        msg.mutable_data()->mutable_subway_state_change_ind()->set_subway_state(
            static_cast<SubwayState>(*x));
    } else if (what == "service-status" && rest.size() == 1) {
        auto x = parseStatus(rest[0]);
        if (!x) return error("unknown status '" + rest[0] + "'");
        msg = buildServiceMsg(SERVICE_STATUS_IND, 0, *x, values);
    } else if (what == "cell-list") {
        const std::string problem = parseCellListIndication(rest, msg);
        if (!problem.empty()) return error(problem);
    } else {
        int event;
        if (what == "hst-state") event = HST_STATE_CHANGE_IND;
        else if (what == "dppd-capability") event = NOTIFY_DPPD_CAPABILITY_IND;
        else if (what == "dppd-recommendation") event = NOTIFY_DPPD_RECOMMENDATION_IND;
        else if (what == "submode") event = NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND;
        else return error("unknown indication '" + what + "' (try help)");
        const std::string problem = parseValues(what, rest, values);
        if (!problem.empty()) return error(problem);
        msg = buildServiceMsg(event, 0, STATUS_SUCCESS, values);
    }
    return "ok sent=" + std::to_string(sendToAll(msg, "indication"));
}

std::string Simulator::commandReply(const std::vector<std::string>& args) {
    if (args.size() < 2 || args.size() > 3) return error("usage: reply <event> <tid> [status]");
    const auto event = parseServiceEvent(args[0], true);
    if (!event) return error("unknown event '" + args[0] + "'");
    char* end = nullptr;
    const unsigned long long tid = std::strtoull(args[1].c_str(), &end, 0);
    if (args[1].empty() || *end != '\0') return error("bad transaction id '" + args[1] + "'");
    int status = VexProto::STATUS_SUCCESS;
    if (args.size() == 3) {
        const auto s = parseStatus(args[2]);
        if (!s) return error("unknown status '" + args[2] + "'");
        status = *s;
    }
    const auto msg = buildServiceMsg(*event, tid, status, behaviour().values);
    return "ok sent=" + std::to_string(sendToAll(msg, "reply"));
}

std::string Simulator::commandBlob(const std::vector<std::string>& args) {
    const auto bytes = args.size() == 1 ? parseHex(args[0]) : std::nullopt;
    if (!bytes) return error("usage: blob <hex bytes>");
    int count = 0;
    for (const auto& client : liveClients()) {
        mLog.write("blob " + session(client) + " bytes=" + std::to_string(bytes->size()));
        if (client.sendBlob(ipc::RUX_SDK_TYPE_REQUEST_CLIENT, *bytes))
            ++count;
        else
            mLog.write("send-failed " + session(client));
    }
    return "ok sent=" + std::to_string(count);
}

std::vector<RuxIpcServerClient> Simulator::liveClients() const {
    // A client whose end is being reported is still listed by the server for a moment.
    std::vector<RuxIpcServerClient> live;
    for (const auto& client : mServer->clients())
        if (client.isConnected()) live.push_back(client);
    return live;
}

std::string Simulator::commandDrop() {
    const auto clients = liveClients();
    for (const auto& client : clients) {
        mLog.write("drop " + session(client));
        client.disconnect();
    }
    return "ok dropped=" + std::to_string(clients.size());
}

std::string Simulator::commandRefuse(const std::vector<std::string>& args) {
    const auto on = args.size() == 1 ? parseBool(args[0]) : std::nullopt;
    if (!on) return error("usage: refuse <on|off>");
    mServer->setRefuseConnections(*on);
    if (mServer->isRunning()) mLog.write(*on ? "refusing" : "accepting");
    return "ok";
}

std::string Simulator::commandClients() {
    return "ok clients=" + std::to_string(liveClients().size());
}

}  // namespace rux::sim
