#include "serve/LiveStats.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "check/StreamStatistics.h"

namespace kelvane::tools::serve {

using check::stats::percentile;

void LiveStats::add(int64_t timestampNs, int64_t receivedNs) {
    // A timestamp that goes back (a restarted device, a replay that starts over) starts over.
    if (!mEvents.empty() && timestampNs < mEvents.back().timestampNs) mEvents.clear();
    mEvents.push_back({timestampNs, receivedNs});
    while (mEvents.back().timestampNs - mEvents.front().timestampNs > mWindowNs) {
        mEvents.pop_front();
    }
}

LiveFigures LiveStats::figures() const {
    LiveFigures figures;
    figures.events = mEvents.size();
    if (mEvents.empty()) return figures;

    std::vector<double> latencies;
    latencies.reserve(mEvents.size());
    for (const Sample& s : mEvents) latencies.push_back((s.receivedNs - s.timestampNs) / 1e6);
    std::sort(latencies.begin(), latencies.end());
    figures.latencyP50Ms = percentile(latencies, 0.5);
    figures.latencyP99Ms = percentile(latencies, 0.99);

    if (mEvents.size() < 2) return figures;
    std::vector<int64_t> timestamps;
    timestamps.reserve(mEvents.size());
    for (const Sample& s : mEvents) timestamps.push_back(s.timestampNs);
    const check::stats::IntervalSummary summary = check::stats::summarizeIntervals(timestamps);
    if (summary.rateHz <= 0) return figures;
    figures.rateHz = summary.rateHz;
    figures.intervalMs = summary.meanNs / 1e6;
    figures.jitterMs = summary.jitterNs / 1e6;
    return figures;
}

}  // namespace kelvane::tools::serve
