// `iio-subhal check`: the Android conformance rules, run against the loaded sub-HAL and its host.
#pragma once

#include <vector>

#include "Session.h"
#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Runs every selected rule and prints the report (JSON lines with `json`). Exit code: kExitOk when
// nothing FAILed, kExitFailure otherwise, kExitUsage for a JUnit file that cannot be written. The
// subcommand itself is makeCheckCommand() (Command.h).
int runCheck(Session& session, const CheckOptions& options, bool json);

}  // namespace kelvane::tools::check
