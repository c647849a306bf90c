// Delays for the host thread's task loop, which cannot represent arbitrarily far due times:
// anything beyond a day is posted a day ahead (nothing waits that long for the host).
#pragma once

#include <algorithm>
#include <chrono>

#include "base/time/time.h"

namespace kelvane::host::common {

inline base::TimeDelta boundedDelay(base::TimeDelta delay) {
    return std::min(delay, base::TimeDelta::FromSeconds(24 * 60 * 60));
}

inline base::TimeDelta boundedDelay(std::chrono::milliseconds delay) {
    return boundedDelay(base::TimeDelta::FromMilliseconds(delay.count()));
}

}  // namespace kelvane::host::common
