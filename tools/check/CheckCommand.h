// `iio-subhal check`: the Android conformance rules, run against the loaded sub-HAL and its host.
#pragma once

#include <CLI/CLI.hpp>

#include "Session.h"
#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Adds the subcommand and its options, which parse into *options.
CLI::App* addCheckCommand(CLI::App& app, CheckOptions* options);

// Runs every selected rule and prints the report (JSON lines with `json`). Exit code: kExitOk when
// nothing FAILed, kExitFailure otherwise, kExitUsage for a --rule that names no rule or a JUnit
// file that cannot be written.
int runCheck(Session& session, const CheckOptions& options, bool json);

}  // namespace kelvane::tools::check
