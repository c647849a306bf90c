// A condition variable tied to one base::Lock. Every wait is called with that lock held; it is
// released while waiting and held again on return. Wake-ups may be spurious, so wait in a loop on
// the condition itself:
//
//   AutoLock hold(mLock);
//   while (!mReady) mReadyChanged.Wait();
//
// Deadlines are on the real monotonic clock, never the virtual one of tests.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/synchronization/lock.h"
#include "base/time/time.h"

namespace base {

class ConditionVariable {
  public:
    explicit ConditionVariable(Lock* user_lock) : mLock(user_lock) {}
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void Wait() {
        WaitWith([this](std::unique_lock<std::mutex>& held) {
            mCondition.wait(held);
            return true;
        });
    }
    // False once `deadline` has passed.
    bool WaitUntil(std::chrono::steady_clock::time_point deadline) {
        return WaitWith([&](std::unique_lock<std::mutex>& held) {
            return mCondition.wait_until(held, deadline) == std::cv_status::no_timeout;
        });
    }
    // False once `max_time` has passed.
    bool TimedWait(TimeDelta max_time) {
        constexpr int64_t kYearUs = int64_t{365} * 24 * 3600 * 1000 * 1000;  // no overflow
        const int64_t us = std::min(max_time.InMicroseconds(), kYearUs);
        return WaitUntil(std::chrono::steady_clock::now() + std::chrono::microseconds(us));
    }
    void Signal() { mCondition.notify_one(); }
    void Broadcast() { mCondition.notify_all(); }

  private:
    template <typename WaitFunction>
    bool WaitWith(WaitFunction wait) {
        mLock->AssertAcquired();
        mLock->mOwner.store(std::thread::id(), std::memory_order_relaxed);
        std::unique_lock<std::mutex> held(mLock->mMutex, std::adopt_lock);
        const bool woken = wait(held);
        held.release();
        mLock->mOwner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        return woken;
    }

    Lock* const mLock;
    std::condition_variable mCondition;
};

}  // namespace base
