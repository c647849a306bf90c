#include "host/description/BuiltInHost.h"

#include <string>

namespace kelvane::host::description {

HostConfig builtInHost() {
    auto device = [](int32_t id, int32_t type, const std::string& prefix, const char* name,
                     const char* scale, const char* location) {
        VirtualDevice d;
        d.id = id;
        d.types = {type};
        if (prefix == "illuminance") {
            d.channels = {"illuminance", "timestamp"};
        } else {
            d.channels = {prefix + "_x", prefix + "_y", prefix + "_z", "timestamp"};
        }
        d.attributes = {{"name", std::string(name)},
                        {"scale", std::string(scale)},
                        {"location", std::string(location)}};
        d.maxFrequency = 400.0;
        return d;
    };
    HostConfig config;
    // Scales turn raw values into the units Android reports: m/s^2, rad/s and µT per LSB, lux.
    config.devices = {
        device(0, 1, "accel", "cros-ec-accel", "0.0023928226", "lid"),
        device(1, 2, "anglvel", "cros-ec-gyro", "0.0010652", "lid"),
        device(2, 5, "magn", "cros-ec-mag", "0.0625", "lid"),
        device(3, 3, "illuminance", "cros-ec-light", "1", "base"),
        device(4, 11, "gravity", "cros-ec-gravity", "0.001", "lid"),
    };
    config.devices[3].maxFrequency = 20.0;
    return config;
}

}  // namespace kelvane::host::description
