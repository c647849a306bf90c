#include "ScopedWakelock.h"

#include <utils/SystemClock.h>

#include <utility>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_0 {
namespace implementation {

IScopedWakelockRefCounter::~IScopedWakelockRefCounter() = default;

ScopedWakelock::ScopedWakelock(IScopedWakelockRefCounter* refCounter, bool locked)
    : mRefCounter(refCounter), mCreatedAtTimeNs(elapsedRealtimeNano()), mLocked(false) {
    if (locked && mRefCounter != nullptr) {
        mLocked = mRefCounter->incrementRefCountAndMaybeAcquireWakelock(1, &mCreatedAtTimeNs);
    }
}

ScopedWakelock::ScopedWakelock(ScopedWakelock&& other) noexcept
    : mRefCounter(std::exchange(other.mRefCounter, nullptr)),
      mCreatedAtTimeNs(other.mCreatedAtTimeNs),
      mLocked(std::exchange(other.mLocked, false)) {}

ScopedWakelock& ScopedWakelock::operator=(ScopedWakelock&& other) noexcept {
    if (this != &other) {
        release();
        mRefCounter = std::exchange(other.mRefCounter, nullptr);
        mCreatedAtTimeNs = other.mCreatedAtTimeNs;
        mLocked = std::exchange(other.mLocked, false);
    }
    return *this;
}

ScopedWakelock::~ScopedWakelock() { release(); }

void ScopedWakelock::release() {
    if (mLocked && mRefCounter != nullptr) {
        mRefCounter->decrementRefCountAndMaybeReleaseWakelock(1, mCreatedAtTimeNs);
    }
    mLocked = false;
}

}  // namespace implementation
}  // namespace V2_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
