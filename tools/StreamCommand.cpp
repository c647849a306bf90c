// stream: batch and activate the chosen sensors, print their events until the duration, the
// count or Ctrl-C ends it, then deactivate them and summarize.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>

#include "Arguments.h"
#include "Command.h"
#include "HostWatch.h"
#include "Output.h"
#include "SensorSelection.h"
#include "StallWatch.h"
#include "Stdout.h"
#include "StdoutWriter.h"
#include "StopSignals.h"
#include "StreamStats.h"

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;

// How often the main loop looks at the stop flag while no event arrives.
constexpr std::chrono::milliseconds kPollInterval{100};
// How long the samples of a replay that is over may take to come out of the library.
constexpr std::chrono::seconds kReplayGrace{2};

// "[1] Accelerometer (lid)"
std::string label(const SensorInfo& sensor) {
    return "[" + std::to_string(sensor.sensorHandle) + "] " + printable(sensor.name);
}

// One stream, from activation to the summary. Main thread only.
class StreamRun {
  public:
    // Flush stdout before: the writer takes it over.
    StreamRun(Session& session, std::vector<SensorInfo> sensors, std::optional<uint64_t> count)
        : mSession(session),
          mSensors(std::move(sensors)),
          mCount(count),
          mStalls(session.started()),
          mWriter(STDOUT_FILENO) {
        for (const SensorInfo& sensor : mSensors) {
            mNames[sensor.sensorHandle] = sensor.name;
            if ((sensor.flags & SensorFlagBits::MASK_REPORTING_MODE) ==
                static_cast<uint32_t>(SensorFlagBits::CONTINUOUS_MODE)) {
                mStalls.watch(sensor.sensorHandle, label(sensor));
            }
        }
    }

    // Batches (with a period) and activates every sensor.
    void start(std::optional<int64_t> periodNs) {
        mStarted = true;
        if (periodNs) mSession.hostWatch().setAskedRate(1e9 / static_cast<double>(*periodNs));
        for (const SensorInfo& sensor : mSensors) {
            const int32_t handle = sensor.sensorHandle;
            Result result = Result::OK;
            if (periodNs) result = mSession.subHal()->batch(handle, *periodNs, 0);
            if (result != Result::OK) {
                printWarning("batch(" + std::to_string(handle) + ") answered " +
                             std::to_string(static_cast<int>(result)));
            }
            result = mSession.subHal()->activate(handle, true);
            if (result != Result::OK) {
                printWarning("activate(" + std::to_string(handle) + ") answered " +
                             std::to_string(static_cast<int>(result)));
            }
        }
    }

    // Prints events until `end` (none: until a stop signal), the count, a write error, the end
    // of a replay or the loss of the host. Returns why the host is lost, if it is.
    std::optional<std::string> stream(std::optional<std::chrono::steady_clock::time_point> end);

    // Deactivates the sensors, takes what they sent meanwhile and lets the reader of stdout have
    // it all, then says how the stream went. Returns the exit code.
    int finish(std::optional<std::string> hostLost);

  private:
    // Takes what the library posted by `deadline`, or what it posted already.
    void take(std::chrono::steady_clock::time_point deadline);
    // Whether the writer wrote everything; says what it could not.
    int writerResult(StdoutWriter::Drained drained);
    // The sensors that sent nothing fail the run, with what the host side saw.
    int silentSensorsResult(bool hostLost) const;

    Session& mSession;
    const std::vector<SensorInfo> mSensors;
    const std::optional<uint64_t> mCount;
    std::map<int32_t, std::string> mNames;
    StallWatch mStalls;
    StreamStats mStats;
    StdoutWriter mWriter;
    bool mStarted = false;
    uint64_t mCounted = 0;
    uint64_t mReceived = 0;  // sensor events, beyond the count too
    bool mCountReached = false;
};

void StreamRun::take(std::chrono::steady_clock::time_point deadline) {
    for (const Event& event : mSession.callback().queue().takeUntil(deadline)) {
        auto name = mNames.find(event.sensorHandle);
        if (name == mNames.end()) continue;  // not a sensor this run asked for
        if (mCountReached) {
            mReceived += isMeta(event) ? 0 : 1;
            continue;
        }
        mWriter.append((mSession.json() ? eventJson(event) : eventText(event, name->second)) +
                       "\n");
        if (isMeta(event)) continue;
        ++mReceived;
        mStats.add(event);
        const std::string resumed =
            mStalls.arrived(event.sensorHandle, std::chrono::steady_clock::now());
        if (!resumed.empty()) printWarning(resumed);
        mCountReached = mCount && ++mCounted >= *mCount;
    }
}

std::optional<std::string> StreamRun::stream(
    std::optional<std::chrono::steady_clock::time_point> end) {
    HostWatch& host = mSession.hostWatch();
    std::optional<std::chrono::steady_clock::time_point> replayOverSeen;
    std::optional<std::string> hostLost;
    while (mStarted && !mCountReached && mWriter.failed() == 0 && stopSignal() == 0) {
        const auto now = std::chrono::steady_clock::now();
        if (end && now >= *end) break;
        if (!replayOverSeen && host.replayOver()) replayOverSeen = now;
        // What the host sent is still on its way through the library: the stream ends once it
        // all came, or after a grace for samples the library did not turn into events.
        if (replayOverSeen &&
            (mReceived >= host.samplesSent() || now - *replayOverSeen >= kReplayGrace)) {
            break;
        }
        if ((hostLost = host.hostLost())) break;
        take(end ? std::min(*end, now + kPollInterval) : now + kPollInterval);
        for (const std::string& line : mStalls.check(std::chrono::steady_clock::now())) {
            printWarning(line);
        }
    }
    // A replay is over once the host has played the loss it recorded, as it was lost live.
    if (!hostLost && replayOverSeen) hostLost = host.hostLost();
    return hostLost;
}

