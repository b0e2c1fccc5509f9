#include "client/MavoClient.h"

#include <android/log.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <type_traits>
#include <utility>

#include "client/ClientLog.h"
#include "client/EnumConversions.h"
#include "sdk/SdkClient.h"

namespace rux::client {

using sdk::SdkClient;
using sdk::SdkClientBase;
using sdk::SdkClientEvent;

std::mutex MavoClient::sInstanceLock;
std::shared_ptr<MavoClient> MavoClient::mInstance;
std::atomic<int> MavoClient::currentTid{0};

namespace {

constexpr int kLastEventId = 26;

void deregisterAtExit() {
    MavoClient::deregisterRuxClient();
}

// Every front is a C entry point: nothing thrown below it may cross into the caller.
template <typename Result, typename Body>
Result guarded(Result failure, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        MAVO_LOG("request failed: %s", e.what());
    } catch (...) {
        MAVO_LOG("request failed");
    }
    return failure;
}

template <typename Body>
void guardedVoid(Body body) noexcept {
    guarded(0, [&] {
        body();
        return 0;
    });
}

}  // namespace

MavoClient::MavoClient() {
    MAVO_LOG("MavoClient ctor");
    mSetupFailedCallback = &MavoClient::onSdkSetupFailed;
}

MavoClient::~MavoClient() {
    MAVO_LOG("MavoClient dtor");
}

std::shared_ptr<MavoClient> MavoClient::getInstance() {
    std::lock_guard<std::mutex> lock(sInstanceLock);
    return mInstance;
}

std::shared_ptr<MavoClient> MavoClient::instanceForRequest() {
    std::shared_ptr<MavoClient> self = getInstance();
    if (!self || !self->sdkClient()) {
        MAVO_LOG("Failed to get SDK instance.");
        return nullptr;
    }
    return self;
}

template <typename Body>
int MavoClient::onInstance(Body body) noexcept {
    return guarded(-1, [&] {
        auto self = instanceForRequest();
        return self ? body(*self) : -1;
    });
}

void MavoClient::onSdkSetupFailed(int status) {
    if (auto self = getInstance()) self->triggerServiceStatusCb(static_cast<status_e>(status));
}

// --- transaction ids ---------------------------------------------------------------------

int MavoClient::getNextTransactionId() {
    int current = currentTid.load();
    int id;
    int next;
    do {
        // Unsigned steps: passing INT_MAX wraps instead of overflowing.
        id = static_cast<int>(static_cast<uint32_t>(current) + 1u);
        if (id < 0) id = 1;
        next = static_cast<int>(static_cast<uint32_t>(id) + 1u);
    } while (!currentTid.compare_exchange_weak(current, next));
    return id;
}

void MavoClient::setCurrentTid(int value) {
    currentTid.store(value);
}

// --- the callback map ---------------------------------------------------------------------

MavoClient::ErasedCallback MavoClient::takeCallback(int tid) {
    const unsigned long key = mapKey(tid);
    ErasedCallback cb = nullptr;
    bool found = false;
    size_t remaining = 0;
    {
        std::lock_guard<std::mutex> lock(mMapLock);
        auto it = mCallbackMap.find(key);
        if (it != mCallbackMap.end()) {
            cb = it->second;
            mCallbackMap.erase(it);
            found = true;
        }
        remaining = mCallbackMap.size();
    }
    if (!found) {
        MAVO_LOG("Couldn't find cb for transaction id: 0x%lu", key);
        return nullptr;
    }
    MAVO_LOG("cb map size after remove: %d", static_cast<int>(remaining));
    return cb;
}

void MavoClient::eraseCallback(int tid) {
    size_t remaining;
    {
        std::lock_guard<std::mutex> lock(mMapLock);
        mCallbackMap.erase(mapKey(tid));
        remaining = mCallbackMap.size();
    }
    MAVO_LOG("cb map size after remove: %d", static_cast<int>(remaining));
}

size_t MavoClient::pendingCallbacks() const {
    std::lock_guard<std::mutex> lock(mMapLock);
    return mCallbackMap.size();
}

