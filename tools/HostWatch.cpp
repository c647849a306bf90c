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

const char* observerErrorName(int error) {
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
    const std::string device = "device " + std::to_string(e.device);
    switch (e.kind) {
        case Kind::kInstanceReady:
            mConnected = true;
            progressLocked("the library connected over the container bridge");
            break;
        case Kind::kServiceHandedOut:
            progressLocked("sensor service handed to the library");
            break;
        case Kind::kDeviceListAsked:
            // No line claims that every device is set up, since the host cannot tell which
            // devices the library is still to ask for; the grace period, though, starts here.
            progressLocked(
                "device list asked for; the library publishes once its enumeration grace "
                "period ends");
            break;
        case Kind::kStepAsked:
        case Kind::kStepAnswered:
        case Kind::kStepFailed: {
            if (e.kind == Kind::kStepAsked && e.step == host::common::HostStep::kGetDevice) {
                mDevices[e.device] = Device();
            }
            auto it = mDevices.find(e.device);
            if (it == mDevices.end() || it->second.ready) break;
            Device& d = it->second;
            d.step = e.step;
            d.answered = e.kind == Kind::kStepAnswered;
            if (e.kind == Kind::kStepFailed) d.failure = e.reason;
            if (d.step == host::common::HostStep::kGetAttributes && d.answered) {
                d.ready = true;
                progressLocked(device + " set up");
            }
            break;
        }
        case Kind::kStreamStarted:
            mDevices[e.device].streamed = true;
            break;
        case Kind::kFrequencyAsked:
            mDevices[e.device].libraryAskedHz = e.value;
            break;
        case Kind::kFrequencyAnswered: {
            Device& d = mDevices[e.device];
            if (!mAskedHz || e.value <= 0 || std::fabs(e.value - *mAskedHz) <= 1e-6 * *mAskedHz ||
                std::find(d.answersSaid.begin(), d.answersSaid.end(), e.value) !=
                    d.answersSaid.end()) {
                break;
            }
            d.answersSaid.push_back(e.value);
            std::string line =
                device + ": " + hertz(*mAskedHz) + " asked, the host answered " + hertz(e.value);
            if (std::fabs(d.libraryAskedHz - *mAskedHz) > 1e-6 * *mAskedHz) {
                line += " (the library asked it for " + hertz(d.libraryAskedHz) + ")";
            }
            printWarning(line);
            break;
        }
        case Kind::kReplayOver:
            mReplayOver = true;
            noteLocked("the replay is over " + atLocked() +
                       ": every recorded sample was sent and the timeline has run");
            break;
        case Kind::kStartReadingAsked: {
            auto it = mDevices.find(e.device);
            if (it != mDevices.end() && it->second.restartDue) {
                it->second.restartDue = false;
                noteLocked(device + ": the library restarted sampling " + atLocked());
            }
            break;
        }
        case Kind::kClosedByHost:
            if (e.pipe == host::common::HostPipe::kSensorDevice) {
                Device& d = mDevices[e.device];
                d.closed = true;
                const std::string why = !e.reason.empty() ? e.reason : d.lastError;
                d.lost = atLocked() + (why.empty() ? "" : ": " + why);
                if (d.ready) {
                    problemLocked(device + ": the host closed its pipe " + atLocked() +
                                  (e.reason.empty() ? "" : " (" + e.reason + ")") +
                                  "; its sensor stops");
                }
            } else if (e.pipe == host::common::HostPipe::kSensorService) {
                std::string line = "the host closed the sensor service " + atLocked() +
                                   " (reason " + std::to_string(static_cast<uint32_t>(e.value));
                if (!e.detail.empty()) line += ": " + printable(e.detail);
                problemLocked(line + ")");
            }
            break;
        case Kind::kClosedByClient:
            if (e.pipe == host::common::HostPipe::kSensorDevice) {
                problemLocked(device + ": the library closed its pipe " + atLocked());
            }
            break;
        case Kind::kObserverError: {
            const int error = static_cast<int>(e.value);
            mDevices[e.device].restartDue = true;
            mDevices[e.device].lastError = e.reason.empty() ? observerErrorName(error) : e.reason;
            problemLocked(device + ": observer error " + std::to_string(error) + " (" +
                          (e.reason.empty() ? observerErrorName(error) : e.reason) + ") " +
                          atLocked());
            break;
        }
        case Kind::kTimelineNotApplied: {
            char at[32];
            std::snprintf(at, sizeof(at), "%.0f", e.value);
            problemLocked("the host's timeline entry at " + std::string(at) + " ms (" + e.detail +
                          ") not applied: " + e.reason);
            break;
        }
        default:
            break;
    }
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
