#include "ipc/ProcessHandler.h"

#include <android/log.h>

#include <algorithm>

#include "log/Log.h"

namespace rux::ipc {

void ReceiverTracker::expect() {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mStarting;
}

void ReceiverTracker::cancelExpected() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        --mStarting;
    }
    mIdle.notify_all();
}

void ReceiverTracker::attach() {
    std::lock_guard<std::mutex> lock(mMutex);
    --mStarting;
    mRunning.push_back(std::this_thread::get_id());
}

void ReceiverTracker::detach() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = std::find(mRunning.begin(), mRunning.end(), std::this_thread::get_id());
        if (it != mRunning.end()) mRunning.erase(it);
    }
    mIdle.notify_all();
}

void ReceiverTracker::waitIdle() {
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mMutex);
    mIdle.wait(lock, [&] {
        return mStarting == 0 &&
               std::all_of(mRunning.begin(), mRunning.end(),
                           [&](std::thread::id id) { return id == self; });
    });
}

ProcessHandler::ProcessHandler(std::chrono::milliseconds frameStallLimit)
    : mReceivers(std::make_shared<ReceiverTracker>()), mFrameStallLimit(frameStallLimit) {}

ProcessHandler::~ProcessHandler() = default;

void ProcessHandler::handleMsg(ipcMsg_t* msg) {
    if (msg == nullptr) {
        RUX_LOG(ANDROID_LOG_ERROR, "RUX", "msg null");
        return;
    }
    RUX_LOG(ANDROID_LOG_DEBUG, "RUX", "%d: dropping IPC from %lu",
            static_cast<int>(msg->dstProcessId), static_cast<unsigned long>(msg->srcProcessId));
}

void ProcessHandler::handleFrame(const ipcMsg_t& header, std::vector<uint8_t> payload) {
    // ipcMsg_t's alignment, so the header reads in place.
    std::vector<uint64_t> frame((kIpcHeaderSize + payload.size() + 7) / 8);
    encodeFrame(header, payload.data(), reinterpret_cast<uint8_t*>(frame.data()));
    handleMsg(reinterpret_cast<ipcMsg_t*>(frame.data()));
}

void ProcessHandler::handleBufferedFrame(const ipcMsg_t& header, const uint8_t* payload) {
    handleFrame(header, std::vector<uint8_t>(payload, payload + header.length));
}

void ProcessHandler::handleSessionEnd(unsigned int) {}

void ProcessHandler::handleSocketEnd(unsigned int sessionId, uint64_t) {
    handleSessionEnd(sessionId);
}

}  // namespace rux::ipc
