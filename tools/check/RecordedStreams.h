// A replayed recording is data, not a live host that gets used up: before any rule streams, the
// check plays the recording once through the sub-HAL, every replayed sensor at the rate it was
// recorded at, and keeps what each sensor delivered. The rules that judge samples (cts.* and the
// stream rules' counts, norms and rates) read these kept streams; no group's streaming consumes
// another group's. Rules that need a live conversation with the sub-HAL say so in a SKIP.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "check/CheckRun.h"
#include "check/StreamStatistics.h"

namespace kelvane::tools::check {

// What one replayed sensor delivered when its recording was played.
struct RecordedStream {
    SensorInfo sensor;
    std::vector<double> ratesHz;  // what the recording asked of the device, in order
    int64_t periodNs = 0;         // the period it was played at
    std::vector<Event> events;    // its sensor events, in order (no meta events)
    // Per event: when the recorded host sent its sample, on the recording's boot-time clock;
    // empty when the recording cannot say (see sendTimeProblem).
    std::vector<int64_t> sentNs;
    std::string sendTimeProblem;  // why sentNs is empty, for a SKIP
    std::string commandProblem;   // "activate(true) answered ...", empty when all answered OK
    // When the recorded streams started (the first sample of any device) on the recording's
    // boot-time clock, when sentNs holds; and how long they ran, to the last sample of any device.
    int64_t startNs = 0;
    int64_t recordingNs = 0;

    // A sensor the recording asked for samples that sent none.
    bool dead() const { return !ratesHz.empty() && events.empty(); }
    // The events as the statistics take them; receive times are the send times when known.
    std::vector<stats::Sample> samples() const;
};

class RecordedStreams {
  public:
    // Plays every replayed sensor of `run` once, side by side, until the replay is over, and
    // leaves them inactive. Nothing for a session that replays nothing.
    static RecordedStreams capture(CheckRun& run);

    // Null for a sensor the recording does not replay.
    const RecordedStream* find(int32_t handle) const;
    bool empty() const { return mStreams.empty(); }
    // Every event of the play, meta events and other sensors' too, in order; and the handles of
    // the sensors it played.
    const std::vector<Event>& allEvents() const { return mAll; }
    const std::set<int32_t>& played() const { return mPlayed; }

  private:
    static void matchSendTimes(const CheckRun& run, RecordedStream& stream);

    std::map<int32_t, RecordedStream> mStreams;
    std::vector<Event> mAll;
    std::set<int32_t> mPlayed;
};

}  // namespace kelvane::tools::check
