// Renderings of a check's results: a table grouped by rule and sensor with a one-line summary,
// JSON (one object per result per line) and JUnit XML for CI systems.
#pragma once

#include <string>
#include <vector>

#include "check/CheckResult.h"

namespace kelvane::tools::check {

// Results ordered by the rule catalogue, then by subject, run order kept within.
std::vector<CheckResult> groupedByRule(const std::vector<CheckResult>& results);

// groupedByRule(), ordered by verdict: failures, deviations, skips, then passes; what a page
// shows first is what needs a look.
std::vector<CheckResult> worstFirst(const std::vector<CheckResult>& results);

// "31 results: 20 PASS, 1 FAIL, 6 SKIP, 4 DEVIATION"
std::string summaryLine(const std::vector<CheckResult>& results);

// "cts: 117 results: 102 PASS, 0 FAIL, 15 SKIP, 0 DEVIATION", over the results of `group`.
std::string groupSummaryLine(const std::vector<CheckResult>& results, const std::string& group);

// Rows grouped by rule, a summary line after each group and one for everything at the end.
std::string resultTable(const std::vector<CheckResult>& results);
std::string resultJsonLines(const std::vector<CheckResult>& results);
// One <testsuite> per rule group; FAIL is a <failure>, SKIP a <skipped>, and a DEVIATION passes
// with its verdict as a property and its detail in <system-out>.
std::string resultJUnit(const std::vector<CheckResult>& results, double seconds);

}  // namespace kelvane::tools::check