// --- indication callbacks ---------------------------------------------------------------

void MavoClient::offerFallbackCallback(rux_response_cb cb) {
    if (cb == nullptr) return;
    rux_response_cb none = nullptr;
    mFallbackCb.compare_exchange_strong(none, cb);
}

void MavoClient::triggerHstStateChangeCb(hst_state_e state) {
    if (auto cb = mHstStateIndCb.load()) cb(state);
}

void MavoClient::triggerSubwayStateChangeCb(rux_subway_state_e state) {
    if (auto cb = mSubwayStateIndCb.load()) cb(state);
}

void MavoClient::triggerServiceStatusCb(status_e status) {
    if (auto cb = mServiceStatusCb.load()) cb(status);
}

void MavoClient::triggeNotifyDppdCapabilityCb(bool capable) {
    if (auto cb = mDppdCapabilityIndCb.load()) cb(capable);
}

void MavoClient::triggerNotifyDppdRecommendationCb(data_recommendation_s recommendation) {
    if (auto cb = mDppdRecommendationIndCb.load()) cb(recommendation);
}

void MavoClient::triggerNotifyMultiSimSubmodeInfoCb(submode_info_s info) {
    if (auto cb = mMultiSimIndCb.load()) cb(&info);
}

// --- registration -------------------------------------------------------------------------

void MavoClient::registerRuxClient(rux_status_cb cb) {
    guardedVoid([&] {
        MAVO_LOG("register_rux_client");
        if (cb == nullptr) {
            MAVO_LOG("User cb function null");
            return;
        }
        std::shared_ptr<MavoClient> self;
        {
            std::lock_guard<std::mutex> lock(sInstanceLock);
            if (!mInstance) {
                try {
                    mInstance = std::make_shared<MavoClient>();
                } catch (const std::bad_alloc&) {
                }
            }
            self = mInstance;
        }
        if (!self) {
            MAVO_LOG("Failed to get SDK instance.");
            cb(RUX_STATUS_INTERNAL_ERR);
            return;
        }
        const int tid = getNextTransactionId();
        MAVO_LOG("transactionId: 0x%lu", static_cast<unsigned long>(tid));
        Blob blob;
        try {
            VexProto::ClientData data;
            data.mutable_register_client_req();
            blob = serialiseClientMsg(VexProto::REGISTER_CLIENT_REQ,
                                      static_cast<unsigned long>(tid), data);
        } catch (const std::exception&) {
            MAVO_LOG("Failed to create event.");
            cb(RUX_STATUS_INTERNAL_ERR);
            return;
        }
        auto event = std::make_shared<SdkClientEvent>(sdk::RUX_SDK_CLIENT_REQUEST, std::move(blob));
        self->setServiceStatusCallback(cb);
        // The SDK layer keeps the client alive through its listener.
        Listener listener = [self](SdkStatus status, const std::vector<uint8_t>& bytes) {
            self->blobListener(status, bytes);
        };
        self->createSdkInstance(sdk::RUX_SDK_CLIENT_REQUEST, std::move(listener), std::move(event));

        // Once per process: the handler tears the client down at exit, before the
        // static objects it uses (created by now) are destroyed.
        static std::once_flag atExitOnce;
        std::call_once(atExitOnce, [] { std::atexit(deregisterAtExit); });
    });
}

void MavoClient::deregisterRuxClient() {
    guardedVoid([] {
        MAVO_LOG("deregister_rux_client: ENTER");
        std::shared_ptr<MavoClient> self;
        {
            // Taken out at once: requests made from here on fail as without a client.
            std::lock_guard<std::mutex> lock(sInstanceLock);
            self = std::move(mInstance);
            mInstance.reset();
        }
        if (!self) {
            MAVO_LOG("deregister_rux_client: EXIT");
            return;
        }
        MAVO_LOG("Send cleanup event");
        self->setServiceStatusCallback(nullptr);
        self->mDeregistered.store(true);
        if (std::shared_ptr<SdkClient> sdk = self->releaseSdkClient()) {
            auto event = std::make_shared<SdkClientEvent>(sdk::RUX_SDK_CLIENT_REQUEST, Blob{});
            event->cleanup = true;
            sdk->postEvent(std::move(event));
        }
        // Waits for the SDK thread and the session's receiver: no callback of this client
        // runs after this returns.
        SdkClient::destroyInstance(sdk::RUX_SDK_CLIENT_REQUEST);
        {
            std::lock_guard<std::mutex> lock(self->mMapLock);
            self->mCallbackMap.clear();
        }
        self.reset();
        MAVO_LOG("deregister_rux_client: EXIT");
    });
}

