// The multi-HAL proxy's wake lock, as handed to sub-HALs.
#pragma once

#include <cutils/compiler.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_0 {
namespace implementation {

// Implemented by the proxy: counts the holds on its wake lock and holds the lock while the count
// is non-zero.
class ANDROID_API IScopedWakelockRefCounter : public virtual ::android::RefBase {
  public:
    // Adds `delta` holds. Returns whether they were taken; when they were, *timeoutStart (if
    // given) receives the time the hold starts, to be handed back on release.
    virtual bool incrementRefCountAndMaybeAcquireWakelock(size_t delta,
                                                          int64_t* timeoutStart = nullptr) = 0;
    virtual void decrementRefCountAndMaybeReleaseWakelock(size_t delta,
                                                          int64_t timeoutStart = -1) = 0;

  protected:
    ~IScopedWakelockRefCounter() override;
};

// One hold on the proxy's wake lock, released when this goes away. Only the proxy makes them
// (see HalProxyCallbackBase); sub-HALs pass them on. The ref-counter must outlive every
// ScopedWakelock made from it.
class ANDROID_API ScopedWakelock {
  public:
    ScopedWakelock(ScopedWakelock&& other) noexcept;
    ScopedWakelock& operator=(ScopedWakelock&& other) noexcept;
    ~ScopedWakelock();

    ScopedWakelock(const ScopedWakelock&) = delete;
    ScopedWakelock& operator=(const ScopedWakelock&) = delete;

    bool isLocked() const { return mLocked; }

  private:
    friend class HalProxyCallbackBase;

    // With locked, takes one hold and is locked iff the counter granted it.
    ScopedWakelock(IScopedWakelockRefCounter* refCounter, bool locked);

    void release();

    IScopedWakelockRefCounter* mRefCounter;
    int64_t mCreatedAtTimeNs;
    bool mLocked;
};

}  // namespace implementation
}  // namespace V2_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