int StreamRun::finish(std::optional<std::string> hostLost) {
    for (const SensorInfo& sensor : mStarted ? mSensors : std::vector<SensorInfo>()) {
        mSession.subHal()->activate(sensor.sensorHandle, false);
    }
    const auto stoppedAt = std::chrono::steady_clock::now();
    take(stoppedAt);  // sampled while the sensors were active

    // What the reader has not taken yet, it gets now; a second Ctrl-C gives it up.
    const int stopsBefore = stopSignalCount();
    const StdoutWriter::Drained drained = mWriter.drain(
        [stopsBefore] { return stopSignalCount() > stopsBefore; },
        [](size_t lines) {
            printWarning("the sensors are off; waiting for the reader of stdout to take " +
                         std::to_string(lines) + " more events (Ctrl-C gives them up)");
        });
    std::fputs(mStats.summary(mSensors).c_str(), stderr);
    if (uint64_t mismatches = mSession.callback().wakelockMismatches(); mismatches != 0) {
        printWarning(std::to_string(mismatches) +
                     " posts held the wake lock when they should not have, or the reverse");
    }
    int result = kExitOk;
    if (hostLost) {
        printError(*hostLost);
        result = kExitFailure;
    } else if (mSession.replays() && !mSession.hostWatch().replayOver() && mStarted &&
               !mCountReached && stopSignal() == 0 &&
               drained != StdoutWriter::Drained::kWriteFailed) {
        printWarning(
            "the stream ended before the replay was over: recorded samples or timeline "
            "entries were left (a longer --duration, --speed 0 or every sensor plays them)");
    }
    if (drained == StdoutWriter::Drained::kWriteFailed) {
        reportStdoutError(mWriter.failed());  // said on the way out
        return kExitOk;
    }
    if (writerResult(drained) != kExitOk) result = kExitFailure;
    for (const std::string& line : mStalls.stalledAtEnd(stoppedAt)) {
        printError(line);
        result = kExitFailure;
    }
    if (mCountReached) return result;
    return silentSensorsResult(hostLost.has_value()) != kExitOk ? kExitFailure : result;
}

int StreamRun::writerResult(StdoutWriter::Drained drained) {
    int result = kExitOk;
    if (drained == StdoutWriter::Drained::kGaveUp) {
        printError(std::to_string(mWriter.unwritten()) +
                   " events not written: given up while the reader of stdout was behind");
        result = kExitFailure;
    }
    if (const uint64_t dropped = mWriter.dropped(); dropped != 0) {
        printError(std::to_string(dropped) + " events dropped: the reader of stdout fell " +
                   std::to_string(StdoutWriter::kDefaultCapBytes >> 20) + " MiB behind");
        result = kExitFailure;
    }
    return result;
}

int StreamRun::silentSensorsResult(bool hostLost) const {
    // Every sensor asked for should have said something within the run: the silent ones in one
    // line, with what the host side saw unless the line about the lost host said it already.
    std::vector<std::string> silent;
    for (const SensorInfo& sensor : mStarted ? mSensors : std::vector<SensorInfo>()) {
        if (!mStats.hasEvents(sensor.sensorHandle)) silent.push_back(label(sensor));
    }
    if (silent.empty()) return kExitOk;
    std::string line = "no events from ";
    for (size_t i = 0; i < silent.size(); ++i) {
        line += (i == 0 ? "" : i + 1 == silent.size() ? " and " : ", ") + silent[i];
    }
    std::string why;
    if (!hostLost) {
        for (const std::string& problem : mSession.hostProblems()) {
            why += (why.empty() ? "; the host side saw: " : "; ") + problem;
        }
    }
    printError(line + why);
    return kExitFailure;
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
        return "Ctrl-C (or SIGTERM, or SIGHUP) ends the stream early: the sensors are "
               "deactivated, the events received are written, the summary printed and the "
               "recording written, as when the duration ends; during enumeration, the run ends "
               "once it is over, without streaming. A second Ctrl-C gives up the events a slow "
               "reader of stdout has not taken yet. A signal the tool was started with ignored "
               "stays ignored.";
    }
    bool endsOnStopSignal() const override { return true; }

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
    // A replay of every sensor ends with the replay unless a duration was given; one of some
    // sensors may never be over (the others' samples wait for a reader) and keeps the default.
    const bool endsWithReplay = session.replays() && !*mDurationOption && !mFollow &&
                                sensors.size() == session.sensors().size();
    // The sensors stay active for the duration whatever the reader of stdout does: the writer
    // keeps what it has not taken yet.
    flushStdout();
    StreamRun stream(session, std::move(sensors), mCount);
    // A stop that came while the library enumerated ends the run before anything streams.
    if (stopSignal() == 0) stream.start(mPeriodNs);
    std::optional<std::chrono::steady_clock::time_point> end;
    if (mDurationSeconds && !endsWithReplay) {
        end = std::chrono::steady_clock::now() +
              std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                  std::chrono::duration<double>(*mDurationSeconds));
    }
    return stream.finish(stream.stream(end));
}

}  // namespace

std::unique_ptr<Command> makeStreamCommand() { return std::make_unique<StreamCommand>(); }

}  // namespace kelvane::tools
