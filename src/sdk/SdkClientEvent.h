// What the request client posts to the SDK thread: one SdkClientEvent per blob to send,
// per locally made reply (toClient), and per client that is leaving (cleanup).
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace rux::sdk {

// Kinds of SDK client. 4 to 11 are meaningful; the request client is 4. Indexes the
// client-type table of SdkClientBase, which has kClientTypeCount entries.
enum RuxSdkClientType : int {
    RUX_SDK_CLIENT_NONE = 0,
    RUX_SDK_CLIENT_REQUEST = 4,  // MavoClient
    RUX_SDK_CLIENT_5 = 5,
    RUX_SDK_CLIENT_6 = 6,
    RUX_SDK_CLIENT_7 = 7,
    RUX_SDK_CLIENT_8 = 8,
    RUX_SDK_CLIENT_9 = 9,
    RUX_SDK_CLIENT_10 = 10,
    RUX_SDK_CLIENT_11 = 11,
};

inline constexpr int kClientTypeCount = 14;

class RuxEventBase {
public:
    virtual ~RuxEventBase() = default;
    virtual bool isMultiThreadEvent() { return true; }

    int32_t eventId = 0;   // every producer leaves it 0
    bool cleanup = false;  // the client of this event's type is going away
};

class SdkClientEvent : public RuxEventBase {
public:
    SdkClientEvent(RuxSdkClientType type, std::vector<uint8_t> blob, bool toClient)
        : type(type), blob(std::move(blob)), toClient(toClient) {}
    SdkClientEvent(RuxSdkClientType type, std::vector<uint8_t> blob)
        : SdkClientEvent(type, std::move(blob), false) {}

    RuxSdkClientType type;
    std::vector<uint8_t> blob;  // one serialised envelope, or empty
    // Not for the service: handed to the type's own listener as a RESPONSE (a reply
    // that the request client made itself).
    bool toClient;
};

}  // namespace rux::sdk
