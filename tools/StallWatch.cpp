#include "StallWatch.h"

#include <algorithm>
#include <cstdio>

namespace kelvane::tools {

namespace {

double seconds(StallWatch::Clock::duration d) { return std::chrono::duration<double>(d).count(); }

std::string fixed(double value, const char* unit) {
    char text[48];
    std::snprintf(text, sizeof(text), "%.1f %s", value, unit);
    return text;
}

// "2.5 ms" or "1.2 s": a mean interval between events.
std::string interval(StallWatch::Clock::duration d) {
    const double s = seconds(d);
    return s < 1.0 ? fixed(s * 1e3, "ms") : fixed(s, "s");
}

}  // namespace

void StallWatch::watch(int32_t handle, std::string label) {
    mSensors[handle].label = std::move(label);
}

StallWatch::Clock::duration StallWatch::allowance(const Sensor& sensor) {
    Clock::duration mean = Clock::duration::zero();
    if (sensor.arrivals > 1) {
        mean = (sensor.last - sensor.first) / static_cast<int64_t>(sensor.arrivals - 1);
    }
    return std::max<Clock::duration>(mean * kStallPeriods, kMinimumStall);
}

std::string StallWatch::arrived(int32_t handle, Clock::time_point now) {
    auto found = mSensors.find(handle);
    if (found == mSensors.end()) return {};
    Sensor& sensor = found->second;
    std::string line;
    if (sensor.stalled) {
        sensor.stalled = false;
        line = sensor.label + ": events again at " + at(now) + ", after " +
               fixed(seconds(now - sensor.last), "s") + " without any";
    }
    if (sensor.arrivals++ == 0) sensor.first = now;
    sensor.last = now;
    return line;
}

std::vector<std::string> StallWatch::check(Clock::time_point now) {
    std::vector<std::string> lines;
    for (auto& [handle, sensor] : mSensors) {
        if (sensor.stalled || sensor.arrivals == 0 || now - sensor.last < allowance(sensor)) {
            continue;
        }
        sensor.stalled = true;
        std::string line = sensor.label + ": no event since " + at(sensor.last);
        const Clock::duration mean =
            sensor.arrivals > 1
                ? (sensor.last - sensor.first) / static_cast<int64_t>(sensor.arrivals - 1)
                : Clock::duration::zero();
        // A burst (a replay's backlog, a FIFO emptied at once) has no period worth saying.
        if (mean >= std::chrono::microseconds(100))
            line += " (they came every " + interval(mean) + ")";
        lines.push_back(line + "; the device stopped delivering");
    }
    return lines;
}

std::vector<std::string> StallWatch::stalledAtEnd(Clock::time_point now) const {
    std::vector<std::string> lines;
    for (const auto& [handle, sensor] : mSensors) {
        if (!sensor.stalled) continue;
        lines.push_back(sensor.label + " stalled: nothing from " + at(sensor.last) +
                        " to the end " + "of the stream at " + at(now));
    }
    return lines;
}

std::string StallWatch::at(Clock::time_point when) const {
    return fixed(seconds(when - mOrigin), "s");
}

}  // namespace kelvane::tools
