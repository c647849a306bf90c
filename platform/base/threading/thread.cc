#include "base/threading/thread.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <utility>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"
#include "base/threading/task_loops.h"
#include "base/time/virtual_time_source.h"

namespace base {
namespace {

thread_local SingleThreadTaskRunner* tCurrentRunner = nullptr;

// Longer delays are clamped so that the due time cannot overflow the clock.
constexpr int64_t kMaxDelayUs = int64_t{365} * 24 * 3600 * 1000000;

std::chrono::steady_clock::time_point toSteady(TimeTicks t) {
    return std::chrono::steady_clock::time_point(
        std::chrono::microseconds(t.since_origin().InMicroseconds()));
}

// The real-clock deadline `limit` from now (TimeDelta::Max(): in effect none).
std::chrono::steady_clock::time_point realDeadline(TimeDelta limit) {
    return std::chrono::steady_clock::now() +
           std::chrono::microseconds(std::min(limit.InMicroseconds(), kMaxDelayUs));
}

// How many loops of the process run a task or have one ready. Only transitions count, so a busy
// loop costs nothing per task. A loop that posts to another does so while it is itself busy, so
// the count cannot touch zero while work passes from thread to thread.
class BusyLoops {
  public:
    void add() { mCount.fetch_add(1, std::memory_order_acq_rel); }
    void remove() {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            AutoLock hold(mLock);
            mZero.Broadcast();
        }
    }
    bool waitForZero(TimeDelta limit) {
        const auto deadline = realDeadline(limit);
        AutoLock hold(mLock);
        while (!idle()) {
            if (!mZero.WaitUntil(deadline)) return idle();
        }
        return true;
    }

  private:
    bool idle() const { return mCount.load(std::memory_order_acquire) == 0; }

    std::atomic<int> mCount{0};
    Lock mLock;  // orders remove()'s notification after a waiter's check
    ConditionVariable mZero{&mLock};
};

// Never destroyed: a loop may outlive static destruction on a detached thread.
BusyLoops& busyLoops() {
    static BusyLoops* busy = new BusyLoops();
    return *busy;
}

}  // namespace

class Thread::Loop : public SingleThreadTaskRunner {
  public:
    Loop();
    ~Loop() override;

    bool PostDelayedTask(const Location&, OnceClosure task, TimeDelta delay) override {
        bool wake = false;
        {
            AutoLock hold(mLock);
            // Refused: `task` is destroyed by the caller, the lock released, which releases its
            // bound arguments.
            if (mStopped) return false;
            queueLocked(std::move(task), delay);
            wake = std::exchange(mIdle, false);
        }
        if (wake) mWake.Signal();
        return true;
    }

    bool RunsTasksInCurrentSequence() const override { return tCurrentRunner == this; }

    void Run() {
        tCurrentRunner = this;
        {
            AutoLock hold(mLock);
            while (!mQuit) {
                promoteDueTasksLocked();
                if (mImmediate.empty()) {
                    waitForWorkLocked();
                    continue;
                }
                OnceClosure task = std::move(mImmediate.front());
                mImmediate.pop_front();
                AutoUnlock running(mLock);
                std::move(task).Run();
            }
        }
        discardQueued();
        tCurrentRunner = nullptr;
        AutoLock hold(mLock);
        mFinished = true;
        mFinishedCv.Broadcast();
    }

    // Stops accepting tasks and ends Run() after the task that is running now.
    void Quit() {
        {
            AutoLock hold(mLock);
            mQuit = true;
            mStopped = true;
        }
        mWake.Signal();
    }

    // Destroys queued tasks without running them. Destructors of bound arguments may post again;
    // those posts are refused.
    void discardQueued() {
        std::deque<OnceClosure> immediate;
        DelayedQueue delayed;
        {
            AutoLock hold(mLock);
            mStopped = true;
            immediate.swap(mImmediate);
            delayed.swap(mDelayed);
        }
        immediate.clear();
        while (!delayed.empty()) delayed.pop();
        AutoLock hold(mLock);
        setBusyLocked(false);
    }

    // Waits up to `limit` for Run() to end; true once it has.
    bool waitUntilFinished(TimeDelta limit) {
        const auto deadline = realDeadline(limit);
        AutoLock hold(mLock);
        while (!mFinished) {
            if (!mFinishedCv.WaitUntil(deadline)) return mFinished;
        }
        return true;
    }

    // The virtual clock moved: take what is due now and wait anew.
    void wakeForClock() {
        {
            AutoLock hold(mLock);
            if (!mStopped) promoteDueTasksLocked();
        }
        mWake.Signal();
    }

    bool nextDueTime(TimeTicks* due) const {
        AutoLock hold(mLock);
        if (mStopped || mDelayed.empty()) return false;
        *due = mDelayed.top().due;
        return true;
    }

    std::thread::id threadId() const {
        AutoLock hold(mLock);
        return mThreadId;
    }
    void setThreadId(std::thread::id id) {
        AutoLock hold(mLock);
        mThreadId = id;
    }

  private:
    struct Delayed {
        TimeTicks due;
        uint64_t sequence;
        mutable OnceClosure task;
        bool operator<(const Delayed& o) const {
            // priority_queue pops the largest: the earliest due, then the earliest posted.
            return due != o.due ? due > o.due : sequence > o.sequence;
        }
    };
    using DelayedQueue = std::priority_queue<Delayed>;

