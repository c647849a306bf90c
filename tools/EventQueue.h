// Events handed over from the threads that post them to the main thread that prints them.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

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
    std::mutex mMutex;
    std::condition_variable mCv;
    std::deque<Event> mEvents;        // guarded by mMutex
    std::deque<int64_t> mReceivedNs;  // guarded by mMutex; one per event of mEvents
};

}  // namespace kelvane::tools
