#include "ProxyCallback.h"

#include <utils/SystemClock.h>

#include <utility>

namespace kelvane::tools {

using android::hardware::sensors::V2_0::implementation::IScopedWakelockRefCounter;

// Counts holds the way the proxy does before it takes or drops the system's wake lock.
class ProxyCallback::Counter : public IScopedWakelockRefCounter {
  public:
    bool incrementRefCountAndMaybeAcquireWakelock(size_t delta, int64_t* timeoutStart) override {
        mHeld += static_cast<int64_t>(delta);
        if (timeoutStart != nullptr) *timeoutStart = android::elapsedRealtimeNano();
        return true;
    }
    void decrementRefCountAndMaybeReleaseWakelock(size_t delta, int64_t /*timeoutStart*/) override {
        mHeld -= static_cast<int64_t>(delta);
    }

  private:
    std::atomic<int64_t> mHeld{0};  // the proxy would hold the system wake lock while > 0
};

ProxyCallback::ProxyCallback() : mCounter(new Counter()) {}

ProxyCallback::~ProxyCallback() = default;

void ProxyCallback::postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) {
    bool wakeUp = false;
    {
        base::AutoLock lock(mHandlesLock);
        for (const Event& e : events) wakeUp = wakeUp || mWakeUpHandles.count(e.sensorHandle) != 0;
    }
    if (wakelock.isLocked() != wakeUp) ++mMismatches;
    mQueue.push(events);
}

ProxyCallback::ScopedWakelock ProxyCallback::createScopedWakelock(bool lock) {
    return makeScopedWakelock(mCounter.get(), lock);
}

void ProxyCallback::setWakeUpHandles(std::set<int32_t> handles) {
    base::AutoLock lock(mHandlesLock);
    mWakeUpHandles = std::move(handles);
}

}  // namespace kelvane::tools
