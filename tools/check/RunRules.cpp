#include "check/RunRules.h"

#include <chrono>

#include "check/CommandRules.h"
#include "check/CtsRules.h"
#include "check/ListRules.h"
#include "check/RecordedStreams.h"
#include "check/RuleCatalogue.h"
#include "check/StreamRules.h"

namespace kelvane::tools::check {

namespace {

// The rules judged over the whole run, after everything else.
void runWholeRunRules(CheckRun& run) {
    for (const SensorInfo& sensor : run.sensors()) {
        const auto violation = run.timestampViolations().find(sensor.sensorHandle);
        if (violation != run.timestampViolations().end()) {
            run.add(rules::kStreamTimestamps, sensor, "",
                    fail("timestamp " + violation->second + " did not increase"));
        }
    }
    // A sensor never streamed has nothing to judge; one that streamed without a violation passes.
    for (const SensorInfo& sensor : run.sensors()) {
        if (run.timestampViolations().count(sensor.sensorHandle) != 0) continue;
        const uint64_t events = run.sensorEventsSeen(sensor.sensorHandle);
        run.add(
            rules::kStreamTimestamps, sensor, "",
            events == 0 ? skip("no events were seen") : pass(std::to_string(events) + " events"));
    }
    const uint64_t seen = run.sensorEventsSeen();
    const uint64_t mismatches = run.wakelockMismatches();
    if (mismatches != 0) {
        run.add(rules::kProxyWakelock, kSubHal,
                fail(std::to_string(mismatches) +
                     " posts held the wake lock without a wake-up sensor's event, or the reverse"));
    } else if (seen == 0) {
        run.add(rules::kProxyWakelock, kSubHal, skip("no events were posted"));
    } else {
        run.add(rules::kProxyWakelock, kSubHal,
                pass("every post of " + std::to_string(seen) + " sensor events"));
    }
}

// Whether a selected rule judges a sensor's samples.
bool wantsSamples(const CheckRun& run) {
    for (const RuleInfo& rule : ruleCatalogue()) {
        const std::string group = ruleGroup(rule.id.str());
        if ((group == "cts" || group == "stream") && run.wants(rule.id)) return true;
    }
    return false;
}

}  // namespace

std::vector<CheckResult> runRules(Session& session, const CheckOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    CheckRun run(session, options);
    runListRules(run);
    // Before anything else streams: a replayed recording is played once, and its rules judge
    // what it sent.
    if (session.replays() && wantsSamples(run)) {
        run.setRecording(std::make_unique<RecordedStreams>(RecordedStreams::capture(run)));
    }
    runCtsRules(run);
    runCommandRules(run);
    runStreamRules(run);
    runInitializeRules(run);
    runWholeRunRules(run);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.progress("done in " + std::to_string(static_cast<int>(seconds + 0.5)) + " s");
    return run.results();
}

}  // namespace kelvane::tools::check
