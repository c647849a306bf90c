#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "mojo/core/core.h"
#include "mojo/public/cpp/system/message_pipe.h"

namespace mojo {

// The receiving end of a pipe for `Interface`, waiting to be bound by a Binding.
template <typename Interface>
class InterfaceRequest {
  public:
    InterfaceRequest() = default;
    InterfaceRequest(std::nullptr_t) {}
    explicit InterfaceRequest(ScopedMessagePipeHandle handle) : mHandle(std::move(handle)) {}
    InterfaceRequest(InterfaceRequest&&) noexcept = default;
    InterfaceRequest& operator=(InterfaceRequest&&) noexcept = default;

    bool is_pending() const { return mHandle.is_valid(); }
    explicit operator bool() const { return is_pending(); }
    ScopedMessagePipeHandle PassMessagePipe() { return std::move(mHandle); }
    void ResetWithReason(uint32_t reason, const std::string& description) {
        if (mHandle.is_valid()) core::CloseWithReason(mHandle.release(), reason, description);
    }

  private:
    ScopedMessagePipeHandle mHandle;
};

}  // namespace mojo
