// SdkBase: the request client's handle on the SDK core. It holds the shared pointer to
// the SdkClient (whose event queue every request is posted to) and creates it on first
// use. A subclass implements blobListener, the listener it registers for its type.
//
// Threads: any. mSdkClient is guarded by mSdkClientLock, which is held only to copy or
// replace the pointer. The two set-up failure callbacks are written before the first
// createSdkInstance and only read afterwards.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "sdk/SdkClientBase.h"
#include "sdk/SdkClientEvent.h"

namespace rux::sdk {

class SdkClient;

class SdkBase {
public:
    using SdkStatus = SdkClientBase::SdkStatus;
    using Listener = SdkClientBase::Listener;
    // Told that the SDK client could not be set up.
    using SetupFailedCallback = void (*)(int);

    SdkBase() = default;
    virtual ~SdkBase();
    SdkBase(const SdkBase&) = delete;
    SdkBase& operator=(const SdkBase&) = delete;

    virtual void blobListener(SdkStatus status, const std::vector<uint8_t>& blob) = 0;

    // With an SdkClient already held: posts `event` (if any) to it and returns null.
    // Otherwise gets the SdkClient (creating it and its thread, registering `listener`
    // for `type`; the thread posts `event` first), keeps it and returns it. When that
    // fails: the second failure callback gets -3 if set, else the first gets 2, and the
    // result is null.
    std::shared_ptr<SdkClient> createSdkInstance(RuxSdkClientType type, Listener listener,
                                                 std::shared_ptr<SdkClientEvent> event);

    // The SdkClient held, or null.
    std::shared_ptr<SdkClient> sdkClient() const;
    // Lets go of the SdkClient and returns it.
    std::shared_ptr<SdkClient> releaseSdkClient();

protected:
    SetupFailedCallback mSetupFailedCallback = nullptr;    // gets 2 (a status_e)
    SetupFailedCallback mSetupFailedCallbackV2 = nullptr;  // gets -3 (a status_v2_e)

private:
    mutable std::mutex mSdkClientLock;
    std::shared_ptr<SdkClient> mSdkClient;  // guarded by mSdkClientLock
};

}  // namespace rux::sdk
