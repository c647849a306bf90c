#pragma once

#include "base/callback.h"
#include "base/location.h"
#include "base/memory/ref_counted.h"
#include "base/time/time.h"

namespace base {

// Runs posted tasks somewhere. Tasks that can no longer run (the runner has shut down) are
// destroyed without running, which releases their bound arguments.
class TaskRunner : public RefCountedThreadSafe<TaskRunner> {
  public:
    bool PostTask(const Location& from_here, OnceClosure task);
    virtual bool PostDelayedTask(const Location& from_here, OnceClosure task, TimeDelta delay) = 0;
    // True on the thread (sequence) that runs this runner's tasks.
    virtual bool RunsTasksInCurrentSequence() const = 0;

  protected:
    friend class RefCountedThreadSafe<TaskRunner>;
    TaskRunner() = default;
    virtual ~TaskRunner() = default;
};

// Runs tasks one at a time: immediate tasks in posting order, delayed tasks by due time with ties
// in posting order.
class SequencedTaskRunner : public TaskRunner {};

// A sequenced runner bound to one thread.
class SingleThreadTaskRunner : public SequencedTaskRunner {
  public:
    bool BelongsToCurrentThread() const { return RunsTasksInCurrentSequence(); }
};

// The runner of the sequence the caller is running on, if any.
class SequencedTaskRunnerHandle {
  public:
    static scoped_refptr<SequencedTaskRunner> Get();
    static bool IsSet();
};

class ThreadTaskRunnerHandle {
  public:
    static scoped_refptr<SingleThreadTaskRunner> Get();
    static bool IsSet();
};

}  // namespace base
