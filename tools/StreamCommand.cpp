// stream: batch and activate the chosen sensors, print their events until the duration, the
// count or Ctrl-C ends it, then deactivate them and summarize.
#include <atomic>
#include <chrono>
#include <csignal>
#include <map>
#include <optional>

#include "Arguments.h"
#include "Command.h"
#include "Output.h"
#include "SensorSelection.h"
#include "Stdout.h"
#include "StreamStats.h"

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V1_0::Result;

// How often the main loop looks at the stop flag while no event arrives.
constexpr std::chrono::milliseconds kPollInterval{100};

std::atomic<bool> gStopRequested{false};

extern "C" void onStopSignal(int) { gStopRequested.store(true); }

void installStopHandlers() {
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

class StreamCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_option("--sensor", mSelectors,
                       "a handle (1), a type (accelerometer, android.sensor.accelerometer, "
                       "magnetometer), a sensor name (\"Accelerometer (lid)\") or all; "
                       "repeatable (default: all)")
            ->type_name("SENSOR")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        mRateOption = app.add_option("--rate", mRateText, "sampling rate in Hz, 0.001 to 1e9")
                          ->type_name("HZ");
        mPeriodOption = app.add_option("--period-ns", mPeriodText,
                                       "sampling period in ns, 1 to 1e12 (10000000 is 100 Hz)")
                            ->type_name("NS");
        mRateOption->excludes(mPeriodOption);
        mDurationOption =
            app.add_option("--duration", mDurationText,
                           "stop after this many seconds (default 3; 0: until Ctrl-C)")
                ->type_name("SECONDS");
        CLI::Option* follow =
            app.add_flag("--follow", mFollow, "stream until Ctrl-C (same as --duration 0)");
        follow->excludes(mDurationOption);
        mCountOption =
            app.add_option("--count", mCountText, "stop after this many sensor events in total")
                ->type_name("N");
    }

    std::string checkOptions() override {
        std::string error;
        if (*mRateOption && !(error = parseRate(mRateText, &mPeriodNs.emplace())).empty()) {
            return "--rate: " + error;
        }
        if (*mPeriodOption && !(error = parsePeriodNs(mPeriodText, &mPeriodNs.emplace())).empty()) {
            return "--period-ns: " + error;
        }
        if (mFollow) mDurationSeconds.reset();
        if (*mDurationOption &&
            !(error = parseDuration(mDurationText, &mDurationSeconds)).empty()) {
            return "--duration: " + error;
        }
        if (*mCountOption && !(error = parseCount(mCountText, &mCount.emplace())).empty()) {
            return "--count: " + error;
        }
        for (const std::string& selector : mSelectors) {
            if (!(error = checkSelector(selector)).empty()) return error;
        }
        return {};
    }

    std::string onInterrupt() const override {
        return "Ctrl-C (or SIGTERM) ends the stream early: the sensors are deactivated and the "
               "summary printed, as when the duration ends. Before streaming starts it ends "
               "the tool at once.";
    }

    int run(Session& session) override;

  private:
    std::vector<std::string> mSelectors;
    std::string mRateText;
    std::string mPeriodText;
    std::string mDurationText;
    std::string mCountText;
    bool mFollow = false;
    CLI::Option* mRateOption = nullptr;
    CLI::Option* mPeriodOption = nullptr;
    CLI::Option* mDurationOption = nullptr;
    CLI::Option* mCountOption = nullptr;

    std::optional<int64_t> mPeriodNs;
    std::optional<double> mDurationSeconds = 3.0;  // none: until Ctrl-C
    std::optional<uint64_t> mCount;
};

int StreamCommand::run(Session& session) {
    std::vector<SensorInfo> sensors;
    const std::string error = selectSensors(session.sensors(), mSelectors, &sensors);
    if (!error.empty()) {
        printError(error);
        return kExitFailure;
    }
    if (sensors.empty()) {
        printError("no sensors to stream");
        return kExitFailure;
    }

    installStopHandlers();
    std::map<int32_t, std::string> names;
    for (const SensorInfo& sensor : sensors) {
        names[sensor.sensorHandle] = sensor.name;
        const int32_t handle = sensor.sensorHandle;
        if (mPeriodNs) {
            Result result = session.subHal()->batch(handle, *mPeriodNs, 0);
            if (result != Result::OK) {
                printWarning("batch(" + std::to_string(handle) + ") answered " +
                             std::to_string(static_cast<int>(result)));
            }
        }
        Result result = session.subHal()->activate(handle, true);
        if (result != Result::OK) {
            printWarning("activate(" + std::to_string(handle) + ") answered " +
                         std::to_string(static_cast<int>(result)));
        }
    }

    StreamStats stats;
    uint64_t counted = 0;
    std::optional<std::chrono::steady_clock::time_point> end;
    if (mDurationSeconds) {
        end = std::chrono::steady_clock::now() +
              std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                  std::chrono::duration<double>(*mDurationSeconds));
    }
    bool countReached = false;
    bool writeFailed = false;
    while (!countReached && !writeFailed && !gStopRequested.load()) {
        const auto now = std::chrono::steady_clock::now();
        if (end && now >= *end) break;
        const auto wake = end ? std::min(*end, now + kPollInterval) : now + kPollInterval;
        std::string out;
        for (const Event& event : session.callback().queue().takeUntil(wake)) {
            auto name = names.find(event.sensorHandle);
            if (name == names.end()) continue;  // not a sensor this run asked for
            out += (session.json() ? eventJson(event) : eventText(event, name->second)) + "\n";
            if (isMeta(event)) continue;
            stats.add(event);
            if (mCount && ++counted >= *mCount) {
                countReached = true;
                break;
            }
        }
        writeFailed = !writeStdout(out) || !flushStdout();
    }

    for (const SensorInfo& sensor : sensors) session.subHal()->activate(sensor.sensorHandle, false);
    std::fputs(stats.summary(sensors).c_str(), stderr);
    if (uint64_t mismatches = session.callback().wakelockMismatches(); mismatches != 0) {
        printWarning(std::to_string(mismatches) +
                     " posts held the wake lock when they should not have, or the reverse");
    }
    if (countReached || writeFailed) return kExitOk;  // a write error is reported on the way out

    // Every sensor asked for should have said something within the run.
    int result = kExitOk;
    std::string why;
    for (const std::string& problem : session.hostProblems()) {
        why += (why.empty() ? "; the host side saw: " : "; ") + problem;
    }
    for (const SensorInfo& sensor : sensors) {
        if (stats.hasEvents(sensor.sensorHandle)) continue;
        printError("no events from [" + std::to_string(sensor.sensorHandle) + "] " +
                   printable(sensor.name) + why);
        result = kExitFailure;
    }
    return result;
}

}  // namespace

std::unique_ptr<Command> makeStreamCommand() { return std::make_unique<StreamCommand>(); }

}  // namespace kelvane::tools
