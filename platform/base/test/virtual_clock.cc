#include "base/test/virtual_clock.h"

#include "base/threading/task_loops.h"
#include "base/time/virtual_time_source.h"

namespace base {
namespace test {
namespace {

// Idleness that takes longer than this in real time means a loop spins or is stuck.
constexpr TimeDelta kIdleLimit = TimeDelta::FromSeconds(10);

}  // namespace

VirtualClock::VirtualClock() : mNow(TimeTicks::RealNow()) { moveTo(mNow); }

VirtualClock::~VirtualClock() {
    internal::ClearVirtualNow();
    internal::WakeAllTaskLoops();
}

bool VirtualClock::RunUntilIdle() { return internal::WaitForIdleTaskLoops(kIdleLimit); }

bool VirtualClock::FastForwardBy(TimeDelta delta) {
    const TimeTicks end = mNow + delta;
    for (;;) {
        if (!RunUntilIdle()) return false;
        TimeTicks due;
        if (!internal::NextDueTimeOfAllTaskLoops(&due) || due > end) break;
        moveTo(due > mNow ? due : mNow);
    }
    moveTo(end);
    return RunUntilIdle();
}

TimeDelta VirtualClock::NextTaskDelay() const {
    TimeTicks due;
    if (!internal::NextDueTimeOfAllTaskLoops(&due)) return TimeDelta::Max();
    return due > mNow ? due - mNow : TimeDelta();
}

void VirtualClock::moveTo(TimeTicks now) {
    mNow = now;
    internal::SetVirtualNow(now);
    internal::WakeAllTaskLoops();
}

}  // namespace test
}  // namespace base
