#include "check/StreamStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::tools::check::stats {

namespace {

constexpr double kGravity = 9.80665;
constexpr double kPi = 3.14159265358979323846;
constexpr int64_t kSecondNs = 1000000000;

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

double ms(double ns) { return ns / 1e6; }

std::string events(size_t n) { return std::to_string(n) + (n == 1 ? " event" : " events"); }

Outcome tooFew(size_t have, size_t needed) {
    return skip(events(have) + ", needs " + std::to_string(needed));
}

std::vector<double> intervalsNs(const std::vector<Sample>& samples, size_t from) {
    std::vector<double> out;
    for (size_t i = std::max<size_t>(from, 1); i < samples.size(); ++i) {
        out.push_back(static_cast<double>(samples[i].timestampNs - samples[i - 1].timestampNs));
    }
    return out;
}

double norm(const Sample& s) {
    return std::sqrt(double{s.x} * s.x + double{s.y} * s.y + double{s.z} * s.z);
}

const char* unitOf(SensorType type) {
    const sensors::SensorKind* kind = sensors::kindOfAndroidType(static_cast<int32_t>(type));
    return kind == nullptr ? "" : kind->asciiUnit;
}

}  // namespace

double percentile(const std::vector<double>& sorted, double p) {
    const double rank = p * static_cast<double>(sorted.size() - 1);
    const size_t low = static_cast<size_t>(std::floor(rank));
    const size_t high = std::min(low + 1, sorted.size() - 1);
    return sorted[low] + (rank - static_cast<double>(low)) * (sorted[high] - sorted[low]);
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return percentile(values, 0.5);
}

IntervalSummary summarizeIntervals(const std::vector<int64_t>& timestampsNs, double referenceNs) {
    IntervalSummary out;
    if (timestampsNs.size() < 2) return out;
    std::vector<double> intervals;
    intervals.reserve(timestampsNs.size() - 1);
    for (size_t i = 1; i < timestampsNs.size(); ++i) {
        intervals.push_back(static_cast<double>(timestampsNs[i] - timestampsNs[i - 1]));
        if (intervals.back() <= 0) ++out.notIncreasing;
    }
    out.intervals = intervals.size();
    const double span = static_cast<double>(timestampsNs.back() - timestampsNs.front());
    if (span > 0) {
        out.meanNs = span / static_cast<double>(out.intervals);
        out.rateHz = 1e9 / out.meanNs;
    }
    std::vector<double> sorted = intervals;
    std::sort(sorted.begin(), sorted.end());
    out.medianNs = percentile(sorted, 0.5);
    out.longestNs = sorted.back();
    if (sorted.size() >= 2) out.jitterNs = percentile(sorted, 0.975) - percentile(sorted, 0.025);
    const double reference = referenceNs > 0 ? referenceNs : out.medianNs;
    for (double interval : intervals) {
        if (reference > 0 && interval > kGapFactor * reference) ++out.gaps;
    }
    return out;
}

double slowestPeriodNs(int64_t periodNs) { return static_cast<double>(periodNs) / 0.9; }

Outcome ordering(const std::vector<Sample>& samples) {
    if (samples.size() < 2) return tooFew(samples.size(), 2);
    int64_t latest = samples[0].timestampNs;
    for (size_t i = 1; i < samples.size(); ++i) {
        if (samples[i].timestampNs <= latest) {
            return fail("event " + std::to_string(i) + " at " +
                        std::to_string(samples[i].timestampNs) + " ns is not after " +
                        std::to_string(latest) + " ns");
        }
        latest = samples[i].timestampNs;
    }
    return pass(events(samples.size()) + " in order");
}

Outcome frequency(const std::vector<Sample>& samples, const Expectation& expected) {
    if (samples.size() < 2) return tooFew(samples.size(), 2);
    const double spanNs =
        static_cast<double>(samples.back().timestampNs - samples.front().timestampNs);
    const double f = 1e9 / static_cast<double>(expected.periodNs);
    const double low = 0.9 * f;
    const double high = 2.2 * f;
    const std::string bound = fmt("needs %.4g < f < %.4g", low, high);
    if (!(spanNs > 0)) {
        return fail(events(samples.size()) + " span no time at " + expected.rate + ", " + bound);
    }
    const double measured = static_cast<double>(samples.size() - 1) * 1e9 / spanNs;
    const std::string text =
        fmt("frequency %.4g Hz at %s requested, ", measured, expected.rate.c_str()) + bound;
    return measured > low && measured < high ? pass(text) : fail(text);
}

