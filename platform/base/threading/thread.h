#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <queue>
#include <string>
#include <thread>
#include <vector>

#include "base/task_runner.h"

namespace base {

// A thread running a task loop. Stop() (also run by the destructor) lets the running task finish,
// then destroys every queued task without running it, on the thread itself, and joins. Delayed
// tasks become due by TimeTicks::Now(): the monotonic clock, or a test's virtual clock
// (base/test/virtual_clock.h).
class Thread {
  public:
    explicit Thread(std::string name);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    bool Start();
    void Stop();
    // Stop(), waiting at most `limit` for the running task to finish. Past that the thread is
    // left to end on its own once the task returns (it keeps its loop, and queued tasks are
    // destroyed there); returns false then.
    bool StopWithin(TimeDelta limit);
    bool IsRunning() const;
    const std::string& thread_name() const { return mName; }
    // Valid from construction on; posting before Start() queues the task, after Stop() drops it.
    scoped_refptr<SingleThreadTaskRunner> task_runner() const { return mRunner; }
    std::thread::id GetThreadId() const;

    class Loop;

  private:
    const std::string mName;
    scoped_refptr<SingleThreadTaskRunner> mRunner;
    Loop* mLoop;  // owned through mRunner
    std::thread mThread;
    bool mStarted = false;  // owner thread only
};

}  // namespace base
