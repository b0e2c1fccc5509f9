#include "sdk/SdkBase.h"

#include <utility>

#include "sdk/SdkClient.h"

namespace rux::sdk {

SdkBase::~SdkBase() = default;

std::shared_ptr<SdkClient> SdkBase::createSdkInstance(RuxSdkClientType type, Listener listener,
                                                      std::shared_ptr<SdkClientEvent> event) {
    if (auto held = sdkClient()) {
        if (event) held->postEvent(std::move(event));
        return nullptr;
    }
    std::shared_ptr<SdkClient> client =
        SdkClient::getInstance(type, std::move(listener), std::move(event));
    {
        std::lock_guard<std::mutex> lock(mSdkClientLock);
        mSdkClient = client;
    }
    if (client) return client;
    if (mSetupFailedCallbackV2 != nullptr)
        mSetupFailedCallbackV2(-3);
    else if (mSetupFailedCallback != nullptr)
        mSetupFailedCallback(2);
    return nullptr;
}

std::shared_ptr<SdkClient> SdkBase::sdkClient() const {
    std::lock_guard<std::mutex> lock(mSdkClientLock);
    return mSdkClient;
}

std::shared_ptr<SdkClient> SdkBase::releaseSdkClient() {
    std::lock_guard<std::mutex> lock(mSdkClientLock);
    return std::exchange(mSdkClient, nullptr);
}

}  // namespace rux::sdk
