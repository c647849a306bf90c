#include "report/RecordingReport.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "check/StreamStatistics.h"
#include "compare/RecordingFigures.h"
#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::tools::report {

namespace {

using host::description::HostConfig;
using host::description::TimedSamples;
using host::description::TimelineAction;
using host::description::VirtualDevice;
using nlohmann::json;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using check::stats::kGapFactor;
using check::stats::median;

std::optional<double> parseScale(const std::optional<std::string>& text) {
    if (!text || text->empty()) return std::nullopt;
    char* end = nullptr;
    const double value = std::strtod(text->c_str(), &end);
    if (*end != '\0' || !std::isfinite(value)) return std::nullopt;
    return value;
}

json nullable(const std::optional<double>& value) { return value ? json(*value) : json(nullptr); }

// Every channel but the timestamp, in its unit (NaN where a sample lacks it), and which column
// of the samples is the timestamp.
struct ValueColumns {
    std::vector<std::vector<double>> values;
    json names = json::array();
    std::optional<size_t> timestampColumn;
};

ValueColumns valueColumns(const VirtualDevice& device, std::optional<double> scale) {
    const TimedSamples& samples = *device.timedSamples;
    const size_t n = samples.size();
    const size_t width = samples.channels.size();
    ValueColumns out;
    for (size_t c = 0; c < width; ++c) {
        const int32_t channel = samples.channels[c];
        const std::string id = channel >= 0 && static_cast<size_t>(channel) < device.channels.size()
                                   ? device.channels[channel]
                                   : "channel " + std::to_string(channel);
        if (id == "timestamp") {
            out.timestampColumn = c;
            continue;
        }
        std::vector<double> values(n);
        for (size_t i = 0; i < n; ++i) {
            values[i] = samples.present[i * width + c]
                            ? static_cast<double>(samples.values[i * width + c]) * scale.value_or(1)
                            : kNaN;
        }
        out.values.push_back(std::move(values));
        out.names.push_back(id);
    }
    return out;
}

// The intervals between samples, from the timestamp column when there is one, else from the
// send times; each with the time `t` of its later sample.
struct Intervals {
    std::vector<int64_t> stampsNs;  // what the intervals are between
    std::vector<double> ms;
    std::vector<double> atS;
};

Intervals intervalsOf(const TimedSamples& samples, std::optional<size_t> timestampColumn,
                      const std::vector<double>& t) {
    const size_t width = samples.channels.size();
    Intervals out;
    std::optional<int64_t> previous;
    for (size_t i = 0; i < samples.size(); ++i) {
        int64_t at = samples.atUs[i] * 1000;
        if (timestampColumn) {
            if (!samples.present[i * width + *timestampColumn]) continue;
            at = samples.values[i * width + *timestampColumn];
        }
        out.stampsNs.push_back(at);
        if (previous) {
            out.ms.push_back(static_cast<double>(at - *previous) / 1e6);
            out.atS.push_back(t[i]);
        }
        previous = at;
    }
    return out;
}

// The gaps (intervals over kGapFactor medians), the first `limit` of them listed.
json gapList(const Intervals& intervals, double medianMs, size_t limit, size_t* count) {
    json gaps = json::array();
    *count = 0;
    for (size_t i = 0; i < intervals.ms.size(); ++i) {
        if (medianMs <= 0 || intervals.ms[i] <= kGapFactor * medianMs) continue;
        if (++*count <= limit) gaps.push_back({{"atS", intervals.atS[i]}, {"ms", intervals.ms[i]}});
    }
    return gaps;
}

// The points to draw, with a break in the line where the send times leave a gap.
json drawnSeries(const std::vector<double>& t, const ValueColumns& columns, size_t buckets,
                 Decimated* drawn) {
    std::vector<double> sendIntervals;
    for (size_t i = 1; i < t.size(); ++i) sendIntervals.push_back(t[i] - t[i - 1]);
    const double sendMedian = median(sendIntervals);
    *drawn = decimate(t, columns.values, buckets, sendMedian > 0 ? kGapFactor * sendMedian : 1e300);
    json series = json::array();
    for (size_t c = 0; c < drawn->columns.size(); ++c) {
        json values = json::array();
        for (const auto& v : drawn->columns[c]) values.push_back(nullable(v));
        series.push_back({{"name", columns.names[c]}, {"v", std::move(values)}});
    }
    return series;
}

// The device's restarts and timeline entries, on the time axis.
json deviceMarks(const VirtualDevice& device, const std::vector<double>& t,
                 const std::vector<host::description::TimelineEvent>& timeline) {
    json marks = json::array();
    for (size_t index : device.timedSamples->restarts) {
        if (index < t.size())
            marks.push_back({{"atS", t[index]}, {"what", "restart: a new reader"}});
    }
    for (const auto& event : timeline) {
        if (event.device != device.id) continue;
        const double at = event.at.count() / 1e6;
        if (event.action == TimelineAction::kObserverError) {
            marks.push_back(
                {{"atS", at}, {"what", "observer error " + std::to_string(event.error)}});
        } else if (event.action == TimelineAction::kCloseDevice) {
            marks.push_back({{"atS", at}, {"what", "device closed"}});
        }
    }
    return marks;
}

json deviceReport(const VirtualDevice& device, const ReportOptions& options,
                  const std::vector<host::description::TimelineEvent>& timeline) {
    const TimedSamples& samples = *device.timedSamples;
    // The kind the library publishes the device as.
    const sensors::SensorKind* type = sensors::firstServedKind(device.types);
    const auto scaleAttribute = device.attributes.find("scale");
    const std::optional<std::string> scaleText =
        scaleAttribute != device.attributes.end() ? scaleAttribute->second : std::nullopt;
    const std::optional<double> scale = parseScale(scaleText);

    const size_t n = samples.size();
    std::vector<double> t(n);
    for (size_t i = 0; i < n; ++i) t[i] = samples.atUs[i] / 1e6;
    const ValueColumns columns = valueColumns(device, scale);
    const Intervals intervals = intervalsOf(samples, columns.timestampColumn, t);
    // The figures the rules and the live page give, from the same statistics.
    const check::stats::IntervalSummary summary =
        check::stats::summarizeIntervals(intervals.stampsNs);
    const double medianMs = summary.medianNs / 1e6;
    size_t gapCount = 0;
    json gaps = gapList(intervals, medianMs, options.maxGapsListed, &gapCount);
    Decimated drawn;
    json series = drawnSeries(t, columns, options.buckets, &drawn);
    const Histogram histogram = intervalHistogram(intervals.ms, medianMs, 60);
    return {
        {"id", device.id},
        {"label", "device " + std::to_string(device.id)},  // named with its findings
        {"type", type
                     ? type->shortName
                     : "device type " + std::to_string(device.types.empty() ? 0 : device.types[0])},
        {"unit", scale && type ? type->unit : "raw"},
        {"scale", scaleText ? json(*scaleText) : json(nullptr)},
        {"scaleUnreadable", scaleText.has_value() && !scale},
        {"samples", n},
        {"durationS", n > 1 ? t.back() - t.front() : 0},
        {"medianIntervalMs", medianMs},
        {"rateHz", summary.rateHz > 0 ? json(summary.rateHz) : json(nullptr)},
        {"meanIntervalMs", summary.rateHz > 0 ? json(summary.meanNs / 1e6) : json(nullptr)},
        {"jitterMs", summary.intervals >= 2 ? json(summary.jitterNs / 1e6) : json(nullptr)},
        {"intervalsFrom", columns.timestampColumn ? "the timestamp channel" : "the send times"},
        {"decimated", drawn.t.size() < n},
        {"buckets", options.buckets},
        {"t", drawn.t},
        {"series", std::move(series)},
        {"histogram",
         {{"binMs", histogram.binMs}, {"counts", histogram.counts}, {"over", histogram.over}}},
        {"gaps", std::move(gaps)},
        {"gapCount", gapCount},
        {"marks", deviceMarks(device, t, timeline)},
    };
}

// Each device under the name the sub-HAL publishes ("Accelerometer (lid)"), with what check
// would FAIL on its stream, by the rule's name; returns the devices asked for samples that sent
// none, each with its name and finding.
json addFindings(json& devices, const HostConfig& config) {
    json silent = json::array();
    for (const compare::DeviceFigures& figures : compare::recordingFigures(config)) {
        json flags = json::array();
        for (const auto& [rule, outcome] : figures.verdicts) {
            if (outcome.verdict != check::Verdict::kFail) continue;
            flags.push_back({{"rule", rule}, {"detail", outcome.detail}});
        }
        if (figures.samples == 0) {
            silent.push_back({{"label", figures.name}, {"flags", std::move(flags)}});
            continue;
        }
        for (json& d : devices) {
            if (d["id"] != figures.id) continue;
            d["label"] = figures.name;
            d["flags"] = flags;
        }
    }
    return silent;
}

}  // namespace

