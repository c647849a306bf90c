// The stream rules: streaming at fixed periods, the hot switch between minDelay and maxDelay and
// no stale events after a re-activation. Sensors of different types stream side by side, so the
// full run stays short; every rule looks only at its own sensor's handle.
#pragma once

#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Leaves every sensor inactive.
void runStreamRules(CheckRun& run);

}  // namespace kelvane::tools::check
