#include "check/StreamRules.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "check/RecordedStreams.h"
#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::tools::check {

namespace {

using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::SensorType;

// The row of the sensor-kinds table of a type this system serves.
const sensors::SensorKind& kindOf(SensorType type) {
    return *sensors::kindOfAndroidType(static_cast<int32_t>(type));
}

struct NormBound {
    double expected;
    double tolerance;
    const char* unit;
};

// The types streamed, and what their norm must be with the device at rest.
struct StreamType {
    SensorType type;
    const char* label;
    std::optional<NormBound> norm;
};

const std::vector<StreamType>& streamTypes() {
    static const std::vector<StreamType> kTypes = {
        {SensorType::ACCELEROMETER, kindOf(SensorType::ACCELEROMETER).shortName,
         NormBound{9.80665, 1.0, kindOf(SensorType::ACCELEROMETER).asciiUnit}},
        {SensorType::GYROSCOPE, kindOf(SensorType::GYROSCOPE).shortName,
         NormBound{0.0, 0.1, kindOf(SensorType::GYROSCOPE).asciiUnit}},
        {SensorType::MAGNETIC_FIELD, kindOf(SensorType::MAGNETIC_FIELD).shortName, std::nullopt},
    };
    return kTypes;
}

// The longest a stream may take to deliver its first event after activate, or after a
// re-activation.
constexpr milliseconds kStartLimit{2000};

// The streaming periods: slow, normal and fast.
constexpr int64_t kPeriodsNs[] = {200000000, 20000000, 5000000};

// Why a rule that converses with the sub-HAL cannot judge a recording.
constexpr const char* kNeedsLiveHost =
    "needs a live host: a recording holds one stream as it was asked for, played once";

const std::vector<RuleId> kStreamingRules = {rules::kStreamCommands, rules::kStreamCount,
                                             rules::kStreamHandle, rules::kStreamMeta,
                                             rules::kStreamNorm};

std::string fmt(const char* format, double a, double b = 0, double c = 0) {
    char text[160];
    std::snprintf(text, sizeof(text), format, a, b, c);
    return text;
}

std::vector<Event> eventsOf(const std::vector<Event>& events, int32_t handle) {
    std::vector<Event> mine;
    for (const Event& event : events) {
        if (!isMetaEvent(event) && event.sensorHandle == handle) mine.push_back(event);
    }
    return mine;
}

std::string answerProblem(const std::string& call, Result result) {
    return result == Result::OK ? "" : call + " answered " + resultName(result);
}

struct Tested {
    SensorInfo sensor;
    const StreamType* kind;
};

Outcome checkHandles(const std::vector<Event>& events, const SensorInfo& sensor) {
    for (const Event& event : events) {
        if (isMetaEvent(event)) continue;
        if (event.sensorType == sensor.type && event.sensorHandle != sensor.sensorHandle) {
            return fail("an event of its type carries handle " +
                        std::to_string(event.sensorHandle) + ", expected " +
                        std::to_string(sensor.sensorHandle));
        }
        if (event.sensorHandle == sensor.sensorHandle && event.sensorType != sensor.type) {
            return fail("an event with its handle has type " +
                        std::to_string(static_cast<int32_t>(event.sensorType)));
        }
    }
    return pass();
}

Outcome checkForeign(const std::vector<Event>& events, const std::set<int32_t>& active) {
    size_t foreign = 0;
    std::string first;
    for (const Event& event : events) {
        if (isMetaEvent(event) || active.count(event.sensorHandle) != 0) continue;
        if (foreign++ == 0) {
            first = "handle " + std::to_string(event.sensorHandle) + ", type " +
                    std::to_string(static_cast<int32_t>(event.sensorType));
        }
    }
    if (foreign == 0) return pass();
    return fail(std::to_string(foreign) +
                " non-meta events of sensors not under test (first: " + first + ")");
}

Outcome checkNorm(const std::vector<Event>& mine, const NormBound& bound) {
    if (mine.empty()) return skip("no events to measure");
    double lowest = INFINITY;
    double highest = -INFINITY;
    for (const Event& event : mine) {
        const double x = event.u.vec3.x;
        const double y = event.u.vec3.y;
        const double z = event.u.vec3.z;
        const double norm = std::sqrt(x * x + y * y + z * z);
        lowest = std::min(lowest, norm);
        highest = std::max(highest, norm);
        if (!(std::fabs(norm - bound.expected) <= bound.tolerance)) {
            return fail(fmt("norm %.4g ", norm) + bound.unit +
                        fmt(" outside %.5g +- %.2g", bound.expected, bound.tolerance));
        }
    }
    return pass(fmt("norms %.4g to %.4g ", lowest, highest) + bound.unit);
}

// The first problem among the answers, or `ifNone` when all were right.
Outcome firstProblem(const std::vector<std::string>& problems, Outcome ifNone) {
    for (const std::string& problem : problems) {
        if (!problem.empty()) return fail(problem);
    }
    return ifNone;
}

// batch(periodNs) and activate(true) on each tested sensor fast enough for the period; skips
// the others. Returns the streams started and adds their handles to `active`.
std::vector<const Tested*> startStreams(CheckRun& run, const std::vector<Tested>& tested,
                                        int64_t periodNs, const std::string& suffix,
                                        std::map<int32_t, std::vector<std::string>>& problems,
                                        std::set<int32_t>& active) {
    ISensorsSubHal& hal = run.hal();
    std::vector<const Tested*> streaming;
    for (const Tested& t : tested) {
        const int64_t minDelayNs = int64_t{t.sensor.minDelay} * 1000;
        if (minDelayNs > periodNs) {
            const std::string reason = "minDelay " + std::to_string(t.sensor.minDelay) +
                                       " us > period " + periodText(periodNs);
            for (const RuleId& rule : kStreamingRules) {
                run.add(rule, t.sensor, suffix, skip(reason));
            }
            continue;
        }
        const int32_t h = t.sensor.sensorHandle;
        problems[h].push_back(answerProblem("batch", hal.batch(h, periodNs, 0)));
        problems[h].push_back(answerProblem("activate(true)", hal.activate(h, true)));
        streaming.push_back(&t);
        active.insert(h);
    }
    return streaming;
}

// The events of `duration` counted from each stream's first event, so that a start delayed by a
// loaded machine does not eat into the count; a stream that takes longer than kStartLimit to
// start still fails.
std::vector<Event> collectStreams(CheckRun& run, const std::set<int32_t>& active,
                                  milliseconds duration) {
    const std::vector<Event> started = run.collectUntil(
        [&active](const std::vector<Event>& events) {
            for (int32_t h : active) {
                if (eventsOf(events, h).empty()) return false;
            }
            return true;
        },
        kStartLimit);
    std::vector<Event> events = run.collectFor(duration);
    events.insert(events.begin(), started.begin(), started.end());
    return events;
}

// The streaming rules for one sensor that streamed `duration` at `periodNs`.
void judgeStream(CheckRun& run, const Tested& t, const std::string& suffix,
                 const std::vector<Event>& events, const std::set<int32_t>& active,
                 const std::vector<std::string>& problems, milliseconds duration,
                 int64_t periodNs) {
    const SensorInfo& sensor = t.sensor;
    const std::vector<Event> mine = eventsOf(events, sensor.sensorHandle);
    run.add(rules::kStreamCommands, sensor, suffix, firstProblem(problems, pass()));

    const double needed = static_cast<double>(duration.count()) * 1e6 / periodNs / 2.0;
    const std::string counted = std::to_string(mine.size()) + " events in " +
                                std::to_string(duration.count() / 1000) + " s";
    run.add(rules::kStreamCount, sensor, suffix,
            static_cast<double>(mine.size()) >= needed
                ? pass(counted)
                : fail(counted + fmt(", needs at least %.0f", std::ceil(needed))));
    run.add(rules::kStreamHandle, sensor, suffix, checkHandles(events, sensor));
    run.add(rules::kStreamMeta, sensor, suffix, checkForeign(events, active));
    if (t.kind->norm) {
        run.add(rules::kStreamNorm, sensor, suffix, checkNorm(mine, *t.kind->norm));
    } else {
        run.add(rules::kStreamNorm, sensor, suffix, skip("no norm is fixed for this type"));
    }
}

void streamAtPeriod(CheckRun& run, const std::vector<Tested>& tested, int64_t periodNs) {
    const milliseconds duration = run.quick() ? milliseconds(1000) : milliseconds(5000);
    const std::string suffix = " @ " + periodText(periodNs);
    std::map<int32_t, std::vector<std::string>> problems;
    std::set<int32_t> active;
    const std::vector<const Tested*> streaming =
        startStreams(run, tested, periodNs, suffix, problems, active);
    if (streaming.empty()) return;
    run.progress("streaming at " + periodText(periodNs) + " for " +
                 std::to_string(duration.count() / 1000) + " s");
    const std::vector<Event> events = collectStreams(run, active, duration);
    for (const Tested* t : streaming) {
        const int32_t h = t->sensor.sensorHandle;
        problems[h].push_back(answerProblem("activate(false)", run.hal().activate(h, false)));
    }
    run.settle();
    for (const Tested* t : streaming) {
        judgeStream(run, *t, suffix, events, active, problems[t->sensor.sensorHandle], duration,
                    periodNs);
    }
}

const RecordedStream* recordedStream(const CheckRun& run, const SensorInfo& sensor) {
    return run.recording() ? run.recording()->find(sensor.sensorHandle) : nullptr;
}

// A recording holds the stream as the client asked for it: judged like a stream at that period.
void judgeRecorded(CheckRun& run, const Tested& t, const RecordedStreams& recording) {
    const SensorInfo& sensor = t.sensor;
    const RecordedStream& recorded = *recording.find(sensor.sensorHandle);
    const std::string suffix = " @ " + periodText(recorded.periodNs) + ", as recorded";
    const std::vector<Event>& mine = recorded.events;
    run.add(rules::kStreamCommands, sensor, suffix,
            recorded.commandProblem.empty() ? pass() : fail(recorded.commandProblem));
    // At least half of what the recorded streams' span holds at its period.
    const double needed = static_cast<double>(recorded.recordingNs) / recorded.periodNs / 2.0;
    const std::string counted =
        std::to_string(mine.size()) + fmt(" events in %.3g s", recorded.recordingNs / 1e9);
    run.add(
        rules::kStreamCount, sensor, suffix,
        static_cast<double>(mine.size()) >= needed
            ? pass(counted)
            : fail(counted + fmt(", needs at least %.0f", std::ceil(needed)) +
                   (mine.empty() ? ": the recording asked it for samples and it sent none" : "")));
    run.add(rules::kStreamHandle, sensor, suffix, checkHandles(recording.allEvents(), sensor));
    run.add(rules::kStreamMeta, sensor, suffix,
            checkForeign(recording.allEvents(), recording.played()));
    if (t.kind->norm) {
        run.add(rules::kStreamNorm, sensor, suffix,
                mine.empty() ? fail("the recording asked it for samples and it sent none")
                             : checkNorm(mine, *t.kind->norm));
    } else {
        run.add(rules::kStreamNorm, sensor, suffix, skip("no norm is fixed for this type"));
    }
}

// A recording holds one rate per stream, so of the hot switch only this is judged: the average
// interval at the recorded period within 10 %.
Outcome recordedRate(const RecordedStream& recorded) {
    const std::vector<Event>& mine = recorded.events;
    const double periodNs = static_cast<double>(recorded.periodNs);
    if (mine.size() < 2) {
        return fail(std::to_string(mine.size()) + " events at " + periodText(recorded.periodNs) +
                    " in the recording, needs 2");
    }
    const double average = static_cast<double>(mine.back().timestamp - mine.front().timestamp) /
                           static_cast<double>(mine.size() - 1);
    const std::string text = fmt("average interval %.3g ms at the recorded period of %.3g ms",
                                 average / 1e6, periodNs / 1e6);
    if (std::fabs(average - periodNs) > 0.1 * periodNs) {
        return fail(text + ", off by more than 10 %");
    }
    return pass(text + ", within 10 %; the switch itself needs a live sub-HAL");
}

// The tested sensors whose minDelay and maxDelay are two periods to switch between; skips the
// others.
std::vector<SensorInfo> switchingSensors(CheckRun& run, const std::vector<Tested>& tested) {
    std::vector<SensorInfo> switching;
    for (const Tested& t : tested) {
        if (t.sensor.minDelay == t.sensor.maxDelay) {
            run.add(rules::kStreamHotSwitch, t.sensor, "", skip("minDelay == maxDelay"));
        } else if (t.sensor.minDelay <= 0 || t.sensor.maxDelay <= 0) {
            run.add(rules::kStreamHotSwitch, t.sensor, "",
                    skip("minDelay or maxDelay is not a period"));
        } else {
            switching.push_back(t.sensor);
        }
    }
    return switching;
}

// What is wrong with the events one sensor sent after switching to `periodNs`; empty when they
// come at the period, within 10 %, and number at least `needed`.
std::string switchProblem(const std::vector<Event>& mine, double periodNs, size_t needed) {
    const std::string tooFew = std::to_string(mine.size()) + " events at " +
                               periodText(static_cast<int64_t>(periodNs)) + ", needs " +
                               std::to_string(needed);
    if (mine.size() < 2) return tooFew;
    const double average = static_cast<double>(mine.back().timestamp - mine.front().timestamp) /
                           static_cast<double>(mine.size() - 1);
    if (std::fabs(average - periodNs) > 0.1 * periodNs) {
        return fmt("average interval %.3g ms at a period of %.3g ms, off by more than 10 %%",
                   average / 1e6, periodNs / 1e6);
    }
    return mine.size() < needed ? tooFew : std::string();
}

// One phase of the hot switch: every sensor to its maxDelay (`toMax`) or minDelay, activated in
// the first phase, then `needed` events of each after the switch settled.
void switchPhase(CheckRun& run, const std::vector<SensorInfo>& switching, bool toMax, bool first,
                 size_t needed, std::map<int32_t, std::vector<std::string>>& problems) {
    ISensorsSubHal& hal = run.hal();
    int64_t longest = 0;
    for (const SensorInfo& sensor : switching) {
        const int64_t periodNs = int64_t{toMax ? sensor.maxDelay : sensor.minDelay} * 1000;
        longest = std::max(longest, periodNs);
        problems[sensor.sensorHandle].push_back(
            answerProblem("batch", hal.batch(sensor.sensorHandle, periodNs, 0)));
        if (first) {
            problems[sensor.sensorHandle].push_back(
                answerProblem("activate(true)", hal.activate(sensor.sensorHandle, true)));
        }
    }
    run.collectFor(milliseconds(500));  // the switch settles
    const auto window = milliseconds(static_cast<int64_t>(
        static_cast<double>(needed) * static_cast<double>(longest) * 1.2 / 1e6));
    const std::vector<Event> events = run.collectFor(window);
    for (const SensorInfo& sensor : switching) {
        const double periodNs = 1000.0 * (toMax ? sensor.maxDelay : sensor.minDelay);
        const std::string problem =
            switchProblem(eventsOf(events, sensor.sensorHandle), periodNs, needed);
        if (!problem.empty()) problems[sensor.sensorHandle].push_back(problem);
    }
}

void hotSwitch(CheckRun& run, const std::vector<Tested>& tested) {
    if (!run.wants(rules::kStreamHotSwitch)) return;
    const size_t needed = run.quick() ? 10 : 50;
    const std::vector<SensorInfo> switching = switchingSensors(run, tested);
    if (switching.empty()) return;
    run.progress("hot switch between minDelay and maxDelay (" + std::to_string(needed) +
                 " events each)");
    std::map<int32_t, std::vector<std::string>> problems;
    const bool toMax[] = {false, true, false};
    for (size_t phase = 0; phase < 3; ++phase) {
        switchPhase(run, switching, toMax[phase], phase == 0, needed, problems);
    }
    for (const SensorInfo& sensor : switching) {
        run.hal().activate(sensor.sensorHandle, false);
        run.add(rules::kStreamHotSwitch, sensor, "",
                firstProblem(problems[sensor.sensorHandle],
                             pass("minDelay -> maxDelay -> minDelay, each within 10 %")));
    }
    run.settle();
}

void noStaleEvents(CheckRun& run) {
    if (!run.wants(rules::kStreamNoStale)) return;
    std::vector<SensorInfo> sensors;
    for (const SensorInfo& sensor : run.sensors()) {
        if ((sensor.flags & SensorFlagBits::MASK_REPORTING_MODE) != 0 || sensor.minDelay <= 0) {
            continue;
        }
        if (recordedStream(run, sensor)) {
            run.add(rules::kStreamNoStale, sensor, "", skip(kNeedsLiveHost));
        } else {
            sensors.push_back(sensor);
        }
    }
    if (sensors.empty()) return;
    run.progress("no stale events after a re-activation");
    ISensorsSubHal& hal = run.hal();
    auto everyoneHeard = [&sensors](const std::vector<Event>& events) {
        for (const SensorInfo& sensor : sensors) {
            if (eventsOf(events, sensor.sensorHandle).empty()) return false;
        }
        return true;
    };
    for (const SensorInfo& sensor : sensors) {
        hal.batch(sensor.sensorHandle, int64_t{sensor.minDelay} * 1000, 0);
        hal.activate(sensor.sensorHandle, true);
    }
    std::vector<Event> old = run.collectUntil(everyoneHeard, kStartLimit);
    for (const SensorInfo& sensor : sensors) hal.activate(sensor.sensorHandle, false);
    const std::vector<Event> paused = run.collectFor(milliseconds(1000));
    old.insert(old.end(), paused.begin(), paused.end());
    for (const SensorInfo& sensor : sensors) hal.activate(sensor.sensorHandle, true);
    const std::vector<Event> fresh = run.collectUntil(everyoneHeard, kStartLimit);
    for (const SensorInfo& sensor : sensors) hal.activate(sensor.sensorHandle, false);
    run.settle();

    for (const SensorInfo& sensor : sensors) {
        const std::vector<Event> before = eventsOf(old, sensor.sensorHandle);
        const std::vector<Event> after = eventsOf(fresh, sensor.sensorHandle);
        if (before.empty()) {
            run.add(rules::kStreamNoStale, sensor, "", fail("no event within 2 s of activation"));
            continue;
        }
        if (after.empty()) {
            run.add(rules::kStreamNoStale, sensor, "",
                    fail("no event within 2 s of re-activation"));
            continue;
        }
        const double gapMs =
            static_cast<double>(after.front().timestamp - before.back().timestamp) / 1e6;
        const double boundMs = 500.0 + 3.0 * sensor.minDelay / 1000.0;
        run.add(rules::kStreamNoStale, sensor, "",
                gapMs >= boundMs
                    ? pass(fmt("first new event %.0f ms after the last old one", gapMs))
                    : fail(fmt("first new event %.0f ms after the last old one, needs >= %.0f ms",
                               gapMs, boundMs)));
    }
}

}  // namespace

void runStreamRules(CheckRun& run) {
    std::vector<Tested> tested;
    std::vector<Tested> recorded;
    for (const StreamType& kind : streamTypes()) {
        if (const SensorInfo* sensor = run.defaultSensor(kind.type)) {
            (recordedStream(run, *sensor) ? recorded : tested).push_back({*sensor, &kind});
        } else {
            for (const RuleId& rule : kStreamingRules) {
                run.add(rule, std::string("no ") + kind.label,
                        skip(std::string("the sub-HAL publishes no ") + kind.label));
            }
        }
    }
    if (run.wantsAny(kStreamingRules)) {
        for (int64_t period : kPeriodsNs) streamAtPeriod(run, tested, period);
        for (const Tested& t : recorded) judgeRecorded(run, t, *run.recording());
    }
    for (const Tested& t : recorded) {
        run.add(rules::kStreamHotSwitch, t.sensor, "",
                recordedRate(*recordedStream(run, t.sensor)));
    }
    hotSwitch(run, tested);
    noStaleEvents(run);
}

}  // namespace kelvane::tools::check
