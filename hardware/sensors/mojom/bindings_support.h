// What every generated interface shares: carrying a response from its message into the caller's
// reply callback, and from the implementation's reply callback into a response message.
//
// A ResponseParams payload exposes its fields, in declaration order, as `auto Fields()` returning
// a std::tie of them.
#pragma once

#include <cstdint>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "base/bind.h"
#include "base/callback.h"
#include "base/synchronization/lock.h"
#include "mojo/public/cpp/bindings/message.h"

namespace mojom_bindings {
namespace internal {

// The caller's side of one request: runs the reply callback with the response's fields. A null
// callback means the caller does not want the reply, which is then dropped.
template <typename ResponseParams, typename Callback>
class ForwardToCallback : public mojo::MessageReceiver {
  public:
    explicit ForwardToCallback(Callback callback) : callback_(std::move(callback)) {}

    bool Accept(mojo::Message* message) override {
        ResponseParams* params = message->payload<ResponseParams>();
        if (!params) return false;
        if (callback_.is_null()) return true;
        std::apply([this](auto&... fields) { std::move(callback_).Run(std::move(fields)...); },
                   params->Fields());
        return true;
    }

  private:
    Callback callback_;
};

template <typename ResponseParams, typename Callback>
class ProxyToResponder;

// The implementation's side of one request: owns the responder and turns the first run of the
// reply callback into the response. The callback may run on any thread or never; a callback that
// is dropped unrun drops the reply, and runs after the first do nothing.
template <typename ResponseParams, template <typename> class CallbackType, typename... Args>
class ProxyToResponder<ResponseParams, CallbackType<void(Args...)>> {
  public:
    using Callback = CallbackType<void(Args...)>;

    // The reply callback for a request named `name`.
    static Callback CreateCallback(uint32_t name,
                                   std::unique_ptr<mojo::MessageReceiver> responder) {
        auto proxy = std::make_unique<ProxyToResponder>(name, std::move(responder));
        if constexpr (std::is_same_v<Callback, base::OnceCallback<void(Args...)>>) {
            return base::BindOnce(&ProxyToResponder::Run, std::move(proxy));
        } else {
            // Copies of a repeating callback share this one object.
            return base::BindRepeating(&ProxyToResponder::Run, std::move(proxy));
        }
    }

    ProxyToResponder(uint32_t name, std::unique_ptr<mojo::MessageReceiver> responder)
        : name_(name), responder_(std::move(responder)) {}
    ProxyToResponder(const ProxyToResponder&) = delete;
    ProxyToResponder& operator=(const ProxyToResponder&) = delete;

    void Run(Args... args) {
        std::unique_ptr<mojo::MessageReceiver> responder;
        {
            base::AutoLock hold(lock_);
            responder = std::move(responder_);
        }
        if (!responder) return;
        auto params = std::make_unique<ResponseParams>();
        params->Fields() = std::forward_as_tuple(std::forward<Args>(args)...);
        mojo::Message message(name_, mojo::Message::kFlagIsResponse, std::move(params));
        responder->Accept(&message);
    }

  private:
    const uint32_t name_;
    // Copies of a repeating reply callback may run on several threads at once.
    base::Lock lock_;
    std::unique_ptr<mojo::MessageReceiver> responder_ GUARDED_BY(lock_);  // taken by the first run
};

}  // namespace internal
}  // namespace mojom_bindings
