// The container bridge's process-wide Mojo support: one Mojo thread per process.
#pragma once

#include "base/task_runner.h"
#include "base/threading/thread.h"

namespace vel {

class MojoThread {
  public:
    MojoThread();
    ~MojoThread();
    MojoThread(const MojoThread&) = delete;
    MojoThread& operator=(const MojoThread&) = delete;

    // Runs tasks on the Mojo thread, one at a time, in posting order (delayed ones by due time).
    scoped_refptr<base::SingleThreadTaskRunner> getTaskRunner() const;

    // Stops the thread after its current task, waiting for that task at most `limit`. False if
    // it did not finish in time: the thread then ends on its own once the task returns.
    bool stopWithin(base::TimeDelta limit) { return mThread.StopWithin(limit); }

  private:
    base::Thread mThread;
};

class MojoProcessSupport {
  public:
    // Created on first use and started at once. At process exit the Mojo thread is stopped after
    // its current task and the tasks still queued are destroyed without running. A thread whose
    // current task does not end within a few seconds is left running it, and this object is
    // never destroyed, so that the task and what it releases afterwards still find it: exit
    // never waits on the Mojo thread for long.
    static MojoProcessSupport* GetInstance();

    MojoThread* getThread() { return &mThread; }

  private:
    MojoProcessSupport() = default;
    ~MojoProcessSupport() = default;
    friend struct MojoProcessSupportHolder;

    MojoThread mThread;
};

}  // namespace vel
