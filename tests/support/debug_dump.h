#pragma once

#include <android/hidl/base/1.0/IBase.h>

#include <string>

namespace kelvane::testing {

// Calls `debug` on `target` with the write end of a pipe and returns what it wrote. If
// `callerFdStillOpen` is given, it tells whether that descriptor was still open afterwards.
std::string readDebugDump(android::hidl::base::V1_0::IBase& target,
                          bool* callerFdStillOpen = nullptr);

}  // namespace kelvane::testing
