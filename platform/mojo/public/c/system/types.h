#pragma once

#include <stdint.h>

typedef uint32_t MojoHandle;
typedef uint32_t MojoResult;

#define MOJO_HANDLE_INVALID ((MojoHandle)0)

#define MOJO_RESULT_OK ((MojoResult)0)
#define MOJO_RESULT_INVALID_ARGUMENT ((MojoResult)3)
#define MOJO_RESULT_NOT_FOUND ((MojoResult)5)
