#include "Output.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V1_0::MetaDataEventType;
using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::SensorType;

std::string jsonString(const std::string& text) {
    // Replacing invalid UTF-8 keeps dump() from throwing on odd names.
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string shortFloat(float value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.6g", static_cast<double>(value));
    return text;
}

std::string flagsText(uint32_t flags) {
    static const char* const kModes[] = {"continuous", "on-change", "one-shot", "special"};
    uint32_t mode = (flags & SensorFlagBits::MASK_REPORTING_MODE) >> 1;
    char text[64];
    std::snprintf(text, sizeof(text), "0x%x %s%s", flags, kModes[mode & 3],
                  (flags & SensorFlagBits::WAKE_UP) != 0 ? " wake-up" : "");
    return text;
}

}  // namespace

std::string formatFloat(float value) {
    if (!std::isfinite(value)) return "null";
    char text[32];
    std::snprintf(text, sizeof(text), "%.9g", static_cast<double>(value));
    return text;
}

std::string shortTypeName(const SensorInfo& sensor) {
    std::string type = sensor.typeAsString;
    size_t dot = type.rfind('.');
    return dot == std::string::npos ? type : type.substr(dot + 1);
}

bool isThreeAxis(const Event& event) {
    switch (event.sensorType) {
        case SensorType::ACCELEROMETER:
        case SensorType::MAGNETIC_FIELD:
        case SensorType::GYROSCOPE:
        case SensorType::GRAVITY:
            return true;
        default:
            return false;
    }
}

bool isMeta(const Event& event) { return event.sensorType == SensorType::META_DATA; }

std::string sensorTable(const std::vector<SensorInfo>& sensors) {
    std::vector<std::vector<std::string>> rows = {{"handle", "name", "vendor", "type", "maxRange",
                                                   "resolution", "power", "minDelay", "maxDelay",
                                                   "flags"}};
    for (const SensorInfo& s : sensors) {
        rows.push_back({std::to_string(s.sensorHandle), s.name, s.vendor,
                        std::to_string(static_cast<int32_t>(s.type)) + " " + shortTypeName(s),
                        shortFloat(s.maxRange), shortFloat(s.resolution), shortFloat(s.power),
                        std::to_string(s.minDelay), std::to_string(s.maxDelay),
                        flagsText(s.flags)});
    }
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
        }
        out += line + "\n";
    }
    return out;
}

std::string sensorsJson(const std::vector<SensorInfo>& sensors) {
    if (sensors.empty()) return "[]\n";
    std::string out = "[\n";
    for (size_t i = 0; i < sensors.size(); ++i) {
        const SensorInfo& s = sensors[i];
        out += "  {\"sensorHandle\": " + std::to_string(s.sensorHandle) +
               ", \"name\": " + jsonString(s.name) + ", \"vendor\": " + jsonString(s.vendor) +
               ", \"version\": " + std::to_string(s.version) +
               ", \"type\": " + std::to_string(static_cast<int32_t>(s.type)) +
               ", \"typeAsString\": " + jsonString(s.typeAsString) +
               ", \"maxRange\": " + formatFloat(s.maxRange) +
               ", \"resolution\": " + formatFloat(s.resolution) +
               ", \"power\": " + formatFloat(s.power) +
               ", \"minDelay\": " + std::to_string(s.minDelay) +
               ", \"fifoReservedEventCount\": " + std::to_string(s.fifoReservedEventCount) +
               ", \"fifoMaxEventCount\": " + std::to_string(s.fifoMaxEventCount) +
               ", \"requiredPermission\": " + jsonString(s.requiredPermission) +
               ", \"maxDelay\": " + std::to_string(s.maxDelay) +
               ", \"flags\": " + std::to_string(s.flags) + "}";
        out += i + 1 < sensors.size() ? ",\n" : "\n";
    }
    return out + "]\n";
}

std::string eventText(const Event& event, const std::string& sensorName) {
    char head[64];
    std::snprintf(head, sizeof(head), "%" PRId64 " [%d] ", event.timestamp, event.sensorHandle);
    std::string out = head + sensorName + ": ";
    if (isMeta(event)) {
        if (event.u.meta.what == MetaDataEventType::META_DATA_FLUSH_COMPLETE) {
            return out + "flush complete";
        }
        return out + "meta what=" + std::to_string(static_cast<uint32_t>(event.u.meta.what));
    }
    if (isThreeAxis(event)) {
        return out + "x=" + shortFloat(event.u.vec3.x) + " y=" + shortFloat(event.u.vec3.y) +
               " z=" + shortFloat(event.u.vec3.z) + " (status " +
               std::to_string(static_cast<int>(event.u.vec3.status)) + ")";
    }
    if (event.sensorType == SensorType::LIGHT) return out + "lux=" + shortFloat(event.u.scalar);
    return out + "type " + std::to_string(static_cast<int32_t>(event.sensorType)) +
           " data=" + shortFloat(event.u.data[0]) + "," + shortFloat(event.u.data[1]) + "," +
           shortFloat(event.u.data[2]);
}

std::string eventJson(const Event& event) {
    std::string out = "{\"timestamp\": " + std::to_string(event.timestamp) +
                      ", \"sensorHandle\": " + std::to_string(event.sensorHandle) +
                      ", \"sensorType\": " + std::to_string(static_cast<int32_t>(event.sensorType));
    if (isMeta(event)) {
        return out + ", \"meta\": {\"what\": " +
               std::to_string(static_cast<uint32_t>(event.u.meta.what)) + "}}";
    }
    if (isThreeAxis(event)) {
        return out + ", \"values\": [" + formatFloat(event.u.vec3.x) + ", " +
               formatFloat(event.u.vec3.y) + ", " + formatFloat(event.u.vec3.z) +
               "], \"status\": " + std::to_string(static_cast<int>(event.u.vec3.status)) + "}";
    }
    if (event.sensorType == SensorType::LIGHT) {
        return out + ", \"values\": [" + formatFloat(event.u.scalar) +
               "], \"status\": " + std::to_string(static_cast<int>(event.u.vec3.status)) + "}";
    }
    // A type this tool does not know: the whole payload, as floats.
    out += ", \"data\": [";
    for (size_t i = 0; i < 16; ++i) out += (i ? ", " : "") + formatFloat(event.u.data[i]);
    return out + "]}";
}

}  // namespace kelvane::tools
