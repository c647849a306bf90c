#include "report/ReportPages.h"

#include <algorithm>

#include "Asset.h"
#include "check/CheckReport.h"
#include "report/HtmlPage.h"
#include "report/RecordingReport.h"

namespace kelvane::tools::web {
const Asset* reportPageAsset(std::string_view name);
}  // namespace kelvane::tools::web

namespace kelvane::tools::report {

namespace {

std::string_view asset(const web::Asset* found) { return found ? found->body : ""; }

}  // namespace

std::string recordingReportPage(const host::description::HostConfig& recording,
                                const std::string& name, const PageOrigin& origin) {
    nlohmann::json data = recordingReport(recording, name);
    data["origin"] = originJson(origin);
    return selfContainedPage(
        name + " — iio-subhal report",
        {asset(web::chartAsset("uPlot.min.css")), asset(web::reportPageAsset("report.css"))}, data,
        {asset(web::chartAsset("uPlot.iife.min.js")), asset(web::chartAsset("scales.js")),
         asset(web::chartAsset("dom.js")), asset(web::reportPageAsset("report.js"))});
}

std::string checkReportPage(const std::vector<check::CheckResult>& results, double seconds,
                            const PageOrigin& origin) {
    const std::vector<check::CheckResult> ordered = check::worstFirst(results);
    nlohmann::json rows = nlohmann::json::array();
    std::vector<std::string> groups;
    for (const check::CheckResult& r : ordered) {
        rows.push_back(check::toJson(r));
        if (std::find(groups.begin(), groups.end(), r.group) == groups.end()) {
            groups.push_back(r.group);
        }
    }
    std::sort(groups.begin(), groups.end());
    nlohmann::json summaries = nlohmann::json::array();
    for (const std::string& group : groups) {
        summaries.push_back(check::groupSummaryLine(results, group));
    }
    const nlohmann::json data = {{"kind", "check"},     {"origin", originJson(origin)},
                                 {"seconds", seconds},  {"summary", check::summaryLine(results)},
                                 {"groups", summaries}, {"results", rows}};
    return selfContainedPage(
        "iio-subhal check — " + origin.host, {asset(web::reportPageAsset("report.css"))}, data,
        {asset(web::chartAsset("dom.js")), asset(web::reportPageAsset("report.js"))});
}

}  // namespace kelvane::tools::report
