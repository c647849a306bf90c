// What a report shows of a recording, computed in one pass over all of it: per device, the
// samples in their units thinned out for drawing, the histogram of the intervals between them,
// the gaps, and the host's timeline entries and restarts as marks on the time axis. Times are
// seconds after the recording's start (its send times); intervals come from the device's
// timestamp channel when it has one, as Android would see them, otherwise from the send times.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/description/HostConfig.h"

namespace kelvane::tools::report {

// Points to draw: with more than 2 x `buckets` samples, the span is cut into `buckets` equal
// parts and each part keeps its first and last time with the smallest and largest value of
// every column, so peaks and gaps survive; an empty part is a null point (a break in the line).
// With fewer samples every one is kept, with a break at each gap.
struct Decimated {
    std::vector<double> t;
    std::vector<std::vector<std::optional<double>>> columns;  // like the input's; null: a break
};
// `t` ascending; a NaN value is a sample without that column. `gapS`: an interval longer than
// this is a break when every sample is kept.
Decimated decimate(const std::vector<double>& t, const std::vector<std::vector<double>>& columns,
                   size_t buckets, double gapS);

// Intervals in equal bins from 0 to 3 medians; longer ones are counted in `over`.
struct Histogram {
    double binMs = 0;
    std::vector<uint64_t> counts;
    uint64_t over = 0;
};
Histogram intervalHistogram(const std::vector<double>& intervalsMs, double medianMs, size_t bins);

struct ReportOptions {
    size_t buckets = 2000;  // per device
    size_t maxGapsListed = 500;
};

// The report's data, as the page's script reads it. `name` is what the report calls the file.
nlohmann::json recordingReport(const host::description::HostConfig& config, const std::string& name,
                               const ReportOptions& options = {});

}  // namespace kelvane::tools::report
