#include "check/RecordedStreams.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace kelvane::tools::check {

namespace {

using android::hardware::sensors::V1_0::Result;
using Clock = std::chrono::steady_clock;

// A replay whose sensors have sent nothing for this long after its last recorded sample fell due
// has played what it holds, even when the host cannot say so (a recorded device the library does
// not publish is never read).
constexpr milliseconds kQuiet{2000};
// What the play may take beyond the recording's own length at its speed.
constexpr milliseconds kMargin{10000};

// The period a sensor is played at: its first recorded rate, within [minDelay, maxDelay].
int64_t playedPeriodNs(const SensorInfo& sensor, const std::vector<double>& ratesHz) {
    const int64_t minNs = int64_t{sensor.minDelay} * 1000;
    const int64_t maxNs = int64_t{sensor.maxDelay} * 1000;
    int64_t period = ratesHz.empty() || ratesHz[0] <= 0 ? std::max<int64_t>(minNs, 200000000)
                                                        : std::llround(1e9 / ratesHz[0]);
    if (maxNs > 0) period = std::min(period, maxNs);
    return std::max(period, minNs);
}

std::string answered(const char* call, Result result) {
    return result == Result::OK ? "" : std::string(call) + " answered " + resultName(result);
}

// Collects until the host says the replay is over and its last events are in, or until the
// replayed sensors have been quiet for kQuiet since they last sent and since `recorded` (the
// recording's length at its speed) ran out, or kMargin after that. A recording counts its times
// from the host's start, which was before this: a slow recording's first sample, long after its
// host started, falls due that long into the play and is waited for.
std::vector<Event> playOut(CheckRun& run, const std::set<int32_t>& replayed, milliseconds recorded,
                           std::vector<int64_t>* received) {
    const auto start = Clock::now();
    const auto allDue = start + recorded;
    auto lastHeard = start;
    std::vector<Event> events;
    while (Clock::now() - start < kMargin + recorded) {
        const std::vector<Event> more = run.collectFor(milliseconds(100), received);
        for (const Event& e : more) {
            if (!isMetaEvent(e) && replayed.count(e.sensorHandle) != 0) lastHeard = Clock::now();
        }
        events.insert(events.end(), more.begin(), more.end());
        if (run.replayOver() && more.empty()) break;
        if (Clock::now() - std::max(lastHeard, allDue) >= kQuiet) break;
    }
    return events;
}

}  // namespace

std::vector<stats::Sample> RecordedStream::samples() const {
    std::vector<stats::Sample> out;
    out.reserve(events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        const Event& e = events[i];
        const int64_t sent = sentNs.empty() ? e.timestamp : sentNs[i];
        out.push_back({e.timestamp, sent, e.u.vec3.x, e.u.vec3.y, e.u.vec3.z});
    }
    return out;
}

RecordedStreams RecordedStreams::capture(CheckRun& run) {
    RecordedStreams out;
    std::set<int32_t>& replayed = out.mPlayed;
    for (const SensorInfo& sensor : run.sensors()) {
        if (!run.isReplay(sensor)) continue;
        RecordedStream& s = out.mStreams[sensor.sensorHandle];
        s.sensor = sensor;
        s.ratesHz = run.recordedRates(sensor);
        s.periodNs = playedPeriodNs(sensor, s.ratesHz);
        s.recordingNs = (run.recordedSpanUs().second - run.recordedSpanUs().first) * 1000;
        replayed.insert(sensor.sensorHandle);
    }
    if (replayed.empty()) return out;
    run.progress("playing the recording once, " + std::to_string(replayed.size()) +
                 " sensors at their recorded rates; the rules judge what they sent");
    ISensorsSubHal& hal = run.hal();
    for (auto& [handle, s] : out.mStreams) {
        s.commandProblem = answered("batch", hal.batch(handle, s.periodNs, 0));
        const std::string activate = answered("activate(true)", hal.activate(handle, true));
        if (s.commandProblem.empty()) s.commandProblem = activate;
    }
    const double speed = run.replaySpeed();
    const milliseconds recorded =
        speed > 0 ? milliseconds(static_cast<int64_t>(
                        static_cast<double>(run.recordedSpanUs().second) / 1e3 / speed))
                  : milliseconds(0);
    std::vector<int64_t> received;
    out.mAll = playOut(run, replayed, recorded, &received);
    for (int32_t handle : replayed) hal.activate(handle, false);
    run.settle();
    for (const Event& e : out.mAll) {
        if (isMetaEvent(e) || replayed.count(e.sensorHandle) == 0) continue;
        out.mStreams[e.sensorHandle].events.push_back(e);
    }
    for (auto& [handle, s] : out.mStreams) out.matchSendTimes(run, s);
    return out;
}

void RecordedStreams::matchSendTimes(const CheckRun& run, RecordedStream& s) {
    s.sendTimeProblem = run.sendTimeProblem(s.sensor);
    if (!s.sendTimeProblem.empty()) return;
    s.startNs = run.recordingStartNs().value_or(0) + run.recordedSpanUs().first * 1000;
    for (const Event& e : s.events) {
        const std::optional<int64_t> at = run.recordedSendTimeNs(s.sensor, e.timestamp);
        if (!at) {
            s.sentNs.clear();
            s.sendTimeProblem = "its event stamped " + std::to_string(e.timestamp) +
                                " ns matches no recorded sample, so its send time is unknown";
            return;
        }
        s.sentNs.push_back(*at);
    }
}

const RecordedStream* RecordedStreams::find(int32_t handle) const {
    const auto found = mStreams.find(handle);
    return found == mStreams.end() ? nullptr : &found->second;
}

}  // namespace kelvane::tools::check
