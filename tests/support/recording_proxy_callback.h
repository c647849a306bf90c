// A proxy-side callback like the multi-HAL proxy's: records every postEvents call with the wake
// lock it came with, and every wake lock asked for.
#pragma once

#include <HalProxyCallbackBase.h>

#include <vector>

#include "tests/support/wait.h"

namespace kelvane::testing {

class RecordingProxyCallback
    : public android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase {
  public:
    using Event = android::hardware::sensors::V2_1::Event;
    using ScopedWakelock = android::hardware::sensors::V2_0::implementation::ScopedWakelock;

    struct Post {
        std::vector<Event> events;
        bool wakelockHeld;
    };

    RecordingProxyCallback();
    ~RecordingProxyCallback() override;

    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override;
    ScopedWakelock createScopedWakelock(bool lock) override;

    std::vector<Post> posts() const;
    std::vector<Event> events() const;
    std::vector<bool> wakelockRequests() const;
    size_t eventCount() const;
    // Waits until at least `n` events were posted.
    bool waitForEvents(size_t n);
    // Events of one sensor handle.
    std::vector<Event> eventsFor(int32_t handle) const;

  private:
    class Counter;
    android::sp<Counter> mCounter;
    mutable Signal mSignal;
    std::vector<Post> mPosts;             // guarded by mSignal's mutex
    std::vector<bool> mWakelockRequests;  // guarded by mSignal's mutex
    size_t mEventCount = 0;               // guarded by mSignal's mutex
};

}  // namespace kelvane::testing
