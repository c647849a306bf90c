// `iio-subhal check`: the Android conformance rules, run against the loaded sub-HAL and its host.
#pragma once

#include <vector>

#include "Session.h"
#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Runs every selected rule on the calling thread and returns the results in run order. Sensors
// must be inactive; the sub-HAL may be left initialized with another callback than the session's.
std::vector<CheckResult> runRules(Session& session, const CheckOptions& options);

// Runs every selected rule and prints the report (JSON lines with `json`). Exit code: kExitOk when
// nothing FAILed, kExitFailure otherwise, kExitUsage for a JUnit file that cannot be written. The
// subcommand itself is makeCheckCommand() (Command.h).
int runCheck(Session& session, const CheckOptions& options, bool json);

}  // namespace kelvane::tools::check