void MavoClient::registerHstStateReport(rux_hst_state_ind_cb cb) {
    guardedVoid([&] {
        if (auto self = instanceForRequest()) self->setHstStateIndCallback(cb);
    });
}

void MavoClient::registerSubwayStateReport(rux_subway_state_ind_cb cb) {
    guardedVoid([&] {
        if (auto self = instanceForRequest()) self->setSubwayStateIndCallback(cb);
    });
}

void MavoClient::registerDppdIndication(rux_dppd_capability_ind_cb capabilityCb,
                                        rux_dppd_recommendation_ind_cb recommendationCb) {
    guardedVoid([&] {
        auto self = instanceForRequest();
        if (!self) return;
        self->setDppdIndCallbacks(capabilityCb, recommendationCb);
        VexProto::ClientData data;
        data.mutable_register_dppd_indication_req();
        self->post(serialiseClientMsg(VexProto::REGISTER_DPPD_INDICATION_REQ, 0, data), false);
    });
}

void MavoClient::registerMultiSimSubmodeIndication(rux_submode_info_ind_cb cb) {
    guardedVoid([&] {
        auto self = instanceForRequest();
        if (!self) return;
        self->setMultiSimIndCallback(cb);
        VexProto::ClientData data;
        data.mutable_register_multi_sim_submode_indication_req();
        self->post(serialiseClientMsg(VexProto::REGISTER_MULTI_SIM_SUBMODE_INDICATION_REQ, 0, data),
                   false);
    });
}

// --- requests -----------------------------------------------------------------------------

std::shared_ptr<SdkClientEvent> MavoClient::makeSdkClientEvent(std::vector<unsigned char> blob,
                                                               bool toClient) {
    return std::make_shared<SdkClientEvent>(sdk::RUX_SDK_CLIENT_REQUEST, std::move(blob), toClient);
}

void MavoClient::post(std::vector<unsigned char> blob, bool toClient) {
    if (std::shared_ptr<SdkClient> sdk = sdkClient())
        sdk->postEvent(makeSdkClientEvent(std::move(blob), toClient));
}

template <typename Callback, typename Build, typename Reply>
int MavoClient::sendRequest(Callback cb, bool setsFallback, Build build, Reply reply) {
    if constexpr (std::is_same_v<Callback, rux_response_cb>) {
        if (setsFallback) offerFallbackCallback(cb);
    }
    const int tid = getNextTransactionId();
    MAVO_LOG("transactionId: 0x%lu", static_cast<unsigned long>(tid));
    setUserCallback(tid, cb);
    MAVO_LOG("cb map size after insert: %d", static_cast<int>(pendingCallbacks()));
    BlobResult result = build(static_cast<unsigned long>(tid));
    bool toClient = false;
    if (result.second != RUX_STATUS_SUCCESS) {
        // Answered here, on the SDK thread, through the normal reply path.
        result.first = reply(static_cast<unsigned long>(tid), result.second);
        toClient = true;
    }
    post(std::move(result.first), toClient);
    return tid;
}

template <typename Callback, typename Fill>
int MavoClient::sendQuery(Callback cb, VexProto::ClientEventId eventId, Fill fill) {
    const int tid = getNextTransactionId();
    MAVO_LOG("transactionId: 0x%lu", static_cast<unsigned long>(tid));
    setUserCallback(tid, cb);
    MAVO_LOG("cb map size after insert: %d", static_cast<int>(pendingCallbacks()));
    VexProto::ClientData data;
    fill(data);
    post(serialiseClientMsg(eventId, static_cast<unsigned long>(tid), data), false);
    return tid;
}

