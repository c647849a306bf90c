// One run of the tool: the emulated host, the loaded sub-HAL, the proxy callback handed to it and
// the sensors it published. Set up the way the multi-HAL proxy sets up a sub-HAL.
#pragma once

#include <android/hardware/sensors/2.1/types.h>
#include <utils/RefBase.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Diagnostics.h"
#include "HostWatch.h"
#include "ProxyCallback.h"
#include "SubHalLoader.h"

namespace kelvane::host::common {
class Host;
class Recorder;
}  // namespace kelvane::host::common
namespace kelvane::host::description {
struct TimedSamples;
}  // namespace kelvane::host::description

namespace kelvane::tools {

class OutputFile;

enum ExitCode : int {
    kExitOk = 0,
    kExitFailure = 1,  // the library or the sensors did not do what was asked
    kExitUsage = 2,    // bad command line or host description
};

struct CommonOptions {
    std::string hostFile;  // empty: the built-in host; "-": standard input
    std::string iioUri;    // non-empty: real IIO devices through libiio instead
    std::string library;   // empty: the library built beside the tool; no slash: ./NAME
    bool json = false;
    bool log = false;             // show the library's log lines
    double speed = 1.0;           // host time runs this many times faster; 0: no waiting
    bool speedGiven = false;      // --speed was on the command line
    std::string recordFile;       // non-empty: write what the host served here at the end
    bool recordOnDemand = false;  // a paused recorder from the start, for recorder()
};

// What a host description says of a device that replays recorded samples.
struct RecordedDevice {
    std::vector<int32_t> types;       // host device-type codes, host order
    std::vector<double> requestedHz;  // the SetFrequency requests it recorded, in order
    std::shared_ptr<const host::description::TimedSamples> samples;
    int32_t timestampChannel = -1;  // the index of its "timestamp" channel, -1 if none
};

class Session {
  public:
    using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;

    Session();
    // close()
    ~Session();

    // Ends the run: the library's logs stop (what follows is teardown, not news), the host watch
    // reads the log a last time, then the host goes and, with --record, the recording is
    // written (renamed over the target once complete) and a line says what it holds. The library
    // stays loaded. Idempotent. Returns kExitOk or, after printing the error, kExitFailure.
    int close();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Builds the host, loads the library, initializes it and fetches the sensor list, saying on
    // stderr how enumeration goes (HostWatch). Returns kExitOk, or the code to leave with after
    // the error was printed. A --record target that cannot be written is refused first
    // (kExitUsage).
    int open(const CommonOptions& options);

    ISensorsSubHal* subHal() const { return mSubHal; }
    ProxyCallback& callback() const { return *mCallback; }
    const std::vector<SensorInfo>& sensors() const { return mSensors; }
    // Everything getSensorsList_2_1 answered, including sensors the proxy would drop.
    const std::vector<SensorInfo>& published() const { return mPublished; }
    // Null if `handle` was not published.
    const SensorInfo* find(int32_t handle) const;
    bool json() const { return mJson; }
    // When the host started: the origin of the times in the tool's lines ("at 4.5 s").
    std::chrono::steady_clock::time_point started() const { return mStarted; }
    // What went wrong on the host side so far, one line each.
    std::vector<std::string> hostProblems() const;
    // The host side as the stream needs it (HostWatch).
    HostWatch& hostWatch() const { return *mWatch; }
    // What serves the sensors, for a person: "the built-in emulated host", "the emulated host of
    // lab.json", "the IIO devices of ip:board".
    const std::string& hostName() const { return mHostName; }
    // The sub-HAL's file, as loaded.
    const std::string& subHalPath() const { return mSubHalPath; }
    // The --host argument: "" for none, "-" for standard input.
    const std::string& hostInput() const { return mHostInput; }
    // Whether the host replays recorded samples (a --host description with timedSamples).
    bool replays() const { return mReplays; }
    // The devices of the host description that replay recorded samples.
    const std::vector<RecordedDevice>& recordedDevices() const { return mRecorded; }
    // How many times faster than recorded a replay runs; 0: no waiting.
    double replaySpeed() const { return mReplaySpeed; }
    // Whether sample timestamps come from another machine's clock (a board reached by libiio).
    bool remoteClock() const { return mRemoteClock; }
    // With --record or CommonOptions::recordOnDemand, what records the host's service; null
    // otherwise. Any thread.
    host::common::Recorder* recorder() const { return mRecorder.get(); }
    // A recording's start on the boot-time clock its timestamps were taken on, if it says.
    std::optional<int64_t> recordingStartBootTimeNs() const { return mRecordingStart; }

  private:
    void fetchSensors();

    std::unique_ptr<OutputFile> mRecordFile;            // with --record, from the start of open()
    std::unique_ptr<host::common::Recorder> mRecorder;  // outlives mHost, which reports to it
    std::unique_ptr<host::common::Host> mHost;
    std::unique_ptr<HostWatch> mWatch;  // reads mHost's log; goes before it
    ISensorsSubHal* mSubHal = nullptr;  // owned by the library
    android::sp<ProxyCallback> mCallback;
    std::vector<SensorInfo> mSensors;
    std::vector<SensorInfo> mPublished;
    bool mJson = false;
    std::vector<RecordedDevice> mRecorded;
    bool mRemoteClock = false;
    std::optional<int64_t> mRecordingStart;
    bool mReplays = false;
    double mReplaySpeed = 1.0;
    std::string mHostName;
    std::string mHostInput;
    std::string mSubHalPath;
    std::chrono::steady_clock::time_point mStarted = std::chrono::steady_clock::now();
};

}  // namespace kelvane::tools