    void queueLocked(OnceClosure task, TimeDelta delay) REQUIRES(mLock) {
        if (delay.InMicroseconds() <= 0) {
            mImmediate.push_back(std::move(task));
            setBusyLocked(true);
            return;
        }
        const TimeTicks due = TimeTicks::Now() + TimeDelta::FromMicroseconds(
                                                     std::min(delay.InMicroseconds(), kMaxDelayUs));
        mDelayed.push(Delayed{due, mNextSequence++, std::move(task)});
    }

    void promoteDueTasksLocked() REQUIRES(mLock) {
        if (mDelayed.empty()) return;
        const TimeTicks now = TimeTicks::Now();
        while (!mDelayed.empty() && mDelayed.top().due <= now) {
            mImmediate.push_back(std::move(mDelayed.top().task));
            mDelayed.pop();
        }
        if (!mImmediate.empty()) setBusyLocked(true);
    }

    // Idle until a post, the next delayed task's due time or, under virtual time, the clock.
    void waitForWorkLocked() REQUIRES(mLock) {
        setBusyLocked(false);
        mIdle = true;
        TimeTicks virtualNow;
        // Under virtual time nothing becomes due by itself: the clock wakes the loop.
        if (mDelayed.empty() || internal::VirtualNow(&virtualNow)) {
            mWake.Wait();
        } else {
            mWake.WaitUntil(toSteady(mDelayed.top().due));
        }
        mIdle = false;
    }

    void setBusyLocked(bool busy) REQUIRES(mLock) {
        if (busy == mBusy) return;
        mBusy = busy;
        if (busy) {
            busyLoops().add();
        } else {
            busyLoops().remove();
        }
    }

    mutable Lock mLock;
    ConditionVariable mWake{&mLock};
    ConditionVariable mFinishedCv{&mLock};
    std::deque<OnceClosure> mImmediate GUARDED_BY(mLock);
    DelayedQueue mDelayed GUARDED_BY(mLock);
    uint64_t mNextSequence GUARDED_BY(mLock) = 0;
    bool mIdle GUARDED_BY(mLock) = false;  // Run() is waiting for work
    bool mBusy GUARDED_BY(mLock) = false;  // counted in busyLoops()
    bool mQuit GUARDED_BY(mLock) = false;
    bool mStopped GUARDED_BY(mLock) = false;   // posts are refused
    bool mFinished GUARDED_BY(mLock) = false;  // Run() has ended
    std::thread::id mThreadId GUARDED_BY(mLock);
};

namespace {

// Every loop of the process, for the virtual clock. Never destroyed, like busyLoops().
struct LoopRegistry {
    Lock lock;  // taken before any loop's own lock
    std::vector<Thread::Loop*> loops GUARDED_BY(lock);
};

LoopRegistry& loopRegistry() {
    static LoopRegistry* registry = new LoopRegistry();
    return *registry;
}

}  // namespace

Thread::Loop::Loop() {
    AutoLock hold(loopRegistry().lock);
    loopRegistry().loops.push_back(this);
}

Thread::Loop::~Loop() {
    {
        AutoLock hold(loopRegistry().lock);
        auto& loops = loopRegistry().loops;
        loops.erase(std::find(loops.begin(), loops.end(), this));
    }
    if (mBusy) busyLoops().remove();  // posted to but never run
}

namespace internal {

void WakeAllTaskLoops() {
    AutoLock hold(loopRegistry().lock);
    for (Thread::Loop* loop : loopRegistry().loops) loop->wakeForClock();
}

bool NextDueTimeOfAllTaskLoops(TimeTicks* due) {
    AutoLock hold(loopRegistry().lock);
    bool found = false;
    for (Thread::Loop* loop : loopRegistry().loops) {
        TimeTicks t;
        if (loop->nextDueTime(&t) && (!found || t < *due)) {
            *due = t;
            found = true;
        }
    }
    return found;
}

bool WaitForIdleTaskLoops(TimeDelta limit) { return busyLoops().waitForZero(limit); }

}  // namespace internal

Thread::Thread(std::string name) : mName(std::move(name)) {
    mLoop = new Loop();
    mRunner = mLoop;
}

Thread::~Thread() { Stop(); }

bool Thread::Start() {
    if (mStarted) return false;
    mStarted = true;
    // The thread holds its loop: a detached thread may outlive this object.
    mThread = std::thread([loop = scoped_refptr<Loop>(mLoop), name = mName] {
        pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
        loop->setThreadId(std::this_thread::get_id());
        loop->Run();
    });
    return true;
}

void Thread::Stop() { StopWithin(TimeDelta::Max()); }

bool Thread::StopWithin(TimeDelta limit) {
    if (!mStarted) {
        mLoop->discardQueued();
        return true;
    }
    if (!mThread.joinable()) return true;  // stopped already, or left to end on its own
    mLoop->Quit();
    // Stopped from one of its own tasks (say, the process exits there): it cannot join itself,
    // so it ends on its own once that task returns.
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();
        return true;
    }
    if (!mLoop->waitUntilFinished(limit)) {
        mThread.detach();
        return false;
    }
    mThread.join();
    return true;
}

bool Thread::IsRunning() const { return mThread.joinable(); }

std::thread::id Thread::GetThreadId() const { return mLoop->threadId(); }

scoped_refptr<SequencedTaskRunner> SequencedTaskRunnerHandle::Get() {
    return scoped_refptr<SequencedTaskRunner>(tCurrentRunner);
}
bool SequencedTaskRunnerHandle::IsSet() { return tCurrentRunner != nullptr; }

scoped_refptr<SingleThreadTaskRunner> ThreadTaskRunnerHandle::Get() {
    return scoped_refptr<SingleThreadTaskRunner>(tCurrentRunner);
}
bool ThreadTaskRunnerHandle::IsSet() { return tCurrentRunner != nullptr; }

}  // namespace base
