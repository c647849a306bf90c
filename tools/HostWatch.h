// Follows the host's events during a run and says on stderr what it means: how the
// library's enumeration goes ("host: device 3 set up"), its outcome ("5 sensors published in
// 2.0 s") and, one line each, what went wrong: a device that never became ready and the setup
// step it stopped at, a library that never connected, a device pipe lost, an observer error and
// the restart that followed, a host timeline entry that could not apply, each with the host's own
// reason where it gave one. It reads only host::HostEventLog, so it works for every host backend.
//
// Threads: the constructor, enumerationDone(), problems() and stop() run on the main thread; a
// thread of its own reads the log and prints until stop(). One mutex guards the state and the
// printing.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"
#include "host/common/HostEventLog.h"

namespace kelvane::tools {

class HostWatch {
  public:
    // Starts reading at once. `log` outlives this watch. Times are counted from here.
    explicit HostWatch(const host::common::HostEventLog& log);
    ~HostWatch();  // stop()
    HostWatch(const HostWatch&) = delete;
    HostWatch& operator=(const HostWatch&) = delete;

    // getSensorsList returned `published` sensors: prints why any device did not make it and the
    // outcome. `offeredBridgeVersion` is the host's container-bridge version, if known.
    void enumerationDone(size_t published, std::optional<uint32_t> offeredBridgeVersion);
    // The problems seen so far, one line each, without the "warning: " prefix.
    std::vector<std::string> problems() const;
    // The rate the user asked every streamed sensor for: a device whose host answers another
    // rate gets a line saying both.
    void setAskedRate(double hz);
    // The rate the host last answered for the one device that serves `deviceType` (a DeviceType
    // value); none while unknown: no answer yet, an answer the host could not vouch for, or no
    // single device of that type.
    std::optional<double> answeredHz(int32_t deviceType) const;
    // Once the host has closed every device that was streaming: one line saying so and why.
    std::optional<std::string> hostLost() const;
    // Whether the host has served every recorded sample and run its timeline (a replay).
    bool replayOver() const;
    // Samples the host sent so far, every device together.
    size_t samplesSent() const;
    // Reads the log to its end one last time, then stops the thread. Idempotent.
    void stop();

  private:
    struct Device {
        host::common::HostStep step =
            host::common::HostStep::kNone;  // asked last, until the device is ready
        bool answered = false;              // the host answered `step`
        std::string failure;                // why the host could not answer `step`, if it said so
        bool ready = false;                 // the host answered the last setup step
        bool closed = false;                // the host closed its pipe
        bool restartDue = false;            // an observer error came; the next start is a restart
        bool streamed = false;              // the host streamed it at some point
        std::string lost;                   // "at 4.5 s (read failed: ...)" once the host closed it
        std::string lastError;              // the reason of its last observer error
        double libraryAskedHz = 0;          // the last SetFrequency
        std::vector<double> answersSaid;    // rates answered that got their line
        bool unknownRateSaid = false;       // the host said it cannot tell the device's rate
        std::optional<double> answeredHz;   // the last answer, if the host could vouch for it
    };

    void run();
    void drainLocked() REQUIRES(mLock);
    void handleLocked(const host::common::HostEvent& event) REQUIRES(mLock);
    void connectionLocked(host::common::HostEventKind kind) REQUIRES(mLock);
    void stepLocked(const host::common::HostEvent& event) REQUIRES(mLock);
    // A rate asked (remembered) or answered (a line where it is not the rate the user asked).
    void rateLocked(const host::common::HostEvent& event, host::common::Rate rate) REQUIRES(mLock);
    void startReadingLocked(int32_t device) REQUIRES(mLock);
    void closedLocked(const host::common::HostEvent& event) REQUIRES(mLock);
    void observerErrorLocked(int32_t device, host::common::ObserverError error,
                             const std::string& reason) REQUIRES(mLock);
    // "host: <line>" while enumerating
    void progressLocked(const std::string& line) REQUIRES(mLock);
    void noteLocked(const std::string& line) REQUIRES(mLock);  // "host: <line>"
    void problemLocked(const std::string& line) REQUIRES(mLock);
    std::string atLocked() const REQUIRES(mLock);  // "at 4.5 s"

    const host::common::HostEventLog& mLog;
    const std::chrono::steady_clock::time_point mStart;

    mutable base::Lock mLock;
    base::ConditionVariable mWake{&mLock};
    bool mStopping GUARDED_BY(mLock) = false;
    size_t mSeen GUARDED_BY(mLock) = 0;  // events handled
    bool mEnumerating GUARDED_BY(mLock) = true;
    bool mConnected GUARDED_BY(mLock) = false;
    std::map<int32_t, Device> mDevices GUARDED_BY(mLock);  // by host device id
    // The device list the host answered: DeviceType values by device id.
    std::map<int32_t, std::vector<int32_t>> mDeviceTypes GUARDED_BY(mLock);
    std::vector<std::string> mProblems GUARDED_BY(mLock);
    std::optional<double> mAskedHz GUARDED_BY(mLock);
    bool mReplayOver GUARDED_BY(mLock) = false;
    std::thread mThread;  // last: starts once everything above exists
};

}  // namespace kelvane::tools
