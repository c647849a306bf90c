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

  private:
    base::Thread mThread;
};

class MojoProcessSupport {
  public:
    // Created on first use and started at once; destroyed at process exit, which stops the Mojo
    // thread after its current task and destroys the tasks still queued without running them.
    static MojoProcessSupport* GetInstance();

    MojoThread* getThread() { return &mThread; }

  private:
    MojoProcessSupport() = default;
    ~MojoProcessSupport() = default;
    friend struct MojoProcessSupportHolder;

    MojoThread mThread;
};

}  // namespace vel
