// What `compare` sets side by side for one recorded device: its rate, intervals and jitter, gaps,
// per-channel mean, standard deviation and range in its unit, the latency from timestamp to send
// where the recording holds both on one clock, and the compatibility suite's stream verdicts at
// the rate the recording asked for, all from the one statistics module the rules and the report
// use. Pure functions over a loaded recording; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "check/CheckResult.h"
#include "check/StreamStatistics.h"
#include "host/description/HostConfig.h"

namespace kelvane::tools::compare {

struct ChannelFigures {
    std::string name;  // the IIO channel id, "accel_x"
    double mean = 0;
    double stdDev = 0;
    double min = 0;
    double max = 0;
};

struct DeviceFigures {
    int32_t id = 0;
    std::string name;  // as the sub-HAL publishes it: "Accelerometer (lid)"
    std::string unit;  // "m/s²", or "raw" for a kind this system does not serve
    size_t samples = 0;
    double durationS = 0;                     // first to last send time
    double askedHz = 0;                       // the first rate the recording asked of it; 0 if none
    check::stats::IntervalSummary intervals;  // of its timestamps (else its send times)
    std::vector<ChannelFigures> channels;
    std::optional<double> latencyP50Ms;  // send time - timestamp
    std::optional<double> latencyP99Ms;
    std::vector<std::pair<std::string, check::Outcome>> verdicts;  // rule id -> outcome
    // For drawing: seconds after the device's first sample, and each channel's values.
    std::vector<double> t;
    std::vector<std::vector<double>> values;
};

// Every device of `recording` that holds samples, or that was asked for some and sent none.
std::vector<DeviceFigures> recordingFigures(const host::description::HostConfig& recording);

}  // namespace kelvane::tools::compare
