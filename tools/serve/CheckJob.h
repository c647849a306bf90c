// A conformance run started from a page. It runs on a thread of its own, one at a time, with the
// pages' sensors off and their controls refused meanwhile (the rules need the sub-HAL to
// themselves); its progress lines and then its results, failing ones first, go to every page as
// "check" messages. When it is over the sub-HAL is initialized with the session's callback
// again and the sensors that were on are turned back on.
//
// Threads: start() from the server's thread, cancel() from the main thread;
// mMutex guards the state below it.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Session.h"
#include "base/synchronization/lock.h"
#include "check/CheckResult.h"
#include "serve/EventPump.h"
#include "serve/EventStream.h"
#include "serve/Reply.h"
#include "serve/SensorControls.h"

namespace kelvane::tools::serve {

class CheckJob {
  public:
    CheckJob(Session& session, EventStream& stream, SensorControls& controls, EventPump& pump);
    ~CheckJob();  // cancel()
    CheckJob(const CheckJob&) = delete;
    CheckJob& operator=(const CheckJob&) = delete;

    // Starts a run (`quick`: the shorter one); 409 while one runs.
    Reply start(bool quick);
    // Ends a run at once, its results dropped, and waits for its thread. Idempotent.
    void cancel();

  private:
    void run(bool quick);
    void discardQueuedEvents();
    std::string stateJsonLocked() const REQUIRES(mMutex);
    void publishLocked() REQUIRES(mMutex);

    Session& mSession;
    EventStream& mStream;
    SensorControls& mControls;
    EventPump& mPump;
    std::atomic<bool> mCancelled{false};

    mutable base::Lock mMutex;
    bool mRunning GUARDED_BY(mMutex) = false;
    bool mQuick GUARDED_BY(mMutex) = false;
    std::vector<std::string> mProgress GUARDED_BY(mMutex);
    std::vector<check::CheckResult> mResults GUARDED_BY(mMutex);  // the last run's
    double mSeconds GUARDED_BY(mMutex) = 0;
    std::thread mThread GUARDED_BY(mMutex);
};

}  // namespace kelvane::tools::serve
