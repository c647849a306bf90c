#include "check/CtsRules.h"

#include <utils/SystemClock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "check/StreamStatistics.h"

namespace kelvane::tools::check {

namespace {

using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::SensorType;
using stats::Expectation;
using stats::Sample;

// A rate the suite asks for; 0 Hz is FASTEST.
struct Rate {
    double hz;
    std::string label;
};

const std::vector<Rate>& suiteRates(bool quick) {
    static const std::vector<Rate> kFull = {{0, "FASTEST"}, {200, "200 Hz"}, {100, "100 Hz"},
                                            {50, "50 Hz"},  {25, "25 Hz"},   {15, "15 Hz"},
                                            {10, "10 Hz"},  {5, "5 Hz"},     {1, "1 Hz"}};
    static const std::vector<Rate> kQuick = {{0, "FASTEST"}, {50, "50 Hz"}, {10, "10 Hz"}};
    return quick ? kQuick : kFull;
}

// The rules judged on every stream of a continuous sensor.
const std::vector<RuleId> kStreamRules = {
    rules::kCtsOrdering,  rules::kCtsFrequency,       rules::kCtsGaps,
    rules::kCtsJitter,    rules::kCtsTimestampFuture, rules::kCtsTimestampAge,
    rules::kCtsMagnitude, rules::kCtsStdDev,          rules::kCtsInitialValue};
const std::vector<RuleId> kBatchingRules = {rules::kCtsEventCount, rules::kCtsFlush,
                                            rules::kCtsOrdering, rules::kCtsTimestampFuture};

// The suite leaves the report latency at 10 s in its batching run, for 13 s.
constexpr int64_t kBatchLatencyNs = 10000000000;
// How long a flush completion may take.
constexpr milliseconds kFlushLimit{10000};
// A replayed device whose events stopped coming this long has played what it recorded.
constexpr milliseconds kReplayQuiet{2000};

// On-change sensors name no rate by their minDelay of 0; they stream at the framework's
// SENSOR_DELAY_NORMAL.
constexpr int64_t kOnChangePeriodNs = 200000000;

uint32_t modeOf(const SensorInfo& sensor) {
    return sensor.flags & SensorFlagBits::MASK_REPORTING_MODE;
}
bool isContinuous(const SensorInfo& sensor) { return modeOf(sensor) == 0 && sensor.minDelay > 0; }
bool isOnChange(const SensorInfo& sensor) {
    return modeOf(sensor) == static_cast<uint32_t>(SensorFlagBits::ON_CHANGE_MODE);
}
bool atRestType(SensorType type) {
    return type == SensorType::ACCELEROMETER || type == SensorType::GYROSCOPE;
}

std::string hzText(double hz) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g Hz", hz);
    return text;
}

bool sameRate(double a, double b) { return std::fabs(a - b) <= 1e-6 * std::max(a, b); }

// How the framework would pass `rate` to this sensor: the period, clamped to [minDelay,
// maxDelay], and why it differs from the request.
struct Period {
    int64_t ns = 0;
    std::string clamp;  // empty, or "minDelay 10 ms" / "maxDelay 200 ms"
};

Period periodFor(const SensorInfo& sensor, double hz) {
    const int64_t minNs = int64_t{sensor.minDelay} * 1000;
    const int64_t maxNs = int64_t{sensor.maxDelay} * 1000;
    Period p{hz > 0 ? std::llround(1e9 / hz) : 0, ""};
    if (maxNs > 0 && p.ns > maxNs) p = {maxNs, "maxDelay " + periodText(maxNs)};
    if (p.ns < minNs) p = {minNs, "minDelay " + periodText(minNs)};
    return p;
}

std::string suffixFor(const std::string& label) { return " @ " + label; }

std::vector<Sample> samplesOf(const std::vector<Event>& events,
                              const std::vector<int64_t>& receivedNs, int32_t handle) {
    std::vector<Sample> mine;
    for (size_t i = 0; i < events.size(); ++i) {
        const Event& e = events[i];
        if (isMetaEvent(e) || e.sensorHandle != handle) continue;
        mine.push_back({e.timestamp, receivedNs[i], e.u.vec3.x, e.u.vec3.y, e.u.vec3.z});
    }
    return mine;
}

size_t flushCompletions(const std::vector<Event>& events, int32_t handle) {
    return static_cast<size_t>(
        std::count_if(events.begin(), events.end(),
                      [handle](const Event& e) { return isFlushComplete(e, handle); }));
}

// One sensor in one stream: what it was asked for and under which name its results go.
struct Streamed {
    SensorInfo sensor;
    Expectation expected;
    std::string suffix;
};

class CtsRunner {
  public:
    explicit CtsRunner(CheckRun& run) : mRun(run) {
        for (const SensorInfo& sensor : run.sensors()) {
            if (isContinuous(sensor)) mContinuous.push_back(sensor);
            if (isOnChange(sensor)) mOnChange.push_back(sensor);
        }
    }

