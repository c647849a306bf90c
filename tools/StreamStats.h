// Per-sensor figures of a stream: how many events, at what rate, and the range of each value.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kelvane::tools {

class StreamStats {
  public:
    using Event = android::hardware::sensors::V2_1::Event;
    using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;

    // Sensor events only; flush completions are not counted.
    void add(const Event& event);

    // One line per sensor, in the order given, sensors without events included ("no events").
    // Values carry their units.
    std::string summary(const std::vector<SensorInfo>& sensors) const;
    bool hasEvents(int32_t handle) const { return mFigures.count(handle) != 0; }

  private:
    struct Figures {
        uint64_t events = 0;
        int64_t firstTimestamp = 0;
        int64_t lastTimestamp = 0;
        size_t values = 0;  // 3 for three-axis sensors, 1 for light
        float min[3] = {0, 0, 0};
        float max[3] = {0, 0, 0};
    };

    std::map<int32_t, Figures> mFigures;  // by sensor handle
};

}  // namespace kelvane::tools
