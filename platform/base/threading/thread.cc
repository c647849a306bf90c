#include "base/threading/thread.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>

namespace base {
namespace {

thread_local SingleThreadTaskRunner* tCurrentRunner = nullptr;

using Clock = std::chrono::steady_clock;

// Longer delays are clamped so that the due time cannot overflow the clock.
constexpr int64_t kMaxDelayUs = int64_t{365} * 24 * 3600 * 1000000;

}  // namespace

class Thread::Loop : public SingleThreadTaskRunner {
  public:
    bool PostDelayedTask(const Location&, OnceClosure task, TimeDelta delay) override {
        std::unique_lock<std::mutex> lock(mMutex);
        if (mStopped) {
            lock.unlock();
            return false;  // `task` is destroyed here, releasing its bound arguments
        }
        if (delay.InMicroseconds() <= 0) {
            mImmediate.push_back(std::move(task));
        } else {
            Clock::time_point due = Clock::now() + std::chrono::microseconds(std::min(
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
                mIdle = true;
                if (mDelayed.empty()) {
                    mWake.wait(lock);
                } else {
                    mWake.wait_until(lock, mDelayed.top().due);
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
        Clock::time_point due;
        uint64_t sequence;
        mutable OnceClosure task;
        bool operator<(const Delayed& o) const {
            // priority_queue pops the largest: the earliest due, then the earliest posted.
            return due != o.due ? due > o.due : sequence > o.sequence;
        }
    };
    using DelayedQueue = std::priority_queue<Delayed>;

    void promoteDueTasks() {
        if (mDelayed.empty()) return;
        Clock::time_point now = Clock::now();
        while (!mDelayed.empty() && mDelayed.top().due <= now) {
            mImmediate.push_back(std::move(mDelayed.top().task));
            mDelayed.pop();
        }
    }

    mutable std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<OnceClosure> mImmediate;  // guarded by mMutex
    DelayedQueue mDelayed;               // guarded by mMutex
    uint64_t mNextSequence = 0;          // guarded by mMutex
    bool mIdle = false;                  // guarded by mMutex: Run() is waiting for work
    bool mQuit = false;                  // guarded by mMutex
    bool mStopped = false;               // guarded by mMutex: posts are refused
    std::thread::id mThreadId;           // guarded by mMutex
};

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

void Thread::Stop() {
    if (mThread.joinable()) {
        mLoop->Quit();
        // Stopped from one of its own tasks (say, the process exits there): it cannot join
        // itself, so it ends on its own once that task returns.
        if (mThread.get_id() == std::this_thread::get_id()) {
            mThread.detach();
        } else {
            mThread.join();
        }
    } else {
        mLoop->discardQueued();
    }
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
