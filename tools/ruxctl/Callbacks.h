// The C callbacks ruxctl hands to the library, and the inbox they post to.
//
// Callbacks run on the library's threads (two may run at once). Each one copies what it
// was given into an Event and posts it; the main thread waits on the inbox's descriptor
// (beside the signals) and does all printing and deciding. The inbox is global because
// C callbacks carry no context.
#pragma once

#include <deque>
#include <mutex>
#include <vector>

#include "RecordJson.h"
#include "rux/rux_client.h"

namespace ruxctl {

struct Event {
    enum Kind { Answer, Indication, ServiceStatus };
    Kind kind = Answer;
    long tid = 0;    // Answer: the transaction id the callback received
    int status = 0;  // Answer: its status (status_e or status_v2_e); ServiceStatus: status_e
    // Answer: {"tid", "status", values...}; Indication: {"indication": name, values...}.
    Json fields;
};

class Inbox {
public:
    Inbox();
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // Readable while events are waiting.
    int fd() const { return mFd; }
    void post(Event event);
    // Every waiting event, oldest first.
    std::vector<Event> take();

private:
    int mFd = -1;  // an eventfd
    std::mutex mMutex;
    std::deque<Event> mEvents;  // guarded by mMutex
};

Inbox& inbox();

// Completions.
void onResponse(int tid, status_e status);
void onGetHstState(int tid, status_e status, hst_state_e state);
void onDppdFlag(int tid, status_e status, bool* flag);
void onDppdRecommendation(int tid, status_e status, data_recommendation_s* recommendation);
void onSubmodeInfo(int tid, status_e status, submode_info_s const* info);
void onResponseV2(long tid, status_v2_e status);

// Service status and indications.
void onServiceStatus(status_e status);
void onHstStateInd(hst_state_e state);
void onSubwayStateInd(rux_subway_state_e state);
void onDppdCapabilityInd(bool capable);
void onDppdRecommendationInd(data_recommendation_s recommendation);
void onSubmodeInfoInd(submode_info_s const* info);
void onCellListInd(cell_list_info_ind_s info);

}  // namespace ruxctl
