// Takes the events the library posts to the proxy callback and turns them into the pages' live
// messages, a batch every 50 ms so that five sensors at 400 Hz do not flood a page: "samples"
// (per sensor: times in seconds since `originNs`, one array per axis, and the running count of
// events taken, so a page can tell whether it lost any), "stats" twice a second (LiveStats), and
// "host" when what the host side saw changes (the tool's host watch). Flush completions and, twice
// a second, the host's answered rates go to SensorControls. The "stats" and "host" messages are
// states: a page always has the latest.
//
// Threads: its own thread does everything above; pause(), resume() and stop() come from others.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <thread>

#include "Session.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"
#include "serve/EventStream.h"
#include "serve/LiveStats.h"
#include "serve/SensorControls.h"

namespace kelvane::tools::serve {

class EventPump {
  public:
    // Starts the thread. Everything given outlives the pump.
    EventPump(Session& session, EventStream& stream, SensorControls& controls, int64_t originNs);
    ~EventPump();  // stop()
    EventPump(const EventPump&) = delete;
    EventPump& operator=(const EventPump&) = delete;

    // Stops taking events (someone else reads the callback's queue) until resume(). Returns once
    // the pump is between two takes.
    void pause();
    void resume();
    // Takes what is queued a last time and ends the thread. Idempotent.
    void stop();

  private:
    struct Sensor {
        int axes = 1;        // 3 for three-axis sensors
        uint64_t total = 0;  // events taken so far
        int64_t lastReceivedNs = 0;
        LiveStats stats;
        std::string times;  // this batch, as JSON numbers joined by commas
        std::string values[3];
    };

    void run();
    void takeAndPublish();
    void takeEvents();  // and publishes them
    void publishStats();
    void publishHostIfChanged();

    Session& mSession;
    EventStream& mStream;
    SensorControls& mControls;
    const int64_t mOriginNs;
    std::map<int32_t, Sensor> mSensors;  // pump thread only

    base::Lock mMutex;
    base::ConditionVariable mWake{&mMutex};  // a stop
    base::ConditionVariable mIdle{&mMutex};  // a take ended
    bool mStopping GUARDED_BY(mMutex) = false;
    bool mPaused GUARDED_BY(mMutex) = false;
    bool mTaking GUARDED_BY(mMutex) = false;  // between the start and end of a take
    std::string mHostJson;                    // pump thread only: the last "host" message
    std::thread mThread;                      // last: starts once everything above exists
};

}  // namespace kelvane::tools::serve