Outcome gaps(const std::vector<Sample>& samples, const Expectation& expected) {
    if (samples.size() < 3) return tooFew(samples.size(), 3);
    const double limitNs = kGapFactor * static_cast<double>(expected.periodNs);
    size_t count = 0;
    double longest = 0;
    for (double interval : intervalsNs(samples, 2)) {
        longest = std::max(longest, interval);
        if (interval > limitNs) ++count;
    }
    const double n = static_cast<double>(samples.size());
    const size_t allowed = static_cast<size_t>(std::ceil(std::min(20.0, 0.02 * n)));
    const std::string text =
        fmt("%zu gaps > %.4g ms in %zu events, allows %zu (longest interval %.4g ms)", count,
            ms(limitNs), samples.size(), allowed, ms(longest));
    return count <= allowed ? pass(text) : fail(text);
}

Outcome jitter(const std::vector<Sample>& samples, const Expectation& expected, bool enforce) {
    std::vector<double> intervals = intervalsNs(samples, 1);
    if (intervals.size() < 40) {
        return skip(std::to_string(intervals.size()) + " intervals, needs 40");
    }
    std::sort(intervals.begin(), intervals.end());
    const double spread = percentile(intervals, 0.975) - percentile(intervals, 0.025);
    const double percent = 100.0 * spread / static_cast<double>(expected.periodNs);
    const std::string text =
        fmt("intervals spread %.4g ms (%.3g %% of %.4g ms) between the 2.5th and 97.5th "
            "percentile, allows 4 %%",
            ms(spread), percent, ms(static_cast<double>(expected.periodNs)));
    if (percent <= 4.0) return pass(text);
    return enforce ? fail(text) : skip(text + ", enforced only with --hifi");
}

Outcome notInFuture(const std::vector<Sample>& samples) {
    if (samples.empty()) return tooFew(0, 1);
    size_t ahead = 0;
    int64_t furthest = 0;
    for (const Sample& s : samples) {
        if (s.timestampNs > s.receivedNs) {
            ++ahead;
            furthest = std::max(furthest, s.timestampNs - s.receivedNs);
        }
    }
    if (ahead == 0) return pass(events(samples.size()) + ", none stamped after its arrival");
    return fail(std::to_string(ahead) + " of " + events(samples.size()) +
                fmt(" stamped after their arrival, up to %.6g ms ahead", ms(furthest)));
}

Outcome age(const std::vector<Sample>& samples, const Expectation& expected) {
    if (samples.empty()) return tooFew(0, 1);
    const double latency = static_cast<double>(expected.latencyNs);
    const double boundNs = 1e9 + 0.1 * latency + latency + 2.5 * slowestPeriodNs(expected.periodNs);
    int64_t oldest = INT64_MIN;
    size_t late = 0;
    for (const Sample& s : samples) {
        const int64_t a = s.receivedNs - s.timestampNs;
        oldest = std::max(oldest, a);
        if (static_cast<double>(a) > boundNs) ++late;
    }
    const std::string text = fmt("oldest event %.6g ms old at arrival, allows %.5g ms",
                                 ms(static_cast<double>(oldest)), ms(boundNs));
    if (late == 0) return pass(text);
    return fail(std::to_string(late) + " of " + events(samples.size()) + " too old: " + text);
}

Outcome magnitude(const std::vector<Sample>& samples, SensorType type) {
    if (samples.empty()) return tooFew(0, 1);
    double sum = 0;
    for (const Sample& s : samples) sum += norm(s);
    const double mean = sum / static_cast<double>(samples.size());
    if (type == SensorType::ACCELEROMETER) {
        const std::string text =
            fmt("mean norm %.5g m/s^2 over %zu events, needs 9.80665 +- 1.5", mean, samples.size());
        return std::fabs(mean - kGravity) <= 1.5 ? pass(text) : fail(text);
    }
    const std::string text =
        fmt("mean norm %.4g rad/s over %zu events, needs <= 1.5", mean, samples.size());
    return mean <= 1.5 ? pass(text) : fail(text);
}