// Requests whose records are not converted by this client yet: they take an id and
// complete with RUX_STATUS_NOT_SUPPORTED through the local reply path.
int MavoClient::answerLocally(rux_response_cb cb, VexProto::ServiceEventId replyId,
                              status_e status) {
    offerFallbackCallback(cb);
    const int tid = getNextTransactionId();
    MAVO_LOG("transactionId: 0x%lu", static_cast<unsigned long>(tid));
    setUserCallback(tid, cb);
    MAVO_LOG("cb map size after insert: %d", static_cast<int>(pendingCallbacks()));
    MAVO_LOG("Request not handled by this client; answered with status %d",
             static_cast<int>(status));
    VexProto::ServiceData data;
    const VexProto::Status wire = convertStatusToProto(status);
    switch (replyId) {
        case VexProto::SET_CELL_BARRING_INFO_RESP:
            data.mutable_set_cell_barring_info_resp()->set_status(wire);
            break;
        case VexProto::SEND_DATA_STALL_PARAMETERS_RESP:
            data.mutable_send_data_stall_parameters_resp()->set_status(wire);
            break;
        case VexProto::SET_LTE_DUBIOUS_CELL_LIST_RESP:
            data.mutable_set_lte_dubious_cell_list_resp()->set_status(wire);
            break;
        case VexProto::SET_NR_DUBIOUS_CELL_LIST_RESP:
            data.mutable_set_nr_dubious_cell_list_resp()->set_status(wire);
            break;
        default:
            data.mutable_set_pref_cell_list_resp()->set_status(wire);
            break;
    }
    Blob blob = serialiseServiceMsg(replyId, static_cast<unsigned long>(tid), data);
    MAVO_LOG("Returning blob.size: %d", static_cast<int>(blob.size()));
    post(std::move(blob), true);
    return tid;
}

int MavoClient::setHstState(hst_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true, [&](unsigned long tid) { return makeSetHstStateReqBlob(tid, state); },
            makeSetHstStateRespBlob);
    });
}

int MavoClient::getHstState(rux_get_hst_state_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(cb, false, makeGetHstStateReqBlob, makeGetHstStateRespBlob);
    });
}

int MavoClient::setCoverageState(slot_id_e slot, coverage_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) { return makeSetCoverageStateReqBlob(tid, slot, state); },
            makeSetCoverageStateRespBlob);
    });
}

int MavoClient::setOutOfServiceState(slot_id_e slot, scan_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) { return makeSetOutOfServiceReqBlob(tid, slot, state); },
            makeSetOutOfServiceRespBlob);
    });
}

int MavoClient::setL2nrSelection(slot_id_e slot, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true, [&](unsigned long tid) { return makeSetL2NRSelectionReqBlob(tid, slot); },
            makeSetL2NRSelectionRespBlob);
    });
}

int MavoClient::enableCellBarringFeature(slot_id_e slot, bool enable, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) {
                return makeEnableCellBarringFeatureReqBlob(tid, slot, enable);
            },
            makeEnableCellBarringFeatureRespBlob);
    });
}

int MavoClient::setFlightModeState(rux_flight_mode_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true, [&](unsigned long tid) { return makeSetFlightModeStateReqBlob(tid, state); },
            makeSetFlightModeStateRespBlob);
    });
}

int MavoClient::setDeviceFoldState(rux_device_fold_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true, [&](unsigned long tid) { return makeSetDeviceFoldStateReqBlob(tid, state); },
            makeSetDeviceFoldStateRespBlob);
    });
}

int MavoClient::setSubwayState(rux_subway_state_e state, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true, [&](unsigned long tid) { return makeSetSubwayStateReqBlob(tid, state); },
            makeSetSubwayStateRespBlob);
    });
}

