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

// Whether `wanted` is a name people use for the kind of `type`.
bool isKindName(SensorType type, const std::string& wanted) {
    const sensors::SensorKind* kind = sensorKind(type);
    if (kind == nullptr) return false;
    if (wanted == kind->shortName) return true;
    for (const char* const* alias = kind->aliases; *alias != nullptr; ++alias) {
        if (wanted == *alias) return true;
    }
    return false;
}

bool matches(const SensorInfo& sensor, const std::string& wanted, bool isHandle, int32_t handle) {
    if (wanted == "all") return true;
    if (isHandle) return sensor.sensorHandle == handle;
    if (wanted == lower(sensor.typeAsString) || wanted == lower(shortTypeName(sensor)) ||
        wanted == lower(sensor.name)) {
        return true;
    }
    return isKindName(sensor.type, wanted);
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
