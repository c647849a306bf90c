#include "check/CtsRules.h"

#include <utils/SystemClock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "check/RecordedStreams.h"
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

// The suite streams each rate for 5 s; --quick for half that.
constexpr milliseconds kSuiteStream{5000};
constexpr milliseconds kQuickStream{2500};

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
bool jitterType(SensorType type) {
    return atRestType(type) || type == SensorType::MAGNETIC_FIELD || type == SensorType::GRAVITY;
}

// The stream rules that judge `sensor`: no row for a rule that never judges its type.
std::vector<RuleId> streamRulesFor(const SensorInfo& sensor) {
    std::vector<RuleId> out = {rules::kCtsOrdering, rules::kCtsFrequency, rules::kCtsGaps};
    if (jitterType(sensor.type)) out.push_back(rules::kCtsJitter);
    out.push_back(rules::kCtsTimestampFuture);
    out.push_back(rules::kCtsTimestampAge);
    if (atRestType(sensor.type)) out.push_back(rules::kCtsMagnitude);
    if (atRestType(sensor.type) || sensor.type == SensorType::MAGNETIC_FIELD) {
        out.push_back(rules::kCtsStdDev);
    }
    out.push_back(rules::kCtsInitialValue);
    return out;
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

// What a batching run heard: every event with its receive time, how many of them fell within the
// run (the rest came while waiting for flush completions), the flush calls that did not answer
// OK, and the events that came after the sensors were switched off.
struct BatchingRun {
    std::vector<Event> events;
    std::vector<int64_t> received;
    size_t counted = 0;
    std::map<int32_t, std::string> flushAnswers;
    std::vector<Event> settled;
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

    // Live sensors stream at each rate; a replayed one is judged on what its recording sent.
    void sweep() {
        if (!mRun.wantsAny(kStreamRules)) return;
        // Per sensor, the periods judged so far and the rate each was judged at.
        std::map<int32_t, std::map<int64_t, std::string>> judged;
        for (const Rate& rate : rates()) {
            std::vector<Streamed> streams;
            for (const SensorInfo& sensor : mContinuous) {
                const std::optional<Streamed> s = plan(sensor, rate, judged[sensor.sensorHandle]);
                if (!s) continue;
                if (const RecordedStream* recorded = recordedStream(sensor)) {
                    judge(*s, recorded->samples(), recorded, 0, 0);
                } else {
                    streams.push_back(*s);
                }
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
        const bool live = std::any_of(streams.begin(), streams.end(), [this](const Streamed& s) {
            return !recordedStream(s.sensor);
        });
        const milliseconds runTime = !live          ? milliseconds(1000)
                                     : mRun.quick() ? milliseconds(6000)
                                                    : milliseconds(13000);
        const BatchingRun heard = runBatching(streams, runTime);
        for (const Streamed& s : streams) judgeBatching(s, heard, runTime);
    }

  private:
    static void append(std::vector<Event>& events, const std::vector<Event>& more) {
        events.insert(events.end(), more.begin(), more.end());
    }

    const RecordedStream* recordedStream(const SensorInfo& sensor) const {
        return mRun.recording() ? mRun.recording()->find(sensor.sensorHandle) : nullptr;
    }

    void skipAll(const SensorInfo& sensor, const std::string& suffix, const std::string& why) {
        for (const RuleId& rule : streamRulesFor(sensor)) mRun.add(rule, sensor, suffix, skip(why));
    }

    // What `sensor` is asked for at `rate`, or nullopt after SKIPs: a rate its recording does not
    // hold, or a period already judged at another rate.
    std::optional<Streamed> plan(const SensorInfo& sensor, const Rate& rate,
                                 std::map<int64_t, std::string>& seen) {
        const std::string suffix = suffixFor(rate.label);
        if (const std::optional<std::string> notHere = recordingSkip(sensor, rate)) {
            if (!notHere->empty()) skipAll(sensor, suffix, *notHere);
            return std::nullopt;
        }
        const Period period = periodFor(sensor, rate.hz);
        const auto earlier = seen.find(period.ns);
        if (earlier != seen.end()) {
            skipAll(sensor, suffix,
                    rate.label + " is judged at " +
                        (period.clamp.empty() ? periodText(period.ns) : period.clamp) + ", as at " +
                        earlier->second);
            return std::nullopt;
        }
        seen[period.ns] = rate.label;
        Expectation expected{period.ns, 0, rate.label};
        if (!period.clamp.empty()) expected.rate += " (" + period.clamp + ")";
        return Streamed{sensor, std::move(expected), suffix};
    }

    // Batch, activate, half the run, one flush each, the rest of the run, then the completions.
    BatchingRun runBatching(const std::vector<Streamed>& streams, milliseconds runTime) {
        mRun.progress("cts: batching run at FASTEST with a 10 s report latency for " +
                      std::to_string(runTime.count() / 1000) + " s, flushing each sensor");
        ISensorsSubHal& hal = mRun.hal();
        for (const Streamed& s : streams) {
            hal.batch(s.sensor.sensorHandle, s.expected.periodNs, s.expected.latencyNs);
            hal.activate(s.sensor.sensorHandle, true);
        }
        BatchingRun heard;
        heard.events = mRun.collectFor(runTime / 2, &heard.received);
        for (const Streamed& s : streams) {
            const auto answer = hal.flush(s.sensor.sensorHandle);
            if (answer != android::hardware::sensors::V1_0::Result::OK) {
                heard.flushAnswers[s.sensor.sensorHandle] = "flush answered " + resultName(answer);
            }
        }
        const auto flushedAt = std::chrono::steady_clock::now();
        append(heard.events, mRun.collectFor(runTime - runTime / 2, &heard.received));
        // Every count ends at the run; completions may take up to the flush limit.
        heard.counted = heard.events.size();
        const std::vector<Event>& events = heard.events;
        auto allFlushed = [&streams, &events](const std::vector<Event>& more) {
            for (const Streamed& s : streams) {
                const int32_t h = s.sensor.sensorHandle;
                if (flushCompletions(events, h) == 0 && flushCompletions(more, h) == 0) {
                    return false;
                }
            }
            return true;
        };
        const auto left = std::chrono::duration_cast<milliseconds>(
            flushedAt + kFlushLimit - std::chrono::steady_clock::now());
        append(heard.events,
               mRun.collectUntil(allFlushed, std::max(left, milliseconds(0)), &heard.received));
        for (const Streamed& s : streams) hal.activate(s.sensor.sensorHandle, false);
        heard.settled = mRun.settle();
        return heard;
    }

    void judgeBatching(const Streamed& s, const BatchingRun& heard, milliseconds runTime) {
        const int32_t h = s.sensor.sensorHandle;
        const size_t completions =
            flushCompletions(heard.events, h) + flushCompletions(heard.settled, h);
        Outcome flush = pass("1 completion for 1 flush");
        if (heard.flushAnswers.count(h) != 0) {
            flush = fail(heard.flushAnswers.at(h));
        } else if (completions != 1) {
            flush = fail(std::to_string(completions) + " completions for 1 flush within " +
                         std::to_string(kFlushLimit.count() / 1000) + " s, needs exactly 1");
        }
        mRun.add(rules::kCtsFlush, s.sensor, "", flush);
        const RecordedStream* recorded = recordedStream(s.sensor);
        const std::vector<Event> inRun(heard.events.begin(), heard.events.begin() + heard.counted);
        const std::vector<Sample> mine =
            recorded ? recorded->samples() : samplesOf(inRun, heard.received, h);
        if (isOnChange(s.sensor) && recorded && recorded->dead()) {
            const Outcome none = fail("the recording asked it for samples and it sent none");
            mRun.add(rules::kCtsOrdering, s.sensor, "", none);
            mRun.add(rules::kCtsTimestampFuture, s.sensor, "", none);
        } else if (isOnChange(s.sensor)) {
            mRun.add(rules::kCtsOrdering, s.sensor, "",
                     mine.size() < 2 && recorded
                         ? skip(std::to_string(mine.size()) + " recorded events, needs 2")
                         : stats::ordering(mine));
            mRun.add(rules::kCtsTimestampFuture, s.sensor, "",
                     timestampRule(s.sensor, recorded, mine, stats::notInFuture));
        } else if (recorded) {
            // The suite's count over the whole recording, at the rate it was recorded at.
            const Expectation asRecorded{recorded->periodNs, 0,
                                         hzText(1e9 / static_cast<double>(recorded->periodNs))};
            mRun.add(rules::kCtsEventCount, s.sensor, " @ " + asRecorded.rate + ", as recorded",
                     stats::eventCount(mine.size(), recorded->recordingNs, asRecorded));
        } else {
            mRun.add(rules::kCtsEventCount, s.sensor, s.suffix,
                     stats::eventCount(
                         mine.size(),
                         std::chrono::duration_cast<std::chrono::nanoseconds>(runTime).count(),
                         s.expected));
        }
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

    // A recording holds only the rates it was recorded at: nullopt at such a rate, the reason to
    // SKIP where it cannot tell them apart, and "" (no row) at a rate it never held.
    std::optional<std::string> recordingSkip(const SensorInfo& sensor, const Rate& rate) const {
        const RecordedStream* recorded = recordedStream(sensor);
        if (recorded == nullptr) return std::nullopt;
        const std::vector<double>& held = recorded->ratesHz;
        if (std::none_of(held.begin(), held.end(),
                         [&rate](double hz) { return sameRate(hz, rate.hz); })) {
            return std::string();
        }
        if (held.size() == 1) return std::nullopt;
        return std::string(
            "the recording holds several rates, and not which sample was sent at which");
    }

    // Timestamp rules compare an event's timestamp with when it arrived, on the boot-time clock
    // of the host's machine: for a recording, when the recorded host sent it.
    Outcome timestampRule(const SensorInfo& sensor, const RecordedStream* recorded,
                          const std::vector<Sample>& mine,
                          const std::function<Outcome(const std::vector<Sample>&)>& judge) const {
        if (mRun.remoteClock(sensor)) {
            return skip("the board's timestamps are on its own clock, not this machine's");
        }
        if (recorded != nullptr && !recorded->sendTimeProblem.empty()) {
            return skip(recorded->sendTimeProblem);
        }
        return judge(mine);
    }

    void stream(const std::vector<Streamed>& streams, const Rate& rate) {
        ISensorsSubHal& hal = mRun.hal();
        const milliseconds duration = mRun.quick() ? kQuickStream : kSuiteStream;
        mRun.progress("cts: streaming at " + rate.label + " for " + secondsText(duration));
        const int64_t startNs = android::elapsedRealtimeNano();
        for (const Streamed& s : streams) {
            hal.batch(s.sensor.sensorHandle, s.expected.periodNs, 0);
            hal.activate(s.sensor.sensorHandle, true);
        }
        std::vector<int64_t> received;
        const std::vector<Event> events = mRun.collectFor(duration, &received);
        const int64_t streamNs = android::elapsedRealtimeNano() - startNs;
        for (const Streamed& s : streams) hal.activate(s.sensor.sensorHandle, false);
        mRun.settle();
        for (const Streamed& s : streams) {
            judge(s, samplesOf(events, received, s.sensor.sensorHandle), nullptr, startNs,
                  streamNs);
        }
    }

    static std::string secondsText(milliseconds d) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.3g s", static_cast<double>(d.count()) / 1000.0);
        return text;
    }

    // A live stream too short to judge is itself the finding, and so is a recorded sensor that
    // sent nothing; a recording that holds a few samples merely holds no more.
    Outcome tooFew(const Streamed& s, size_t have, size_t needed,
                   const RecordedStream* recorded) const {
        const std::string text = std::to_string(have) + " events at " + s.expected.rate +
                                 ", needs " + std::to_string(needed);
        if (recorded == nullptr) return fail(text);
        if (have == 0) return fail(text + ": the recording asked it for samples and it sent none");
        return skip(text + " (the recording holds no more)");
    }

    // `recorded`: the stream is a recording's, whose receive times are its send times; otherwise
    // a live one that started at `startNs` and ran `streamNs`.
    void judge(const Streamed& s, const std::vector<Sample>& mine, const RecordedStream* recorded,
               int64_t startNs, int64_t streamNs) {
        const SensorInfo& sensor = s.sensor;
        auto add = [&](RuleId rule, Outcome outcome) {
            mRun.add(rule, sensor, s.suffix, std::move(outcome));
        };
        auto needs = [&](size_t n, const std::function<Outcome()>& rule) {
            return mine.size() >= n ? rule() : tooFew(s, mine.size(), n, recorded);
        };
        // Judged on a quick stream as on the suite's (see asTheSuiteWould).
        auto lengthBound = [&](const std::function<Outcome(const std::vector<Sample>&)>& rule) {
            return recorded == nullptr && mRun.quick() ? asTheSuiteWould(rule, mine) : rule(mine);
        };
        add(rules::kCtsOrdering, needs(2, [&] { return stats::ordering(mine); }));
        add(rules::kCtsFrequency, needs(2, [&] {
                return lengthBound([&](const auto& m) { return stats::frequency(m, s.expected); });
            }));
        add(rules::kCtsGaps, needs(3, [&] {
                return lengthBound([&](const auto& m) { return stats::gaps(m, s.expected); });
            }));
        if (jitterType(sensor.type)) {
            add(rules::kCtsJitter,
                quickJitter(stats::jitter(mine, s.expected, mRun.hifi()), mine, recorded));
        }
        add(rules::kCtsTimestampFuture, timestampRule(sensor, recorded, mine, [&](const auto& m) {
                return needs(1, [&] { return stats::notInFuture(m); });
            }));
        add(rules::kCtsTimestampAge, timestampRule(sensor, recorded, mine, [&](const auto& m) {
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
        add(rules::kCtsInitialValue,
            initialValue(mine, recorded, startNs, streamNs, s.expected.periodNs));
    }

    // --quick is never stricter than the full run: the rules whose bounds depend on the stream's
    // length (the rate over its span, the gaps allowed per event) FAIL a quick stream only when
    // it, gone on to the suite's length at its own median interval, still FAILs; else they
    // SKIP, saying so. A stream slow throughout still FAILs; one stall in it does not.
    static Outcome asTheSuiteWould(const std::function<Outcome(const std::vector<Sample>&)>& rule,
                                   const std::vector<Sample>& mine) {
        Outcome quick = rule(mine);
        if (quick.verdict != Verdict::kFail) return quick;
        const int64_t moreNs =
            std::chrono::duration_cast<std::chrono::nanoseconds>(kSuiteStream - kQuickStream)
                .count();
        if (rule(stats::continuedAsTypical(mine, moreNs)).verdict == Verdict::kFail) {
            return quick;
        }
        return skip(quick.detail + " in --quick's " + secondsText(kQuickStream) +
                    " stream; the suite's " + secondsText(kSuiteStream) +
                    " stream could still pass: run without --quick to judge");
    }

    // Jitter needs 40 intervals, which a quick stream at a low rate never holds.
    Outcome quickJitter(Outcome jitter, const std::vector<Sample>& mine,
                        const RecordedStream* recorded) const {
        if (recorded != nullptr || !mRun.quick() || mine.size() > 40) return jitter;
        jitter.detail +=
            " in --quick's " + secondsText(kQuickStream) + " stream: run without --quick to judge";
        return jitter;
    }

    // For a recording: within the first 2 s after its start, by the recorded send times.
    Outcome initialValue(const std::vector<Sample>& mine, const RecordedStream* recorded,
                         int64_t startNs, int64_t streamNs, int64_t periodNs) const {
        if (recorded == nullptr) return stats::initialValue(mine, startNs, streamNs, periodNs);
        if (!recorded->sendTimeProblem.empty()) return skip(recorded->sendTimeProblem);
        return stats::recordedInitialValue(mine, recorded->startNs, recorded->recordingNs,
                                           periodNs);
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
