// The rule each device of hosts/cts-faulty-streams.json breaks, by sensor name: what check FAILs
// (with --hifi, so that jitter counts) and what a report of its recording flags.
#pragma once

#include <map>
#include <set>
#include <string>

namespace kelvane::testing {

inline std::map<std::string, std::set<std::string>> ctsFaults() {
    return {
        {"Accelerometer (still)", {}},
        {"Accelerometer (rate 0.8x)", {"cts.frequency"}},
        // A dropped sample doubles an interval, which the percentiles of the jitter see too.
        {"Accelerometer (drops every 20th)", {"cts.gaps", "cts.jitter"}},
        {"Accelerometer (jitter 2 ms)", {"cts.jitter"}},
        {"Accelerometer (realtime clock)", {"cts.timestamp-future"}},
        {"Accelerometer (stamped 3 s early)", {"cts.timestamp-age"}},
        {"Accelerometer (z stuck at 0)", {"cts.magnitude"}},
        {"Accelerometer (noisy x)", {"cts.std-dev"}},
        {"Accelerometer (silent 2.1 s)", {"cts.initial-value"}},
        {"Accelerometer (stops at 2.5 s)", {"cts.event-count"}},
        {"Light (frozen clock)", {"cts.ordering"}},
    };
}

}  // namespace kelvane::testing
