#include "check/CommandRules.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "check/RecordedStreams.h"

namespace kelvane::tools::check {

namespace {

using android::hardware::hidl_handle;
using android::hardware::sensors::V1_0::OperationMode;
using android::hardware::sensors::V1_0::RateLevel;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V1_0::SharedMemFormat;
using android::hardware::sensors::V1_0::SharedMemInfo;
using android::hardware::sensors::V1_0::SharedMemType;

// How long the promised flush completions may take.
constexpr milliseconds kFlushWindow{1000};
// Events from which the rate after a too short period is measured.
constexpr size_t kRateSamples = 40;
// After the expected completions arrived, extra ones still count if they come this soon.
constexpr milliseconds kFlushGrace{100};

uint32_t modeOf(const SensorInfo& sensor) {
    return sensor.flags & SensorFlagBits::MASK_REPORTING_MODE;
}
bool isContinuous(const SensorInfo& sensor) { return modeOf(sensor) == 0; }
bool isOneShot(const SensorInfo& sensor) {
    return modeOf(sensor) == static_cast<uint32_t>(SensorFlagBits::ONE_SHOT_MODE);
}

// "activate(true) answered BAD_VALUE" when `got` is not `want`; empty when it is.
std::string expectAnswer(const std::string& call, Result got, Result want) {
    if (got == want) return "";
    return call + " answered " + resultName(got) + ", expected " + resultName(want);
}

Outcome firstProblem(const std::vector<std::string>& problems, std::string passDetail = {}) {
    for (const std::string& problem : problems) {
        if (!problem.empty()) return fail(problem);
    }
    return pass(std::move(passDetail));
}

std::map<int32_t, size_t> countBy(const std::vector<Event>& events,
                                  const std::function<bool(const Event&)>& match) {
    std::map<int32_t, size_t> counts;
    for (const Event& event : events) {
        if (match(event)) ++counts[event.sensorHandle];
    }
    return counts;
}

size_t flushCompletions(const std::vector<Event>& events, int32_t handle) {
    return static_cast<size_t>(
        std::count_if(events.begin(), events.end(),
                      [handle](const Event& e) { return isFlushComplete(e, handle); }));
}

void checkInvalidHandle(CheckRun& run) {
    if (!run.wants(rules::kCommandsInvalidHandle)) return;
    int32_t largest = 0;
    for (const SensorInfo& sensor : run.published())
        largest = std::max(largest, sensor.sensorHandle);
    const int32_t invalid = largest + 42;
    const std::string h = std::to_string(invalid);
    ISensorsSubHal& hal = run.hal();
    std::vector<std::string> problems = {
        expectAnswer("activate(" + h + ", true)", hal.activate(invalid, true), Result::BAD_VALUE),
        expectAnswer("activate(" + h + ", false)", hal.activate(invalid, false), Result::BAD_VALUE),
        expectAnswer("batch(" + h + ")", hal.batch(invalid, 20000000, 0), Result::BAD_VALUE),
        expectAnswer("flush(" + h + ")", hal.flush(invalid), Result::BAD_VALUE),
    };
    const std::vector<Event> events = run.collectFor(milliseconds(100));
    if (flushCompletions(events, invalid) != 0) {
        problems.push_back("flush(" + h +
                           ") posted a flush completion for a sensor that does not exist");
    }
    run.add(rules::kCommandsInvalidHandle, kSubHal,
            firstProblem(problems, "all four answered BAD_VALUE for handle " + h));
}

void checkActivateTwice(CheckRun& run) {
    if (!run.wants(rules::kCommandsActivateTwice)) return;
    for (const SensorInfo& sensor : run.sensors()) {
        const int32_t handle = sensor.sensorHandle;
        ISensorsSubHal& hal = run.hal();
        std::vector<std::string> problems;
        problems.push_back(
            expectAnswer("first activate(true)", hal.activate(handle, true), Result::OK));
        problems.push_back(
            expectAnswer("second activate(true)", hal.activate(handle, true), Result::OK));
        problems.push_back(
            expectAnswer("first activate(false)", hal.activate(handle, false), Result::OK));
        problems.push_back(
            expectAnswer("second activate(false)", hal.activate(handle, false), Result::OK));
        run.add(rules::kCommandsActivateTwice, sensor, "", firstProblem(problems));
    }
    run.settle();
}

// batch(minDelay, 0) on each inactive sensor, then activate(true); the answers are each sensor's
// first problems.
std::map<int32_t, std::vector<std::string>> activateAtMinDelay(CheckRun& run) {
    ISensorsSubHal& hal = run.hal();
    std::map<int32_t, std::vector<std::string>> problems;
    for (const SensorInfo& sensor : run.sensors()) {
        const int32_t h = sensor.sensorHandle;
        problems[h].push_back(
            expectAnswer("batch(" + std::to_string(sensor.minDelay) + ", 0) on the inactive sensor",
                         hal.batch(h, sensor.minDelay, 0), Result::OK));
        problems[h].push_back(expectAnswer("activate(true)", hal.activate(h, true), Result::OK));
    }
    return problems;
}

// The events until every continuous sensor sent kRateSamples, or 2 s.
std::vector<Event> collectRateSamples(CheckRun& run) {
    return run.collectUntil(
        [&run](const std::vector<Event>& events) {
            const auto counts = countBy(events, [](const Event& e) { return !isMetaEvent(e); });
            for (const SensorInfo& sensor : run.sensors()) {
                if (!isContinuous(sensor)) continue;
                const auto found = counts.find(sensor.sensorHandle);
                if (found == counts.end() || found->second < kRateSamples) return false;
            }
            return true;
        },
        milliseconds(2000));
}

// Whether the rate `sensor` ran at, from the timestamps of its first kRateSamples events in
// `measured`, stays within what its minDelay allows.
void addBatchClamp(CheckRun& run, const SensorInfo& sensor, const std::vector<Event>& measured) {
    const int32_t h = sensor.sensorHandle;
    if (!isContinuous(sensor) || sensor.minDelay <= 0) {
        run.add(rules::kCommandsBatchClamp, sensor, "",
                skip("only a continuous sensor's minDelay bounds its rate"));
        return;
    }
    int64_t first = 0;
    int64_t last = 0;
    size_t n = 0;
    for (const Event& event : measured) {
        if (isMetaEvent(event) || event.sensorHandle != h || n == kRateSamples) continue;
        if (n++ == 0) first = event.timestamp;
        last = event.timestamp;
    }
    if (n < 2 || last <= first) {
        const bool played = run.recording() && run.recording()->find(h);
        run.add(rules::kCommandsBatchClamp, sensor, "",
                skip(played ? "needs a live host: the recording's stream was played once, at "
                              "its recorded rate"
                            : "too few events arrived to measure the rate"));
        return;
    }
    const double rate = static_cast<double>(n - 1) * 1e9 / static_cast<double>(last - first);
    const double bound = 1e6 / sensor.minDelay;
    char text[256];
    if (rate > bound * 1.1) {
        std::snprintf(text, sizeof(text),
                      "%.0f Hz after batch(%d ns), above the %.0f Hz that minDelay %d us "
                      "allows: periods pass through unclamped, by design",
                      rate, sensor.minDelay, bound, sensor.minDelay);
        run.add(rules::kCommandsBatchClamp, sensor, "", deviation(text));
    } else {
        std::snprintf(text, sizeof(text), "%.0f Hz, within the %.0f Hz of minDelay", rate, bound);
        run.add(rules::kCommandsBatchClamp, sensor, "", pass(text));
    }
}

// batch(minDelay, 0) inactive and batch(maxDelay, 0) active, with the µs delays passed as ns as
// the conformance test does. While the too short period is in force, the event rate shows whether
// the sub-HAL clamped it.
void checkBatch(CheckRun& run) {
    if (!run.wantsAny({rules::kCommandsBatch, rules::kCommandsBatchClamp})) return;
    ISensorsSubHal& hal = run.hal();
    std::map<int32_t, std::vector<std::string>> problems = activateAtMinDelay(run);
    const std::vector<Event> measured = collectRateSamples(run);
    for (const SensorInfo& sensor : run.sensors()) {
        const int32_t h = sensor.sensorHandle;
        problems[h].push_back(
            expectAnswer("batch(" + std::to_string(sensor.maxDelay) + ", 0) on the active sensor",
                         hal.batch(h, sensor.maxDelay, 0), Result::OK));
        problems[h].push_back(expectAnswer("activate(false)", hal.activate(h, false), Result::OK));
        run.add(rules::kCommandsBatch, sensor, "", firstProblem(problems[h]));
        addBatchClamp(run, sensor, measured);
    }
    run.settle();
}

void checkFlushActive(CheckRun& run) {
    if (!run.wants(rules::kCommandsFlush)) return;
    std::vector<SensorInfo> sensors;
    for (const SensorInfo& sensor : run.sensors()) {
        if (isOneShot(sensor)) {
            run.add(rules::kCommandsFlush, sensor, "", skip("a one-shot sensor cannot be flushed"));
        } else {
            sensors.push_back(sensor);
        }
    }
    ISensorsSubHal& hal = run.hal();
    std::map<int32_t, std::vector<std::string>> problems;
    for (const SensorInfo& sensor : sensors) {
        problems[sensor.sensorHandle].push_back(
            expectAnswer("activate(true)", hal.activate(sensor.sensorHandle, true), Result::OK));
    }
    std::map<int32_t, std::string> counted;
    for (size_t flushes : {size_t{1}, size_t{5}}) {
        for (const SensorInfo& sensor : sensors) {
            for (size_t i = 0; i < flushes; ++i) {
                problems[sensor.sensorHandle].push_back(
                    expectAnswer("flush", hal.flush(sensor.sensorHandle), Result::OK));
            }
        }
        auto enough = [&](const std::vector<Event>& events) {
            for (const SensorInfo& sensor : sensors) {
                if (flushCompletions(events, sensor.sensorHandle) < flushes) return false;
            }
            return true;
        };
        std::vector<Event> events = run.collectUntil(enough, kFlushWindow);
        const std::vector<Event> late = run.collectFor(kFlushGrace);
        events.insert(events.end(), late.begin(), late.end());
        for (const SensorInfo& sensor : sensors) {
            const size_t got = flushCompletions(events, sensor.sensorHandle);
            if (got != flushes) {
                problems[sensor.sensorHandle].push_back(
                    std::to_string(flushes) + " flushes gave " + std::to_string(got) +
                    " completions within 1 s, expected exactly " + std::to_string(flushes));
            }
        }
    }
    for (const SensorInfo& sensor : sensors) {
        hal.activate(sensor.sensorHandle, false);
        run.add(rules::kCommandsFlush, sensor, "",
                firstProblem(problems[sensor.sensorHandle], "1 and 5 completions"));
    }
    run.settle();
}

void checkFlushInactive(CheckRun& run) {
    if (!run.wants(rules::kCommandsFlushInactive)) return;
    std::map<int32_t, Result> answers;
    for (const SensorInfo& sensor : run.sensors()) {
        answers[sensor.sensorHandle] = run.hal().flush(sensor.sensorHandle);
    }
    const std::vector<Event> events = run.collectFor(milliseconds(300));
    for (const SensorInfo& sensor : run.sensors()) {
        const Result answer = answers[sensor.sensorHandle];
        const size_t completions = flushCompletions(events, sensor.sensorHandle);
        const std::string seen = "answered " + resultName(answer) + " with " +
                                 std::to_string(completions) +
                                 (completions == 1 ? " completion" : " completions");
        if (answer == Result::BAD_VALUE && completions == 0) {
            run.add(rules::kCommandsFlushInactive, sensor, "", pass(seen));
        } else if (answer == Result::OK && completions == 1) {
            run.add(
                rules::kCommandsFlushInactive, sensor, "",
                deviation(seen + ": an inactive sensor is flushed like an active one, by design"));
        } else {
            run.add(rules::kCommandsFlushInactive, sensor, "",
                    fail(seen + ", expected BAD_VALUE with none (or, by design, OK with one)"));
        }
    }
}

void checkOperationMode(CheckRun& run) {
    if (!run.wants(rules::kCommandsOperationMode)) return;
    bool injection = false;
    for (const SensorInfo& sensor : run.sensors()) {
        injection = injection || (sensor.flags & SensorFlagBits::DATA_INJECTION) != 0;
    }
    const Result answer = run.hal().setOperationMode(OperationMode::DATA_INJECTION);
    const Result restored = run.hal().setOperationMode(OperationMode::NORMAL);
    const std::string seen = "setOperationMode(DATA_INJECTION) answered " + resultName(answer);
    Outcome outcome;
    if (restored != Result::OK) {
        outcome = fail("setOperationMode(NORMAL) answered " + resultName(restored));
    } else if (injection) {
        outcome = answer == Result::OK
                      ? pass(seen)
                      : fail(seen + ", expected OK: a sensor declares DATA_INJECTION");
    } else if (answer == Result::BAD_VALUE) {
        outcome = pass(seen);
    } else if (answer == Result::OK) {
        outcome = deviation(seen + " although no sensor declares DATA_INJECTION, by design");
    } else {
        outcome = fail(seen + ", expected BAD_VALUE: no sensor declares DATA_INJECTION");
    }
    run.add(rules::kCommandsOperationMode, kSubHal, outcome);
}

void checkDirectChannel(CheckRun& run) {
    if (!run.wants(rules::kCommandsDirectChannel)) return;
    for (const SensorInfo& sensor : run.sensors()) {
        if ((sensor.flags & SensorFlagBits::MASK_DIRECT_CHANNEL) != 0) {
            run.add(rules::kCommandsDirectChannel, kSubHal,
                    skip(std::string(sensor.name) + " declares direct channels"));
            return;
        }
    }
    ISensorsSubHal& hal = run.hal();
    std::vector<std::string> problems;
    SharedMemInfo memory{SharedMemType::ASHMEM, SharedMemFormat::SENSORS_EVENT, 4096,
                         hidl_handle()};
    Result registered = Result::OK;
    int32_t channel = 0;
    hal.registerDirectChannel(memory, [&](Result result, int32_t id) {
        registered = result;
        channel = id;
    });
    problems.push_back(
        expectAnswer("registerDirectChannel", registered, Result::INVALID_OPERATION));
    if (channel != -1) {
        problems.push_back("registerDirectChannel gave channel " + std::to_string(channel) +
                           ", expected -1");
    }
    Result configured = Result::OK;
    const int32_t handle = run.sensors().empty() ? 1 : run.sensors().front().sensorHandle;
    hal.configDirectReport(handle, -1, RateLevel::NORMAL,
                           [&](Result result, int32_t) { configured = result; });
    problems.push_back(expectAnswer("configDirectReport", configured, Result::INVALID_OPERATION));
    problems.push_back(expectAnswer("unregisterDirectChannel", hal.unregisterDirectChannel(-1),
                                    Result::INVALID_OPERATION));
    run.add(rules::kCommandsDirectChannel, kSubHal, firstProblem(problems));
}

// The continuous sensor the initialize rules stream from.
// The first continuous sensor that streams live; a recording's were played once already.
const SensorInfo* streamingSensor(const CheckRun& run, std::string* whyNone) {
    *whyNone = "no continuous sensor to stream from";
    for (const SensorInfo& sensor : run.sensors()) {
        if (!isContinuous(sensor)) continue;
        if (!run.recording() || !run.recording()->find(sensor.sensorHandle)) return &sensor;
        *whyNone = "needs a live host: a recording's streams were played once, before this rule";
    }
    return nullptr;
}

bool hasSensorEvent(const std::vector<Event>& events, int32_t handle) {
    return std::any_of(events.begin(), events.end(), [handle](const Event& e) {
        return !isMetaEvent(e) && e.sensorHandle == handle;
    });
}

// Two new callbacks in a row, then activate(true) on `sensor`: only the second callback may hear
// from it. Leaves the sensor active.
void initializeTwice(CheckRun& run, const SensorInfo& sensor) {
    const int32_t handle = sensor.sensorHandle;
    ISensorsSubHal& hal = run.hal();
    const android::sp<ProxyCallback> previous = run.currentCallback();
    android::sp<ProxyCallback> older = run.newCallback();
    android::sp<ProxyCallback> newest = run.newCallback();
    std::vector<std::string> problems = {
        expectAnswer("first re-initialize", hal.initialize(older), Result::OK),
        expectAnswer("second re-initialize", hal.initialize(newest), Result::OK),
    };
    run.useCallback(newest);
    problems.push_back(expectAnswer("activate(true)", hal.activate(handle, true), Result::OK));
    const std::vector<Event> heard = run.collectUntil(
        [handle](const std::vector<Event>& events) { return hasSensorEvent(events, handle); },
        milliseconds(2000));
    if (!hasSensorEvent(heard, handle)) {
        problems.push_back("the newest callback received no event of " + std::string(sensor.name) +
                           " within 2 s");
    }
    if (!run.wants(rules::kCommandsInitializeTwice)) return;
    run.collectFor(milliseconds(100));
    size_t misplaced = 0;
    for (const auto& replaced : {previous, older}) {
        for (const Event& event : replaced->queue().takeUntil(std::chrono::steady_clock::now())) {
            misplaced += isMetaEvent(event) ? 0 : 1;
        }
    }
    if (misplaced != 0) {
        problems.push_back(std::to_string(misplaced) +
                           " events went to a replaced callback after the re-initialize");
    }
    run.add(rules::kCommandsInitializeTwice, kSubHal, firstProblem(problems));
}

// Re-initialize while `sensor` streams: the conformance suite expects silence until the sensor is
// activated again.
void checkInitializeCleanup(CheckRun& run, const SensorInfo& sensor) {
    const int32_t handle = sensor.sensorHandle;
    android::sp<ProxyCallback> fresh = run.newCallback();
    const Result answer = run.hal().initialize(fresh);
    run.useCallback(fresh);
    const std::vector<Event> after = run.collectUntil(
        [handle](const std::vector<Event>& events) { return hasSensorEvent(events, handle); },
        milliseconds(2000));
    if (answer != Result::OK) {
        run.add(rules::kCommandsInitializeCleanup, kSubHal,
                fail("initialize answered " + resultName(answer)));
    } else if (hasSensorEvent(after, handle)) {
        run.add(rules::kCommandsInitializeCleanup, kSubHal,
                deviation("events of the still active " + std::string(sensor.name) +
                          " reach the new callback without a new activate, by design"));
    } else {
        run.add(rules::kCommandsInitializeCleanup, kSubHal, pass("no event within 2 s"));
    }
}

}  // namespace

void runCommandRules(CheckRun& run) {
    run.progress("commands");
    run.settle();
    checkInvalidHandle(run);
    checkActivateTwice(run);
    checkOperationMode(run);
    checkDirectChannel(run);
    checkFlushInactive(run);
    run.progress("commands: batch and flush");
    checkBatch(run);
    checkFlushActive(run);
}

void runInitializeRules(CheckRun& run) {
    if (!run.wantsAny({rules::kCommandsInitializeTwice, rules::kCommandsInitializeCleanup})) return;
    run.progress("initialize twice");
    std::string whyNone;
    const SensorInfo* sensor = streamingSensor(run, &whyNone);
    if (sensor == nullptr) {
        run.add(rules::kCommandsInitializeTwice, kSubHal, skip(whyNone));
        run.add(rules::kCommandsInitializeCleanup, kSubHal, skip(whyNone));
        return;
    }
    run.settle();
    initializeTwice(run, *sensor);
    if (run.wants(rules::kCommandsInitializeCleanup)) checkInitializeCleanup(run, *sensor);
    run.hal().activate(sensor->sensorHandle, false);
    run.settle();
}

}  // namespace kelvane::tools::check
