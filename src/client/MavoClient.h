// MavoClient: the one object behind the C interface. It hands out transaction ids,
// keeps each request's completion callback under its id, turns C calls into VexProto
// requests posted to the SDK thread (MavoClient.cpp, with the conversions in
// EnumConversions, CellConversions and RequestBlobs), and dispatches replies and
// indications to the application's callbacks (blobListener, ReplyDispatch.cpp).
//
// Threads:
// - The static fronts (one per C function) run on application threads.
// - blobListener runs on the receiver thread (service replies, indications,
//   SERVICE_DOWN of a lost session) and on the SDK thread (local replies, SEND_FAILED,
//   SERVICE_UP/DOWN of a connect attempt), possibly on both at once. It calls the
//   application's callbacks on the thread that called it.
//
// Shared state: the callback pointers are atomics (last writer wins, as plain stores
// would); the fallback callback is set once by compare-and-swap. mMapLock guards the
// callback map only and is held for one insert, or one find-and-erase (which checks the
// entry's kind first and leaves an entry of another kind in place), never while a
// callback runs. currentTid is an atomic counter. mInstance is guarded by
// sInstanceLock, held only to read or replace the pointer.
//
// Lifecycle: registerRuxClient creates the instance and, through SdkBase, the SDK
// client and its thread; deregisterRuxClient (also run at exit) marks the instance
// deregistered (blobListener delivers nothing from then on), retires client type 4,
// which waits for the SDK thread and the session's receiver, and drops the instance.
// So no callback of this instance runs once deregisterRuxClient has returned.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

#include "client/RequestBlobs.h"
#include "rux/rux_client.h"
#include "sdk/SdkBase.h"

namespace rux::client {

// The completion types of the C interface. The callback map keeps each callback's kind
// beside it, so a reply of one kind can never call a callback of another through the
// wrong type.
enum class CompletionKind : uint8_t {
    Plain,
    GetHst,
    DppdFlag,
    DppdRecommendation,
    SubmodeInfo,
    V2
};

template <typename>
inline constexpr bool kNotACompletionType = false;
template <typename Callback>
constexpr CompletionKind completionKindOf() {
    if constexpr (std::is_same_v<Callback, rux_response_cb>)
        return CompletionKind::Plain;
    else if constexpr (std::is_same_v<Callback, rux_get_hst_state_cb>)
        return CompletionKind::GetHst;
    else if constexpr (std::is_same_v<Callback, rux_dppd_flag_cb>)
        return CompletionKind::DppdFlag;
    else if constexpr (std::is_same_v<Callback, rux_dppd_recommendation_cb>)
        return CompletionKind::DppdRecommendation;
    else if constexpr (std::is_same_v<Callback, rux_submode_info_cb>)
        return CompletionKind::SubmodeInfo;
    else if constexpr (std::is_same_v<Callback, rux_response_v2_cb>)
        return CompletionKind::V2;
    else
        static_assert(kNotACompletionType<Callback>, "not a completion callback type");
}
template <typename Callback>
inline constexpr CompletionKind kCompletionKind = completionKindOf<Callback>();

class MavoClient : public sdk::SdkBase {
public:
    // A completion callback with its type erased, as the callback map stores it.
    using ErasedCallback = void (*)();

    MavoClient();
    ~MavoClient() override;

    // The instance, or null.
    static std::shared_ptr<MavoClient> getInstance();

    // --- the C interface: each front finds the instance and does one call's work ---
    static void registerRuxClient(rux_status_cb cb);
    static void deregisterRuxClient();
    static void registerHstStateReport(rux_hst_state_ind_cb cb);
    static void registerSubwayStateReport(rux_subway_state_ind_cb cb);
    static void registerDppdIndication(rux_dppd_capability_ind_cb capabilityCb,
                                       rux_dppd_recommendation_ind_cb recommendationCb);
    static void registerMultiSimSubmodeIndication(rux_submode_info_ind_cb cb);

