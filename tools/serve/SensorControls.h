// The sensors as the pages drive them: on or off, at which rate, flushed. Every change is made
// on the controller thread (the only one that calls the library), then its state goes to every
// page as the "sensors" state message, with the rate the host answered for each. Nothing changes
// when a page goes away.
//
// Threads: the requests' methods and flushCompleted() post to the controller and return; the
// check job's suspend() and resume() and the end's switchAllOff() wait for it. Everything below
// the public part belongs to the controller thread.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "Session.h"
#include "serve/Controller.h"
#include "serve/EventStream.h"
#include "serve/Reply.h"

namespace kelvane::tools::serve {

class SensorControls {
  public:
    // Called once with the reply, on the controller thread.
    using Done = std::function<void(Reply)>;

    // Everything given outlives the controls.
    SensorControls(Session& session, EventStream& stream, Controller& controller);

    void setActive(int32_t handle, bool on, Done done);
    // batch(handle, period, 0); the rate stays for later activations. No rate: the default.
    void setRate(int32_t handle, std::optional<double> hz, Done done);
    void flush(int32_t handle, Done done);
    // The event pump saw `handle`'s flush completion, received at `receivedNs`.
    void flushCompleted(int32_t handle, int64_t receivedNs);

    // Takes the rates the host answered since (HostWatch) and, where one changed, publishes.
    void refreshAnswers();

    // Turns every sensor off and refuses changes (409, `why`) until resume(), which turns back
    // on those that were, at their rates.
    void suspend(const std::string& why);
    void resume();
    // At the end of the run: every sensor off, changes refused. Idempotent.
    void switchAllOff();

  private:
    struct SensorState {
        double defaultHz = 0;               // what the library runs it at when no rate was asked
        std::optional<int32_t> deviceType;  // the host's DeviceType serving it, if known
        std::optional<double> answeredHz;   // what the host answered for it, if known
        bool on = false;
        std::optional<double> askedHz;        // none: the library's default
        std::optional<int64_t> flushAskedNs;  // a flush not completed yet, boot-time clock
        std::optional<double> lastFlushMs;    // how long the last completed flush took
        uint64_t flushes = 0;                 // completions seen
    };

    // The sensor, or null with *reply set to a 404 or, while suspended, a 409.
    SensorState* find(int32_t handle, Reply* reply);
    Reply setActiveNow(int32_t handle, bool on);
    Reply setRateNow(int32_t handle, std::optional<double> hz);
    Reply flushNow(int32_t handle);
    void turnAllOff();
    // Whether any sensor's answered rate changed since it was last taken.
    bool takeAnswers();
    void publish();

    Session& mSession;
    EventStream& mStream;
    Controller& mController;
    std::map<int32_t, SensorState> mSensors;  // every published sensor
    std::string mSuspended;                   // why changes are refused
    std::map<int32_t, bool> mOnBeforeSuspend;
};

}  // namespace kelvane::tools::serve
