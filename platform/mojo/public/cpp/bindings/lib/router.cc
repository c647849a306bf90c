#include "mojo/public/cpp/bindings/lib/router.h"

#include <atomic>
#include <cstdlib>
#include <utility>

#include "base/logging.h"

namespace mojo {
namespace internal {
namespace {

// Sends a response back through the end that received the request. Usable from any thread;
// once that end is closed the response is dropped.
class Responder : public MessageReceiver {
  public:
    Responder(std::shared_ptr<core::PipeEndpoint> endpoint, uint64_t requestId)
        : mEndpoint(std::move(endpoint)), mRequestId(requestId) {}
    bool Accept(Message* message) override {
        message->set_flags(Message::kFlagIsResponse);
        message->set_request_id(mRequestId);
        return mEndpoint->WriteToPeer(std::move(*message));
    }

  private:
    std::shared_ptr<core::PipeEndpoint> mEndpoint;
    uint64_t mRequestId;
};

// Request ids are unique in the process, not only per router: a pipe handed on by
// PassMessagePipe() may still bring replies to its earlier owner's requests, and those must
// match no request of the new owner (they are dropped, as that owner's callbacks were).
uint64_t NextRequestId() {
    static std::atomic<uint64_t> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

Router::Router(ScopedMessagePipeHandle handle) : mHandle(std::move(handle)) {
    mEndpoint = core::GetEndpoint(mHandle.value());
    scoped_refptr<base::SequencedTaskRunner> runner = base::SequencedTaskRunnerHandle::Get();
    if (!runner) {
        LOG(FATAL) << "Mojo endpoints must be bound on a thread that runs a task loop";
    }
    if (mEndpoint) {
        mEndpoint->Attach(std::move(runner), this);
    } else {
        mEncounteredError = true;  // an invalid handle behaves as a broken pipe
    }
}

Router::~Router() {
    if (mEndpoint) mEndpoint->Detach();
    // Destroying mHandle closes the pipe; mResponders go without running.
}

bool Router::Accept(Message* message) {
    if (mEncounteredError || !mEndpoint) return false;
    message->set_request_id(0);
    return mEndpoint->WriteToPeer(std::move(*message));
}

bool Router::AcceptWithResponder(Message* message, std::unique_ptr<MessageReceiver> responder) {
    if (mEncounteredError || !mEndpoint) return false;
    const uint64_t id = NextRequestId();
    message->set_request_id(id);
    if (!mEndpoint->WriteToPeer(std::move(*message))) return false;
    mResponders.emplace(id, std::move(responder));
    return true;
}

void Router::OnMessage(Message message) {
    // Whatever runs below may destroy this router: nothing here touches it afterwards.
    if (message.has_flag(Message::kFlagIsResponse)) {
        auto it = mResponders.find(message.request_id());
        if (it == mResponders.end()) return;
        std::unique_ptr<MessageReceiver> responder = std::move(it->second);
        mResponders.erase(it);
        responder->Accept(&message);
        return;
    }
    if (!mIncoming) return;
    if (message.has_flag(Message::kFlagExpectsResponse)) {
        uint64_t id = message.request_id();
        mIncoming->AcceptWithResponder(&message, std::make_unique<Responder>(mEndpoint, id));
    } else {
        mIncoming->Accept(&message);
    }
}

void Router::OnPeerClosed(uint32_t reason, const std::string& description) {
    mEncounteredError = true;
    std::unordered_map<uint64_t, std::unique_ptr<MessageReceiver>> dropped;
    dropped.swap(mResponders);
    ConnectionErrorWithReasonCallback handler = std::move(mErrorHandler);
    dropped.clear();
    if (handler) std::move(handler).Run(reason, description);
}

void Router::CloseWithReason(uint32_t reason, const std::string& description) {
    if (mEndpoint) mEndpoint->Detach();
    mEndpoint = nullptr;
    mEncounteredError = true;
    if (mHandle.is_valid()) core::CloseWithReason(mHandle.release(), reason, description);
    mResponders.clear();
}

ScopedMessagePipeHandle Router::PassMessagePipe() {
    if (mEndpoint) mEndpoint->Detach();
    mEndpoint = nullptr;
    mEncounteredError = true;
    mResponders.clear();
    return std::move(mHandle);
}

DroppingReceiver* DroppingReceiver::Get() {
    static DroppingReceiver* receiver = new DroppingReceiver();
    return receiver;
}

}  // namespace internal
}  // namespace mojo
