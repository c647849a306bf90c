// One run of the tool: the emulated host, the loaded sub-HAL, the proxy callback handed to it and
// the sensors it published. Set up the way the multi-HAL proxy sets up a sub-HAL.
//
// Threads: the owner (the command's main thread) opens and closes it. Once open() has returned,
// what it settled is read-only until close(): the options, the names, the replay facts, the
// library's path and sensor lists may be read from any thread. What it hands out keeps its own
// rules: the sub-HAL takes calls from any thread, as from the multi-HAL proxy; callback(),
// hostWatch() and recorder() are thread-safe. close() runs once no other thread uses it.
#pragma once

#include <android/hardware/sensors/2.1/types.h>
#include <utils/RefBase.h>

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Diagnostics.h"
#include "HostWatch.h"
#include "ProxyCallback.h"
#include "ReplayFacts.h"
#include "SubHalLoader.h"

namespace kelvane::host::common {
class Host;
class Recorder;
}  // namespace kelvane::host::common

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

// What serves the sensors: the built-in emulated host, a host description, or IIO devices.
enum class HostKind { kBuiltIn, kDescription, kIio };

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

    ISensorsSubHal* subHal() const { return mLibrary.subHal; }
    ProxyCallback& callback() const { return *mLibrary.callback; }
    const std::vector<SensorInfo>& sensors() const { return mLibrary.sensors; }
    // Everything getSensorsList_2_1 answered, including sensors the proxy would drop.
    const std::vector<SensorInfo>& published() const { return mLibrary.published; }
    // Null if `handle` was not published.
    const SensorInfo* find(int32_t handle) const;
    // The sub-HAL's file, as loaded.
    const std::string& subHalPath() const { return mLibrary.path; }

    bool json() const { return mSettled.json; }
    // What serves the sensors, for a person: "the built-in emulated host", "the emulated host of
    // lab.json", "the IIO devices of ip:board".
    const std::string& hostName() const { return mSettled.hostName; }
    HostKind hostKind() const { return mSettled.hostKind; }
    // The --host argument: "" for none, "-" for standard input.
    const std::string& hostInput() const { return mSettled.hostInput; }
    // Whether the host replays recorded samples (a --host description with timedSamples).
    bool replays() const { return mSettled.replay.replays; }
    // The devices of the host description that replay recorded samples.
    const std::vector<RecordedDevice>& recordedDevices() const { return mSettled.replay.devices; }
    // How many times faster than recorded a replay runs; 0: no waiting.
    double replaySpeed() const { return mSettled.replay.speed; }
    // Whether sample timestamps come from another machine's clock (a board reached by libiio).
    bool remoteClock() const { return mSettled.replay.remoteClock; }
    // Whether the samples of a device of host type `hostType` carry the board's own timestamps:
    // on a remote board, a device that stamps its scans; every other device's events are stamped
    // on this machine.
    bool stampedOnBoard(int32_t hostType) const {
        return remoteClock() && mSettled.selfStampedTypes.count(hostType) != 0;
    }
    // A recording's start on the boot-time clock its timestamps were taken on, if it says.
    std::optional<int64_t> recordingStartBootTimeNs() const {
        return mSettled.replay.startBootTimeNs;
    }

    // When the host started: the origin of the times in the tool's lines ("at 4.5 s").
    std::chrono::steady_clock::time_point started() const { return mHost.started; }
    // What went wrong on the host side so far, one line each.
    std::vector<std::string> hostProblems() const;
    // The host side as the stream needs it (HostWatch).
    HostWatch& hostWatch() const { return *mHost.watch; }
    // With --record or CommonOptions::recordOnDemand, what records the host's service; null
    // otherwise.
    host::common::Recorder* recorder() const { return mHost.recorder.get(); }

  private:
    // What the options and the host description settled before anything ran.
    struct Settled {
        bool json = false;
        std::string hostName;
        std::string hostInput;
        HostKind hostKind = HostKind::kBuiltIn;
        ReplayFacts replay;
        std::set<int32_t> selfStampedTypes;  // over libiio: LibiioHost::selfStampedTypes()
    };
    // What runs the host: made by open(), ended by close().
    struct HostRun {
        std::unique_ptr<OutputFile> recordFile;            // with --record, from open()'s start
        std::unique_ptr<host::common::Recorder> recorder;  // outlives host, which reports to it
        std::unique_ptr<host::common::Host> host;
        std::unique_ptr<HostWatch> watch;  // reads host's log; goes before it
        std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    };
    // The library once initialized.
    struct Library {
        ISensorsSubHal* subHal = nullptr;  // owned by the library
        android::sp<ProxyCallback> callback;
        std::vector<SensorInfo> sensors;
        std::vector<SensorInfo> published;
        std::string path;
    };

    // The steps of open(); each returns kExitOk or the code to leave with, the error printed.
    int checkOptions(const CommonOptions& options);
    int readHost(const CommonOptions& options, host::description::HostConfig* config);
    void startHost(host::description::HostConfig config, const CommonOptions& options);
    int loadLibrary(const CommonOptions& options);
    void fetchSensors();
    static int writeRecording(const host::common::Recorder& recorder, OutputFile* file);

    Settled mSettled;
    HostRun mHost;
    Library mLibrary;
};

}  // namespace kelvane::tools
