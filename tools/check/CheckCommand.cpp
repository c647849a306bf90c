#include "check/CheckCommand.h"

#include <fnmatch.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "Command.h"
#include "Diagnostics.h"
#include "Output.h"
#include "OutputFile.h"
#include "Stdout.h"
#include "SubHalLoader.h"
#include "check/CheckReport.h"
#include "check/RuleCatalogue.h"
#include "check/RunRules.h"
#include "report/ReportPages.h"

namespace kelvane::tools::check {

namespace {

class CheckCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_flag("--quick", mOptions.quick,
                     "shorter stream rules and fewer rates (about 25 s in all), for CI");
        app.add_flag("--hifi", mOptions.hifi,
                     "judge as for high-fidelity sensors: enforce jitter, tighter standard "
                     "deviations");
        mJunitOption =
            app.add_option("--junit", mOptions.junitFile, "also write a JUnit XML report to FILE")
                ->type_name("FILE");
        mHtmlOption =
            app.add_option("--html", mOptions.htmlFile,
                           "also write a self-contained HTML report to FILE, failures first")
                ->type_name("FILE");
        app.add_option("--rule", mOptions.rules,
                       "run only rules whose id matches PATTERN (glob, e.g. 'list.*'); repeatable")
            ->type_name("PATTERN")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    std::string checkOptions() override {
        for (const std::string& pattern : mOptions.rules) {
            bool matched = false;
            for (const RuleInfo& rule : ruleCatalogue()) {
                matched = matched || fnmatch(pattern.c_str(), rule.id.c_str(), 0) == 0;
            }
            if (!matched) return "--rule \"" + pattern + "\" matches no rule";
        }
        return {};
    }
    std::string onInterrupt() const override {
        return "Ctrl-C ends the check at once (the shell sees 130); no report is written.";
    }
    std::vector<FileArgument> outputFiles() const override {
        std::vector<FileArgument> files;
        if (mJunitOption->count() != 0)
            files.push_back({"--junit", mOptions.junitFile, "JUnit report"});
        if (mHtmlOption->count() != 0) files.push_back({"--html", mOptions.htmlFile, "report"});
        return files;
    }
    int run(Session& session) override { return runCheck(session, mOptions, session.json()); }

  private:
    CheckOptions mOptions;
    CLI::Option* mJunitOption = nullptr;
    CLI::Option* mHtmlOption = nullptr;
};

}  // namespace

int runCheck(Session& session, const CheckOptions& options, bool json) {
    // Before the rules run, so that a path that cannot be written costs no run.
    std::unique_ptr<OutputFile> html;
    std::unique_ptr<OutputFile> junit;
    std::string error;
    if (!options.htmlFile.empty() &&
        !(html = OutputFile::create(options.htmlFile, {"--html", "report"}, &error))) {
        printError(printable(error));
        return kExitUsage;
    }
    if (!options.junitFile.empty() &&
        !(junit = OutputFile::create(options.junitFile, {"--junit", "JUnit report"}, &error))) {
        printError(printable(error));
        return kExitUsage;
    }
    const auto start = std::chrono::steady_clock::now();
    const std::vector<CheckResult> results = runRules(session, options);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (json) {
        writeStdout(resultJsonLines(results));
        std::vector<std::string> groups;
        for (const CheckResult& r : groupedByRule(results)) {
            if (std::find(groups.begin(), groups.end(), r.group) == groups.end()) {
                groups.push_back(r.group);
            }
        }
        for (const std::string& group : groups) {
            std::fprintf(stderr, "check: %s\n", groupSummaryLine(results, group).c_str());
        }
        std::fprintf(stderr, "check: %s\n", summaryLine(results).c_str());
    } else {
        writeStdout(resultTable(results));
    }
    flushStdout();
    // A report that cannot be written is a failure of the run, as in `report`.
    if (junit && !junit->commit(resultJUnit(results, seconds), &error)) {
        printError(printable(error));
        return kExitFailure;
    }
    const report::PageOrigin origin{session.hostName(), session.subHalPath(),
                                    loadedLibraryBuildId(session.subHalPath())};
    if (html && !html->commit(report::checkReportPage(results, seconds, origin), &error)) {
        printError(printable(error));
        return kExitFailure;
    }
    for (const CheckResult& r : results) {
        if (r.verdict == Verdict::kFail) return kExitFailure;
    }
    return kExitOk;
}

}  // namespace kelvane::tools::check

namespace kelvane::tools {

std::unique_ptr<Command> makeCheckCommand() { return std::make_unique<check::CheckCommand>(); }

}  // namespace kelvane::tools
