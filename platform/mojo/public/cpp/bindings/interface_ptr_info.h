#pragma once

#include <cstdint>
#include <utility>

#include "mojo/public/cpp/system/message_pipe.h"

namespace mojo {

// The unbound calling end of a pipe for `Interface`, as it travels in messages.
template <typename Interface>
class InterfacePtrInfo {
  public:
    InterfacePtrInfo() = default;
    InterfacePtrInfo(std::nullptr_t) {}
    InterfacePtrInfo(ScopedMessagePipeHandle handle, uint32_t version)
        : mHandle(std::move(handle)), mVersion(version) {}
    InterfacePtrInfo(InterfacePtrInfo&&) noexcept = default;
    InterfacePtrInfo& operator=(InterfacePtrInfo&&) noexcept = default;

    bool is_valid() const { return mHandle.is_valid(); }
    ScopedMessagePipeHandle PassHandle() { return std::move(mHandle); }
    uint32_t version() const { return mVersion; }

  private:
    ScopedMessagePipeHandle mHandle;
    uint32_t mVersion = 0;
};

}  // namespace mojo