// TODO(next issue): convert the records (cell barring, data stall, dubious and preferred
// cells) and send them. Until then these complete with RUX_STATUS_NOT_SUPPORTED.
int MavoClient::setCellBarringInfo(slot_id_e, cell_barring_info_s const*, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.answerLocally(cb, VexProto::SET_CELL_BARRING_INFO_RESP,
                                  RUX_STATUS_NOT_SUPPORTED);
    });
}

int MavoClient::setDataStallParameters(slot_id_e, data_stall_params_s const*, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.answerLocally(cb, VexProto::SEND_DATA_STALL_PARAMETERS_RESP,
                                  RUX_STATUS_NOT_SUPPORTED);
    });
}

int MavoClient::setLteDubiousCellArray(slot_id_e, unsigned long, lte_dubious_cell_info_s const*,
                                       rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.answerLocally(cb, VexProto::SET_LTE_DUBIOUS_CELL_LIST_RESP,
                                  RUX_STATUS_NOT_SUPPORTED);
    });
}

int MavoClient::setNrDubiousCellArray(slot_id_e, unsigned long, nr_dubious_cell_info_s const*,
                                      rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.answerLocally(cb, VexProto::SET_NR_DUBIOUS_CELL_LIST_RESP,
                                  RUX_STATUS_NOT_SUPPORTED);
    });
}

int MavoClient::setPreferredCellList(slot_id_e, preferred_cell_list_s const*, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.answerLocally(cb, VexProto::SET_PREFERRED_CELL_LIST_RESP,
                                  RUX_STATUS_NOT_SUPPORTED);
    });
}

int MavoClient::getDppdCapability(rux_dppd_flag_cb cb) {
    return onInstance([&](MavoClient& self) {
        if (cb == nullptr) {
            MAVO_LOG("cb is null");
            return -1;
        }
        return self.sendQuery(
            cb, VexProto::GET_DPPD_CAPABILITY_REQ,
            [](VexProto::ClientData& data) { data.mutable_get_dppd_capabaility_req(); });
    });
}

int MavoClient::updateDppdUiOption(bool enable, rux_dppd_flag_cb cb) {
    return onInstance([&](MavoClient& self) {
        if (cb == nullptr) {
            MAVO_LOG("cb is null");
            return -1;
        }
        return self.sendQuery(cb, VexProto::UPDATE_DPPD_UI_REQ, [&](VexProto::ClientData& data) {
            data.mutable_update_dppd_ui_req()->set_ui_option_enabled(enable);
        });
    });
}

int MavoClient::getDppdRecommendation(rux_dppd_recommendation_cb cb) {
    return onInstance([&](MavoClient& self) {
        if (cb == nullptr) {
            MAVO_LOG("cb is null");
            return -1;
        }
        return self.sendQuery(
            cb, VexProto::GET_DPPD_RECOMMENDATION_REQ,
            [](VexProto::ClientData& data) { data.mutable_get_dppd_recommendation_req(); });
    });
}

int MavoClient::getMultiSimSubmodeInfo(rux_submode_info_cb cb) {
    return onInstance([&](MavoClient& self) {
        if (cb == nullptr) {
            MAVO_LOG("cb is null");
            return -1;
        }
        return self.sendQuery(
            cb, VexProto::GET_MULTI_SUM_SUBMODE_INFO_REQ,
            [](VexProto::ClientData& data) { data.mutable_get_multi_sim_submode_info_req(); });
    });
}

// TODO(next issue): convert set_cell_list_info_s and dubious_cell_info_v2_s. Until then,
// after the checks that need no conversion, both return RUX_STATUS_V2_NOT_SUPPORTED and
// no callback follows.
int MavoClient::setCellListInfo(set_cell_list_info_s const* info, rux_response_v2_cb cb,
                                rux_cell_list_info_ind_cb indCb) {
    return guarded(static_cast<int>(RUX_STATUS_V2_INTERNAL_ERR), [&] {
        auto self = instanceForRequest();
        if (!self) return static_cast<int>(RUX_STATUS_V2_INVALID_OPERATION);
        if (info == nullptr || cb == nullptr || indCb == nullptr)
            return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        self->setCellListIndCallback(indCb);
        MAVO_LOG("Request not handled by this client; returning %d",
                 static_cast<int>(RUX_STATUS_V2_NOT_SUPPORTED));
        return static_cast<int>(RUX_STATUS_V2_NOT_SUPPORTED);
    });
}

