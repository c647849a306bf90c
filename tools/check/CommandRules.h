// The command rules: what activate, batch, flush, setOperationMode, the direct-channel calls and
// initialize answer, and the events the answers promise.
#pragma once

#include "check/CheckRun.h"

namespace kelvane::tools::check {

// Everything but initialize; leaves every sensor inactive.
void runCommandRules(CheckRun& run);

// initialize twice and re-initialize. Runs last: afterwards the sub-HAL posts to a callback of
// the check's own, and sensors may have been left streaming there (they are deactivated).
void runInitializeRules(CheckRun& run);

}  // namespace kelvane::tools::check
