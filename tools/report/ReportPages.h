// The two reports the tool writes as self-contained HTML: a recording's (`report`) and a check
// run's (`check --html`). Their script and style sheet are compiled in from report/page/.
#pragma once

#include <string>
#include <vector>

#include "check/CheckResult.h"
#include "host/description/HostConfig.h"

namespace kelvane::tools::report {

// Per device: a chart per channel (in its unit), the interval histogram, gaps and timeline marks.
std::string recordingReportPage(const host::description::HostConfig& recording,
                                const std::string& name);

// Every result with its verdict, measured value and bound; failures first, then deviations and
// skips; the summary lines.
std::string checkReportPage(const std::vector<check::CheckResult>& results, double seconds,
                            const std::string& hostName);

}  // namespace kelvane::tools::report
