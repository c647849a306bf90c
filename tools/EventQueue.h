// Events handed over from the threads that post them to the main thread that prints them.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace kelvane::tools {

class EventQueue {
  public:
    using Event = android::hardware::sensors::V2_1::Event;

    // Any thread.
    void push(const std::vector<Event>& events);

    // Waits until something is queued or `deadline` passes, then takes everything queued.
    std::vector<Event> takeUntil(std::chrono::steady_clock::time_point deadline);

  private:
    std::mutex mMutex;
    std::condition_variable mCv;
    std::deque<Event> mEvents;  // guarded by mMutex
};

}  // namespace kelvane::tools
