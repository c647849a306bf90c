// Events handed over from the threads that post them to the main thread that prints them.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"

namespace kelvane::tools {

class EventQueue {
  public:
    using Event = android::hardware::sensors::V2_1::Event;

    // Any thread. Each event is stamped with its receive time, the boot-time clock now.
    void push(const std::vector<Event>& events);

    // Waits until something is queued or `deadline` passes, then takes everything queued; with
    // `receivedNs`, appends each taken event's receive time there.
    std::vector<Event> takeUntil(std::chrono::steady_clock::time_point deadline,
                                 std::vector<int64_t>* receivedNs = nullptr);

  private:
    base::Lock mLock;
    base::ConditionVariable mCv{&mLock};
    std::deque<Event> mEvents GUARDED_BY(mLock);
    std::deque<int64_t> mReceivedNs GUARDED_BY(mLock);  // one per event of mEvents
};

}  // namespace kelvane::tools
