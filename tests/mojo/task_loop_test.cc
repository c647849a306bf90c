#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/bind.h"
#include "base/test/virtual_clock.h"
#include "base/threading/thread.h"
#include "tests/support/wait.h"

namespace kelvane::testing {
namespace {

TEST(TaskLoopTest, RunsImmediateTasksInOrderThenDelayedByDueTime) {
    base::Thread thread("loop");
    std::vector<int> order;
    Signal done;
    auto record = [&](int v) { done.Notify([&] { order.push_back(v); }); };
    // Queued before the thread starts, so every delay is measured from nearly the same moment.
    auto runner = thread.task_runner();
    runner->PostDelayedTask(FROM_HERE, base::BindOnce(record, 4),
                            base::TimeDelta::FromMilliseconds(60));
    runner->PostDelayedTask(FROM_HERE, base::BindOnce(record, 2),
                            base::TimeDelta::FromMilliseconds(20));
    runner->PostDelayedTask(FROM_HERE, base::BindOnce(record, 3),
                            base::TimeDelta::FromMilliseconds(20));
    runner->PostTask(FROM_HERE, base::BindOnce(record, 0));
    runner->PostTask(FROM_HERE, base::BindOnce(record, 1));
    thread.Start();
    EXPECT_TRUE(runner->RunsTasksInCurrentSequence() == false);
    ASSERT_TRUE(done.WaitUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

// Counts destructions of its bound copies' owner.
struct Token {
    explicit Token(std::vector<std::thread::id>* d) : destroyedOn(d) {}
    ~Token() { destroyedOn->push_back(std::this_thread::get_id()); }
    std::vector<std::thread::id>* destroyedOn;
};

TEST(TaskLoopTest, StopDestroysQueuedTasksWithoutRunningThemOnTheLoopThread) {
    std::vector<std::thread::id> destroyedOn;
    int ran = 0;
    std::thread::id loopId;
    {
        base::Thread thread("loop");
        thread.Start();
        auto runner = thread.task_runner();
        RunAndWait(runner, [&] { loopId = std::this_thread::get_id(); });
        runner->PostDelayedTask(FROM_HERE,
                                base::BindOnce([](int* r, std::unique_ptr<Token>) { ++*r; }, &ran,
                                               std::make_unique<Token>(&destroyedOn)),
                                base::TimeDelta::FromSeconds(3600));
        thread.Stop();
        EXPECT_FALSE(runner->PostTask(FROM_HERE, base::BindOnce([](int* r) { ++*r; }, &ran)));
    }
    EXPECT_EQ(ran, 0);
    ASSERT_EQ(destroyedOn.size(), 1u);
    EXPECT_EQ(destroyedOn[0], loopId);
}

TEST(TaskLoopTest, CurrentRunnerIsKnownOnlyOnTheLoopThread) {
    base::Thread thread("loop");
    thread.Start();
    EXPECT_FALSE(base::SequencedTaskRunnerHandle::IsSet());
    bool same = false;
    RunAndWait(thread.task_runner(), [&] {
        same = base::SequencedTaskRunnerHandle::Get().get() == thread.task_runner().get() &&
               thread.task_runner()->RunsTasksInCurrentSequence();
    });
    EXPECT_TRUE(same);
}

// Runs on `runner` and records when, by the clock in force.
struct Stamp {
    std::string what;
    base::TimeDelta at;
};

TEST(VirtualClockTest, DelayedTasksOnSeveralLoopsRunAtTheirOwnTimesOnlyAsTimeMoves) {
    base::test::VirtualClock clock;
    const base::TimeTicks start = clock.Now();
    base::Thread one("one");
    base::Thread two("two");
    one.Start();
    two.Start();
    std::mutex mutex;
    std::vector<Stamp> stamps;  // guarded by mutex
    auto stamp = [&](std::string what) {
        std::lock_guard<std::mutex> lock(mutex);
        stamps.push_back({std::move(what), base::TimeTicks::Now() - start});
    };
    const auto ms = base::TimeDelta::FromMilliseconds;
    one.task_runner()->PostDelayedTask(FROM_HERE, base::BindOnce(stamp, "a"), ms(300));
    // b, on the other loop, posts c back to the first: due at 100 + 150.
    two.task_runner()->PostDelayedTask(FROM_HERE, base::BindOnce([&] {
                                           stamp("b");
                                           one.task_runner()->PostDelayedTask(
                                               FROM_HERE, base::BindOnce(stamp, "c"), ms(150));
                                       }),
                                       ms(100));
    two.task_runner()->PostTask(FROM_HERE, base::BindOnce(stamp, "now"));

    ASSERT_TRUE(clock.RunUntilIdle());
    EXPECT_EQ(clock.NextTaskDelay(), ms(100));
    ASSERT_TRUE(clock.FastForwardBy(ms(200)));
    {
        std::lock_guard<std::mutex> lock(mutex);
        ASSERT_EQ(stamps.size(), 2u);
        EXPECT_EQ(stamps[0].what, "now");
        EXPECT_EQ(stamps[0].at, ms(0));
        EXPECT_EQ(stamps[1].what, "b");
        EXPECT_EQ(stamps[1].at, ms(100));
    }
    EXPECT_EQ(clock.Now() - start, ms(200));
    ASSERT_TRUE(clock.FastForwardBy(ms(200)));
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(stamps.size(), 4u);
    EXPECT_EQ(stamps[2].what, "c");
    EXPECT_EQ(stamps[2].at, ms(250));
    EXPECT_EQ(stamps[3].what, "a");
    EXPECT_EQ(stamps[3].at, ms(300));
    EXPECT_EQ(clock.NextTaskDelay(), base::TimeDelta::Max());
}

// Work handed from loop to loop keeps the process busy until the last hop has run.
TEST(VirtualClockTest, IdleMeansEveryHopOfAChainAcrossThreadsHasRun) {
    base::test::VirtualClock clock;
    base::Thread one("one");
    base::Thread two("two");
    one.Start();
    two.Start();
    constexpr int kHops = 2000;
    std::atomic<int> hops{0};
    std::function<void(int)> hop = [&](int left) {
        hops.fetch_add(1);
        if (left == 0) return;
        base::Thread& next = left % 2 == 0 ? one : two;
        next.task_runner()->PostTask(FROM_HERE, base::BindOnce(hop, left - 1));
    };
    for (int round = 0; round < 5; ++round) {
        hops = 0;
        one.task_runner()->PostTask(FROM_HERE, base::BindOnce(hop, kHops - 1));
        ASSERT_TRUE(clock.RunUntilIdle());
        EXPECT_EQ(hops.load(), kHops);
    }
}

TEST(VirtualClockTest, WithoutTheClockWaitingTasksRunByTheMonotonicClockAgain) {
    base::Thread thread("loop");
    thread.Start();
    Signal ran;
    bool done = false;
    {
        base::test::VirtualClock clock;
        thread.task_runner()->PostDelayedTask(
            FROM_HERE, base::BindOnce([&] { ran.Notify([&] { done = true; }); }),
            base::TimeDelta::FromMilliseconds(1));
        ASSERT_TRUE(clock.RunUntilIdle());
        std::lock_guard<std::mutex> lock(ran.mutex());
        EXPECT_FALSE(done);  // virtual time stood still
    }
    EXPECT_TRUE(ran.WaitUntil([&] { return done; }));
}

TEST(TaskLoopTest, StopWithinLeavesABusyThreadToEndOnItsOwn) {
    auto thread = std::make_unique<base::Thread>("loop");
    thread->Start();
    Signal release;
    bool released = false;
    Signal destroyed;
    bool tokenGone = false;
    bool queuedRan = false;
    struct Token {
        Token(Signal* s, bool* g) : signal(s), gone(g) {}
        Signal* signal;
        bool* gone;
        ~Token() {
            signal->Notify([this] { *gone = true; });
        }
    };
    auto runner = thread->task_runner();
    Signal started;
    bool busy = false;
    runner->PostTask(FROM_HERE, base::BindOnce([&] {
                         started.Notify([&] { busy = true; });
                         release.WaitUntil([&] { return released; });
                     }));
    runner->PostTask(FROM_HERE,
                     base::BindOnce([](bool* ran, std::unique_ptr<Token>) { *ran = true; },
                                    &queuedRan, std::make_unique<Token>(&destroyed, &tokenGone)));
    ASSERT_TRUE(started.WaitUntil([&] { return busy; }));
    EXPECT_FALSE(thread->StopWithin(base::TimeDelta::FromMilliseconds(20)));
    EXPECT_FALSE(runner->PostTask(FROM_HERE, base::BindOnce([] {})));
    thread.reset();  // does not wait for the busy task either
    release.Notify([&] { released = true; });
    EXPECT_TRUE(destroyed.WaitUntil([&] { return tokenGone; }));
    EXPECT_FALSE(queuedRan);
}

}  // namespace
}  // namespace kelvane::testing
