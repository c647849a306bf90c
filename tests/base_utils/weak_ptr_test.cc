#include "base/memory/weak_ptr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/bind.h"
#include "base/threading/thread.h"
#include "tests/support/wait.h"

namespace kelvane::testing {
namespace {

// Lives on one thread, with the factory last, as its users are told to write it.
class Counter {
  public:
    void add(int n) { mTotal += n; }
    int total() const { return mTotal; }
    base::WeakPtr<Counter> weak() { return mWeak.GetWeakPtr(); }
    void invalidate() { mWeak.InvalidateWeakPtrs(); }

  private:
    int mTotal = 0;
    base::WeakPtrFactory<Counter> mWeak{this};
};

TEST(WeakPtrTest, TaskPostedFromAnotherThreadIsDroppedOnceTargetIsGone) {
    base::Thread owner("owner");
    ASSERT_TRUE(owner.Start());
    std::unique_ptr<Counter> counter;
    base::WeakPtr<Counter> weak;
    ASSERT_TRUE(RunAndWait(owner.task_runner(), [&] {
        counter = std::make_unique<Counter>();
        weak = counter->weak();
    }));
    // Posted from this thread, run on the owner's: the first reaches the target, the second
    // runs after the target was destroyed there and must not touch it.
    owner.task_runner()->PostTask(FROM_HERE, base::BindOnce(&Counter::add, weak, 2));
    int seen = -1;
    ASSERT_TRUE(RunAndWait(owner.task_runner(), [&] {
        seen = counter->total();
        counter.reset();
    }));
    owner.task_runner()->PostTask(FROM_HERE, base::BindOnce(&Counter::add, weak, 5));
    bool gone = false;
    ASSERT_TRUE(RunAndWait(owner.task_runner(), [&] { gone = !weak; }));
    EXPECT_EQ(seen, 2);
    EXPECT_TRUE(gone);
    ASSERT_TRUE(RunAndWait(owner.task_runner(), [&] { weak.reset(); }));
}

TEST(WeakPtrTest, InvalidationDropsOldPointersAndRepeatingCallsButNotNewOnes) {
    Counter counter;
    auto repeating = base::BindRepeating(&Counter::add, counter.weak());
    repeating.Run(1);
    base::WeakPtr<Counter> old = counter.weak();
    counter.invalidate();
    repeating.Run(10);
    EXPECT_FALSE(old);
    EXPECT_EQ(old.get(), nullptr);
    base::WeakPtr<Counter> fresh = counter.weak();
    ASSERT_TRUE(fresh);
    fresh->add(100);
    EXPECT_EQ(counter.total(), 101);
}

TEST(WeakPtrTest, PointersMayBeCopiedAndDroppedOnAnyThreadWhileOwnerTestsThem) {
    Counter counter;
    base::WeakPtr<Counter> weak = counter.weak();
    std::vector<std::thread> copiers;
    for (int t = 0; t < 4; ++t) {
        copiers.emplace_back([weak] {
            for (int i = 0; i < 1000; ++i) {
                base::WeakPtr<Counter> copy = weak;
                base::WeakPtr<Counter> moved = std::move(copy);
            }
        });
    }
    for (int i = 0; i < 1000; ++i) {
        if (weak) weak->add(1);
    }
    for (std::thread& t : copiers) t.join();
    EXPECT_EQ(counter.total(), 1000);
}

TEST(WeakPtrTest, OwnerMayGoOffSequenceOnceNoPointerIsLeft) {
    auto counter = std::make_unique<Counter>();
    {
        base::WeakPtr<Counter> weak = counter->weak();
        ASSERT_TRUE(weak);  // binds the pointers to this thread
    }
    std::thread([&] { counter.reset(); }).join();
    EXPECT_EQ(counter, nullptr);
}

TEST(WeakPtrDeathTest, TestingOnAnotherSequenceCrashes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Counter counter;
    base::WeakPtr<Counter> weak = counter.weak();
    ASSERT_TRUE(weak);
    EXPECT_DEATH(std::thread([&] { (void)weak.get(); }).join(), "called off the sequence");
}

TEST(WeakPtrDeathTest, InvalidatingOffSequenceWhilePointersRemainCrashes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Counter counter;
    base::WeakPtr<Counter> weak = counter.weak();
    ASSERT_TRUE(weak);
    EXPECT_DEATH(std::thread([&] { counter.invalidate(); }).join(), "off their sequence");
}

}  // namespace
}  // namespace kelvane::testing