    static int setHstState(hst_state_e state, rux_response_cb cb);
    static int getHstState(rux_get_hst_state_cb cb);
    static int setCoverageState(slot_id_e slot, coverage_state_e state, rux_response_cb cb);
    static int setOutOfServiceState(slot_id_e slot, scan_state_e state, rux_response_cb cb);
    static int setL2nrSelection(slot_id_e slot, rux_response_cb cb);
    static int enableCellBarringFeature(slot_id_e slot, bool enable, rux_response_cb cb);
    static int setFlightModeState(rux_flight_mode_state_e state, rux_response_cb cb);
    static int setDeviceFoldState(rux_device_fold_state_e state, rux_response_cb cb);
    static int setSubwayState(rux_subway_state_e state, rux_response_cb cb);

    static int setCellBarringInfo(slot_id_e slot, cell_barring_info_s const* info,
                                  rux_response_cb cb);
    static int setDataStallParameters(slot_id_e slot, data_stall_params_s const* params,
                                      rux_response_cb cb);
    static int setLteDubiousCellArray(slot_id_e slot, unsigned long count,
                                      lte_dubious_cell_info_s const* cells, rux_response_cb cb);
    static int setNrDubiousCellArray(slot_id_e slot, unsigned long count,
                                     nr_dubious_cell_info_s const* cells, rux_response_cb cb);
    static int setPreferredCellList(slot_id_e slot, preferred_cell_list_s const* list,
                                    rux_response_cb cb);

    static int getDppdCapability(rux_dppd_flag_cb cb);
    static int updateDppdUiOption(bool enable, rux_dppd_flag_cb cb);
    static int getDppdRecommendation(rux_dppd_recommendation_cb cb);
    static int getMultiSimSubmodeInfo(rux_submode_info_cb cb);

    static int setCellListInfo(set_cell_list_info_s const* info, rux_response_v2_cb cb,
                               rux_cell_list_info_ind_cb indCb);
    static int setDubiousCellArrayV2(dubious_cell_info_v2_s const* info, rux_response_v2_cb cb);

    // --- transaction ids -------------------------------------------------------------

    // 1, 3, 5, ...: the counter stays one ahead of the id returned; after INT_MAX the
    // next id is 1 again.
    static int getNextTransactionId();
    // Test seam: the counter's value (the next id is this plus one, or 1 past INT_MAX).
    static void setCurrentTid(int value);

    // --- the callback map ------------------------------------------------------------

    // Stores (or replaces) the callback for `tid` with its kind; a null callback is
    // stored too.
    template <typename Callback>
    void setUserCallback(int tid, Callback cb) {
        std::lock_guard<std::mutex> lock(mMapLock);
        mCallbackMap[mapKey(tid)] = {kCompletionKind<Callback>,
                                     reinterpret_cast<ErasedCallback>(cb)};
    }
    // Takes the callback for `tid` out of the map when it is of this kind: null (with
    // "Couldn't find cb for transaction id: 0x%lu") when there is none; null, with the
    // entry kept for its own reply, when the stored one is of another kind.
    template <typename Callback>
    Callback getUserCallBack(int tid) {
        return reinterpret_cast<Callback>(takeCallback(tid, kCompletionKind<Callback>));
    }
    size_t pendingCallbacks() const;

    // --- indication callbacks (null turns one off) -------------------------------------
    void setServiceStatusCallback(rux_status_cb cb) { mServiceStatusCb.store(cb); }
    void setHstStateIndCallback(rux_hst_state_ind_cb cb) { mHstStateIndCb.store(cb); }
    void setSubwayStateIndCallback(rux_subway_state_ind_cb cb) { mSubwayStateIndCb.store(cb); }
    void setDppdIndCallbacks(rux_dppd_capability_ind_cb capabilityCb,
                             rux_dppd_recommendation_ind_cb recommendationCb) {
        mDppdCapabilityIndCb.store(capabilityCb);
        mDppdRecommendationIndCb.store(recommendationCb);
    }
    void setMultiSimIndCallback(rux_submode_info_ind_cb cb) { mMultiSimIndCb.store(cb); }
    void setCellListIndCallback(rux_cell_list_info_ind_cb cb) { mCellListIndCb.store(cb); }
    // The first non-null `cb` given here stays the fallback for good.
    void offerFallbackCallback(rux_response_cb cb);
    rux_response_cb fallbackCallback() const { return mFallbackCb.load(); }

