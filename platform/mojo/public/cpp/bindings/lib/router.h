// One bound end of a pipe on the current sequence: sends messages, matches responses to the
// requests that asked for them, hands incoming requests to a stub and reports the peer's close.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "base/callback.h"
#include "base/task_runner.h"
#include "mojo/core/core.h"
#include "mojo/public/cpp/bindings/connection_error_callback.h"
#include "mojo/public/cpp/bindings/message.h"
#include "mojo/public/cpp/system/message_pipe.h"

namespace mojo {
namespace internal {

class Router : public MessageReceiverWithResponder, private core::EndpointClient {
  public:
    // Binds `handle` to the calling thread's task runner.
    explicit Router(ScopedMessagePipeHandle handle);
    // Closes the pipe: the peer is told, pending responders are dropped without running.
    ~Router() override;
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    // Where incoming requests go (the stub of a Binding); null for the calling side.
    void set_incoming_receiver(MessageReceiverWithResponder* receiver) { mIncoming = receiver; }
    void set_connection_error_handler(ConnectionErrorWithReasonCallback handler) {
        mErrorHandler = std::move(handler);
    }
    bool encountered_error() const { return mEncounteredError; }

    // Sends a message that expects no response. Dropped silently once the pipe is broken.
    bool Accept(Message* message) override;
    // Sends a request; `responder` receives the response on this sequence unless the pipe breaks
    // or this router goes away first.
    bool AcceptWithResponder(Message* message, std::unique_ptr<MessageReceiver> responder) override;

    void CloseWithReason(uint32_t reason, const std::string& description);
    // Detaches from the pipe and hands it back, with anything still queued on it.
    ScopedMessagePipeHandle PassMessagePipe();

  private:
    void OnMessage(Message message) override;
    void OnPeerClosed(uint32_t reason, const std::string& description) override;

    ScopedMessagePipeHandle mHandle;
    std::shared_ptr<core::PipeEndpoint> mEndpoint;
    MessageReceiverWithResponder* mIncoming = nullptr;
    ConnectionErrorWithReasonCallback mErrorHandler;
    std::unordered_map<uint64_t, std::unique_ptr<MessageReceiver>> mResponders;
    bool mEncounteredError = false;
};

// Used by an unbound InterfacePtr: every call is dropped.
class DroppingReceiver : public MessageReceiverWithResponder {
  public:
    static DroppingReceiver* Get();
    bool Accept(Message*) override { return false; }
    bool AcceptWithResponder(Message*, std::unique_ptr<MessageReceiver>) override { return false; }
};

}  // namespace internal
}  // namespace mojo