    void staticRules() {
        for (const SensorInfo& sensor : mRun.sensors()) {
            const SensorType t = sensor.type;
            if (t != SensorType::ACCELEROMETER && t != SensorType::GYROSCOPE &&
                t != SensorType::MAGNETIC_FIELD) {
                continue;
            }
            mRun.add(rules::kCtsMinDelay, sensor, "", stats::minDelay(sensor));
            mRun.add(rules::kCtsResolution, sensor, "", stats::resolution(sensor));
        }
    }

    void sweep() {
        if (!mRun.wantsAny(kStreamRules)) return;
        // Per sensor, the periods judged so far and the rate each was judged at.
        std::map<int32_t, std::map<int64_t, std::string>> judged;
        for (const Rate& rate : rates()) {
            std::vector<Streamed> streams;
            for (const SensorInfo& sensor : mContinuous) {
                const std::string suffix = suffixFor(rate.label);
                const std::optional<std::string> notHere = recordingSkip(sensor, rate);
                if (notHere) {
                    for (const RuleId& rule : kStreamRules) {
                        mRun.add(rule, sensor, suffix, skip(*notHere));
                    }
                    continue;
                }
                const Period period = periodFor(sensor, rate.hz);
                auto& seen = judged[sensor.sensorHandle];
                const auto earlier = seen.find(period.ns);
                if (earlier != seen.end()) {
                    for (const RuleId& rule : kStreamRules) {
                        mRun.add(
                            rule, sensor, suffix,
                            skip(rate.label + " is judged at " +
                                 (period.clamp.empty() ? periodText(period.ns) : period.clamp) +
                                 ", as at " + earlier->second));
                    }
                    continue;
                }
                seen[period.ns] = rate.label;
                Expectation expected{period.ns, 0, rate.label};
                if (!period.clamp.empty()) expected.rate += " (" + period.clamp + ")";
                streams.push_back(Streamed{sensor, std::move(expected), suffix});
            }
            if (!streams.empty()) stream(streams, rate);
        }
    }

