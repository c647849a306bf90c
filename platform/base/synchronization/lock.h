// base::Lock, a mutex the thread-safety analysis knows, with AutoLock (holds it for a scope) and
// AutoUnlock (lets it go for a scope, e.g. around a call out of the object). Not recursive.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "base/logging.h"
#include "base/thread_annotations.h"

namespace base {

class ConditionVariable;

class LOCKABLE Lock {
  public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Acquire() ACQUIRE() {
        mMutex.lock();
        mOwner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    void Release() RELEASE() {
        mOwner.store(std::thread::id(), std::memory_order_relaxed);
        mMutex.unlock();
    }
    bool Try() TRY_ACQUIRE(true) {
        if (!mMutex.try_lock()) return false;
        mOwner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        return true;
    }
    // Crashes unless the calling thread holds the lock.
    void AssertAcquired() const ASSERT_CAPABILITY(this) {
        CHECK(mOwner.load(std::memory_order_relaxed) == std::this_thread::get_id());
    }

  private:
    friend class ConditionVariable;
    std::mutex mMutex;
    std::atomic<std::thread::id> mOwner{};  // set by the holder, read to assert
};

class SCOPED_CAPABILITY AutoLock {
  public:
    explicit AutoLock(Lock& lock) ACQUIRE(lock) : mLock(lock) { mLock.Acquire(); }
    ~AutoLock() RELEASE() { mLock.Release(); }
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

  private:
    Lock& mLock;
};

// Releases a held lock for its lifetime and takes it back on destruction.
class SCOPED_CAPABILITY AutoUnlock {
  public:
    explicit AutoUnlock(Lock& lock) RELEASE(lock) : mLock(lock) {
        mLock.AssertAcquired();
        mLock.Release();
    }
    // Annotated RELEASE as clang wants it: the end of a scope undoes whatever its start did.
    ~AutoUnlock() RELEASE() { mLock.Acquire(); }
    AutoUnlock(const AutoUnlock&) = delete;
    AutoUnlock& operator=(const AutoUnlock&) = delete;

  private:
    Lock& mLock;
};

}  // namespace base