int MavoClient::setDubiousCellArrayV2(dubious_cell_info_v2_s const* info, rux_response_v2_cb cb) {
    return guarded(static_cast<int>(RUX_STATUS_V2_INTERNAL_ERR), [&] {
        auto self = instanceForRequest();
        if (!self) return static_cast<int>(RUX_STATUS_V2_INVALID_OPERATION);
        if (cb == nullptr) {
            MAVO_LOG("cb is null");
            return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        }
        if (info == nullptr) return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        MAVO_LOG("Request not handled by this client; returning %d",
                 static_cast<int>(RUX_STATUS_V2_NOT_SUPPORTED));
        return static_cast<int>(RUX_STATUS_V2_NOT_SUPPORTED);
    });
}

// --- replies and indications ---------------------------------------------------------------

void MavoClient::blobListener(SdkStatus status, const std::vector<uint8_t>& blob) {
    try {
        MAVO_LOG("MavoClient::blobListener status: %d", static_cast<int>(status));
        if (mDeregistered.load()) {
            // Deregistered: nothing reaches the application any more.
            MAVO_LOG("MavoClient::blobListener end");
            return;
        }
        switch (status) {
            case SdkClientBase::RESPONSE:
                handleResponse(blob);
                return;
            case SdkClientBase::SEND_FAILED:
                triggerServiceStatusCb(RUX_STATUS_INTERNAL_ERR);
                break;
            case SdkClientBase::SERVICE_DOWN:
                triggerServiceStatusCb(RUX_STATUS_SERVICE_DOWN);
                break;
            case SdkClientBase::SERVICE_UP:
                break;
            default:
                MAVO_LOG("Unknown internal status %d", static_cast<int>(status));
                break;
        }
        MAVO_LOG("MavoClient::blobListener end");
    } catch (const std::exception& e) {
        MAVO_LOG("blobListener failed: %s", e.what());
    } catch (...) {
        MAVO_LOG("blobListener failed");
    }
}

void MavoClient::deliverPlainReply(int tid, VexProto::Status status) {
    rux_response_cb cb = getUserCallBack<rux_response_cb>(tid);
    if (cb == nullptr) cb = mFallbackCb.load();
    if (cb != nullptr) cb(tid, convertProtoStatusToClient(status));
}

void MavoClient::deliverV2Reply(int tid, VexProto::Status status, bool eraseAgain) {
    rux_response_v2_cb cb = getUserCallBack<rux_response_v2_cb>(tid);
    if (cb == nullptr) {
        if (eraseAgain)
            MAVO_LOG("Stored cb is null!");
        else
            MAVO_LOG("can't find cb for txn id: %d", tid);
        return;
    }
    cb(static_cast<long>(tid), convertProtoStatusToClientV2(status));
    if (eraseAgain) eraseCallback(tid);
}

namespace {

data_recommendation_s toClient(const VexProto::VexDataRecommendation& r) {
    return {convertRecommendationActionToClient(r.action()),
            convertRecommendationSubsToClient(r.subs())};
}

submode_info_s toClient(const VexProto::VexMultiSimSubModeInfo& info) {
    return {convertSubModeToClient(info.sub_mode()),
            convertTxConcurrencyToClient(info.tx_concurrency())};
}

}  // namespace

