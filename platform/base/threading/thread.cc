#include "base/threading/thread.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>

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

// Waits on `cv` for `pred`, `limit` at most (TimeDelta::Max(): no limit).
template <typename Pred>
bool waitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, TimeDelta limit,
             Pred pred) {
    if (limit.is_max()) {
        cv.wait(lock, pred);
        return true;
    }
    return cv.wait_for(lock, std::chrono::microseconds(limit.InMicroseconds()), pred);
}

// How many loops of the process run a task or have one ready. Only transitions count, so a busy
// loop costs nothing per task. A loop that posts to another does so while it is itself busy, so
// the count cannot touch zero while work passes from thread to thread.
class BusyLoops {
  public:
    void add() { mCount.fetch_add(1, std::memory_order_acq_rel); }
    void remove() {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            std::lock_guard<std::mutex> lock(mMutex);
            mZero.notify_all();
        }
    }
    bool waitForZero(TimeDelta limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        return waitFor(mZero, lock, limit,
                       [this] { return mCount.load(std::memory_order_acquire) == 0; });
    }

  private:
    std::atomic<int> mCount{0};
    std::mutex mMutex;  // orders remove()'s notification after a waiter's check
    std::condition_variable mZero;
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
        std::unique_lock<std::mutex> lock(mMutex);
        if (mStopped) {
            lock.unlock();
            return false;  // `task` is destroyed here, releasing its bound arguments
        }
        if (delay.InMicroseconds() <= 0) {
            mImmediate.push_back(std::move(task));
            setBusy(true);
        } else {
            const TimeTicks due = TimeTicks::Now() + TimeDelta::FromMicroseconds(std::min(
                                                         delay.InMicroseconds(), kMaxDelayUs));
            mDelayed.push(Delayed{due, mNextSequence++, std::move(task)});
        }
        if (mIdle) {
            mIdle = false;
            lock.unlock();
            mWake.notify_one();
        }
        return true;
    }

    bool RunsTasksInCurrentSequence() const override { return tCurrentRunner == this; }

    void Run() {
        tCurrentRunner = this;
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mQuit) {
            promoteDueTasks();
            if (mImmediate.empty()) {
                setBusy(false);
                mIdle = true;
                TimeTicks virtualNow;
                // Under virtual time nothing becomes due by itself: the clock wakes the loop.
                if (mDelayed.empty() || internal::VirtualNow(&virtualNow)) {
                    mWake.wait(lock);
                } else {
                    mWake.wait_until(lock, toSteady(mDelayed.top().due));
                }
                mIdle = false;
                continue;
            }
            OnceClosure task = std::move(mImmediate.front());
            mImmediate.pop_front();
            lock.unlock();
            std::move(task).Run();
            lock.lock();
        }
        lock.unlock();
        discardQueued();
        tCurrentRunner = nullptr;
        lock.lock();
        mFinished = true;
        mFinishedCv.notify_all();
    }

    // Stops accepting tasks and ends Run() after the task that is running now.
    void Quit() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mQuit = true;
            mStopped = true;
        }
        mWake.notify_one();
    }

    // Destroys queued tasks without running them. Destructors of bound arguments may post again;
    // those posts are refused.
    void discardQueued() {
        std::deque<OnceClosure> immediate;
        DelayedQueue delayed;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mStopped = true;
            immediate.swap(mImmediate);
            delayed.swap(mDelayed);
        }
        immediate.clear();
        while (!delayed.empty()) delayed.pop();
        std::lock_guard<std::mutex> lock(mMutex);
        setBusy(false);
    }

    // Waits up to `limit` for Run() to end; true once it has.
    bool waitUntilFinished(TimeDelta limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        return waitFor(mFinishedCv, lock, limit, [this] { return mFinished; });
    }

    // The virtual clock moved: take what is due now and wait anew.
    void wakeForClock() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (!mStopped) promoteDueTasks();
        }
        mWake.notify_one();
    }

    bool nextDueTime(TimeTicks* due) const {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mStopped || mDelayed.empty()) return false;
        *due = mDelayed.top().due;
        return true;
    }

    std::thread::id threadId() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreadId;
    }
    void setThreadId(std::thread::id id) {
        std::lock_guard<std::mutex> lock(mMutex);
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

    // Under mMutex.
    void promoteDueTasks() {
        if (mDelayed.empty()) return;
        const TimeTicks now = TimeTicks::Now();
        while (!mDelayed.empty() && mDelayed.top().due <= now) {
            mImmediate.push_back(std::move(mDelayed.top().task));
            mDelayed.pop();
        }
        if (!mImmediate.empty()) setBusy(true);
    }

    // Under mMutex.
    void setBusy(bool busy) {
        if (busy == mBusy) return;
        mBusy = busy;
        if (busy) {
            busyLoops().add();
        } else {
            busyLoops().remove();
        }
    }

    mutable std::mutex mMutex;
    std::condition_variable mWake;
    std::condition_variable mFinishedCv;
    std::deque<OnceClosure> mImmediate;  // guarded by mMutex
    DelayedQueue mDelayed;               // guarded by mMutex
    uint64_t mNextSequence = 0;          // guarded by mMutex
    bool mIdle = false;                  // guarded by mMutex: Run() is waiting for work
    bool mBusy = false;                  // guarded by mMutex: counted in busyLoops()
    bool mQuit = false;                  // guarded by mMutex
    bool mStopped = false;               // guarded by mMutex: posts are refused
    bool mFinished = false;              // guarded by mMutex: Run() has ended
    std::thread::id mThreadId;           // guarded by mMutex
};

namespace {

// Every loop of the process, for the virtual clock. Never destroyed, like busyLoops().
struct LoopRegistry {
    std::mutex mutex;  // taken before any loop's own mutex
    std::vector<Thread::Loop*> loops;
};

LoopRegistry& loopRegistry() {
    static LoopRegistry* registry = new LoopRegistry();
    return *registry;
}

}  // namespace

Thread::Loop::Loop() {
    std::lock_guard<std::mutex> lock(loopRegistry().mutex);
    loopRegistry().loops.push_back(this);
}

Thread::Loop::~Loop() {
    {
        std::lock_guard<std::mutex> lock(loopRegistry().mutex);
        auto& loops = loopRegistry().loops;
        loops.erase(std::find(loops.begin(), loops.end(), this));
    }
    if (mBusy) busyLoops().remove();  // posted to but never run
}

namespace internal {

void WakeAllTaskLoops() {
    std::lock_guard<std::mutex> lock(loopRegistry().mutex);
    for (Thread::Loop* loop : loopRegistry().loops) loop->wakeForClock();
}

bool NextDueTimeOfAllTaskLoops(TimeTicks* due) {
    std::lock_guard<std::mutex> lock(loopRegistry().mutex);
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
