// Everything that moves inside an IPC session. Control messages (1 connect, 4 session
// end) are handled by the session itself; raw messages carry a payload out (3) or in
// (2); application messages (here only SendBlobMessage, 5) are rebuilt on arrival by
// the constructor registered for their id and handed to the registered handler.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ipc/IpcTypes.h"

namespace rux::ipc {

class RuxIpcMessage {
public:
    RuxIpcMessage(std::string name, unsigned int id) : name(std::move(name)), id(id) {}
    virtual ~RuxIpcMessage() = default;

    virtual std::vector<uint8_t> serialize() = 0;
    // False when `bytes` cannot be this message; the message is then left unchanged.
    virtual bool deserialize(std::vector<uint8_t> bytes) = 0;
    // Appends serialize()'s bytes to `out` (how a message is put into a frame); messages
    // with a payload of their own write it there directly.
    virtual void appendSerialized(std::vector<uint8_t>& out) {
        const std::vector<uint8_t> bytes = serialize();
        out.insert(out.end(), bytes.begin(), bytes.end());
    }
    // What appendSerialized() will add, when known without serialising (0 otherwise):
    // a frame is then allocated once, at its full size.
    virtual size_t serializedSize() const { return 0; }

    std::string name;
    unsigned int id;
};

class RuxIpcConnectToServerMessage : public RuxIpcMessage {
public:
    static constexpr unsigned int ID = 1;
    RuxIpcConnectToServerMessage() : RuxIpcMessage("RuxIpcConnectToServerMessage", ID) {}
    std::vector<uint8_t> serialize() override { return {}; }
    bool deserialize(std::vector<uint8_t>) override { return true; }
};

class RuxIpcIncomingRawMessage : public RuxIpcMessage {
public:
    static constexpr unsigned int ID = 2;
    RuxIpcIncomingRawMessage(uint32_t subsystemId, uint32_t msgId, std::vector<uint8_t> payload)
        : RuxIpcMessage("RuxIpcIncomingRawMessage", ID),
          subsystemId(subsystemId),
          msgId(msgId),
          payload(std::move(payload)) {}
    std::vector<uint8_t> serialize() override { return {}; }
    bool deserialize(std::vector<uint8_t>) override { return true; }
    // The payload as the message's own: a borrowed one is copied in now.
    void ownPayload() {
        if (borrowed == nullptr) return;
        payload.assign(borrowed, borrowed + borrowedSize);
        borrowed = nullptr;
        borrowedSize = 0;
    }

    uint32_t subsystemId;
    uint32_t msgId;
    std::vector<uint8_t> payload;
    // While a session handles the message on the receiver's thread, the payload may still
    // lie in the receiver's read-ahead (payload empty meanwhile); null otherwise.
    const uint8_t* borrowed = nullptr;
    size_t borrowedSize = 0;
};

class RuxIpcRawMessage : public RuxIpcMessage {
public:
    static constexpr unsigned int ID = 3;
    RuxIpcRawMessage(uint32_t subsystemId, uint32_t msgId, std::vector<uint8_t> payload)
        : RuxIpcMessage("RuxIpcRawMessage", ID),
          subsystemId(subsystemId),
          msgId(msgId),
          payload(std::move(payload)) {}
    std::vector<uint8_t> serialize() override { return payload; }
    bool deserialize(std::vector<uint8_t>) override { return true; }
    void appendSerialized(std::vector<uint8_t>& out) override {
        out.insert(out.end(), payload.begin(), payload.end());
    }
    size_t serializedSize() const override { return payload.size(); }

    uint32_t subsystemId;
    uint32_t msgId;
    std::vector<uint8_t> payload;
};

class RuxIpcSessionEndMessage : public RuxIpcMessage {
public:
    static constexpr unsigned int ID = 4;
    // `registration` names the socket registration that ended (ProcessUtils.h); 0 means
    // whichever connection the session has now.
    explicit RuxIpcSessionEndMessage(uint64_t registration = 0)
        : RuxIpcMessage("RuxIpcSessionEndMessage", ID), registration(registration) {}
    std::vector<uint8_t> serialize() override { return {}; }
    bool deserialize(std::vector<uint8_t>) override { return true; }

    uint64_t registration = 0;
};

// Payload: sdkType as 4 bytes little-endian, then the blob (a serialised envelope).
class SendBlobMessage : public RuxIpcMessage {
public:
    static constexpr unsigned int ID = 5;
    static constexpr size_t kTypeSize = 4;
    SendBlobMessage() : SendBlobMessage(RUX_SDK_TYPE_NONE, {}) {}
    SendBlobMessage(RuxSdkType sdkType, std::vector<uint8_t> blob)
        : RuxIpcMessage("SendBlobMessage", ID), sdkType(sdkType), blob(std::move(blob)) {}

    std::vector<uint8_t> serialize() override;
    // Fewer than 4 bytes is not a SendBlobMessage: logged, false.
    bool deserialize(std::vector<uint8_t> bytes) override;
    // The same from bytes it does not own: the blob is copied out once.
    bool deserialize(const uint8_t* bytes, size_t size);
    void appendSerialized(std::vector<uint8_t>& out) override;
    size_t serializedSize() const override { return kTypeSize + blob.size(); }

    RuxSdkType sdkType;
    std::vector<uint8_t> blob;
};

// How a session rebuilds and handles an application message of one id.
struct IpcMsgConstructorHandlerPair_t {
    std::function<std::shared_ptr<RuxIpcMessage>(std::vector<uint8_t>)> constructor;
    std::function<void(std::shared_ptr<RuxIpcMessage>)> handler;
    // Optional: builds the message from payload bytes it does not own (valid during the
    // call), for payloads the receiver still holds; otherwise `constructor` gets a copy.
    std::function<std::shared_ptr<RuxIpcMessage>(const uint8_t*, size_t)> constructFromBytes;
};

}  // namespace rux::ipc
