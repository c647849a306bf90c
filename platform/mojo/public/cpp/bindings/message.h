#pragma once

#include <cstdint>
#include <memory>
#include <utility>

namespace mojo {
namespace internal {
// The typed parameters of one message; bindings down-cast it by the message name.
struct MessagePayload {
    virtual ~MessagePayload() = default;
};
}  // namespace internal

class Message {
  public:
    static constexpr uint32_t kFlagExpectsResponse = 1u << 0;
    static constexpr uint32_t kFlagIsResponse = 1u << 1;

    Message() = default;
    Message(uint32_t name, uint32_t flags, std::unique_ptr<internal::MessagePayload> payload)
        : mName(name), mFlags(flags), mPayload(std::move(payload)) {}
    Message(Message&&) noexcept = default;
    Message& operator=(Message&&) noexcept = default;

    uint32_t name() const { return mName; }
    uint32_t flags() const { return mFlags; }
    bool has_flag(uint32_t flag) const { return (mFlags & flag) != 0; }
    void set_flags(uint32_t flags) { mFlags = flags; }
    uint64_t request_id() const { return mRequestId; }
    void set_request_id(uint64_t id) { mRequestId = id; }
    template <typename Payload>
    Payload* payload() {
        return static_cast<Payload*>(mPayload.get());
    }

  private:
    uint32_t mName = 0;
    uint32_t mFlags = 0;
    uint64_t mRequestId = 0;
    std::unique_ptr<internal::MessagePayload> mPayload;
};

class MessageReceiver {
  public:
    virtual ~MessageReceiver() = default;
    // Takes the message; returns false if it was not understood.
    virtual bool Accept(Message* message) = 0;
};

class MessageReceiverWithResponder : public MessageReceiver {
  public:
    // Takes a message that expects a response; `responder` accepts that response.
    virtual bool AcceptWithResponder(Message* message,
                                     std::unique_ptr<MessageReceiver> responder) = 0;
};

}  // namespace mojo
