#include "HostWatch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "Diagnostics.h"
#include "Output.h"

namespace kelvane::tools {

namespace {

// How often the log is read while nothing asks for it; the log has no wake-up of its own that
// would not also fire for every sample.
constexpr base::TimeDelta kReadInterval = base::TimeDelta::FromMilliseconds(50);

const char* observerErrorName(int32_t error) {
    static const char* const kNames[] = {"already started",    "setting the rate failed",
                                         "invalid rate",       "no enabled channels",
                                         "no file descriptor", "read failed",
                                         "read timed out"};
    return error >= 0 && error < 7 ? kNames[error] : "unknown error";
}

// What a setup step is, for "the host never answered its ...".
std::string stepWords(host::common::HostStep step) {
    switch (step) {
        case host::common::HostStep::kGetDevice:
            return "device request (GetDevice)";
        case host::common::HostStep::kGetAllChannelIds:
            return "channel list (GetAllChannelIds)";
        case host::common::HostStep::kGetAttributes:
            return "attributes (GetAttributes)";
        case host::common::HostStep::kNone:
            break;
    }
    return "setup";
}

std::string deviceName(int32_t device) { return "device " + std::to_string(device); }

// "400 Hz", "0.5 Hz", "1000000000 Hz"
std::string hertz(double hz) {
    char text[48];
    std::snprintf(text, sizeof(text), "%.10g Hz", hz);
    return text;
}

}  // namespace

HostWatch::HostWatch(const host::common::HostEventLog& log)
    : mLog(log), mStart(std::chrono::steady_clock::now()), mThread([this] { run(); }) {}

HostWatch::~HostWatch() { stop(); }

void HostWatch::stop() {
    {
        base::AutoLock lock(mLock);
        if (mStopping) return;
        mStopping = true;
        drainLocked();
    }
    mWake.Broadcast();
    mThread.join();
}

void HostWatch::run() {
    base::AutoLock lock(mLock);
    while (!mStopping) {
        drainLocked();
        mWake.TimedWait(kReadInterval);
    }
}

void HostWatch::setAskedRate(double hz) {
    base::AutoLock lock(mLock);
    mAskedHz = hz;
}

std::optional<std::string> HostWatch::hostLost() const {
    base::AutoLock lock(mLock);
    std::string why;
    for (const auto& [id, device] : mDevices) {
        if (!device.streamed) continue;
        if (device.lost.empty()) return std::nullopt;
        why += (why.empty() ? "" : "; ") + ("device " + std::to_string(id) + " " + device.lost);
    }
    if (why.empty()) return std::nullopt;
    return "the host is lost: it closed every device that was streaming (" + why + ")";
}

bool HostWatch::replayOver() const {
    base::AutoLock lock(mLock);
    return mReplayOver;
}

size_t HostWatch::samplesSent() const {
    base::AutoLock lock(mLock);
    size_t sent = 0;
    for (const auto& entry : mDevices) sent += mLog.samplesSent(entry.first);
    return sent;
}

std::optional<double> HostWatch::answeredHz(int32_t deviceType) const {
    base::AutoLock lock(mLock);
    std::optional<int32_t> serving;
    for (const auto& [id, types] : mDeviceTypes) {
        if (std::find(types.begin(), types.end(), deviceType) == types.end()) continue;
        if (serving) return std::nullopt;  // which of them is the sensor's, nothing tells
        serving = id;
    }
    if (!serving) return std::nullopt;
    const auto device = mDevices.find(*serving);
    return device == mDevices.end() ? std::nullopt : device->second.answeredHz;
}

std::vector<std::string> HostWatch::problems() const {
    base::AutoLock lock(mLock);
    return mProblems;
}

void HostWatch::enumerationDone(size_t published, std::optional<uint32_t> offeredBridgeVersion) {
    base::AutoLock lock(mLock);
    drainLocked();
    mEnumerating = false;
    if (!mConnected) {
        std::string line = "the library never connected to the host";
        if (offeredBridgeVersion) {
            line += " (a bridge version mismatch? the host offers version " +
                    std::to_string(*offeredBridgeVersion) + ")";
        }
        problemLocked(line);
    }
    for (const auto& [id, device] : mDevices) {
        if (device.ready) continue;
        std::string line = "device " + std::to_string(id) + " never became ready: ";
        if (!device.failure.empty()) {
            line +=
                "the host could not answer its " + stepWords(device.step) + ": " + device.failure;
        } else if (device.closed) {
            line += "the host closed it at its " + stepWords(device.step);
        } else if (device.answered) {
            line += "the library did not go on after its " + stepWords(device.step);
        } else {
            line += "the host never answered its " + stepWords(device.step);
        }
        problemLocked(line);
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    char line[96];
    std::snprintf(line, sizeof(line), "%zu %s published in %.1f s\n", published,
                  published == 1 ? "sensor" : "sensors", seconds);
    std::fputs(line, stderr);
}

void HostWatch::drainLocked() {
    const std::vector<host::common::HostEvent> events = mLog.events(mSeen);
    mSeen += events.size();
    for (const host::common::HostEvent& event : events) handleLocked(event);
}

void HostWatch::handleLocked(const host::common::HostEvent& e) {
    using Kind = host::common::HostEventKind;
    switch (e.kind) {
        case Kind::kDeviceListAsked:
            if (const auto* list = e.as<host::common::DeviceList>()) mDeviceTypes = list->types;
            connectionLocked(e.kind);
            break;
        case Kind::kInstanceReady:
        case Kind::kServiceHandedOut:
            connectionLocked(e.kind);
            break;
        case Kind::kStepAsked:
        case Kind::kStepAnswered:
        case Kind::kStepFailed:
            stepLocked(e);
            break;
        case Kind::kStreamStarted:
            mDevices[e.device].streamed = true;
            break;
        case Kind::kFrequencyAsked:
        case Kind::kFrequencyAnswered:
            if (const auto* rate = e.as<host::common::Rate>()) rateLocked(e, *rate);
            break;
        case Kind::kStartReadingAsked:
            startReadingLocked(e.device);
            break;
        case Kind::kClosedByHost:
        case Kind::kClosedByClient:
            closedLocked(e);
            break;
        case Kind::kObserverError:
            if (const auto* error = e.as<host::common::ObserverError>()) {
                observerErrorLocked(e.device, *error, e.reason);
            }
            break;
        case Kind::kTimelineNotApplied:
            if (const auto* skip = e.as<host::common::TimelineSkip>()) {
                problemLocked("the host's timeline entry at " + std::to_string(skip->atMs) +
                              " ms (" + skip->action + ") not applied: " + e.reason);
            }
            break;
        case Kind::kReplayOver:
            mReplayOver = true;
            noteLocked("the replay is over " + atLocked() +
                       ": every recorded sample was sent and the timeline has run");
            break;
        case Kind::kInitSent:
        case Kind::kInitAnswered:
        case Kind::kClientRegistered:
        case Kind::kDeviceIdsAsked:
        case Kind::kNewDevicesObserverAdded:
        case Kind::kStepStalled:
        case Kind::kTimeoutSet:
        case Kind::kChannelsEnabled:
        case Kind::kChannelsFailed:
        case Kind::kChannelsEnabledAsked:
        case Kind::kChannelAttributeAsked:
        case Kind::kStopReadingAsked:
        case Kind::kStreamStopped:
        case Kind::kSamplesSent:
            break;  // nothing to say about these
    }
}

void HostWatch::connectionLocked(host::common::HostEventKind kind) {
    if (kind == host::common::HostEventKind::kInstanceReady) {
        mConnected = true;
        progressLocked("the library connected over the container bridge");
    } else if (kind == host::common::HostEventKind::kServiceHandedOut) {
        progressLocked("sensor service handed to the library");
    } else {
        // No line claims that every device is set up, since the host cannot tell which devices
        // the library is still to ask for; the grace period, though, starts here.
        progressLocked(
            "device list asked for; the library publishes once its enumeration grace period "
            "ends");
    }
}

void HostWatch::stepLocked(const host::common::HostEvent& e) {
    using Kind = host::common::HostEventKind;
    if (e.kind == Kind::kStepAsked && e.step == host::common::HostStep::kGetDevice) {
        mDevices[e.device] = Device();
    }
    auto it = mDevices.find(e.device);
    if (it == mDevices.end() || it->second.ready) return;
    Device& d = it->second;
    d.step = e.step;
    d.answered = e.kind == Kind::kStepAnswered;
    if (e.kind == Kind::kStepFailed) d.failure = e.reason;
    if (d.step == host::common::HostStep::kGetAttributes && d.answered) {
        d.ready = true;
        progressLocked(deviceName(e.device) + " set up");
    }
}

void HostWatch::rateLocked(const host::common::HostEvent& e, host::common::Rate rate) {
    Device& d = mDevices[e.device];
    if (e.kind == host::common::HostEventKind::kFrequencyAsked) {
        d.libraryAskedHz = rate.hz;
        return;
    }
    d.answeredHz = e.reason.empty() ? std::optional<double>(rate.hz) : std::nullopt;
    if (!e.reason.empty() && !d.unknownRateSaid) {
        d.unknownRateSaid = true;
        printWarning(deviceName(e.device) + ": " + e.reason);
    }
    // The rate asked on the command line, or else the library's own request.
    const double asked = mAskedHz.value_or(d.libraryAskedHz);
    const double hz = rate.hz;
    if (asked <= 0 || hz <= 0 || std::fabs(hz - asked) <= 1e-6 * asked ||
        std::find(d.answersSaid.begin(), d.answersSaid.end(), hz) != d.answersSaid.end()) {
        return;
    }
    d.answersSaid.push_back(hz);
    // The library's own request answered short is news (a host's limit), not a fault.
    if (!mAskedHz) {
        noteLocked(deviceName(e.device) + ": " + hertz(asked) +
                   " asked by the library, the host answered " + hertz(hz));
        return;
    }
    std::string line =
        deviceName(e.device) + ": " + hertz(asked) + " asked, the host answered " + hertz(hz);
    if (std::fabs(d.libraryAskedHz - asked) > 1e-6 * asked) {
        line += " (the library asked it for " + hertz(d.libraryAskedHz) + ")";
    }
    printWarning(line);
}

void HostWatch::startReadingLocked(int32_t device) {
    auto it = mDevices.find(device);
    if (it == mDevices.end() || !it->second.restartDue) return;
    it->second.restartDue = false;
    noteLocked(deviceName(device) + ": the library restarted sampling " + atLocked());
}

void HostWatch::closedLocked(const host::common::HostEvent& e) {
    if (e.kind == host::common::HostEventKind::kClosedByClient) {
        if (e.pipe == host::common::HostPipe::kSensorDevice) {
            problemLocked(deviceName(e.device) + ": the library closed its pipe " + atLocked());
        }
        return;
    }
    if (e.pipe == host::common::HostPipe::kSensorDevice) {
        Device& d = mDevices[e.device];
        d.closed = true;
        const std::string why = !e.reason.empty() ? e.reason : d.lastError;
        d.lost = atLocked() + (why.empty() ? "" : ": " + why);
        if (d.ready) {
            problemLocked(deviceName(e.device) + ": the host closed its pipe " + atLocked() +
                          (e.reason.empty() ? "" : " (" + e.reason + ")") + "; its sensor stops");
        }
        return;
    }
    const auto* closed = e.as<host::common::ServiceClosed>();
    if (e.pipe != host::common::HostPipe::kSensorService || closed == nullptr) return;
    std::string line = "the host closed the sensor service " + atLocked() + " (reason " +
                       std::to_string(closed->reason);
    if (!closed->description.empty()) line += ": " + printable(closed->description);
    problemLocked(line + ")");
}

void HostWatch::observerErrorLocked(int32_t device, host::common::ObserverError error,
                                    const std::string& reason) {
    const std::string why = reason.empty() ? observerErrorName(error.type) : reason;
    mDevices[device].restartDue = true;
    mDevices[device].lastError = why;
    problemLocked(deviceName(device) + ": observer error " + std::to_string(error.type) + " (" +
                  why + ") " + atLocked());
}

void HostWatch::progressLocked(const std::string& line) {
    if (mEnumerating) noteLocked(line);
}

void HostWatch::noteLocked(const std::string& line) {
    std::fprintf(stderr, "host: %s\n", line.c_str());
}

void HostWatch::problemLocked(const std::string& line) {
    mProblems.push_back(line);
    printWarning(line);
}

std::string HostWatch::atLocked() const {
    char text[32];
    std::snprintf(text, sizeof(text), "at %.1f s",
                  std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count());
    return text;
}

}  // namespace kelvane::tools
