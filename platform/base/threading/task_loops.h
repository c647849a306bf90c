// The process's task loops as the virtual clock (base/test/virtual_clock.h) drives them. Internal
// to platform/base; callable from any thread.
#pragma once

#include "base/time/time.h"

namespace base {
namespace internal {

// Moves every loop's delayed tasks that are due by TimeTicks::Now() to its ready queue and wakes
// the loop so that it waits anew, by the clock now in force.
void WakeAllTaskLoops();
// The earliest due time of the delayed tasks of every loop still running; false if none.
bool NextDueTimeOfAllTaskLoops(TimeTicks* due);
// Waits until no loop runs a task or has one ready; false if `limit` (real time) passed first.
bool WaitForIdleTaskLoops(TimeDelta limit);

}  // namespace internal
}  // namespace base