    void batching() {
        if (!mRun.wantsAny(kBatchingRules)) return;
        std::vector<Streamed> streams;
        for (const SensorInfo& sensor : mContinuous) {
            const Period period = periodFor(sensor, 0);
            Expectation expected{period.ns, kBatchLatencyNs, "FASTEST (" + period.clamp + ")"};
            streams.push_back(Streamed{sensor, std::move(expected), " @ FASTEST, latency 10 s"});
        }
        for (const SensorInfo& sensor : mOnChange) {
            streams.push_back({sensor, {kOnChangePeriodNs, 0, periodText(kOnChangePeriodNs)}, ""});
        }
        if (streams.empty()) return;
        const bool replay = anyReplay(streams);
        const milliseconds runTime = replay         ? milliseconds(1000)
                                     : mRun.quick() ? milliseconds(6000)
                                                    : milliseconds(13000);
        mRun.progress("cts: batching run at FASTEST with a 10 s report latency for " +
                      std::to_string(runTime.count() / 1000) + " s, flushing each sensor");
        ISensorsSubHal& hal = mRun.hal();
        for (const Streamed& s : streams) {
            hal.batch(s.sensor.sensorHandle, s.expected.periodNs, s.expected.latencyNs);
            hal.activate(s.sensor.sensorHandle, true);
        }
        std::vector<int64_t> received;
        std::vector<Event> events = mRun.collectFor(runTime / 2, &received);
        std::map<int32_t, std::string> flushAnswers;
        for (const Streamed& s : streams) {
            const auto answer = hal.flush(s.sensor.sensorHandle);
            if (answer != android::hardware::sensors::V1_0::Result::OK) {
                flushAnswers[s.sensor.sensorHandle] = "flush answered " + resultName(answer);
            }
        }
        const auto flushedAt = std::chrono::steady_clock::now();
        append(events, mRun.collectFor(runTime - runTime / 2, &received));
        if (replay) append(events, collectReplay(streams, milliseconds(0), &received));
        // Every count ends at the run; completions may take up to the flush limit.
        const size_t counted = events.size();
        auto allFlushed = [&streams, &events](const std::vector<Event>& more) {
            for (const Streamed& s : streams) {
                if (flushCompletions(events, s.sensor.sensorHandle) == 0 &&
                    flushCompletions(more, s.sensor.sensorHandle) == 0) {
                    return false;
                }
            }
            return true;
        };
        const auto left = std::chrono::duration_cast<milliseconds>(
            flushedAt + kFlushLimit - std::chrono::steady_clock::now());
        append(events, mRun.collectUntil(allFlushed, std::max(left, milliseconds(0)), &received));
        for (const Streamed& s : streams) hal.activate(s.sensor.sensorHandle, false);
        const std::vector<Event> settled = mRun.settle();

        const std::vector<Event> inRun(events.begin(), events.begin() + counted);
        for (const Streamed& s : streams) {
            const int32_t h = s.sensor.sensorHandle;
            const size_t completions = flushCompletions(events, h) + flushCompletions(settled, h);
            Outcome flush = pass("1 completion for 1 flush");
            if (flushAnswers.count(h) != 0) {
                flush = fail(flushAnswers[h]);
            } else if (completions != 1) {
                flush = fail(std::to_string(completions) + " completions for 1 flush within " +
                             std::to_string(kFlushLimit.count() / 1000) + " s, needs exactly 1");
            }
            mRun.add(rules::kCtsFlush, s.sensor, "", flush);
            const std::vector<Sample> mine = samplesOf(inRun, received, h);
            if (isOnChange(s.sensor)) {
                mRun.add(rules::kCtsOrdering, s.sensor, "",
                         mine.size() < 2 && replay ? skip("fewer than 2 recorded events")
                                                   : stats::ordering(mine));
                mRun.add(rules::kCtsTimestampFuture, s.sensor, "",
                         timestampRule(s.sensor, mine, stats::notInFuture));
                continue;
            }
            if (isReplay(s.sensor)) {
                mRun.add(rules::kCtsEventCount, s.sensor, s.suffix,
                         skip("a recording holds as many events as it recorded"));
                continue;
            }
            mRun.add(rules::kCtsEventCount, s.sensor, s.suffix,
                     stats::eventCount(
                         mine.size(),
                         std::chrono::duration_cast<std::chrono::nanoseconds>(runTime).count(),
                         s.expected));
        }
    }

  private:
    static void append(std::vector<Event>& events, const std::vector<Event>& more) {
        events.insert(events.end(), more.begin(), more.end());
    }

