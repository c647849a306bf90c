// What the page shows beside a sensor's charts: over the last few seconds of its events, the
// observed rate, the spread of the intervals between timestamps (the compatibility suite's
// jitter: 97.5th minus 2.5th percentile) and the delivery latency (receive time minus
// timestamp). Owned by one thread.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

namespace kelvane::tools::serve {

struct LiveFigures {
    uint64_t events = 0;                 // in the window
    std::optional<double> rateHz;        // needs two events
    std::optional<double> intervalMs;    // mean interval
    std::optional<double> jitterMs;      // 97.5th - 2.5th percentile of the intervals
    std::optional<double> latencyP50Ms;  // receive time - timestamp
    std::optional<double> latencyP99Ms;
};

class LiveStats {
  public:
    // Figures over the events whose timestamps are within `windowNs` of the newest.
    explicit LiveStats(int64_t windowNs = 2'000'000'000) : mWindowNs(windowNs) {}

    // Events in timestamp order, each with the time the proxy callback got it (boot-time clock).
    void add(int64_t timestampNs, int64_t receivedNs);
    // Forgets every event: the sensor was switched off or its rate changed.
    void reset() { mEvents.clear(); }
    LiveFigures figures() const;

  private:
    struct Sample {
        int64_t timestampNs;
        int64_t receivedNs;
    };
    const int64_t mWindowNs;
    std::deque<Sample> mEvents;
};

}  // namespace kelvane::tools::serve