Decimated decimate(const std::vector<double>& t, const std::vector<std::vector<double>>& columns,
                   size_t buckets, double gapS) {
    Decimated out;
    out.columns.resize(columns.size());
    auto pushBreak = [&](double at) {
        out.t.push_back(at);
        for (auto& column : out.columns) column.push_back(std::nullopt);
    };
    auto value = [](double v) { return std::isnan(v) ? std::nullopt : std::optional<double>(v); };
    const size_t n = t.size();
    if (n <= 2 * buckets || buckets == 0 || t.back() <= t.front()) {
        for (size_t i = 0; i < n; ++i) {
            if (i > 0 && t[i] - t[i - 1] > gapS) pushBreak((t[i] + t[i - 1]) / 2);
            out.t.push_back(t[i]);
            for (size_t c = 0; c < columns.size(); ++c)
                out.columns[c].push_back(value(columns[c][i]));
        }
        return out;
    }
    const double width = (t.back() - t.front()) / static_cast<double>(buckets);
    size_t i = 0;
    bool lastWasBreak = false;
    for (size_t b = 0; b < buckets; ++b) {
        const double end = b + 1 == buckets ? std::numeric_limits<double>::infinity()
                                            : t.front() + width * static_cast<double>(b + 1);
        const size_t first = i;
        while (i < n && t[i] < end) ++i;
        if (first == i) {
            if (!lastWasBreak) pushBreak(t.front() + width * (static_cast<double>(b) + 0.5));
            lastWasBreak = true;
            continue;
        }
        lastWasBreak = false;
        const size_t last = i - 1;
        out.t.push_back(t[first]);
        if (last != first) out.t.push_back(t[last]);
        for (size_t c = 0; c < columns.size(); ++c) {
            double low = kNaN;
            double high = kNaN;
            for (size_t k = first; k <= last; ++k) {
                const double v = columns[c][k];
                if (std::isnan(v)) continue;
                if (std::isnan(low) || v < low) low = v;
                if (std::isnan(high) || v > high) high = v;
            }
            out.columns[c].push_back(value(low));
            if (last != first) out.columns[c].push_back(value(high));
        }
    }
    return out;
}

