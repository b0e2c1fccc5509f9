#include "Callbacks.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace ruxctl {

Inbox::Inbox() : mFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mFd < 0) {
        std::perror("ruxctl: eventfd");
        std::exit(1);
    }
}

Inbox::~Inbox() {
    ::close(mFd);
}

void Inbox::post(Event event) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(std::move(event));
    }
    const uint64_t one = 1;
    while (::write(mFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

std::vector<Event> Inbox::take() {
    uint64_t count;
    while (::read(mFd, &count, sizeof count) < 0 && errno == EINTR) {
    }
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<Event> out(std::make_move_iterator(mEvents.begin()),
                           std::make_move_iterator(mEvents.end()));
    mEvents.clear();
    return out;
}

Inbox& inbox() {
    // Never destroyed: a library thread may still call back while the process exits.
    static Inbox* instance = new Inbox();
    return *instance;
}

namespace {

void answer(long tid, int status, const EnumTable& statuses, Json values = Json::object()) {
    Event e;
    e.kind = Event::Answer;
    e.tid = tid;
    e.status = status;
    e.fields = Json{{"tid", tid}, {"status", enumJson(statuses, status)}};
    e.fields.update(values);
    inbox().post(std::move(e));
}

void indication(const char* name, Json values) {
    Event e;
    e.kind = Event::Indication;
    e.fields = Json{{"indication", name}};
    e.fields.update(values);
    inbox().post(std::move(e));
}

Json recommendationJson(const data_recommendation_s& r) {
    return Json{{"action", enumJson(kRecommendationAction, r.action)},
                {"subscription", enumJson(kRecommendationSubs, r.subscription)}};
}

Json submodeJson(const submode_info_s* info) {
    if (info == nullptr) return Json{{"sub_mode", nullptr}, {"tx_concurrency", nullptr}};
    return Json{{"sub_mode", enumJson(kSubmode, info->sub_mode)},
                {"tx_concurrency", enumJson(kTxConcurrency, info->tx_concurrency)}};
}

}  // namespace

void onResponse(int tid, status_e status) {
    answer(tid, status, kStatus);
}

void onGetHstState(int tid, status_e status, hst_state_e state) {
    answer(tid, status, kStatus, Json{{"state", enumJson(kHstState, state)}});
}

void onDppdFlag(int tid, status_e status, bool* flag) {
    answer(tid, status, kStatus, Json{{"flag", flag ? Json(*flag) : Json()}});
}

void onDppdRecommendation(int tid, status_e status, data_recommendation_s* recommendation) {
    answer(tid, status, kStatus,
           recommendation ? recommendationJson(*recommendation)
                          : Json{{"action", nullptr}, {"subscription", nullptr}});
}

void onSubmodeInfo(int tid, status_e status, submode_info_s const* info) {
    answer(tid, status, kStatus, submodeJson(info));
}

void onResponseV2(long tid, status_v2_e status) {
    answer(tid, status, kStatusV2);
}

void onServiceStatus(status_e status) {
    Event e;
    e.kind = Event::ServiceStatus;
    e.status = status;
    e.fields = Json{{"indication", "service-status"}, {"status", enumJson(kStatus, status)}};
    inbox().post(std::move(e));
}

void onHstStateInd(hst_state_e state) {
    indication("hst-state", Json{{"state", enumJson(kHstState, state)}});
}

void onSubwayStateInd(rux_subway_state_e state) {
    indication("subway-state", Json{{"state", enumJson(kSubwayState, state)}});
}

void onDppdCapabilityInd(bool capable) {
    indication("dppd-capability", Json{{"capable", capable}});
}

void onDppdRecommendationInd(data_recommendation_s recommendation) {
    indication("dppd-recommendation", recommendationJson(recommendation));
}

void onSubmodeInfoInd(submode_info_s const* info) {
    indication("multi-sim-submode", submodeJson(info));
}

void onCellListInd(cell_list_info_ind_s info) {
    indication("cell-list", cellListIndicationToJson(info));
}

}  // namespace ruxctl
