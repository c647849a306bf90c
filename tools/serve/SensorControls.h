// The sensors as the pages drive them: on or off, at which rate, flushed. A change goes to the
// sub-HAL, then to every page as a "sensors" message, under one mutex, so that every page sees
// the same state and a page's first state is never older than the messages after it. Nothing
// changes when a page goes away.
//
// Threads: the server's threads call the controls, the event pump reports flush completions,
// the check job suspends and resumes; mMutex guards everything below it.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "Session.h"
#include "serve/EventStream.h"
#include "serve/Reply.h"

namespace kelvane::tools::serve {

class SensorControls {
  public:
    SensorControls(Session& session, EventStream& stream);

    Reply setActive(int32_t handle, bool on);
    // batch(handle, period, 0); the rate stays for later activations.
    Reply setRate(int32_t handle, double hz);
    Reply flush(int32_t handle);
    // The event pump saw `handle`'s flush completion, received at `receivedNs`.
    void flushCompleted(int32_t handle, int64_t receivedNs);

    // Turns every sensor off and refuses changes (409, `why`) until resume(), which turns back
    // on those that were, at their rates.
    void suspend(const std::string& why);
    void resume();
    // At the end of the run: every sensor off, changes refused. Idempotent.
    void switchAllOff();

    // The current state, to a page that just subscribed.
    void sendStateTo(EventStream::Subscriber& subscriber) const;

  private:
    struct SensorState {
        bool on = false;
        std::optional<double> rateHz;         // none: the library's default
        std::optional<int64_t> flushAskedNs;  // a flush not completed yet, boot-time clock
        std::optional<double> lastFlushMs;    // how long the last completed flush took
        uint64_t flushes = 0;                 // completions seen
    };

    // The sensor, or null with *reply set to a 404 or, while suspended, a 409.
    SensorState* findLocked(int32_t handle, Reply* reply);
    std::string stateJsonLocked() const;
    void publishLocked();

    Session& mSession;
    EventStream& mStream;
    mutable std::mutex mMutex;
    std::map<int32_t, SensorState> mSensors;   // guarded by mMutex: every published sensor
    std::string mSuspended;                    // guarded by mMutex: why changes are refused
    std::map<int32_t, bool> mOnBeforeSuspend;  // guarded by mMutex
};

}  // namespace kelvane::tools::serve