    std::vector<Rate> rates() const {
        std::vector<Rate> all = suiteRates(mRun.quick());
        // A recording is judged at the rates it holds, too, where the suite has no such rate.
        for (const SensorInfo& sensor : mContinuous) {
            for (double hz : mRun.recordedRates(sensor)) {
                const bool known = std::any_of(all.begin(), all.end(),
                                               [hz](const Rate& r) { return sameRate(r.hz, hz); });
                if (!known) all.push_back({hz, hzText(hz)});
            }
        }
        return all;
    }

    bool isReplay(const SensorInfo& sensor) const { return mRun.isReplay(sensor); }

    bool anyReplay(const std::vector<Streamed>& streams) const {
        return std::any_of(streams.begin(), streams.end(),
                           [this](const Streamed& s) { return isReplay(s.sensor); });
    }

    // A recording holds only the rates it was recorded at.
    std::optional<std::string> recordingSkip(const SensorInfo& sensor, const Rate& rate) const {
        if (!isReplay(sensor)) return std::nullopt;
        const std::vector<double> recorded = mRun.recordedRates(sensor);
        if (std::any_of(recorded.begin(), recorded.end(),
                        [&rate](double hz) { return sameRate(hz, rate.hz); })) {
            if (recorded.size() == 1) return std::nullopt;
            return std::string(
                "the recording holds several rates, and not which sample was "
                "sent at which");
        }
        if (recorded.empty()) return std::string("the recording holds no rate for this sensor");
        std::string held;
        for (double hz : recorded) held += (held.empty() ? "" : ", ") + hzText(hz);
        return "not recorded: the recording holds " + held;
    }

    // Timestamp rules compare an event's timestamp with when it arrived, on the boot-time clock
    // of the host's machine: for a replay, the recorded send time on the recording's clock.
    Outcome timestampRule(const SensorInfo& sensor, const std::vector<Sample>& mine,
                          const std::function<Outcome(const std::vector<Sample>&)>& judge) const {
        if (mRun.remoteClock()) {
            return skip("the board's timestamps are on its own clock, not this machine's");
        }
        if (!isReplay(sensor)) return judge(mine);
        std::vector<Sample> sent = mine;
        for (Sample& s : sent) {
            const std::optional<int64_t> at = mRun.recordedSendTimeNs(sensor, s.timestampNs);
            if (!at) {
                return skip(
                    "a replay's timestamps are the recorded host's, and the recording "
                    "holds no send times on that clock");
            }
            s.receivedNs = *at;
        }
        return judge(sent);
    }

    void stream(const std::vector<Streamed>& streams, const Rate& rate) {
        ISensorsSubHal& hal = mRun.hal();
        const bool replay = anyReplay(streams);
        const milliseconds duration = mRun.quick() ? milliseconds(2500) : milliseconds(5000);
        mRun.progress("cts: streaming at " + rate.label +
                      (replay ? " while the recording lasts" : " for " + secondsText(duration)));
        const int64_t startNs = android::elapsedRealtimeNano();
        for (const Streamed& s : streams) {
            hal.batch(s.sensor.sensorHandle, s.expected.periodNs, 0);
            hal.activate(s.sensor.sensorHandle, true);
        }
        std::vector<int64_t> received;
        std::vector<Event> events;
        if (replay) {
            // Live sensors streaming beside a replay get their usual time.
            const bool live =
                std::any_of(streams.begin(), streams.end(),
                            [this](const Streamed& s) { return !isReplay(s.sensor); });
            events = collectReplay(streams, live ? duration : milliseconds(0), &received);
        } else {
            events = mRun.collectFor(duration, &received);
        }
        const int64_t streamNs = android::elapsedRealtimeNano() - startNs;
        for (const Streamed& s : streams) hal.activate(s.sensor.sensorHandle, false);
        mRun.settle();
        for (const Streamed& s : streams)
            judge(s, samplesOf(events, received, s.sensor.sensorHandle), startNs, streamNs);
    }

