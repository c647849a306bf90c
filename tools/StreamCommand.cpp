#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <map>
#include <set>

#include "Commands.h"
#include "Output.h"
#include "StreamStats.h"

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V1_0::Result;
using SensorInfo = Session::SensorInfo;

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

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool parseHandle(const std::string& text, int32_t* handle) {
    if (text.empty()) return false;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 0);
    if (*end != '\0' || v < INT32_MIN || v > INT32_MAX) return false;
    *handle = static_cast<int32_t>(v);
    return true;
}

// Sensors named by the selectors, in list order, each once. A selector is "all", a handle, a
// type ("accelerometer") or a sensor name ("Accelerometer (lid)"), case-insensitive.
bool selectSensors(const std::vector<SensorInfo>& all, const std::vector<std::string>& selectors,
                   std::vector<SensorInfo>* selected, std::string* error) {
    std::set<int32_t> chosen;
    for (const std::string& selector : selectors) {
        const std::string wanted = lower(selector);
        int32_t handle = 0;
        const bool isHandle = parseHandle(selector, &handle);
        bool matched = false;
        for (const SensorInfo& sensor : all) {
            if (wanted == "all" || (isHandle && sensor.sensorHandle == handle) ||
                wanted == lower(shortTypeName(sensor)) ||
                wanted == lower(std::string(sensor.name))) {
                chosen.insert(sensor.sensorHandle);
                matched = true;
            }
        }
        if (!matched) {
            *error = "no sensor matches --sensor \"" + selector + "\"";
            return false;
        }
    }
    for (const SensorInfo& sensor : all) {
        if (selectors.empty() || chosen.count(sensor.sensorHandle) != 0) {
            selected->push_back(sensor);
        }
    }
    return true;
}

}  // namespace

int runStream(Session& session, const StreamOptions& options) {
    std::vector<SensorInfo> sensors;
    std::string error;
    if (!selectSensors(session.sensors(), options.sensors, &sensors, &error)) {
        printError(error);
        return kExitFailure;
    }
    if (sensors.empty()) {
        printError("no sensors to stream");
        return kExitFailure;
    }
    std::optional<int64_t> periodNs = options.periodNs;
    if (options.rateHz) periodNs = std::max<int64_t>(1, std::llround(1e9 / *options.rateHz));

    installStopHandlers();
    std::map<int32_t, std::string> names;
    for (const SensorInfo& sensor : sensors) {
        names[sensor.sensorHandle] = sensor.name;
        const int32_t handle = sensor.sensorHandle;
        if (periodNs) {
            Result result = session.subHal()->batch(handle, *periodNs, 0);
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
    uint64_t printed = 0;
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(options.durationSeconds));
    bool done = false;
    while (!done && !gStopRequested.load()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) break;
        const auto wake = std::min(end, now + kPollInterval);
        for (const Event& event : session.callback().queue().takeUntil(wake)) {
            auto name = names.find(event.sensorHandle);
            if (name == names.end()) continue;  // not a sensor this run asked for
            const std::string line =
                session.json() ? eventJson(event) : eventText(event, name->second);
            std::printf("%s\n", line.c_str());
            if (isMeta(event)) continue;
            stats.add(event);
            if (options.count && ++printed >= *options.count) {
                done = true;
                break;
            }
        }
        std::fflush(stdout);
    }

    for (const SensorInfo& sensor : sensors) session.subHal()->activate(sensor.sensorHandle, false);
    std::fputs(stats.summary(sensors).c_str(), stderr);
    if (uint64_t mismatches = session.callback().wakelockMismatches(); mismatches != 0) {
        printWarning(std::to_string(mismatches) +
                     " posts held the wake lock when they should not have, or the reverse");
    }
    return kExitOk;
}

}  // namespace kelvane::tools
