#include "host/description/BuiltInHost.h"

#include <string>

#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::host::description {

namespace {

using sensors::DeviceType;

VirtualDevice device(int32_t id, DeviceType type, const char* name, const char* scale,
                     const char* location) {
    const sensors::SensorKind& kind = *sensors::kindOf(type);
    VirtualDevice d;
    d.id = id;
    d.types = {static_cast<int32_t>(type)};
    for (size_t axis = 0; axis < kind.axisCount; ++axis) {
        d.channels.push_back(sensors::channelId(kind, axis));
    }
    d.channels.push_back("timestamp");
    d.attributes = {{"name", std::string(name)},
                    {"scale", std::string(scale)},
                    {"location", std::string(location)}};
    d.maxFrequency = 400.0;
    return d;
}

}  // namespace

HostConfig builtInHost() {
    HostConfig config;
    // Scales turn raw values into the units Android reports (those of the sensor kinds).
    config.devices = {
        device(0, DeviceType::ACCEL, "cros-ec-accel", "0.0023928226", "lid"),
        device(1, DeviceType::ANGLVEL, "cros-ec-gyro", "0.0010652", "lid"),
        device(2, DeviceType::MAGN, "cros-ec-mag", "0.0625", "lid"),
        device(3, DeviceType::LIGHT, "cros-ec-light", "1", "base"),
        device(4, DeviceType::GRAVITY, "cros-ec-gravity", "0.001", "lid"),
    };
    config.devices[3].maxFrequency = 20.0;
    return config;
}

}  // namespace kelvane::host::description
