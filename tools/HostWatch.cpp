#include "HostWatch.h"

#include <cstdio>
#include <cstdlib>

#include "Output.h"
#include "Session.h"

namespace kelvane::tools {

namespace {

// How often the log is read while nothing asks for it; the log has no wake-up of its own that
// would not also fire for every sample.
constexpr std::chrono::milliseconds kReadInterval{50};

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// "<prefix><id>]<rest>": the id and what follows the bracket.
bool splitId(const std::string& entry, const std::string& prefix, int32_t* id, std::string* rest) {
    if (!startsWith(entry, prefix)) return false;
    const size_t close = entry.find(']', prefix.size());
    if (close == std::string::npos) return false;
    char* end = nullptr;
    const long value = std::strtol(entry.c_str() + prefix.size(), &end, 10);
    if (end != entry.c_str() + close) return false;
    *id = static_cast<int32_t>(value);
    *rest = entry.substr(close + 1);
    return true;
}

const char* observerErrorName(int error) {
    static const char* const kNames[] = {"already started",    "setting the rate failed",
                                         "invalid rate",       "no enabled channels",
                                         "no file descriptor", "read failed",
                                         "read timed out"};
    return error >= 0 && error < 7 ? kNames[error] : "unknown error";
}

// What a setup step is, for "the host never answered its ...".
std::string stepWords(const std::string& step) {
    if (step == "GetDevice") return "device request (GetDevice)";
    if (step == "GetAllChannelIds") return "channel list (GetAllChannelIds)";
    if (step == "GetAttributes") return "attributes (GetAttributes)";
    return step;
}

}  // namespace

HostWatch::HostWatch(const host::CallLog& log)
    : mLog(log), mStart(std::chrono::steady_clock::now()), mThread([this] { run(); }) {}

HostWatch::~HostWatch() { stop(); }

void HostWatch::stop() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mStopping) return;
        mStopping = true;
        drainLocked();
    }
    mWake.notify_all();
    mThread.join();
}

void HostWatch::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        drainLocked();
        mWake.wait_for(lock, kReadInterval, [this] { return mStopping; });
    }
}

std::vector<std::string> HostWatch::problems() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mProblems;
}

void HostWatch::enumerationDone(size_t published, std::optional<uint32_t> offeredBridgeVersion) {
    std::lock_guard<std::mutex> lock(mMutex);
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
        if (device.closed) {
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
    const std::vector<std::string> calls = mLog.calls();
    for (; mSeen < calls.size(); ++mSeen) handleLocked(calls[mSeen]);
}

void HostWatch::handleLocked(const std::string& entry) {
    int32_t id = 0;
    std::string rest;
    if (entry == "VelBridgeHost.OnIioSensorInstanceReady") {
        mConnected = true;
        progressLocked("the library connected over the container bridge");
    } else if (entry == "SensorHalClient.SetUpChannel") {
        progressLocked("sensor service handed to the library");
    } else if (entry == "SensorService.GetAllDeviceIds") {
        // The log cannot tell which devices the library is still to ask for, so no line claims
        // that every device is set up; the grace period, though, starts here.
        progressLocked(
            "device list asked for; the library publishes once its enumeration grace "
            "period ends");
    } else if (startsWith(entry, "SensorService.GetDevice ")) {
        const int32_t device = std::atoi(entry.c_str() + 24);
        Device& d = mDevices[device];
        d = Device();
        d.step = "GetDevice";
    } else if (splitId(entry, "SensorDevice[", &id, &rest) && mDevices.count(id) != 0) {
        Device& d = mDevices[id];
        if (rest == ".StartReadingSamples" && d.restartDue) {
            d.restartDue = false;
            noteLocked("device " + std::to_string(id) + ": the library restarted sampling " +
                       atLocked());
        }
        if (d.ready) return;
        for (const char* step : {"GetAllChannelIds", "GetAttributes"}) {
            const std::string call = std::string(".") + step;
            if (rest == call + " reply") {
                d.step = step;
                d.answered = true;
            } else if (rest == call || startsWith(rest, call + " ")) {
                d.step = step;
                d.answered = false;
            }
        }
        if (d.step == "GetAttributes" && d.answered) {
            d.ready = true;
            progressLocked("device " + std::to_string(id) + " set up");
        }
    } else if (splitId(entry, "close SensorDevice[", &id, &rest)) {
        Device& d = mDevices[id];
        d.closed = true;
        if (d.ready) {
            problemLocked("device " + std::to_string(id) + ": the host closed its pipe " +
                          atLocked() + "; its sensor stops");
        }
    } else if (splitId(entry, "error SensorDevice[", &id, &rest)) {
        problemLocked("device " + std::to_string(id) + ": the library closed its pipe " +
                      atLocked());
    } else if (splitId(entry, "Observer[", &id, &rest) && startsWith(rest, ".OnErrorOccurred ")) {
        const int error = std::atoi(rest.c_str() + 17);
        mDevices[id].restartDue = true;
        problemLocked("device " + std::to_string(id) + ": observer error " + std::to_string(error) +
                      " (" + observerErrorName(error) + ") " + atLocked());
    } else if (startsWith(entry, "close SensorService ")) {
        const std::string reason = entry.substr(20);
        const size_t space = reason.find(' ');
        std::string line = "the host closed the sensor service " + atLocked() + " (reason " +
                           reason.substr(0, space);
        if (space != std::string::npos && space + 1 < reason.size()) {
            line += ": " + printable(reason.substr(space + 1));
        }
        problemLocked(line + ")");
    } else if (startsWith(entry, "timeline ")) {
        // "timeline <ms> <action> not applied: <why>"
        const size_t ms = entry.find(' ', 9);
        const size_t action = entry.find(' ', ms + 1);
        if (ms == std::string::npos || action == std::string::npos) return;
        problemLocked("the host's timeline entry at " + entry.substr(9, ms - 9) + " ms (" +
                      entry.substr(ms + 1, action - ms - 1) + ")" + entry.substr(action));
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