Histogram intervalHistogram(const std::vector<double>& intervalsMs, double medianMs, size_t bins) {
    Histogram histogram;
    histogram.binMs = medianMs > 0 ? 3 * medianMs / static_cast<double>(bins) : 1.0;
    histogram.counts.assign(bins, 0);
    for (double interval : intervalsMs) {
        const double bin = std::floor(interval / histogram.binMs);
        if (bin < 0) {
            ++histogram.counts[0];  // a timestamp that went back: shown at zero
        } else if (bin >= static_cast<double>(bins)) {
            ++histogram.over;
        } else {
            ++histogram.counts[static_cast<size_t>(bin)];
        }
    }
    return histogram;
}

json recordingReport(const HostConfig& config, const std::string& name,
                     const ReportOptions& options) {
    json devices = json::array();
    size_t samples = 0;
    double duration = 0;
    for (const VirtualDevice& device : config.devices) {
        if (!device.timedSamples || device.timedSamples->size() == 0) continue;
        samples += device.timedSamples->size();
        duration = std::max(duration, device.timedSamples->atUs.back() / 1e6);
        devices.push_back(deviceReport(device, options, config.timeline));
    }
    json silent = addFindings(devices, config);
    json marks = json::array();
    for (const auto& event : config.timeline) {
        const double at = event.at.count() / 1e6;
        if (event.action == TimelineAction::kCloseService) {
            marks.push_back(
                {{"atS", at},
                 {"what", "service closed (reason " + std::to_string(event.reason) +
                              (event.description.empty() ? "" : ": " + event.description) + ")"}});
        } else if (event.action == TimelineAction::kTabletMode) {
            marks.push_back(
                {{"atS", at}, {"what", event.on ? "tablet mode on" : "tablet mode off"}});
        }
    }
    return {{"kind", "recording"},        {"file", name},       {"samples", samples},
            {"durationS", duration},      {"devices", devices}, {"marks", marks},
            {"silent", std::move(silent)}};
}

}  // namespace kelvane::tools::report
