#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <vector>

namespace kelvane {
namespace sensors {

// Where devices hand their events; called on the Mojo thread.
class IioSensorEventCallback {
  public:
    virtual ~IioSensorEventCallback() = default;
    virtual void postSensorEvents(
        const std::vector<android::hardware::sensors::V2_1::Event>& events, bool wakeup) = 0;
};

}  // namespace sensors
}  // namespace kelvane
