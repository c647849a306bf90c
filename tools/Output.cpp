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

// Terminal columns of UTF-8 text: every byte that does not continue a character.
size_t columns(const std::string& text) {
    size_t n = 0;
    for (char c : text) n += (static_cast<unsigned char>(c) & 0xc0) != 0x80 ? 1 : 0;
    return n;
}

std::string withUnit(const std::string& number, const char* unit) {
    return *unit == '\0' ? number : number + " " + unit;
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

std::string printable(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const unsigned char next =
            i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        char escaped[8];
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c < 0x20 || c == 0x7f) {
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", c);
            out += escaped;
        } else if (c == 0xc2 && next >= 0x80 && next <= 0x9f) {
            // A C1 control in UTF-8 (U+0080..U+009F): some terminals act on these too.
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", next);
            out += escaped;
            ++i;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

const sensors::SensorKind* sensorKind(SensorType type) {
    return sensors::kindOfAndroidType(static_cast<int32_t>(type));
}

const char* valueUnit(SensorType type) {
    const sensors::SensorKind* kind = sensorKind(type);
    return kind != nullptr ? kind->unit : "";
}

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
    const sensors::SensorKind* kind = sensorKind(event.sensorType);
    return kind != nullptr && kind->axisCount == 3;
}

bool isMeta(const Event& event) { return event.sensorType == SensorType::META_DATA; }

std::string sensorTable(const std::vector<SensorInfo>& sensors) {
    std::vector<std::vector<std::string>> rows = {{"handle", "name", "vendor", "type", "maxRange",
                                                   "resolution", "power", "minDelay", "maxDelay",
                                                   "flags"}};
    for (const SensorInfo& s : sensors) {
        const char* unit = valueUnit(s.type);
        rows.push_back(
            {std::to_string(s.sensorHandle), printable(s.name), printable(s.vendor),
             std::to_string(static_cast<int32_t>(s.type)) + " " + printable(shortTypeName(s)),
             withUnit(shortFloat(s.maxRange), unit), withUnit(shortFloat(s.resolution), unit),
             shortFloat(s.power) + " mA", std::to_string(s.minDelay) + " µs",
             std::to_string(s.maxDelay) + " µs", flagsText(s.flags)});
    }
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
    }
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - columns(row[i]) + 2, ' ');
        }
        out += line + "\n";
    }
    return out;
}

std::string sensorsJson(const std::vector<SensorInfo>& sensors) {
    std::string out = "[";
    for (size_t i = 0; i < sensors.size(); ++i) {
        const SensorInfo& s = sensors[i];
        out += (i == 0 ? "{\"sensorHandle\": " : ", {\"sensorHandle\": ") +
               std::to_string(s.sensorHandle) + ", \"name\": " + jsonString(s.name) +
               ", \"vendor\": " + jsonString(s.vendor) +
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
    }
    return out + "]\n";
}

std::string eventText(const Event& event, const std::string& sensorName) {
    char head[64];
    std::snprintf(head, sizeof(head), "%" PRId64 " ns [%d] ", event.timestamp, event.sensorHandle);
    std::string out = head + printable(sensorName) + ": ";
    if (isMeta(event)) {
        if (event.u.meta.what == MetaDataEventType::META_DATA_FLUSH_COMPLETE) {
            return out + "flush complete";
        }
        return out + "meta what=" + std::to_string(static_cast<uint32_t>(event.u.meta.what));
    }
    if (isThreeAxis(event)) {
        return out + "x=" + shortFloat(event.u.vec3.x) + " y=" + shortFloat(event.u.vec3.y) +
               " z=" + withUnit(shortFloat(event.u.vec3.z), valueUnit(event.sensorType)) +
               " (status " + std::to_string(static_cast<int>(event.u.vec3.status)) + ")";
    }
    if (event.sensorType == SensorType::LIGHT) return out + shortFloat(event.u.scalar) + " lux";
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
