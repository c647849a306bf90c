#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "base/bind.h"
#include "base/callback.h"
#include "mojo/public/cpp/bindings/connection_error_callback.h"
#include "mojo/public/cpp/bindings/interface_ptr_info.h"
#include "mojo/public/cpp/bindings/interface_request.h"
#include "mojo/public/cpp/bindings/lib/router.h"

namespace mojo {

// The calling end of a pipe for `Interface`, bound to the thread that binds it: calls, replies
// and the connection error all run there. Calls while unbound or after an error are dropped.
template <typename Interface>
class InterfacePtr {
  public:
    using Proxy = typename Interface::Proxy_;

    InterfacePtr() = default;
    InterfacePtr(std::nullptr_t) {}
    InterfacePtr(InterfacePtrInfo<Interface> info) { Bind(std::move(info)); }
    InterfacePtr(InterfacePtr&&) noexcept = default;
    InterfacePtr& operator=(InterfacePtr&&) noexcept = default;
    InterfacePtr(const InterfacePtr&) = delete;
    InterfacePtr& operator=(const InterfacePtr&) = delete;
    // Destroying closes the pipe and drops pending reply callbacks without running them.
    ~InterfacePtr() = default;

    void Bind(InterfacePtrInfo<Interface> info) {
        reset();
        if (!info.is_valid()) return;
        mVersion = info.version();
        mState = std::make_unique<State>(info.PassHandle());
    }
    bool is_bound() const { return mState != nullptr; }
    explicit operator bool() const { return is_bound(); }
    bool encountered_error() const { return mState && mState->router.encountered_error(); }
    uint32_t version() const { return mVersion; }

    Interface* get() const { return mState ? &mState->proxy : nullptr; }
    Interface* operator->() const { return mState ? &mState->proxy : DroppingProxy(); }
    Interface& operator*() const { return *operator->(); }

    void set_connection_error_handler(base::OnceClosure handler) {
        set_connection_error_with_reason_handler(base::BindOnce(
            [](base::OnceClosure h, uint32_t, const std::string&) { std::move(h).Run(); },
            std::move(handler)));
    }
    void set_connection_error_with_reason_handler(ConnectionErrorWithReasonCallback handler) {
        if (mState) mState->router.set_connection_error_handler(std::move(handler));
    }

    void reset() {
        mState.reset();
        mVersion = 0;
    }
    void ResetWithReason(uint32_t reason, const std::string& description) {
        if (mState) mState->router.CloseWithReason(reason, description);
        reset();
    }
    // Unbinds and returns the pipe, with any messages still queued on it.
    InterfacePtrInfo<Interface> PassInterface() {
        if (!mState) return InterfacePtrInfo<Interface>();
        InterfacePtrInfo<Interface> info(mState->router.PassMessagePipe(), mVersion);
        reset();
        return info;
    }

  private:
    struct State {
        explicit State(ScopedMessagePipeHandle handle)
            : router(std::move(handle)), proxy(&router) {}
        internal::Router router;
        mutable Proxy proxy;
    };
    static Proxy* DroppingProxy() {
        static Proxy* proxy = new Proxy(internal::DroppingReceiver::Get());
        return proxy;
    }

    std::unique_ptr<State> mState;
    uint32_t mVersion = 0;
};

// Makes a pipe, binds `ptr` to one end on this thread and returns the other end.
template <typename Interface>
InterfaceRequest<Interface> MakeRequest(InterfacePtr<Interface>* ptr) {
    MessagePipe pipe;
    ptr->Bind(InterfacePtrInfo<Interface>(std::move(pipe.handle0), 0));
    return InterfaceRequest<Interface>(std::move(pipe.handle1));
}

}  // namespace mojo
