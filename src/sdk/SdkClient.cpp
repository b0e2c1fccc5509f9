#include "sdk/SdkClient.h"

#include <exception>
#include <utility>

#include "ipc/ProcessUtils.h"
#include "sdk/SdkCoreLog.h"

namespace rux::sdk {

using rux::ipc::ProcessId;
using rux::ipc::RuxIpcClientSession;
using rux::ipc::RuxSdkType;
using rux::ipc::SendBlobMessage;

namespace {
// guarded by SdkClient::sInstanceLock
rux::ipc::ConnectOptions gConnectOptions;
}  // namespace

std::mutex SdkClient::sInstanceLock;
std::shared_ptr<SdkClient> SdkClient::mInstance;

SdkLoopResources::SdkLoopResources()
    : loopTimer(std::make_unique<rux::utils::RuxTimer>(nullptr)),
      loopEventManager(std::make_unique<rux::utils::EventManager>()) {}

SdkClient::SdkClient() : SdkClientBase(loopTimer.get(), loopEventManager.get()) {}

SdkClient::~SdkClient() {
    RUXSDK_LOG("dtor");
    stopThread();
    detachFromLoop();
    std::map<ProcessId, std::shared_ptr<RuxIpcClientSession>> sessions;
    {
        std::lock_guard<std::mutex> lock(mStateLock);
        sessions.swap(mRuxIpcSession);
    }
    for (auto& [id, session] : sessions)
        if (session) session->cleanup();
}

// --- tables ------------------------------------------------------------------------

ProcessId SdkClient::convertSdkTypeToProcessId(RuxSdkClientType type) {
    switch (type) {
        case 4:
            return ProcessId::PROCESS_ID_CLIENT_101;
        case 5:
            return ProcessId::PROCESS_ID_CLIENT_102;
        case 7:
            return ProcessId::PROCESS_ID_CLIENT_104;
        case 9:
            return ProcessId::PROCESS_ID_CLIENT_105;
        case 10:
            return ProcessId::PROCESS_ID_CLIENT_106;
        case 11:
            return ProcessId::PROCESS_ID_CLIENT_107;
        default:
            return ProcessId::PROCESS_ID_CLIENT_DEFAULT;  // 6, 8 and unknown types
    }
}

RuxSdkType SdkClient::convertSdkTypeToIpc(RuxSdkClientType type) {
    switch (type) {
        case 4:
            return static_cast<RuxSdkType>(4);
        case 5:
            return static_cast<RuxSdkType>(5);
        case 7:
            return static_cast<RuxSdkType>(6);
        case 9:
            return static_cast<RuxSdkType>(7);
        case 10:
            return static_cast<RuxSdkType>(8);
        case 11:
            return static_cast<RuxSdkType>(9);
        default:
            return rux::ipc::RUX_SDK_TYPE_NONE;  // 6, 8 and unknown types
    }
}

RuxSdkClientType SdkClient::convertSdkTypeToSdk(RuxSdkType type) {
    switch (static_cast<uint32_t>(type)) {
        case 4:
            return RUX_SDK_CLIENT_REQUEST;
        case 5:
            return RUX_SDK_CLIENT_5;
        case 6:
            return RUX_SDK_CLIENT_7;
        case 7:
            return RUX_SDK_CLIENT_9;
        case 8:
            return RUX_SDK_CLIENT_10;
        case 9:
            return RUX_SDK_CLIENT_11;
        default:
            return RUX_SDK_CLIENT_NONE;
    }
}

void SdkClient::setConnectOptions(rux::ipc::ConnectOptions options) {
    std::lock_guard<std::mutex> lock(sInstanceLock);
    gConnectOptions = std::move(options);
}

rux::ipc::ConnectOptions SdkClient::connectOptions() {
    std::lock_guard<std::mutex> lock(sInstanceLock);
    return gConnectOptions;
}

// --- the instance ------------------------------------------------------------------

std::shared_ptr<SdkClient> SdkClient::instance() {
    std::lock_guard<std::mutex> lock(sInstanceLock);
    return mInstance;
}

std::shared_ptr<SdkClient> SdkClient::getInstance(RuxSdkClientType type, Listener listener,
                                                  std::shared_ptr<SdkClientEvent> event) {
    // A second client type joins the running instance and its thread.
    auto join = [&](const std::shared_ptr<SdkClient>& client) -> std::shared_ptr<SdkClient> {
        if (!client->isRunning() || !event) {
            RUXSDK_LOG("Instance and atomic bool miss match.");
            return nullptr;
        }
        RUXSDK_LOG("Instance is available and already running, post event.");
        // The type and its listener are in place before the event is queued, so an
        // idle SDK thread never handles it for a type it does not know yet. The
        // service-up notice still reaches the listener the type had before.
        client->notifyServiceUp(type);
        client->addClientType(type);
        RUXSDK_LOG("Add listener for type %d", static_cast<int>(type));
        client->setClientListener(type, std::move(listener));
        client->postEvent(std::move(event));
        return client;
    };
    if (std::shared_ptr<SdkClient> client = instance()) return join(client);

    // Built outside the lock: construction registers with the event manager.
    std::shared_ptr<SdkClient> fresh;
    try {
        fresh = std::make_shared<SdkClient>();
    } catch (const std::exception& e) {
        RUXSDK_LOG("cannot create the SdkClient: %s", e.what());
        return nullptr;
    }
    std::shared_ptr<SdkClient> existing;
    {
        std::lock_guard<std::mutex> lock(sInstanceLock);
        if (mInstance)
            existing = mInstance;  // another caller got there first
        else
            mInstance = fresh;
    }
    if (existing) return join(existing);

    // The type and its listener go in before the thread starts, so that the outcome of
    // the first connect always finds the listener.
    fresh->addClientType(type);
    RUXSDK_LOG("Add listener for type %d", static_cast<int>(type));
    fresh->setClientListener(type, std::move(listener));
    if (!fresh->start(type, std::move(event))) {
        std::lock_guard<std::mutex> lock(sInstanceLock);
        if (mInstance == fresh) mInstance.reset();
        return nullptr;
    }
    RUXSDK_LOG("SdkClient new Instance created");
    return fresh;
}

void SdkClient::destroyInstance(RuxSdkClientType type) {
    std::shared_ptr<SdkClient> client = instance();
    if (!client) {
        RUXSDK_LOG("instance already destroyed");
        return;
    }
    // The type leaves the table and gives up its session in one step, so the SDK
    // thread cannot open a new session for it afterwards.
    std::shared_ptr<RuxIpcClientSession> session;
    bool othersRemain;
    {
        std::lock_guard<std::mutex> lock(client->mStateLock);
        if (validType(type)) client->mClientTypes[type] = false;
        othersRemain = client->anyClientTypeLocked();
        auto it = client->mRuxIpcSession.find(convertSdkTypeToProcessId(type));
        if (it != client->mRuxIpcSession.end()) {
            session = std::move(it->second);
            client->mRuxIpcSession.erase(it);
        }
    }
    // Ends a connect in progress on the SDK thread and waits until the receiver thread
    // is done with the session: no reply of this session is delivered afterwards.
    if (session) session->cleanup();
    session.reset();
    if (othersRemain) return;

    RUXSDK_LOG("cleaning mInstance");
    {
        std::lock_guard<std::mutex> lock(sInstanceLock);
        if (mInstance != client) return;  // another caller is tearing it down
        mInstance.reset();
    }
    // The loop ends with the cleanup event of the last type. One more is posted here so
    // that it ends even if the caller posted none; every event queued before it is
    // still handled.
    auto last = std::make_shared<SdkClientEvent>(type, std::vector<uint8_t>{});
    last->cleanup = true;
    client->postEvent(std::move(last));
    if (!client->waitForThreadEnd()) {
        // On the SDK thread itself: the thread still runs on this object.
        RUXSDK_LOG("destroyInstance on the SDK thread; instance kept");
        new std::shared_ptr<SdkClient>(std::move(client));  // deliberately never freed
    }
}

// --- sessions ----------------------------------------------------------------------

std::shared_ptr<RuxIpcClientSession> SdkClient::sessionFor(RuxSdkClientType type) {
    std::lock_guard<std::mutex> lock(mStateLock);
    auto it = mRuxIpcSession.find(convertSdkTypeToProcessId(type));
    return it == mRuxIpcSession.end() ? nullptr : it->second;
}

std::shared_ptr<RuxIpcClientSession> SdkClient::createRuxSdkClient(ProcessId id) {
    RUXSDK_LOG("IPC type: %d", static_cast<int>(id));
    std::shared_ptr<RuxIpcClientSession> session;
    try {
        session = std::make_shared<RuxIpcClientSession>(id, false, connectOptions());
    } catch (const std::exception& e) {
        RUXSDK_LOG("cannot create the session: %s", e.what());
        return nullptr;
    }
    rux::ipc::IpcMessageRegistry registry;
    registry[SendBlobMessage::ID] = rux::ipc::IpcMsgConstructorHandlerPair_t{
        [](std::vector<uint8_t> payload) -> std::shared_ptr<rux::ipc::RuxIpcMessage> {
            auto msg = std::make_shared<SendBlobMessage>();
            if (!msg->deserialize(std::move(payload))) return nullptr;
            return msg;
        },
        [this](std::shared_ptr<rux::ipc::RuxIpcMessage> msg) {
            handleSendBlobMessage(std::dynamic_pointer_cast<SendBlobMessage>(msg));
        },
        [](const uint8_t* bytes, size_t size) -> std::shared_ptr<rux::ipc::RuxIpcMessage> {
            auto msg = std::make_shared<SendBlobMessage>();
            if (!msg->deserialize(bytes, size)) return nullptr;
            return msg;
        }};
    session->registerForMessages(std::move(registry));
    return session;
}

void SdkClient::connectRuxSdkClient(RuxSdkClientType type) {
    const ProcessId id = convertSdkTypeToProcessId(type);
    std::shared_ptr<RuxIpcClientSession> session;
    {
        std::lock_guard<std::mutex> lock(mStateLock);
        if (!hasClientTypeLocked(type)) {
            RUXSDK_LOG("RuxSdkClientType %d is not registered; no connect", static_cast<int>(type));
            return;
        }
        auto it = mRuxIpcSession.find(id);
        if (it != mRuxIpcSession.end()) session = it->second;
    }
    if (!session) {
        std::shared_ptr<RuxIpcClientSession> created = createRuxSdkClient(id);
        if (!created) return;
        std::lock_guard<std::mutex> lock(mStateLock);
        if (!hasClientTypeLocked(type)) return;  // left meanwhile; `created` goes away
        auto& slot = mRuxIpcSession[id];
        if (!slot) slot = created;
        session = slot;
    }
    if (!session->isConnected()) {
        session->connectToServer([this, type](bool up) {
            RUXSDK_LOG("handleConnectionStatus: %d type: %d", up ? 1 : 0, static_cast<int>(type));
            if (up)
                notifyServiceUp(type);
            else
                notifyServiceDown();
        });
    }
    RUXSDK_LOG("IsConnected: %d", session->isConnected() ? 1 : 0);

    // A destroyInstance that ran before the connect began left this session out of the
    // table, and its cleanup could not stop a connect that had not started yet.
    bool orphaned;
    {
        std::lock_guard<std::mutex> lock(mStateLock);
        auto it = mRuxIpcSession.find(id);
        orphaned = it == mRuxIpcSession.end() || it->second != session;
    }
    if (orphaned) session->cleanup();
}

bool SdkClient::isConnected(RuxSdkClientType type) {
    std::shared_ptr<RuxIpcClientSession> session = sessionFor(type);
    return session && session->isConnected();
}

bool SdkClient::sendBlobToService(RuxSdkClientType type, std::vector<uint8_t> blob) {
    std::shared_ptr<RuxIpcClientSession> session = sessionFor(type);
    if (!session) {
        RUXSDK_LOG("mRuxIpcSession for RuxSdkClientType %d is not found", static_cast<int>(type));
        return false;
    }
    return session->send(
        std::make_shared<SendBlobMessage>(convertSdkTypeToIpc(type), std::move(blob)));
}

void SdkClient::handleSendBlobMessage(std::shared_ptr<SendBlobMessage> msg) {
    RUXSDK_LOG("handleSendBlobMessage");
    if (!msg) return;
    notifyReceivedBlob(convertSdkTypeToSdk(msg->sdkType), std::move(msg->blob));
}

}  // namespace rux::sdk
