// The proxy's side of the sub-HAL contract: the callback handed to initialize(). It only queues
// events; the main thread prints them. It also keeps the books on the proxy's wake lock.
#pragma once

#include <HalProxyCallbackBase.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <vector>

#include "EventQueue.h"
#include "base/synchronization/lock.h"

namespace kelvane::tools {

class ProxyCallback
    : public android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase {
  public:
    using Event = android::hardware::sensors::V2_1::Event;
    using ScopedWakelock = android::hardware::sensors::V2_0::implementation::ScopedWakelock;

    ProxyCallback();
    ~ProxyCallback() override;

    // Called from the library's threads, concurrently.
    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override;
    ScopedWakelock createScopedWakelock(bool lock) override;

    // The handles whose sensors wake the system; a post must hold the wake lock exactly when it
    // carries an event of one of them.
    void setWakeUpHandles(std::set<int32_t> handles);

    EventQueue& queue() { return mQueue; }
    // Posts whose wake lock did not match their events.
    uint64_t wakelockMismatches() const { return mMismatches.load(); }

  private:
    class Counter;

    android::sp<Counter> mCounter;  // set in the constructor, never changed
    EventQueue mQueue;
    base::Lock mHandlesLock;
    std::set<int32_t> mWakeUpHandles GUARDED_BY(mHandlesLock);
    std::atomic<uint64_t> mMismatches{0};
};

}  // namespace kelvane::tools
