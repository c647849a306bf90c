#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "base/bind.h"
#include "base/callback.h"
#include "mojo/public/cpp/bindings/connection_error_callback.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "mojo/public/cpp/bindings/interface_request.h"
#include "mojo/public/cpp/bindings/lib/router.h"

namespace mojo {

// Connects an implementation of `Interface` to the receiving end of a pipe. Incoming calls are
// dispatched on the thread that bound it, one at a time; none arrives after Close() or
// destruction.
template <typename Interface>
class Binding {
  public:
    explicit Binding(Interface* impl) { mStub.set_sink(impl); }
    Binding(Interface* impl, InterfaceRequest<Interface> request) : Binding(impl) {
        Bind(std::move(request));
    }
    ~Binding() = default;
    Binding(const Binding&) = delete;
    Binding& operator=(const Binding&) = delete;

    // The binding must not be bound already: Close() it first.
    void Bind(InterfaceRequest<Interface> request) {
        if (mRouter) std::abort();
        if (!request.is_pending()) return;
        mRouter = std::make_unique<internal::Router>(request.PassMessagePipe());
        mRouter->set_incoming_receiver(&mStub);
    }
    bool is_bound() const { return mRouter != nullptr; }
    explicit operator bool() const { return is_bound(); }
    Interface* impl() { return mStub.sink(); }

    void set_connection_error_handler(base::OnceClosure handler) {
        set_connection_error_with_reason_handler(base::BindOnce(
            [](base::OnceClosure h, uint32_t, const std::string&) { std::move(h).Run(); },
            std::move(handler)));
    }
    void set_connection_error_with_reason_handler(ConnectionErrorWithReasonCallback handler) {
        if (mRouter) mRouter->set_connection_error_handler(std::move(handler));
    }

    // Closing yourself does not run your own error handler.
    void Close() { mRouter.reset(); }
    void CloseWithReason(uint32_t reason, const std::string& description) {
        if (mRouter) mRouter->CloseWithReason(reason, description);
        mRouter.reset();
    }
    InterfaceRequest<Interface> Unbind() {
        if (!mRouter) return InterfaceRequest<Interface>();
        InterfaceRequest<Interface> request(mRouter->PassMessagePipe());
        mRouter.reset();
        return request;
    }

  private:
    typename Interface::Stub_ mStub;
    std::unique_ptr<internal::Router> mRouter;
};

}  // namespace mojo
