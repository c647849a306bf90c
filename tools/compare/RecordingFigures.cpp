#include "compare/RecordingFigures.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::tools::compare {

namespace {

using android::hardware::sensors::V2_1::SensorType;
using host::description::HostConfig;
using host::description::TimedSamples;
using host::description::VirtualDevice;
namespace stats = check::stats;

std::string attribute(const VirtualDevice& device, const char* key) {
    const auto found = device.attributes.find(key);
    return found != device.attributes.end() && found->second ? *found->second : "";
}

// The name the sub-HAL publishes, so that every tool calls a sensor the same.
std::string publishedName(const VirtualDevice& device, const sensors::SensorKind* kind) {
    const std::string location = attribute(device, "location");
    const std::string base = kind ? std::string(kind->name) : "device " + std::to_string(device.id);
    return location.empty() ? base : base + " (" + location + ")";
}

ChannelFigures channelFigures(const std::string& name, const std::vector<double>& values) {
    ChannelFigures out{name};
    size_t n = 0;
    double sum = 0;
    double squares = 0;
    out.min = INFINITY;
    out.max = -INFINITY;
    for (double v : values) {
        if (std::isnan(v)) continue;
        ++n;
        sum += v;
        out.min = std::min(out.min, v);
        out.max = std::max(out.max, v);
    }
    if (n == 0) return {name};
    out.mean = sum / static_cast<double>(n);
    for (double v : values) {
        if (!std::isnan(v)) squares += (v - out.mean) * (v - out.mean);
    }
    out.stdDev = n > 1 ? std::sqrt(squares / static_cast<double>(n - 1)) : 0;
    return out;
}

// When the recorded streams ran: from the first sample of any device to the last, in send time.
struct RecordingSpan {
    int64_t startUs = 0;
    int64_t endUs = 0;
};

// A stream that stops, judged as check judges a recording: the suite's count over the whole
// recording at the asked rate, and an event in its first 2 s and one after, by send times.
void judgeEnding(DeviceFigures& d, const std::vector<int64_t>& sentUs,
                 const stats::Expectation& expected, RecordingSpan span) {
    const int64_t spanNs = (span.endUs - span.startUs) * 1000;
    d.verdicts.emplace_back("cts.event-count", stats::eventCount(sentUs.size(), spanNs, expected));
    std::vector<stats::Sample> sent(sentUs.size());
    for (size_t i = 0; i < sentUs.size(); ++i) sent[i].receivedNs = sentUs[i] * 1000;
    d.verdicts.emplace_back(
        "cts.initial-value",
        stats::recordedInitialValue(sent, span.startUs * 1000, spanNs, expected.periodNs));
}

// The suite's stream verdicts at the asked rate, as check gives them for a recording; an
// on-change sensor is judged on its order and its clock only, as check does.
void judge(DeviceFigures& d, const std::vector<stats::Sample>& samples,
           const std::vector<int64_t>& sentUs, const sensors::SensorKind* kind, bool sendTimes,
           RecordingSpan span) {
    auto add = [&d](const char* rule, check::Outcome outcome) {
        d.verdicts.emplace_back(rule, std::move(outcome));
    };
    if (kind != nullptr && kind->reportingMode == sensors::ReportingMode::kOnChange) {
        if (samples.size() >= 2) add("cts.ordering", stats::ordering(samples));
        if (sendTimes) add("cts.timestamp-future", stats::notInFuture(samples));
        return;
    }
    if (kind == nullptr || d.askedHz <= 0) return;
    const int64_t periodNs =
        std::max<int64_t>(std::llround(1e9 / d.askedHz), int64_t{kind->minDelayUs} * 1000);
    char rate[32];
    std::snprintf(rate, sizeof(rate), "%.4g Hz", d.askedHz);
    const stats::Expectation expected{periodNs, 0, rate};
    add("cts.ordering", stats::ordering(samples));
    add("cts.frequency", stats::frequency(samples, expected));
    add("cts.gaps", stats::gaps(samples, expected));
    add("cts.jitter", stats::jitter(samples, expected, false));
    if (sendTimes) {
        add("cts.timestamp-future", stats::notInFuture(samples));
        add("cts.timestamp-age", stats::age(samples, expected));
    }
    const auto type = static_cast<SensorType>(kind->androidType);
    if (type == SensorType::ACCELEROMETER || type == SensorType::GYROSCOPE) {
        add("cts.magnitude", stats::magnitude(samples, type));
        add("cts.std-dev", stats::standardDeviation(samples, type, expected, false));
    }
    judgeEnding(d, sentUs, expected, span);
}

}  // namespace

