#include "check/CheckReport.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>

#include "check/MarkupText.h"
#include "check/RuleCatalogue.h"

namespace kelvane::tools::check {

namespace {

struct Tally {
    size_t pass = 0, fail = 0, skip = 0, deviation = 0;
    void add(Verdict v) {
        switch (v) {
            case Verdict::kPass:
                ++pass;
                break;
            case Verdict::kFail:
                ++fail;
                break;
            case Verdict::kSkip:
                ++skip;
                break;
            case Verdict::kDeviation:
                ++deviation;
                break;
        }
    }
    size_t total() const { return pass + fail + skip + deviation; }
};

}  // namespace

std::vector<CheckResult> groupedByRule(const std::vector<CheckResult>& results) {
    std::vector<CheckResult> sorted = results;
    std::stable_sort(sorted.begin(), sorted.end(), [](const CheckResult& a, const CheckResult& b) {
        const size_t ra = ruleOrder(a.rule);
        const size_t rb = ruleOrder(b.rule);
        if (ra != rb) return ra < rb;
        return a.handle.value_or(0) < b.handle.value_or(0);
    });
    return sorted;
}

std::vector<CheckResult> worstFirst(const std::vector<CheckResult>& results) {
    auto rank = [](Verdict v) {
        switch (v) {
            case Verdict::kFail:
                return 0;
            case Verdict::kDeviation:
                return 1;
            case Verdict::kSkip:
                return 2;
            case Verdict::kPass:
                return 3;
        }
        return 3;
    };
    std::vector<CheckResult> ordered = groupedByRule(results);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&](const CheckResult& a, const CheckResult& b) {
                         return rank(a.verdict) < rank(b.verdict);
                     });
    return ordered;
}

std::string summaryLine(const std::vector<CheckResult>& results) {
    Tally tally;
    for (const CheckResult& r : results) tally.add(r.verdict);
    char text[160];
    std::snprintf(text, sizeof(text), "%zu results: %zu PASS, %zu FAIL, %zu SKIP, %zu DEVIATION",
                  tally.total(), tally.pass, tally.fail, tally.skip, tally.deviation);
    return text;
}

std::string groupSummaryLine(const std::vector<CheckResult>& results, const std::string& group) {
    std::vector<CheckResult> mine;
    for (const CheckResult& r : results) {
        if (r.group == group) mine.push_back(r);
    }
    return group + ": " + summaryLine(mine);
}

std::string resultTable(const std::vector<CheckResult>& results) {
    const std::vector<CheckResult> sorted = groupedByRule(results);
    size_t ruleWidth = 4;
    size_t subjectWidth = 6;
    for (const CheckResult& r : sorted) {
        ruleWidth = std::max(ruleWidth, r.rule.size());
        subjectWidth = std::max(subjectWidth, r.subject.size());
    }
    std::string out;
    char line[1024];
    auto row = [&](const std::string& rule, const std::string& subject, const char* verdict,
                   const std::string& detail) {
        std::snprintf(line, sizeof(line), "%-*s  %-*s  %-9s  %s", static_cast<int>(ruleWidth),
                      rule.c_str(), static_cast<int>(subjectWidth), subject.c_str(), verdict,
                      detail.c_str());
        std::string text = line;
        while (!text.empty() && text.back() == ' ') text.pop_back();
        out += text + "\n";
    };
    row("RULE", "SENSOR", "RESULT", "DETAIL");
    // A group may come back later in the catalogue (proxy.*): its summary follows its last row.
    std::map<std::string, size_t> lastRow;
    for (size_t i = 0; i < sorted.size(); ++i) lastRow[sorted[i].group] = i;
    for (size_t i = 0; i < sorted.size(); ++i) {
        const CheckResult& r = sorted[i];
        row(r.rule, r.subject, verdictName(r.verdict), r.detail);
        if (lastRow[r.group] == i) out += groupSummaryLine(sorted, r.group) + "\n";
        if (i + 1 == sorted.size() || sorted[i + 1].group != r.group) out += "\n";
    }
    out += summaryLine(results) + "\n";
    return out;
}

std::string resultJsonLines(const std::vector<CheckResult>& results) {
    std::string out;
    for (const CheckResult& r : groupedByRule(results)) {
        out += toJson(r).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    }
    return out;
}

std::string resultJUnit(const std::vector<CheckResult>& results, double seconds) {
    const std::vector<CheckResult> sorted = groupedByRule(results);
    std::map<std::string, Tally> tallies;
    std::vector<std::string> groups;
    Tally all;
    for (const CheckResult& r : sorted) {
        if (tallies.count(r.group) == 0) groups.push_back(r.group);
        tallies[r.group].add(r.verdict);
        all.add(r.verdict);
    }
    char head[256];
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    std::snprintf(head, sizeof(head),
                  "<testsuites name=\"iio-subhal check\" tests=\"%zu\" failures=\"%zu\" "
                  "errors=\"0\" skipped=\"%zu\" time=\"%.3f\">\n",
                  all.total(), all.fail, all.skip, seconds);
    out += head;
    for (const std::string& group : groups) {
        const Tally& t = tallies[group];
        std::snprintf(head, sizeof(head),
                      "  <testsuite name=\"%s\" tests=\"%zu\" failures=\"%zu\" errors=\"0\" "
                      "skipped=\"%zu\">\n",
                      markupEscaped(group).c_str(), t.total(), t.fail, t.skip);
        out += head;
        for (const CheckResult& r : sorted) {
            if (r.group != group) continue;
            out += "    <testcase classname=\"iio-subhal.check." + markupEscaped(r.rule) +
                   "\" name=\"" + markupEscaped(r.rule + ": " + r.subject) + "\"";
            const std::string message = markupEscaped(r.detail);
            switch (r.verdict) {
                case Verdict::kPass:
                    out += "/>\n";
                    break;
                case Verdict::kFail:
                    out += ">\n      <failure message=\"" + message + "\" type=\"FAIL\">" +
                           message + "</failure>\n    </testcase>\n";
                    break;
                case Verdict::kSkip:
                    out += ">\n      <skipped message=\"" + message + "\"/>\n    </testcase>\n";
                    break;
                case Verdict::kDeviation:
                    out +=
                        ">\n      <properties><property name=\"verdict\" value=\"DEVIATION\"/>"
                        "</properties>\n      <system-out>DEVIATION: " +
                        message + "</system-out>\n    </testcase>\n";
                    break;
            }
        }
        out += "  </testsuite>\n";
    }
    out += "</testsuites>\n";
    return out;
}

}  // namespace kelvane::tools::check
