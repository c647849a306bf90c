// The sensor kinds this system serves, keyed by the host's DeviceType: what a host's device of
// that kind carries (IIO channels, unit, default scale of its readings) and what Android is told
// about the sensor published for it. Every part of the system that knows about kinds reads this
// table; adding a kind is adding a row here.
//
// Plain constexpr data and pure functions: safe from any thread, no allocation but channelId().
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hardware/sensors/mojom/sensor.mojom.h"

namespace kelvane::sensors {

using chromeos::sensors::mojom::DeviceType;

// How Android reports a sensor's events.
enum class ReportingMode { kContinuous, kOnChange };

struct SensorKind {
    DeviceType deviceType;
    // Android's sensor type number (the SensorType value) and its official name.
    int32_t androidType;
    const char* typeAsString;
    const char* name;       // what the published sensor is called ("Accelerometer")
    const char* shortName;  // what people call it ("accelerometer"), lower case
    // Other lower-case names people use for it; null-terminated.
    const char* aliases[5];
    // IIO channel ids: the prefix alone for one axis ("illuminance"), else prefix_axis
    // ("accel_x").
    const char* channelPrefix;
    size_t axisCount;
    const char* axes[3];    // the names of the value columns
    const char* unit;       // Android's unit of the values, UTF-8 ("m/s²")
    const char* asciiUnit;  // the same in ASCII ("m/s^2")
    // What turns a value in the IIO unit into one in Android's (Gauss to microtesla: 100).
    double iioToAndroid;
    // What the published sensor tells Android.
    float maxRange;
    float resolution;
    int32_t minDelayUs;
    ReportingMode reportingMode;
    double defaultHz;  // the rate a sensor runs at while no rate was asked
};

// In ascending DeviceType, the order in which a host lists a device's kinds.
// clang-format off
inline constexpr SensorKind kSensorKinds[] = {
    {DeviceType::ACCEL, 1, "android.sensor.accelerometer", "Accelerometer", "accelerometer",
     {"accel", nullptr},
     "accel", 3, {"x", "y", "z"}, "m/s²", "m/s^2", 1.0,
     78.4532f, 0.0023928226f, 10000, ReportingMode::kContinuous, 50.0},
    {DeviceType::ANGLVEL, 4, "android.sensor.gyroscope", "Gyroscope", "gyroscope",
     {"gyro", nullptr},
     "anglvel", 3, {"x", "y", "z"}, "rad/s", "rad/s", 1.0,
     34.906586f, 0.001065264f, 10000, ReportingMode::kContinuous, 50.0},
    {DeviceType::LIGHT, 5, "android.sensor.light", "Light", "light",
     {"ambient light", "als", nullptr},
     "illuminance", 1, {"illuminance"}, "lux", "lux", 1.0,
     100000.0f, 1.0f, 0, ReportingMode::kOnChange, 50.0},
    {DeviceType::MAGN, 2, "android.sensor.magnetic_field", "Magnetometer", "magnetometer",
     {"magnetic field", "mag", "compass", nullptr},
     "magn", 3, {"x", "y", "z"}, "µT", "uT", 100.0,  // IIO reads Gauss
     4911.994f, 0.15f, 20000, ReportingMode::kContinuous, 50.0},
    {DeviceType::GRAVITY, 9, "android.sensor.gravity", "Gravity", "gravity",
     {nullptr},
     "gravity", 3, {"x", "y", "z"}, "m/s²", "m/s^2", 1.0,
     9.80665f, 0.001f, 10000, ReportingMode::kContinuous, 50.0},
};
// clang-format on

// The kind of a DeviceType value as it travels (an int32_t); null for one this system does not
// serve.
constexpr const SensorKind* kindOf(int32_t deviceType) {
    for (const SensorKind& kind : kSensorKinds) {
        if (static_cast<int32_t>(kind.deviceType) == deviceType) return &kind;
    }
    return nullptr;
}
constexpr const SensorKind* kindOf(DeviceType type) { return kindOf(static_cast<int32_t>(type)); }

// The kind published for Android type `androidType`; null for any other type.
constexpr const SensorKind* kindOfAndroidType(int32_t androidType) {
    for (const SensorKind& kind : kSensorKinds) {
        if (kind.androidType == androidType) return &kind;
    }
    return nullptr;
}

// The first served kind among a device's types (in the host's order), the one the sub-HAL
// publishes; null if none.
template <typename Types>
const SensorKind* firstServedKind(const Types& deviceTypes) {
    for (int32_t type : deviceTypes) {
        if (const SensorKind* kind = kindOf(type)) return kind;
    }
    return nullptr;
}

// Every served DeviceType value, in table order.
inline std::vector<int32_t> servedDeviceTypes() {
    std::vector<int32_t> types;
    for (const SensorKind& kind : kSensorKinds)
        types.push_back(static_cast<int32_t>(kind.deviceType));
    return types;
}

// The id of value channel `axis` (< axisCount) of a device of `kind`.
inline std::string channelId(const SensorKind& kind, size_t axis) {
    if (kind.axisCount == 1) return kind.channelPrefix;
    return std::string(kind.channelPrefix) + "_" + kind.axes[axis];
}

// The kind whose value channels include `channel`, and which axis it is; null for any other
// channel (the timestamp, say).
inline const SensorKind* kindOfChannel(const std::string& channel, size_t* axis = nullptr) {
    for (const SensorKind& kind : kSensorKinds) {
        for (size_t i = 0; i < kind.axisCount; ++i) {
            if (channel != channelId(kind, i)) continue;
            if (axis != nullptr) *axis = i;
            return &kind;
        }
    }
    return nullptr;
}

}  // namespace kelvane::sensors