namespace {

// Per sample: the timestamp (the timestamp channel's, else the send time) and, when the recording
// holds both on its boot-time clock, the send time; and each value channel in its unit.
struct Columns {
    std::vector<int64_t> timestampNs;
    std::vector<int64_t> sentNs;  // empty when unknown
    std::vector<std::string> names;
    std::vector<std::vector<double>> values;
};

Columns columnsOf(const VirtualDevice& device, double scale, std::optional<int64_t> startNs) {
    const TimedSamples& s = *device.timedSamples;
    const size_t width = s.channels.size();
    Columns out;
    std::optional<size_t> stamp;
    for (size_t c = 0; c < width; ++c) {
        const int32_t channel = s.channels[c];
        const std::string id = channel >= 0 && static_cast<size_t>(channel) < device.channels.size()
                                   ? device.channels[channel]
                                   : "channel " + std::to_string(channel);
        if (id == "timestamp") {
            stamp = c;
            continue;
        }
        std::vector<double> values(s.size());
        for (size_t i = 0; i < s.size(); ++i) {
            values[i] = s.present[i * width + c]
                            ? static_cast<double>(s.values[i * width + c]) * scale
                            : std::nan("");
        }
        out.names.push_back(id);
        out.values.push_back(std::move(values));
    }
    for (size_t i = 0; i < s.size(); ++i) {
        const bool stamped = stamp && s.present[i * width + *stamp];
        out.timestampNs.push_back(stamped ? s.values[i * width + *stamp] : s.atUs[i] * 1000);
        if (stamp && startNs) out.sentNs.push_back(*startNs + s.atUs[i] * 1000);
    }
    return out;
}

DeviceFigures deviceFigures(const VirtualDevice& device, std::optional<int64_t> startNs,
                            RecordingSpan span) {
    const sensors::SensorKind* kind = sensors::firstServedKind(device.types);
    DeviceFigures d;
    d.id = device.id;
    d.name = publishedName(device, kind);
    if (!device.frequencyAnswers.empty()) d.askedHz = device.frequencyAnswers.front().first;
    const std::string scaleText = attribute(device, "scale");
    char* end = nullptr;
    const double scale = std::strtod(scaleText.c_str(), &end);
    const bool scaled = !scaleText.empty() && *end == '\0' && std::isfinite(scale) && kind;
    d.unit = scaled ? kind->unit : "raw";
    if (!device.timedSamples || device.timedSamples->size() == 0) {
        if (d.askedHz > 0) {
            d.verdicts.emplace_back("cts.frequency",
                                    check::fail("asked for samples, it sent none"));
        }
        return d;
    }
    const TimedSamples& s = *device.timedSamples;
    const Columns columns = columnsOf(device, scaled ? scale * kind->iioToAndroid : 1.0, startNs);
    d.samples = s.size();
    d.durationS = static_cast<double>(s.atUs.back() - s.atUs.front()) / 1e6;
    const double periodNs = d.askedHz > 0 ? 1e9 / d.askedHz : 0;
    d.intervals = stats::summarizeIntervals(columns.timestampNs, periodNs);
    std::vector<stats::Sample> samples(s.size());
    std::vector<double> latencies;
    for (size_t i = 0; i < s.size(); ++i) {
        stats::Sample& one = samples[i];
        one.timestampNs = columns.timestampNs[i];
        one.receivedNs = columns.sentNs.empty() ? one.timestampNs : columns.sentNs[i];
        float* axes[] = {&one.x, &one.y, &one.z};
        for (size_t c = 0; c < 3 && c < columns.values.size(); ++c) {
            *axes[c] = static_cast<float>(columns.values[c][i]);
        }
        if (!columns.sentNs.empty()) latencies.push_back((one.receivedNs - one.timestampNs) / 1e6);
        d.t.push_back(static_cast<double>(s.atUs[i] - s.atUs.front()) / 1e6);
    }
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        d.latencyP50Ms = stats::percentile(latencies, 0.5);
        d.latencyP99Ms = stats::percentile(latencies, 0.99);
    }
    for (size_t c = 0; c < columns.names.size(); ++c) {
        d.channels.push_back(channelFigures(columns.names[c], columns.values[c]));
    }
    d.values = columns.values;
    judge(d, samples, s.atUs, kind, !columns.sentNs.empty(), span);
    return d;
}

}  // namespace

std::vector<DeviceFigures> recordingFigures(const HostConfig& recording) {
    std::optional<RecordingSpan> span;
    for (const VirtualDevice& device : recording.devices) {
        if (!device.timedSamples || device.timedSamples->size() == 0) continue;
        const std::vector<int64_t>& at = device.timedSamples->atUs;
        span = span ? RecordingSpan{std::min(span->startUs, at.front()),
                                    std::max(span->endUs, at.back())}
                    : RecordingSpan{at.front(), at.back()};
    }
    std::vector<DeviceFigures> out;
    for (const VirtualDevice& device : recording.devices) {
        const bool asked = !device.frequencyAnswers.empty();
        if (!device.timedSamples || (device.timedSamples->size() == 0 && !asked)) continue;
        out.push_back(
            deviceFigures(device, recording.startBootTimeNs, span.value_or(RecordingSpan{})));
    }
    return out;
}

}  // namespace kelvane::tools::compare
