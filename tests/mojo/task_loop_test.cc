#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "base/bind.h"
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

}  // namespace
}  // namespace kelvane::testing
