// The least any timer-driven path can do to deliver samples to a proxy callback, to measure the
// sub-HAL against: a timer thread wakes when each sample is due, makes it up with the emulated
// host's own sample generator (the same work the host thread does), stamps it with that time,
// notes when it sends it, and hands it to a second thread with one PostTask; that thread builds
// the event and posts it. Both threads run the task loop the Mojo thread runs, and the timer thread
// waits with the same 1 ns timer slack as the emulated host's.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/threading/thread.h"
#include "bench/bench_env.h"
#include "bench/sample_times.h"
#include "host/emulated/SampleGenerator.h"

namespace kelvane::bench {

struct Stream {
    int32_t device;  // host device id; the sub-HAL handle is the same number
    double hz;
};

// Streams from construction to destruction, on the threads "floor-timer" and "floor-handoff".
class TimerFloor {
  public:
    // `proxy` and `sent` must outlive the floor; `sent` is written on the timer thread. Each
    // stream's samples are made up as its device of `devices` would make them.
    TimerFloor(const std::vector<Stream>& streams,
               const std::vector<host::description::VirtualDevice>& devices,
               CountingProxyCallback* proxy, SampleTimeLog* sent);
    ~TimerFloor();  // stops both threads; pending ticks are dropped
    TimerFloor(const TimerFloor&) = delete;
    TimerFloor& operator=(const TimerFloor&) = delete;

  private:
    struct Sample {
        int32_t handle;
        int64_t timestampNs;
        float x, y, z;  // the first three raw values the generator made
    };
    // Due times are on the boot-time clock alone: two clocks read one after the other at the
    // start would disagree by however long the thread was preempted between the two reads, and
    // every sample would be stamped when its late tick ran rather than when it was due.
    struct Ticker {
        TimerFloor* floor;
        Stream stream;
        int64_t startNs;  // the first tick, on the boot-time clock
        uint64_t next;    // timer thread only
        std::unique_ptr<host::emulated::SampleGenerator> generator;  // timer thread only

        int64_t dueNs(uint64_t index) const {
            return startNs + static_cast<int64_t>(static_cast<double>(index) * 1e9 / stream.hz);
        }
    };

    static void schedule(Ticker* t);
    static void tick(Ticker* t);
    void deliver(Sample s);  // hand-off thread

    CountingProxyCallback* const mProxy;
    SampleTimeLog* const mSent;
    std::vector<Event> mEvents;    // hand-off thread only
    std::vector<Ticker> mTickers;  // filled before the timer starts ticking; never resized after
    base::Thread mTimer;
    base::Thread mHandOff;
};

}  // namespace kelvane::bench