void MavoClient::handleResponse(const std::vector<uint8_t>& blob) {
    MAVO_LOG("MavoClient RESPONSE");
    VexProto::ServiceMsg msg;
    // A bad blob decodes as far as it goes; what is missing reads as defaults.
    (void)msg.ParseFromArray(blob.data(), static_cast<int>(blob.size()));
    const VexProto::ServiceData& data = msg.data();
    const int eventId = static_cast<int>(msg.event_id());
    const int tid = static_cast<int>(msg.transaction_id());
    MAVO_LOG("VEX event id: %d", eventId);
    if (eventId < 0 || eventId > kLastEventId) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unknown VEX proto event!");
        return;
    }
    // Each payload sits in the oneof case one above its event id; anything else is
    // dropped without a word.
    if (static_cast<int>(data.msg_type_case()) != eventId + 1) {
        MAVO_LOG("MavoClient::blobListener end");
        return;
    }

    switch (eventId) {
        case VexProto::SET_COVERAGE_STATE_RESP:
            MAVO_LOG("set_coverage_state_resp");
            deliverPlainReply(tid, data.set_coverage_state_resp().status());
            break;
        case VexProto::SET_HST_STATE_RESP:
            MAVO_LOG("set_hst_state_resp");
            deliverPlainReply(tid, data.set_hst_state_resp().status());
            break;
        case VexProto::GET_HST_STATE_RESP: {
            MAVO_LOG("get_hst_state_resp");
            const auto& resp = data.get_hst_state_resp();
            if (auto cb = getUserCallBack<rux_get_hst_state_cb>(tid))
                cb(tid, convertProtoStatusToClient(resp.status()),
                   convertProtoHstStateToClient(resp.hst_state()));
            break;
        }
        case VexProto::HST_STATE_CHANGE_IND:
            MAVO_LOG("hst_state_change_ind");
            triggerHstStateChangeCb(
                convertProtoHstStateToClient(data.hst_state_change_ind().hst_state()));
            break;
        case VexProto::SET_CELL_BARRING_INFO_RESP:
            MAVO_LOG("set_cell_barring_info_resp");
            deliverPlainReply(tid, data.set_cell_barring_info_resp().status());
            break;
        case VexProto::ENABLE_CELL_BARRING_FEATURE_RESP:
            MAVO_LOG("enable_cell_barring_feature_resp");
            deliverPlainReply(tid, data.enable_cell_barring_feature_resp().status());
            break;
        case VexProto::SEND_DATA_STALL_PARAMETERS_RESP:
            MAVO_LOG("send_data_stall_parameters_resp");
            deliverPlainReply(tid, data.send_data_stall_parameters_resp().status());
            break;
        case VexProto::SET_L2NR_SELECTION_RESP:
            MAVO_LOG("set_l2nr_selection_resp");
            deliverPlainReply(tid, data.set_l2nr_selection_resp().status());
            break;
        case VexProto::SET_OUT_OF_SERVICE_RESP:
            MAVO_LOG("set_out_of_service_resp");
            deliverPlainReply(tid, data.set_out_of_service_resp().status());
            break;
        case VexProto::SET_LTE_DUBIOUS_CELL_LIST_RESP:
            MAVO_LOG("set_lte_dubious_cell_list_resp");
            deliverPlainReply(tid, data.set_lte_dubious_cell_list_resp().status());
            break;
        case VexProto::SET_NR_DUBIOUS_CELL_LIST_RESP:
            MAVO_LOG("set_nr_dubious_cell_list_resp");
            deliverPlainReply(tid, data.set_nr_dubious_cell_list_resp().status());
            break;
        case VexProto::SERVICE_STATUS_IND:
            MAVO_LOG("service_status_ind");
            triggerServiceStatusCb(convertProtoStatusToClient(data.service_status_ind().status()));
            break;
        case VexProto::GET_DPPD_CAPABILITY_RESP: {
            MAVO_LOG("get_dppd_capabaility_resp");
            bool capable = data.get_dppd_capabaility_resp().capable();
            // The DPPD completions always report success, whatever the reply holds.
            if (auto cb = getUserCallBack<rux_dppd_flag_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &capable);
            break;
        }
        case VexProto::UPDATE_DPPD_UI_RESP: {
            MAVO_LOG("update_dppd_ui_resp");
            bool enabled = data.update_dppd_ui_resp().ui_option_enabled();
            if (auto cb = getUserCallBack<rux_dppd_flag_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &enabled);
            break;
        }
        case VexProto::NOTIFY_DPPD_CAPABILITY_IND:
            MAVO_LOG("notify_dppd_capability_ind");
            triggeNotifyDppdCapabilityCb(data.notify_dppd_capability_ind().capable());
            break;
        case VexProto::GET_DPPD_RECOMMENDATION_RESP: {
            MAVO_LOG("get_dppd_recommendation_resp");
            data_recommendation_s recommendation =
                toClient(data.get_dppd_recommendation_resp().vex_data_recommendation());
            if (auto cb = getUserCallBack<rux_dppd_recommendation_cb>(tid))
                cb(tid, RUX_STATUS_SUCCESS, &recommendation);
            break;
        }
        case VexProto::NOTIFY_DPPD_RECOMMENDATION_IND:
            MAVO_LOG("notify_dppd_recommendation_ind");
            triggerNotifyDppdRecommendationCb(
                toClient(data.notify_dppd_recommendation_ind().vex_data_recommendation()));
            break;
        case VexProto::GET_MULTI_SIM_MODE_INFO_RESP: {
            MAVO_LOG("get_multi_sim_mode_info_resp");
            const auto& resp = data.get_multi_sim_mode_info_resp();
            const submode_info_s info = toClient(resp.vex_multi_sim_sub_mode_info());
            if (auto cb = getUserCallBack<rux_submode_info_cb>(tid))
                cb(tid, convertProtoStatusToClient(resp.status()), &info);
            break;
        }
        case VexProto::NOTIFY_MULTI_SIM_SUB_MODE_INFO_IND:
            MAVO_LOG("notify_multi_sim_mode_info_ind");
            triggerNotifyMultiSimSubmodeInfoCb(
                toClient(data.notify_multi_sim_mode_info_ind().vex_multi_sim_sub_mode_info()));
            break;
        case VexProto::SET_PREFERRED_CELL_LIST_RESP:
            MAVO_LOG("set_pref_cell_list_resp");
            deliverPlainReply(tid, data.set_pref_cell_list_resp().status());
            break;
        case VexProto::SET_FLIGHT_MODE_STATE_RESP:
            MAVO_LOG("set_flight_mode_state_resp");
            deliverPlainReply(tid, data.set_flight_mode_state_resp().status());
            break;
        case VexProto::SET_DEVICE_FOLD_STATE_RESP:
            MAVO_LOG("set_device_fold_state_resp");
            deliverPlainReply(tid, data.set_device_fold_state_resp().status());
            break;
        case VexProto::SET_CELL_LIST_INFO_RESP:
            MAVO_LOG("set_cell_list_info_resp");
            deliverV2Reply(tid, data.set_cell_list_info_resp().status(), true);
            break;
        case VexProto::CELL_LIST_INFO_IND_RESP:
            // TODO(next issue): convert the feedback into cell_list_info_ind_s and call
            // the indication callback. Until then the feedback is dropped here.
            MAVO_LOG("cell_list_info_ind_resp");
            if (mCellListIndCb.load() == nullptr)
                MAVO_LOG("ind function is null!");
            else
                MAVO_LOG("cell-list feedback not converted by this client; dropped");
            break;
        case VexProto::SET_SUBWAY_STATE_RESP:
            MAVO_LOG("set_subway_state_resp");
            deliverPlainReply(tid, data.set_subway_state_resp().status());
            break;
        case VexProto::SUBWAY_STATE_CHANGE_IND:
            MAVO_LOG("subway_state_change_ind");
            triggerSubwayStateChangeCb(
                convertProtoSubwayStateToClient(data.subway_state_change_ind().subway_state()));
            break;
        case VexProto::SET_DUBIOUS_LIST_V2_RESP:
            MAVO_LOG("SET_DUBIOUS_LIST_V2_RESP");
            deliverV2Reply(tid, data.vex_status_resp().status(), false);
            break;
        default:
            break;
    }
    MAVO_LOG("MavoClient::blobListener end");
}

}  // namespace rux::client
