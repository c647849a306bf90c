// Virtual time for tests and fuzzers, in the manner of a mock-time task environment.
//
// While a VirtualClock exists, TimeTicks::Now() reads it and the delayed tasks of every task loop
// in the process (the Mojo thread, a host's thread, ...) become due only when its owner moves it
// forward. Immediate tasks still run at once on their real threads: everything but the passing
// of time is real. Code under test does not change; it keeps posting delayed tasks as before.
//
// One clock at a time. Create it before the objects whose delays it governs: a delay posted
// earlier keeps its real due time, which the clock then reads as a virtual one. After the clock
// goes, loops wait by the monotonic clock again; tasks still waiting keep their (virtual) due
// times.
//
// Threads: one thread drives the clock (advances it, waits for idleness); Now() from any thread.
// Waiting for idleness counts only task loops: a thread of the test's own that is about to post
// is invisible to it, so tests post (or call into the code under test) before they advance.
#pragma once

#include "base/time/time.h"

namespace base {
namespace test {

class VirtualClock {
  public:
    // Starts at the current real time of the monotonic clock.
    VirtualClock();
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    TimeTicks Now() const { return mNow; }

    // Waits until no task loop runs a task or has one ready. False if that took longer than a
    // generous real-time limit: something spins or is stuck.
    bool RunUntilIdle();

    // Moves time forward by `delta`, stopping at each due time on the way: every delayed task
    // runs at its own time, after everything due before it has run and the loops are idle
    // again. False as RunUntilIdle().
    bool FastForwardBy(TimeDelta delta);

    // The time until the earliest delayed task of any loop; TimeDelta::Max() if there is none.
    TimeDelta NextTaskDelay() const;

  private:
    void moveTo(TimeTicks now);

    TimeTicks mNow;
};

}  // namespace test
}  // namespace base
