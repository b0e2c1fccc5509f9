// Where the e2e tests' C callbacks record what they receive. Library state is global
// (plain C function pointers, one client per process), so the sink is global too; each
// test case runs in a process of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "rux/rux_client.h"

namespace rux::test {

struct Call {
    std::string kind;  // "status", "response", "responseB", "hst", "dppd", "rec", "submode", ...
    long tid = 0;
    int status = 0;
    int value1 = 0;
    int value2 = 0;
    std::string text;  // a record, rendered (cell-list feedback)
    std::thread::id thread;
};

class Sink {
public:
    void add(Call call) {
        call.thread = std::this_thread::get_id();
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back(std::move(call));
        }
        mChanged.notify_all();
    }
    std::vector<Call> calls() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    std::vector<Call> of(const std::string& kind) const {
        std::vector<Call> out;
        for (auto& c : calls())
            if (c.kind == kind) out.push_back(c);
        return out;
    }
    static constexpr int kNoStatus = -999;
    // Waits for a call matching `match`; returns it (kind "" and status kNoStatus at the
    // deadline, so an expected status never matches a missing call).
    Call waitFor(const std::function<bool(const Call&)>& match,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        std::unique_lock<std::mutex> lock(mMutex);
        Call found;
        found.status = kNoStatus;
        mChanged.wait_for(lock, timeout, [&] {
            for (const auto& c : mCalls)
                if (match(c)) {
                    found = c;
                    return true;
                }
            return false;
        });
        return found;
    }
    Call waitForTid(const std::string& kind, long tid) const {
        return waitFor([&](const Call& c) { return c.kind == kind && c.tid == tid; });
    }
    Call waitForStatus(int status) const {
        return waitFor([&](const Call& c) { return c.kind == "status" && c.status == status; });
    }
    bool waitForCount(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(30)) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return mCalls.size() >= n; });
    }
    // Waits until `predicate` holds over all calls so far.
    bool waitUntil(const std::function<bool(const std::vector<Call>&)>& predicate,
                   std::chrono::milliseconds timeout) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return predicate(mCalls); });
    }
    bool waitForCountOf(const std::string& kind, size_t n,
                        std::chrono::milliseconds timeout = std::chrono::seconds(30)) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] {
            size_t seen = 0;
            for (const auto& c : mCalls)
                if (c.kind == kind) ++seen;
            return seen >= n;
        });
    }
    std::string dump() const {
        std::string out;
        for (const auto& c : calls())
            out += "  " + c.kind + " tid=" + std::to_string(c.tid) + " status=" +
                   std::to_string(c.status) + " v=" + std::to_string(c.value1) + "," +
                   std::to_string(c.value2) + " " + c.text + "\n";
        return out;
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<Call> mCalls;  // guarded by mMutex
};

Sink& sink();

// The C callbacks, each recording one Call of its kind.
void onStatus(status_e status);
void onResponse(int tid, status_e status);
void onResponseB(int tid, status_e status);
void onGetHst(int tid, status_e status, hst_state_e state);
void onDppdFlag(int tid, status_e status, bool* flag);
void onRecommendation(int tid, status_e status, data_recommendation_s* rec);
void onSubmode(int tid, status_e status, submode_info_s const* info);
void onHstInd(hst_state_e state);
void onSubwayInd(rux_subway_state_e state);
void onDppdCapabilityInd(bool capable);
void onDppdRecommendationInd(data_recommendation_s rec);
void onSubmodeInd(submode_info_s const* info);
void onResponseV2(long tid, status_v2_e status);
void onCellListInd(cell_list_info_ind_s info);

}  // namespace rux::test
