// The two reports the tool writes as self-contained HTML: a recording's (`report`) and a check
// run's (`check --html`). Their script and style sheet are compiled in from report/page/.
#pragma once

#include <string>
#include <vector>

#include "check/CheckResult.h"
#include "host/description/HostConfig.h"
#include "report/PageOrigin.h"

namespace kelvane::tools::report {

// Each page opens with `origin`: what was judged, when, by what.

// Per device: a chart per channel (in its unit), the interval histogram, gaps and timeline marks.
std::string recordingReportPage(const host::description::HostConfig& recording,
                                const std::string& name, const PageOrigin& origin);

// Every result with its verdict, measured value and bound; failures first, then deviations and
// skips; the summary lines.
std::string checkReportPage(const std::vector<check::CheckResult>& results, double seconds,
                            const PageOrigin& origin);

}  // namespace kelvane::tools::report
