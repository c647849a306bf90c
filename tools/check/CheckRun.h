// The state of one conformance run: the sub-HAL under test, the proxy callback it currently posts
// to, the events seen so far and the results. All of it belongs to the thread that runs the
// check; only the callbacks' queues are filled by the library's threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ProxyCallback.h"
#include "Session.h"
#include "check/CheckResult.h"
#include "check/RuleIds.h"
#include "check/SubHalFacts.h"

namespace kelvane::tools::check {

using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using std::chrono::milliseconds;

struct CheckOptions {
    bool quick = false;              // shorter stream rules, for CI
    bool hifi = false;               // enforce the high-fidelity bounds (jitter, tighter sigma)
    std::string junitFile;           // empty: no JUnit report
    std::string htmlFile;            // empty: no HTML report
    std::vector<std::string> rules;  // glob patterns on rule ids; empty: every rule
    // Where progress lines go, on the thread that runs the check; null: "check: ..." on stderr.
    std::function<void(const std::string&)> onProgress;
    // Polled while the run waits for events; once true every wait ends at once, so the run
    // finishes quickly with results that mean nothing. Null: never.
    std::function<bool()> cancelled;
};

// A subject that is the sub-HAL as a whole rather than one sensor.
constexpr const char* kSubHal = "sub-HAL";

class RecordedStreams;

class CheckRun {
  public:
    CheckRun(Session& session, const CheckOptions& options);
    ~CheckRun();

    ISensorsSubHal& hal() const { return *mSession.subHal(); }
    // The sensors the proxy would keep, in list order; published() has them all.
    const std::vector<SensorInfo>& sensors() const { return mSession.sensors(); }
    const std::vector<SensorInfo>& published() const { return mSession.published(); }
    bool quick() const { return mOptions.quick; }
    bool hifi() const { return mOptions.hifi; }
    // Whether `sensor`'s events replay a recording, and the rates (Hz) it was recorded at.
    bool isReplay(const SensorInfo& sensor) const;
    std::vector<double> recordedRates(const SensorInfo& sensor) const;
    // Whether `sensor`'s event timestamps are on another machine's clock than the receive times.
    bool remoteClock(const SensorInfo& sensor) const;
    // For a replayed event of `sensor`: when the recorded host sent the sample stamped
    // `timestampNs`, on the boot-time clock of the recording; nullopt when the recording does not
    // say (no start on that clock, or no recorded sample with that timestamp).
    std::optional<int64_t> recordedSendTimeNs(const SensorInfo& sensor, int64_t timestampNs) const;

    // The replay's speed (0: no waiting), whether its host has sent everything, and when its
    // streams ran: the first and last recorded sample of any device, in microseconds after the
    // recording's start ({0, 0} for none).
    double replaySpeed() const { return mSession.replaySpeed(); }
    bool replayOver() const { return mSession.hostWatch().replayOver(); }
    std::pair<int64_t, int64_t> recordedSpanUs() const;
    std::optional<int64_t> recordingStartNs() const { return mSession.recordingStartBootTimeNs(); }
    // Why recordedSendTimeNs() cannot answer for `sensor`'s events at all; empty if it may.
    std::string sendTimeProblem(const SensorInfo& sensor) const;
    // The recording as played once before the rules (RecordedStreams), or null for a live host.
    const RecordedStreams* recording() const { return mRecording.get(); }
    void setRecording(std::unique_ptr<RecordedStreams> recording);

    // Whether --rule selected `rule`.
    bool wants(RuleId rule) const;
    bool wantsAny(const std::vector<RuleId>& rules) const;

    // One progress line on stderr: "check: <what>".
    void progress(const std::string& what) const;

    void add(RuleId rule, const SensorInfo& sensor, const std::string& suffix, Outcome outcome);
    void add(RuleId rule, const std::string& subject, Outcome outcome);
    const std::vector<CheckResult>& results() const { return mResults; }

    // Events posted to the current callback. Every event taken is also fed to the run-wide
    // timestamp book.
    std::vector<Event> collectFor(milliseconds duration,
                                  std::vector<int64_t>* receivedNs = nullptr);
    // Until `done(all events so far)` holds or `limit` passes. With `receivedNs`, appends each
    // returned event's receive time (boot-time clock) there.
    std::vector<Event> collectUntil(const std::function<bool(const std::vector<Event>&)>& done,
                                    milliseconds limit, std::vector<int64_t>* receivedNs = nullptr);
    // Waits until no event has arrived for `quiet` (at most `limit`), so that a stopped stream's
    // last events do not leak into the next step.
    std::vector<Event> settle(milliseconds quiet = milliseconds(150),
                              milliseconds limit = milliseconds(2000));

    // A fresh proxy callback, known to the wake lock books; not yet handed to the sub-HAL.
    android::sp<ProxyCallback> newCallback();
    // Makes `callback` the one collect*() read, after the sub-HAL was initialized with it.
    void useCallback(const android::sp<ProxyCallback>& callback) { mCurrent = callback; }
    const android::sp<ProxyCallback>& currentCallback() const { return mCurrent; }

    // Posts, over every callback, whose wake lock did not match their events.
    uint64_t wakelockMismatches() const;
    uint64_t sensorEventsSeen() const { return mSensorEvents; }
    // Sensor events seen with `handle`, over the whole run.
    uint64_t sensorEventsSeen(int32_t handle) const;

    // Per handle: the first timestamp that did not increase, as "<previous> then <next>".
    const std::map<int32_t, std::string>& timestampViolations() const { return mViolations; }

    // The first sensor of `type` in the list (the proxy's default sensor for it), or null.
    const SensorInfo* defaultSensor(android::hardware::sensors::V2_1::SensorType type) const;

  private:
    void note(const std::vector<Event>& events);
    bool cancelled() const { return mOptions.cancelled && mOptions.cancelled(); }

    Session& mSession;
    const CheckOptions mOptions;
    std::vector<CheckResult> mResults;
    android::sp<ProxyCallback> mCurrent;
    std::vector<android::sp<ProxyCallback>> mCallbacks;  // every callback ever handed out
    std::map<int32_t, int64_t> mLastTimestamp;
    std::map<int32_t, uint64_t> mEventsPerHandle;
    std::map<int32_t, std::string> mViolations;
    uint64_t mSensorEvents = 0;
    // recordedSendTimeNs()'s index, built on first use: per sensor type, timestamp -> send time.
    mutable std::map<int32_t, std::map<int64_t, int64_t>> mSendTimes;
    std::unique_ptr<RecordedStreams> mRecording;
};

}  // namespace kelvane::tools::check
