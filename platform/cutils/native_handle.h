// native_handle_t: a set of file descriptors followed by plain ints, as passed across HIDL.
#pragma once

#include <cutils/compiler.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NATIVE_HANDLE_MAX_FDS 1024
#define NATIVE_HANDLE_MAX_INTS 1024

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#ifdef __clang__
#pragma clang diagnostic ignored "-Wzero-length-array"
#endif
typedef struct native_handle {
    int version;  // sizeof(native_handle_t)
    int numFds;
    int numInts;
    int data[0];  // numFds descriptors, then numInts ints
} native_handle_t;
#pragma GCC diagnostic pop

// Allocates a handle with room for the given counts, data uninitialized. Null on bad counts or
// when out of memory.
ANDROID_API native_handle_t* native_handle_create(int numFds, int numInts);

// Closes the descriptors (not the handle). 0, or the first negative errno.
ANDROID_API int native_handle_close(const native_handle_t* h);

// Frees the handle without closing its descriptors. 0, or -EINVAL for a bad handle.
ANDROID_API int native_handle_delete(native_handle_t* h);

// A new handle with duplicated descriptors and the same ints; null on failure.
ANDROID_API native_handle_t* native_handle_clone(const native_handle_t* h);

#ifdef __cplusplus
}
#endif
