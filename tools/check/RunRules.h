// The rules of a check, group by group, on a session's sub-HAL. Reaches no page or report
// builder: what to make of the results is the caller's.
#pragma once

#include <vector>

#include "Session.h"
#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Runs every selected rule on the calling thread and returns the results in run order. Sensors
// must be inactive; the sub-HAL may be left initialized with another callback than the session's.
std::vector<CheckResult> runRules(Session& session, const CheckOptions& options);

}  // namespace kelvane::tools::check
