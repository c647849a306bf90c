// The compatibility suite's stream statistics (the `cts.*` rules): every continuous sensor at
// FASTEST, 200, 100, 50, 25, 15, 10, 5 and 1 Hz (FASTEST, 50 and 10 Hz with --quick), judged at
// the period the framework would ask for (the request clamped to [minDelay, maxDelay]); a batching
// run at FASTEST with a 10 s report latency for the event count and flush; the static bounds of
// minDelay and resolution.
//
// Sensors stream side by side: each rule looks only at its own sensor's events, and the library
// samples each device on its own. Between two streams the suite leaves the sensors off for 3 s;
// here the next stream starts once the last one's events have stopped coming, since the library
// keeps nothing of a stopped stream.
#pragma once

#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Leaves every sensor inactive.
void runCtsRules(CheckRun& run);

}  // namespace kelvane::tools::check
