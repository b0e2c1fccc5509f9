#include "client/MavoClient.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <type_traits>
#include <utility>

#include "client/ClientLog.h"
#include "sdk/SdkClient.h"

namespace rux::client {

using sdk::SdkClient;
using sdk::SdkClientEvent;

std::mutex MavoClient::sInstanceLock;
std::shared_ptr<MavoClient> MavoClient::mInstance;
std::atomic<int> MavoClient::currentTid{0};

namespace {

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

MavoClient::ErasedCallback MavoClient::takeCallback(int tid, CompletionKind kind) {
    const unsigned long key = mapKey(tid);
    enum { kNone, kOtherKind, kTaken } outcome = kNone;
    ErasedCallback cb = nullptr;
    size_t remaining = 0;
    {
        std::lock_guard<std::mutex> lock(mMapLock);
        auto it = mCallbackMap.find(key);
        if (it != mCallbackMap.end()) {
            outcome = kOtherKind;
            if (it->second.kind == kind) {
                cb = it->second.cb;
                mCallbackMap.erase(it);
                outcome = kTaken;
            }
        }
        remaining = mCallbackMap.size();
    }
    switch (outcome) {
        case kNone:
            MAVO_LOG("Couldn't find cb for transaction id: 0x%lu", key);
            return nullptr;
        case kOtherKind:
            // The service answered with a reply of another kind: the entry waits for
            // its own.
            MAVO_LOG("cb for transaction id: 0x%lu is not of this reply's kind; kept", key);
            return nullptr;
        case kTaken:
            break;
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

void MavoClient::forgetUnsent(const std::vector<uint8_t>& blob) {
    VexProto::ClientMsg msg;
    if (!msg.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) return;
    eraseCallback(static_cast<int>(msg.transaction_id()));
    MAVO_LOG("Request not sent; transaction id: 0x%lu",
             static_cast<unsigned long>(msg.transaction_id()));
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
            blob = makeRegisterClientReqBlob(static_cast<unsigned long>(tid));
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
        self->post(makeRegisterDppdIndicationReqBlob(), false);
    });
}

void MavoClient::registerMultiSimSubmodeIndication(rux_submode_info_ind_cb cb) {
    guardedVoid([&] {
        auto self = instanceForRequest();
        if (!self) return;
        self->setMultiSimIndCallback(cb);
        self->post(makeRegisterMultiSimSubmodeIndicationReqBlob(), false);
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

template <typename Build>
int MavoClient::sendCellListRequest(rux_response_v2_cb cb, Build build) {
    const int tid = getNextTransactionId();
    MAVO_LOG("transactionId: 0x%ld", static_cast<long>(tid));
    setUserCallback(tid, cb);
    MAVO_LOG("cb map size after insert: %d", static_cast<int>(pendingCallbacks()));
    BlobResultV2 result = build(static_cast<unsigned long>(tid));
    if (result.second != RUX_STATUS_V2_SUCCESS) {
        // Returned at once; no callback follows.
        eraseCallback(tid);
        return static_cast<int>(result.second);
    }
    post(std::move(result.first), false);
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

int MavoClient::setCellBarringInfo(slot_id_e slot, cell_barring_info_s const* info,
                                   rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) { return makeSetCellBarringInfoReqBlob(tid, slot, info); },
            makeSetCellBarringInfoRespBlob);
    });
}

int MavoClient::setDataStallParameters(slot_id_e slot, data_stall_params_s const* params,
                                       rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) {
                return makeSendDataStallParametersReqBlob(tid, slot, params);
            },
            makeSendDataStallParametersRespBlob);
    });
}

int MavoClient::setLteDubiousCellArray(slot_id_e slot, unsigned long count,
                                       lte_dubious_cell_info_s const* cells, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) {
                return makeSetLteDubiousCellListReqBlob(tid, slot, count, cells);
            },
            makeSetLteDubiousCellListRespBlob);
    });
}

int MavoClient::setNrDubiousCellArray(slot_id_e slot, unsigned long count,
                                      nr_dubious_cell_info_s const* cells, rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) {
                return makeSetNrDubiousCellListReqBlob(tid, slot, count, cells);
            },
            makeSetNrDubiousCellListRespBlob);
    });
}

int MavoClient::setPreferredCellList(slot_id_e slot, preferred_cell_list_s const* list,
                                     rux_response_cb cb) {
    return onInstance([&](MavoClient& self) {
        return self.sendRequest(
            cb, true,
            [&](unsigned long tid) { return makeSetPreferredCellListReqBlob(tid, slot, list); },
            makeSetPreferredCellListRespBlob);
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

int MavoClient::setCellListInfo(set_cell_list_info_s const* info, rux_response_v2_cb cb,
                                rux_cell_list_info_ind_cb indCb) {
    return guarded(static_cast<int>(RUX_STATUS_V2_INTERNAL_ERR), [&] {
        auto self = instanceForRequest();
        if (!self) return static_cast<int>(RUX_STATUS_V2_INVALID_OPERATION);
        if (cb == nullptr || indCb == nullptr) return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        if (info == nullptr) {
            MAVO_LOG("info is null");
            return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        }
        self->setCellListIndCallback(indCb);
        return self->sendCellListRequest(
            cb, [&](unsigned long tid) { return makeSetCellListInfoReqBlob(tid, *info); });
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
        if (info == nullptr) {
            MAVO_LOG("info is null");
            return static_cast<int>(RUX_STATUS_V2_INVALID_ARG);
        }
        return self->sendCellListRequest(cb, [&](unsigned long tid) {
            BlobResultV2 result = makeSetDubiousCellListV2ReqBlob(tid, *info);
            if (result.second != RUX_STATUS_V2_SUCCESS) MAVO_LOG("serialization was unsuccessful");
            return result;
        });
    });
}

}  // namespace rux::client
