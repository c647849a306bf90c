#include "base/time/time.h"

#include <atomic>
#include <cstdint>
#include <limits>

#include "base/time/virtual_time_source.h"

namespace base {
namespace internal {
namespace {

constexpr int64_t kRealTime = std::numeric_limits<int64_t>::min();
// Microseconds since the clock's origin, or kRealTime.
std::atomic<int64_t> gVirtualNowUs{kRealTime};

}  // namespace

bool VirtualNow(TimeTicks* now) {
    const int64_t us = gVirtualNowUs.load(std::memory_order_acquire);
    if (us == kRealTime) return false;
    *now = TimeTicks() + TimeDelta::FromMicroseconds(us);
    return true;
}

void SetVirtualNow(TimeTicks now) {
    gVirtualNowUs.store(now.since_origin().InMicroseconds(), std::memory_order_release);
}

void ClearVirtualNow() { gVirtualNowUs.store(kRealTime, std::memory_order_release); }

}  // namespace internal

TimeTicks TimeTicks::Now() {
    TimeTicks now;
    if (internal::VirtualNow(&now)) return now;
    return RealNow();
}

}  // namespace base
