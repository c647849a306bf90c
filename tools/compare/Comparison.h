// Two recordings of the same board, device by device (matched by the name the sub-HAL publishes):
// what differs and how much it matters, largest first. A verdict that got worse (to FAIL) matters
// most, then a device that is gone, a verdict that got better, then rate, gaps, jitter, values
// and latency by how far they moved. Pure functions; any thread.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "compare/RecordingFigures.h"

namespace kelvane::tools::compare {

struct Difference {
    std::string device;
    std::string what;  // "cts.frequency PASS -> FAIL (frequency 40 Hz at 50 Hz requested, ...)"
    double weight = 0;
    bool worse = false;  // a verdict that got worse, or a device gone
};

struct Comparison {
    std::string nameA;
    std::string nameB;
    std::vector<DeviceFigures> a;
    std::vector<DeviceFigures> b;
    // Indices into a and b of one device; -1 where one recording lacks it.
    std::vector<std::pair<int, int>> pairs;
    std::vector<Difference> differences;  // those that matter, weight descending
    bool worse() const;
};

Comparison compareRecordings(const std::string& nameA, std::vector<DeviceFigures> a,
                             const std::string& nameB, std::vector<DeviceFigures> b);

// The differences, then every device's figures side by side.
std::string comparisonText(const Comparison& comparison);
// The page's data: the same, with each device's channels thinned out to `buckets` for drawing.
nlohmann::json comparisonJson(const Comparison& comparison, size_t buckets = 1000);

}  // namespace kelvane::tools::compare
