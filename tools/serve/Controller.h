// The one thread of `serve` that calls the library (activate, batch, flush, the debug dump): the
// tasks posted to it run one at a time, in order, with no lock of ours held, so a slow library
// call delays the other controls only, never a request's transport or the sample delivery.
//
// Threads: post() and runAndWait() from any thread but the controller's own; stop() from the
// thread that owns the controller.
#pragma once

#include <deque>
#include <functional>
#include <thread>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"

namespace kelvane::tools::serve {

class Controller {
  public:
    Controller();
    ~Controller();  // stop()
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    // Queues `task`; after stop() it is dropped unrun.
    void post(std::function<void()> task);
    // Runs `task` on the controller and waits for it; false (not run) after stop().
    bool runAndWait(std::function<void()> task);
    // Waits for the task running, drops the others and ends the thread. Idempotent.
    void stop();

  private:
    void run();

    base::Lock mMutex;
    base::ConditionVariable mWake{&mMutex};
    std::deque<std::function<void()>> mTasks GUARDED_BY(mMutex);
    bool mStopping GUARDED_BY(mMutex) = false;
    std::thread mThread;  // last: starts once everything above exists
};

}  // namespace kelvane::tools::serve
