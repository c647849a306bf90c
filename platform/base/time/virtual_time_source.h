// Where TimeTicks::Now() reads virtual time while a test's clock is installed
// (base/test/virtual_clock.h). Internal to platform/base.
#pragma once

#include "base/time/time.h"

namespace base {
namespace internal {

// True, with `*now` set, while virtual time is in force. Any thread.
bool VirtualNow(TimeTicks* now);
// Puts virtual time in force at `now`, or moves it there.
void SetVirtualNow(TimeTicks now);
// Back to the monotonic clock.
void ClearVirtualNow();

}  // namespace internal
}  // namespace base
