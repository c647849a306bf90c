#include "SensorSelection.h"

#include <cctype>
#include <set>

#include "Arguments.h"
#include "Output.h"

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V2_1::SensorType;

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Names people use for a type, besides its typeAsString and the last part of it.
std::vector<std::string> commonNames(SensorType type) {
    switch (type) {
        case SensorType::ACCELEROMETER:
            return {"accel"};
        case SensorType::MAGNETIC_FIELD:
            return {"magnetometer", "magnetic field", "mag", "compass"};
        case SensorType::GYROSCOPE:
            return {"gyro"};
        case SensorType::LIGHT:
            return {"ambient light", "als"};
        default:
            return {};
    }
}

bool matches(const SensorInfo& sensor, const std::string& wanted, bool isHandle, int32_t handle) {
    if (wanted == "all") return true;
    if (isHandle) return sensor.sensorHandle == handle;
    if (wanted == lower(sensor.typeAsString) || wanted == lower(shortTypeName(sensor)) ||
        wanted == lower(sensor.name)) {
        return true;
    }
    for (const std::string& name : commonNames(sensor.type)) {
        if (wanted == name) return true;
    }
    return false;
}

std::string choices(const std::vector<SensorInfo>& all) {
    if (all.empty()) return "no sensor was published";
    std::string handles;
    std::string types;
    std::string names;
    std::set<std::string> seenTypes;
    for (const SensorInfo& sensor : all) {
        handles += (handles.empty() ? "" : ", ") + std::to_string(sensor.sensorHandle);
        const std::string type = shortTypeName(sensor);
        if (seenTypes.insert(type).second) types += (types.empty() ? "" : ", ") + type;
        names += (names.empty() ? "\"" : ", \"") + printable(sensor.name) + "\"";
    }
    return "choose a handle (" + handles + "), a type (" + types + "), a name (" + names +
           ") or all";
}

}  // namespace

std::string checkSelector(const std::string& selector) {
    int32_t handle = 0;
    std::string error;
    if (!parseHandle(selector, &handle, &error) && !error.empty()) {
        return "--sensor: " + error;
    }
    return {};
}

std::string selectSensors(const std::vector<SensorInfo>& all,
                          const std::vector<std::string>& selectors,
                          std::vector<SensorInfo>* selected) {
    std::set<int32_t> chosen;
    for (const std::string& selector : selectors) {
        int32_t handle = 0;
        std::string error;
        const bool isHandle = parseHandle(selector, &handle, &error);
        if (!error.empty()) return "--sensor: " + error;
        const std::string wanted = lower(selector);
        bool matched = false;
        for (const SensorInfo& sensor : all) {
            if (matches(sensor, wanted, isHandle, handle)) {
                chosen.insert(sensor.sensorHandle);
                matched = true;
            }
        }
        if (!matched) {
            return "no sensor matches --sensor \"" + printable(selector) + "\"; " + choices(all);
        }
    }
    for (const SensorInfo& sensor : all) {
        if (selectors.empty() || chosen.count(sensor.sensorHandle) != 0) {
            selected->push_back(sensor);
        }
    }
    return {};
}

}  // namespace kelvane::tools