    // At least `atLeast`, then until the replayed sensors among `streams` have sent nothing for
    // a while: their recording has played out (after at most a minute).
    std::vector<Event> collectReplay(const std::vector<Streamed>& streams, milliseconds atLeast,
                                     std::vector<int64_t>* received) {
        std::set<int32_t> replayed;
        for (const Streamed& s : streams) {
            if (isReplay(s.sensor)) replayed.insert(s.sensor.sensorHandle);
        }
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        auto lastHeard = start;
        std::vector<Event> events;
        while (Clock::now() - start < milliseconds(60000)) {
            const std::vector<Event> more = mRun.collectFor(milliseconds(250), received);
            for (const Event& e : more) {
                if (!isMetaEvent(e) && replayed.count(e.sensorHandle) != 0)
                    lastHeard = Clock::now();
            }
            events.insert(events.end(), more.begin(), more.end());
            if (Clock::now() - lastHeard >= kReplayQuiet && Clock::now() - start >= atLeast) break;
        }
        return events;
    }

    static std::string secondsText(milliseconds d) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.3g s", static_cast<double>(d.count()) / 1000.0);
        return text;
    }

    void judge(const Streamed& s, const std::vector<Sample>& mine, int64_t startNs,
               int64_t streamNs) {
        const SensorInfo& sensor = s.sensor;
        const bool replay = isReplay(sensor);
        const std::string& suffix = s.suffix;
        auto add = [&](RuleId rule, Outcome outcome) {
            mRun.add(rule, sensor, suffix, std::move(outcome));
        };
        // A live stream too short to judge is itself the finding; a recording merely ran out.
        auto needs = [&](size_t n, const std::function<Outcome()>& rule) {
            if (mine.size() >= n) return rule();
            const std::string text = std::to_string(mine.size()) + " events at " + s.expected.rate +
                                     ", needs " + std::to_string(n);
            return replay ? skip(text + " (the recording ran out)") : fail(text);
        };
        add(rules::kCtsOrdering, needs(2, [&] { return stats::ordering(mine); }));
        add(rules::kCtsFrequency, needs(2, [&] { return stats::frequency(mine, s.expected); }));
        add(rules::kCtsGaps, needs(3, [&] { return stats::gaps(mine, s.expected); }));
        const bool jitterType =
            sensor.type == SensorType::ACCELEROMETER || sensor.type == SensorType::GYROSCOPE ||
            sensor.type == SensorType::MAGNETIC_FIELD || sensor.type == SensorType::GRAVITY;
        add(rules::kCtsJitter, jitterType ? stats::jitter(mine, s.expected, mRun.hifi())
                                          : skip("judged for motion sensors only"));
        add(rules::kCtsTimestampFuture,
            timestampRule(sensor, mine, [&](const std::vector<Sample>& m) {
                return needs(1, [&] { return stats::notInFuture(m); });
            }));
        add(rules::kCtsTimestampAge, timestampRule(sensor, mine, [&](const std::vector<Sample>& m) {
                return needs(1, [&] { return stats::age(m, s.expected); });
            }));
        if (atRestType(sensor.type)) {
            add(rules::kCtsMagnitude,
                needs(1, [&] { return stats::magnitude(mine, sensor.type); }));
        }
        if (atRestType(sensor.type) || sensor.type == SensorType::MAGNETIC_FIELD) {
            add(rules::kCtsStdDev, needs(2, [&] {
                    return stats::standardDeviation(mine, sensor.type, s.expected, mRun.hifi());
                }));
        }
        if (replay) {
            add(rules::kCtsInitialValue, skip("a replay starts where its recording started"));
        } else {
            add(rules::kCtsInitialValue, stats::initialValue(mine, startNs, streamNs));
        }
    }

    CheckRun& mRun;
    std::vector<SensorInfo> mContinuous;
    std::vector<SensorInfo> mOnChange;
};

}  // namespace

void runCtsRules(CheckRun& run) {
    CtsRunner runner(run);
    runner.staticRules();
    runner.sweep();
    runner.batching();
}

}  // namespace kelvane::tools::check
