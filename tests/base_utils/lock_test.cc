#include "base/synchronization/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "base/sequence_checker.h"
#include "base/synchronization/condition_variable.h"

namespace kelvane::testing {
namespace {

// A bounded queue between threads, written as the code under test writes its own.
class Handoff {
  public:
    void put(int v) EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        mItems.push_back(v);
        mChanged.Broadcast();
    }
    // Waits for `n` items; false if the deadline passed first.
    bool waitFor(size_t n, std::chrono::steady_clock::time_point deadline) EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        while (mItems.size() < n) {
            if (!mChanged.WaitUntil(deadline)) return mItems.size() >= n;
        }
        return true;
    }
    // Holds the lock, lets it go around `call`, and checks it is held again afterwards.
    template <typename Call>
    void whileUnlocked(Call call) EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        {
            base::AutoUnlock release(mLock);
            call(mLock);
        }
        mLock.AssertAcquired();
    }
    base::Lock& lock() { return mLock; }

  private:
    base::Lock mLock;
    base::ConditionVariable mChanged{&mLock};
    std::vector<int> mItems GUARDED_BY(mLock);
};

TEST(LockTest, WaitersWakeForEachChangeAndTimeOutWithoutOne) {
    Handoff handoff;
    std::thread producer([&] {
        for (int i = 0; i < 100; ++i) handoff.put(i);
    });
    EXPECT_TRUE(handoff.waitFor(100, std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    producer.join();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(handoff.waitFor(101, start + std::chrono::milliseconds(5)));
    EXPECT_GE(std::chrono::steady_clock::now(), start + std::chrono::milliseconds(5));
}

TEST(LockTest, AutoUnlockLetsOtherThreadsTakeTheLockAndTakesItBack) {
    Handoff handoff;
    bool takenElsewhere = false;
    handoff.whileUnlocked([&](base::Lock& lock) {
        std::thread([&] {
            if (!lock.Try()) return;
            takenElsewhere = true;
            lock.Release();
        }).join();
    });
    EXPECT_TRUE(takenElsewhere);
    base::Lock& lock = handoff.lock();
    bool takenBack = lock.Try();
    if (takenBack) lock.Release();
    EXPECT_TRUE(takenBack);
}

TEST(LockTest, TimedWaitReturnsFalseAfterItsLimit) {
    base::Lock lock;
    base::ConditionVariable never(&lock);
    base::AutoLock hold(lock);
    EXPECT_FALSE(never.TimedWait(base::TimeDelta::FromMilliseconds(2)));
    lock.AssertAcquired();
}

TEST(LockDeathTest, AssertAcquiredCrashesWhenTheCallerDoesNotHoldIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    base::Lock lock;
    EXPECT_DEATH(lock.AssertAcquired(), "Check failed");
    lock.Acquire();
    EXPECT_DEATH(std::thread([&] { lock.AssertAcquired(); }).join(), "Check failed");
    lock.Release();
}

TEST(SequenceCheckerTest, BindsToTheFirstCallerAndRebindsAfterDetach) {
    base::SequenceChecker checker;
    bool elsewhere = true;
    std::thread([&] { elsewhere = checker.CalledOnValidSequence(); }).join();
    EXPECT_TRUE(elsewhere);  // the other thread bound it
    EXPECT_FALSE(checker.CalledOnValidSequence());
    checker.DetachFromSequence();
    EXPECT_TRUE(checker.CalledOnValidSequence());
    std::thread([&] { elsewhere = checker.CalledOnValidSequence(); }).join();
    EXPECT_FALSE(elsewhere);
}

TEST(SequenceCheckerTest, OfManyFirstCallersExactlyOneBindsIt) {
    for (int round = 0; round < 20; ++round) {
        base::SequenceChecker checker;
        std::atomic<int> valid{0};
        std::vector<std::thread> callers;
        for (int t = 0; t < 4; ++t) {
            callers.emplace_back([&] { valid += checker.CalledOnValidSequence() ? 1 : 0; });
        }
        for (std::thread& t : callers) t.join();
        EXPECT_EQ(valid.load(), 1);
    }
}

TEST(SequenceCheckerDeathTest, CheckMacroCrashesOffSequence) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SEQUENCE_CHECKER(checker);
    DCHECK_CALLED_ON_VALID_SEQUENCE(checker);
    EXPECT_DEATH(std::thread([&] { DCHECK_CALLED_ON_VALID_SEQUENCE(checker); }).join(),
                 "called off the sequence of checker");
}

}  // namespace
}  // namespace kelvane::testing
