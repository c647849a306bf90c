#include "check/CheckCommand.h"

#include <fnmatch.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>

#include "Command.h"
#include "Diagnostics.h"
#include "Output.h"
#include "RecordingFile.h"
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
        app.add_option("--junit", mOptions.junitFile, "also write a JUnit XML report to FILE")
            ->type_name("FILE");
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
    int run(Session& session) override { return runCheck(session, mOptions, session.json()); }

  private:
    CheckOptions mOptions;
};

}  // namespace

int runCheck(Session& session, const CheckOptions& options, bool json) {
    std::unique_ptr<RecordingFile> html;
    if (!options.htmlFile.empty()) {
        // Before the rules run, so that a path that cannot be written costs no run.
        std::string error;
        html = RecordingFile::create(options.htmlFile, session.hostInput(), &error,
                                     RecordingFile::Role{"--html", "report", "the --host input"});
        if (!html) {
            printError(printable(error));
            return kExitUsage;
        }
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
    if (!options.junitFile.empty()) {
        std::ofstream file(options.junitFile);
        file << resultJUnit(results, seconds);
        file.close();
        if (!file) {
            printError("cannot write " + options.junitFile);
            return kExitUsage;
        }
    }
    if (html) {
        std::string error;
        if (!html->commit(report::checkReportPage(results, seconds,
                                                  {session.hostName(), session.subHalPath(),
                                                   loadedLibraryBuildId(session.subHalPath())}),
                          &error)) {
            printError(printable(error));
            return kExitUsage;
        }
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
