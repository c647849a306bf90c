#include "StreamStats.h"

#include <algorithm>
#include <cstdio>

#include "Output.h"

namespace kelvane::tools {

void StreamStats::add(const Event& event) {
    if (isMeta(event)) return;
    float values[3] = {0, 0, 0};
    size_t count = 0;
    if (isThreeAxis(event)) {
        values[0] = event.u.vec3.x;
        values[1] = event.u.vec3.y;
        values[2] = event.u.vec3.z;
        count = 3;
    } else {
        values[0] = event.u.scalar;
        count = 1;
    }
    Figures& f = mFigures[event.sensorHandle];
    if (f.events == 0) {
        f.firstTimestamp = event.timestamp;
        f.values = count;
        std::copy(values, values + 3, f.min);
        std::copy(values, values + 3, f.max);
    }
    for (size_t i = 0; i < f.values && i < count; ++i) {
        f.min[i] = std::min(f.min[i], values[i]);
        f.max[i] = std::max(f.max[i], values[i]);
    }
    f.lastTimestamp = event.timestamp;
    ++f.events;
}

std::string StreamStats::summary(const std::vector<SensorInfo>& sensors) const {
    static const char* const kAxes[] = {"x", "y", "z"};
    std::string out;
    for (const SensorInfo& sensor : sensors) {
        char line[512];
        out += "[" + std::to_string(sensor.sensorHandle) + "] " + printable(sensor.name) + ": ";
        auto it = mFigures.find(sensor.sensorHandle);
        if (it == mFigures.end()) {
            out += "no events\n";
            continue;
        }
        const Figures& f = it->second;
        out += std::to_string(f.events) + (f.events == 1 ? " event" : " events");
        const int64_t span = f.lastTimestamp - f.firstTimestamp;
        if (f.events > 1 && span > 0) {
            std::snprintf(line, sizeof(line), ", %.1f Hz",
                          static_cast<double>(f.events - 1) * 1e9 / static_cast<double>(span));
            out += line;
        } else {
            out += ", rate unknown";
        }
        const char* unit = valueUnit(sensor.type);
        for (size_t i = 0; i < f.values; ++i) {
            std::snprintf(line, sizeof(line), ", %s%s%.6g..%.6g%s%s", f.values == 1 ? "" : kAxes[i],
                          f.values == 1 ? "" : " ", static_cast<double>(f.min[i]),
                          static_cast<double>(f.max[i]), *unit != '\0' ? " " : "", unit);
            out += line;
        }
        out += "\n";
    }
    return out;
}

}  // namespace kelvane::tools
