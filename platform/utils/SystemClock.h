#pragma once

#include <cutils/compiler.h>

#include <cstdint>

namespace android {

// Nanoseconds of CLOCK_BOOTTIME: keeps counting through suspend. Sensor event timestamps are on
// this clock.
ANDROID_API int64_t elapsedRealtimeNano();

}  // namespace android
