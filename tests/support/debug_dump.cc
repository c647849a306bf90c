#include "tests/support/debug_dump.h"

#include <cutils/native_handle.h>
#include <fcntl.h>
#include <hidl/HidlSupport.h>
#include <unistd.h>

namespace kelvane::testing {

std::string readDebugDump(android::hidl::base::V1_0::IBase& target, bool* callerFdStillOpen) {
    int fds[2];
    if (pipe(fds) != 0) return "<pipe failed>";
    native_handle_t* nh = native_handle_create(1, 0);
    nh->data[0] = fds[1];
    android::hardware::hidl_handle handle;
    handle.setTo(nh, false);
    target.debug(handle, android::hardware::hidl_vec<android::hardware::hidl_string>{});
    if (callerFdStillOpen) *callerFdStillOpen = fcntl(fds[1], F_GETFD) != -1;
    close(fds[1]);
    native_handle_delete(nh);
    std::string out;
    char buf[256];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    return out;
}

}  // namespace kelvane::testing
