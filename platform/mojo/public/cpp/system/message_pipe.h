#pragma once

#include <utility>

#include "mojo/public/c/system/message_pipe.h"

namespace mojo {

// Owns one end of a message pipe and closes it when destroyed.
class ScopedMessagePipeHandle {
  public:
    ScopedMessagePipeHandle() = default;
    explicit ScopedMessagePipeHandle(MojoHandle handle) : mHandle(handle) {}
    ScopedMessagePipeHandle(ScopedMessagePipeHandle&& o) noexcept : mHandle(o.release()) {}
    ScopedMessagePipeHandle& operator=(ScopedMessagePipeHandle&& o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    ScopedMessagePipeHandle(const ScopedMessagePipeHandle&) = delete;
    ScopedMessagePipeHandle& operator=(const ScopedMessagePipeHandle&) = delete;
    ~ScopedMessagePipeHandle() { reset(); }

    bool is_valid() const { return mHandle != MOJO_HANDLE_INVALID; }
    MojoHandle value() const { return mHandle; }
    MojoHandle release() { return std::exchange(mHandle, MOJO_HANDLE_INVALID); }
    void reset(MojoHandle handle = MOJO_HANDLE_INVALID) {
        MojoHandle old = std::exchange(mHandle, handle);
        if (old != MOJO_HANDLE_INVALID) MojoClose(old);
    }

  private:
    MojoHandle mHandle = MOJO_HANDLE_INVALID;
};

struct MessagePipe {
    MessagePipe() {
        MojoHandle h0 = MOJO_HANDLE_INVALID;
        MojoHandle h1 = MOJO_HANDLE_INVALID;
        MojoCreateMessagePipe(nullptr, &h0, &h1);
        handle0.reset(h0);
        handle1.reset(h1);
    }
    ScopedMessagePipeHandle handle0;
    ScopedMessagePipeHandle handle1;
};

}  // namespace mojo