Outcome standardDeviation(const std::vector<Sample>& samples, SensorType type,
                          const Expectation& expected, bool hifi) {
    const double f = 1e9 / static_cast<double>(expected.periodNs);
    double bound = 0;
    switch (type) {
        case SensorType::ACCELEROMETER:
            bound = hifi ? 2.0 * std::sqrt(f) * 0.003924 : 1.0;
            break;
        case SensorType::GYROSCOPE:
            bound = hifi ? 2.0 * std::sqrt(f) * 0.014 * kPi / 180.0 : 0.5;
            break;
        case SensorType::MAGNETIC_FIELD:
            if (!hifi) return skip("judged only on high-fidelity devices (--hifi)");
            bound = 2.0;
            break;
        default:
            return skip("no bound for this type");
    }
    if (samples.size() < 2) return tooFew(samples.size(), 2);
    double sigma[3];
    for (int axis = 0; axis < 3; ++axis) {
        auto value = [axis](const Sample& s) { return axis == 0 ? s.x : axis == 1 ? s.y : s.z; };
        double mean = 0;
        for (const Sample& s : samples) mean += value(s);
        mean /= static_cast<double>(samples.size());
        double squares = 0;
        for (const Sample& s : samples) squares += (value(s) - mean) * (value(s) - mean);
        sigma[axis] = std::sqrt(squares / static_cast<double>(samples.size() - 1));
    }
    const std::string text = fmt("sigma x %.4g, y %.4g, z %.4g %s, allows %.4g", sigma[0], sigma[1],
                                 sigma[2], unitOf(type), bound);
    const double worst = std::max({sigma[0], sigma[1], sigma[2]});
    return worst <= bound ? pass(text) : fail(text);
}

Outcome initialValue(const std::vector<Sample>& samples, int64_t startNs, int64_t streamNs,
                     int64_t periodNs) {
    constexpr int64_t kInitialNs = 2 * kSecondNs;
    const int64_t neededNs = kInitialNs + 2 * std::max<int64_t>(periodNs, 0);
    if (streamNs <= neededNs) {
        return skip(fmt("the stream ran %.3g s, needs more than %.3g s (2 s and two periods)",
                        streamNs / 1e9, neededNs / 1e9));
    }
    size_t early = 0;
    size_t late = 0;
    for (const Sample& s : samples) {
        (s.receivedNs - startNs <= kInitialNs ? early : late)++;
    }
    const std::string text = events(early) + " in the first 2 s, " + events(late) + " after";
    return early > 0 && late > 0 ? pass(text) : fail(text + ", needs one of each");
}

int64_t recordedRunNs(const std::vector<Sample>& samples, int64_t startNs, int64_t recordingNs,
                      int64_t periodNs) {
    if (samples.empty()) return recordingNs;
    const int64_t lastNs = samples.back().receivedNs - startNs;
    const int64_t switchOffSpreadNs = std::max<int64_t>(2 * periodNs, kSecondNs / 4);
    return recordingNs - lastNs <= switchOffSpreadNs ? lastNs + periodNs : recordingNs;
}

Outcome recordedInitialValue(const std::vector<Sample>& samples, int64_t startNs,
                             int64_t recordingNs, int64_t periodNs) {
    return initialValue(samples, startNs, recordedRunNs(samples, startNs, recordingNs, periodNs),
                        periodNs);
}

Outcome eventCount(size_t events, int64_t runNs, const Expectation& expected) {
    const double pmax = slowestPeriodNs(expected.periodNs);
    const double settleNs = std::max(1e9, 0.4e9 + 2.0 * pmax);
    const double needed = 0.8 * (static_cast<double>(runNs) - settleNs - 1e9) /
                          static_cast<double>(expected.periodNs);
    const std::string text = fmt("%zu events in %.3g s at %s, needs >= %.0f", events, runNs / 1e9,
                                 expected.rate.c_str(), std::ceil(std::max(0.0, needed)));
    return static_cast<double>(events) >= needed ? pass(text) : fail(text);
}

std::vector<Sample> continuedAsTypical(std::vector<Sample> samples, int64_t moreNs) {
    const int64_t typical = std::llround(median(intervalsNs(samples, 1)));
    if (samples.size() < 2 || typical <= 0) return samples;
    const Sample last = samples.back();
    for (int64_t after = typical; after <= moreNs; after += typical) {
        Sample next = last;
        next.timestampNs = last.timestampNs + after;
        next.receivedNs = last.receivedNs + after;
        samples.push_back(next);
    }
    return samples;
}

Outcome minDelay(const SensorInfo& sensor) {
    const int32_t bound = sensor.type == SensorType::MAGNETIC_FIELD ? 100000 : 10000;
    const std::string text = fmt("minDelay %d us, needs <= %d us", sensor.minDelay, bound);
    return sensor.minDelay <= bound ? pass(text) : fail(text);
}

Outcome resolution(const SensorInfo& sensor) {
    const double range = sensor.maxRange;
    const double low = 2.001 * range / 16777216.0;
    const double high = sensor.type == SensorType::MAGNETIC_FIELD ? 0.6 : 2.001 * range / 4096.0;
    const double r = sensor.resolution;
    const char* unit = unitOf(sensor.type);
    const std::string text =
        fmt("resolution %.5g %s, needs %.4g to %.4g %s", r, unit, low, high, unit);
    return r >= low && r <= high ? pass(text) : fail(text);
}

}  // namespace kelvane::tools::check::stats
