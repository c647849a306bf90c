#pragma once

#include "mojo/public/c/system/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct MojoCreateMessagePipeOptions {
    uint32_t struct_size;
    uint32_t flags;
};

// Creates a message pipe; a null `options` means the defaults.
MojoResult MojoCreateMessagePipe(const struct MojoCreateMessagePipeOptions* options,
                                 MojoHandle* message_pipe_handle0,
                                 MojoHandle* message_pipe_handle1);

// Closes a handle; the other end of its pipe learns that the peer is gone.
MojoResult MojoClose(MojoHandle handle);

#ifdef __cplusplus
}
#endif