    void triggerHstStateChangeCb(hst_state_e state);
    void triggerSubwayStateChangeCb(rux_subway_state_e state);
    void triggerServiceStatusCb(status_e status);
    void triggeNotifyDppdCapabilityCb(bool capable);
    void triggerNotifyDppdRecommendationCb(data_recommendation_s recommendation);
    void triggerNotifyMultiSimSubmodeInfoCb(submode_info_s info);

    // --- replies -----------------------------------------------------------------------

    void blobListener(SdkStatus status, const std::vector<uint8_t>& blob) override;

    // A send event for client type 4 carrying `blob`; `toClient` marks a local reply.
    static std::shared_ptr<sdk::SdkClientEvent> makeSdkClientEvent(std::vector<unsigned char> blob,
                                                                   bool toClient);

private:
    static unsigned long mapKey(int tid) {
        return static_cast<unsigned long>(static_cast<long>(tid));
    }
    ErasedCallback takeCallback(int tid, CompletionKind kind);
    void eraseCallback(int tid);
    // A request blob that was never sent: its callback entry goes, and nothing is called.
    void forgetUnsent(const std::vector<uint8_t>& blob);

    // The instance when it can take requests (it has an SDK client); otherwise null
    // after "Failed to get SDK instance.".
    static std::shared_ptr<MavoClient> instanceForRequest();
    // The frame of every request that answers with a transaction id: nothing thrown
    // leaves it, and without an instance the request fails with -1.
    template <typename Body>
    static int onInstance(Body body) noexcept;
    static void onSdkSetupFailed(int status);

    // The steps of a status_e-family request: optional fallback, id, stored callback,
    // the request blob or (when its conversion fails) a local reply, posted.
    template <typename Callback, typename Build, typename Reply>
    int sendRequest(Callback cb, bool setsFallback, Build build, Reply reply);
    // A request with an empty payload built here (DPPD, multi-SIM queries).
    template <typename Callback, typename Fill>
    int sendQuery(Callback cb, VexProto::ClientEventId eventId, Fill fill);
    // The steps of a cell-list request: id, stored callback, the request blob, posted; a
    // failed conversion erases the entry and returns its negative status instead.
    template <typename Build>
    int sendCellListRequest(rux_response_v2_cb cb, Build build);
    void post(std::vector<unsigned char> blob, bool toClient);

    // Reply dispatch (ReplyDispatch.cpp).
    void handleResponse(const std::vector<uint8_t>& blob);
    void deliverPlainReply(int tid, VexProto::Status status);
    void deliverV2Reply(int tid, VexProto::Status status, bool eraseAgain);
    void deliverCellListFeedback(const VexProto::CellListInfoIndResp& feedback);

    std::atomic<rux_status_cb> mServiceStatusCb{nullptr};
    std::atomic<rux_response_cb> mFallbackCb{nullptr};
    std::atomic<rux_hst_state_ind_cb> mHstStateIndCb{nullptr};
    std::atomic<rux_subway_state_ind_cb> mSubwayStateIndCb{nullptr};
    std::atomic<rux_dppd_capability_ind_cb> mDppdCapabilityIndCb{nullptr};
    std::atomic<rux_dppd_recommendation_ind_cb> mDppdRecommendationIndCb{nullptr};
    std::atomic<rux_submode_info_ind_cb> mMultiSimIndCb{nullptr};
    std::atomic<rux_cell_list_info_ind_cb> mCellListIndCb{nullptr};
    std::atomic<bool> mDeregistered{false};

    struct PendingCallback {
        CompletionKind kind;
        ErasedCallback cb;
    };
    mutable std::mutex mMapLock;
    std::map<unsigned long, PendingCallback> mCallbackMap;  // guarded by mMapLock

    static std::mutex sInstanceLock;
    static std::shared_ptr<MavoClient> mInstance;  // guarded by sInstanceLock
    static std::atomic<int> currentTid;
};

}  // namespace rux::client
