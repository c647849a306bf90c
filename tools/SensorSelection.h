// Which published sensors a stream's --sensor selectors name.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <string>
#include <vector>

namespace kelvane::tools {

using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;

// A selector is "all", a handle ("1"), a typeAsString ("android.sensor.accelerometer"), its last
// part ("magnetic_field"), a common name ("magnetometer", "accel", "gyro", "als") or a sensor
// name ("Accelerometer (lid)"); case does not matter. Fills *selected in list order, each sensor
// once (every sensor when `selectors` is empty). On failure returns a one-line error naming the
// selector and the valid choices.
std::string selectSensors(const std::vector<SensorInfo>& all,
                          const std::vector<std::string>& selectors,
                          std::vector<SensorInfo>* selected);

// A selector that can never match, whatever is published ("007"); "" if it may.
std::string checkSelector(const std::string& selector);

}  // namespace kelvane::tools
