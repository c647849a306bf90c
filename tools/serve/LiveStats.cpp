#include "serve/LiveStats.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kelvane::tools::serve {

namespace {

// The nearest-rank percentile of sorted values.
double percentile(const std::vector<double>& sorted, double p) {
    const size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * sorted.size()));
    return sorted[std::min(sorted.size() - 1, rank == 0 ? 0 : rank - 1)];
}

}  // namespace

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
    figures.latencyP50Ms = percentile(latencies, 50);
    figures.latencyP99Ms = percentile(latencies, 99);

    if (mEvents.size() < 2) return figures;
    const double spanNs =
        static_cast<double>(mEvents.back().timestampNs - mEvents.front().timestampNs);
    if (spanNs <= 0) return figures;
    figures.rateHz = (mEvents.size() - 1) * 1e9 / spanNs;
    figures.intervalMs = spanNs / 1e6 / (mEvents.size() - 1);
    std::vector<double> intervals;
    intervals.reserve(mEvents.size() - 1);
    for (size_t i = 1; i < mEvents.size(); ++i) {
        intervals.push_back((mEvents[i].timestampNs - mEvents[i - 1].timestampNs) / 1e6);
    }
    std::sort(intervals.begin(), intervals.end());
    figures.jitterMs = percentile(intervals, 97.5) - percentile(intervals, 2.5);
    return figures;
}

}  // namespace kelvane::tools::serve
