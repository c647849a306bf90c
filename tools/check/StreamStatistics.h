// The statistics of a sensor's stream, as pure functions, for the rules, the report and the live
// page alike, so that the three agree on the same data: percentiles, intervals, rate, gaps, and
// Android's compatibility-suite verdicts, each with the measured value next to the bound.
// No threads, no sub-HAL: the rule runner (CtsRules) collects the streams and calls these.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "check/CheckResult.h"

namespace kelvane::tools::check::stats {

using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;

// One sensor event as the statistics need it.
struct Sample {
    int64_t timestampNs = 0;  // the event's timestamp
    int64_t receivedNs = 0;   // when it reached the proxy callback, same clock as the timestamp
    float x = 0, y = 0, z = 0;
};

// What a stream was asked to be.
struct Expectation {
    int64_t periodNs = 0;   // the expected period P (the request clamped to [minDelay, maxDelay])
    int64_t latencyNs = 0;  // the requested report latency R
    std::string rate;       // how the request reads in details: "50 Hz", "FASTEST"
};

// An interval longer than this many periods is a gap: the suite's bound, and what the report and
// the live page count too.
constexpr double kGapFactor = 1.8;

// The p-th quantile (p in [0, 1]) of ascending `sorted`, interpolated linearly between the
// closest ranks, as the suite computes its percentiles. `sorted` must not be empty.
double percentile(const std::vector<double>& sorted, double p);
// The middle value, interpolated; 0 for none.
double median(std::vector<double> values);

// What the intervals between a stream's timestamps say, as the rules, the report and the page
// show them. A gap is an interval over kGapFactor x `referenceNs` (the period asked for, or, if
// none, the median interval).
struct IntervalSummary {
    size_t intervals = 0;
    double rateHz = 0;  // (N - 1) / (t_last - t_first); 0 when the span is not positive
    double meanNs = 0;  // span / (N - 1)
    double medianNs = 0;
    double jitterNs = 0;  // 97.5th - 2.5th percentile; 0 for fewer than 2 intervals
    double longestNs = 0;
    size_t gaps = 0;
    size_t notIncreasing = 0;  // intervals <= 0: timestamps frozen or going back
};
IntervalSummary summarizeIntervals(const std::vector<int64_t>& timestampsNs,
                                   double referenceNs = 0);

// The slowest period a continuous sensor may stream at: P / 0.9.
double slowestPeriodNs(int64_t periodNs);

// Each timestamp later than every earlier one. Needs 2 events.
Outcome ordering(const std::vector<Sample>& samples);
// 0.9 f < (N - 1) / (t_last - t_first) < 2.2 f. Needs 2 events.
Outcome frequency(const std::vector<Sample>& samples, const Expectation& expected);
// Intervals after event 0 longer than 1.8 P: at most ceil(min(20, 0.02 N)). Needs 3 events.
Outcome gaps(const std::vector<Sample>& samples, const Expectation& expected);
// Spread between the 2.5th and 97.5th percentile of the intervals <= 4 % of P; a spread over the
// bound FAILs only when `enforce`d (high fidelity), and is otherwise reported as a SKIP. Needs
// 40 intervals.
Outcome jitter(const std::vector<Sample>& samples, const Expectation& expected, bool enforce);
// No timestamp after its receive time.
Outcome notInFuture(const std::vector<Sample>& samples);
// Receive time - timestamp <= 1 s + 1.1 R + 2.5 Pmax for every event.
Outcome age(const std::vector<Sample>& samples, const Expectation& expected);
// At rest: the mean norm is 9.80665 +- 1.5 m/s^2 (accelerometer), at most 1.5 rad/s (gyroscope).
Outcome magnitude(const std::vector<Sample>& samples, SensorType type);
// At rest: each axis' sample standard deviation at most 1.0 m/s^2 (accelerometer) or 0.5 rad/s
// (gyroscope); with `hifi`, 2 sqrt(f) 0.003924 m/s^2, 2 sqrt(f) 0.014 pi/180 rad/s and 2.0 uT
// (magnetometer, judged only then). Needs 2 events.
Outcome standardDeviation(const std::vector<Sample>& samples, SensorType type,
                          const Expectation& expected, bool hifi);
// An event within the first 2 s after `startNs` and one after. `streamNs` is how long the
// stream ran: one after is only due if that is past 2 s by two of its periods (`periodNs`), which
// a recording that ends right at 2 s is not.
Outcome initialValue(const std::vector<Sample>& samples, int64_t startNs, int64_t streamNs,
                     int64_t periodNs);
// How long a recorded sensor's stream ran after `startNs`, for the rules that need a stream's
// length: the recording's `recordingNs`, unless the sensor's samples (by receive time) run to its
// end, their last within two periods or 250 ms of it, the spread of sensors switched off one after
// the other. Then it ran as long as its samples, one period past the last.
int64_t recordedRunNs(const std::vector<Sample>& samples, int64_t startNs, int64_t recordingNs,
                      int64_t periodNs);
// initialValue() of a recorded sensor, over the run recordedRunNs() gives it: what check, compare
// and report judge a recording by.
Outcome recordedInitialValue(const std::vector<Sample>& samples, int64_t startNs,
                             int64_t recordingNs, int64_t periodNs);
// Without a FIFO: N >= 0.8 (T - max(1 s, 0.4 s + 2 Pmax) - 1 s) / P over a run of T.
Outcome eventCount(size_t events, int64_t runNs, const Expectation& expected);

// `samples` followed by `moreNs` of samples every median interval of theirs, each as late at
// arrival as the last: the stream gone on as it typically ran, as a longer stream would have.
// Unchanged for fewer than 2 samples or a median interval that is not positive.
std::vector<Sample> continuedAsTypical(std::vector<Sample> samples, int64_t moreNs);

// Static: minDelay at most 10,000 us (accelerometer, gyroscope) or 100,000 us (magnetometer).
Outcome minDelay(const SensorInfo& sensor);
// Static: resolution between 2.001 maxRange / 2^24 and 2.001 maxRange / 2^12 (accelerometer,
// gyroscope) or 0.6 uT (magnetometer).
Outcome resolution(const SensorInfo& sensor);

}  // namespace kelvane::tools::check::stats
