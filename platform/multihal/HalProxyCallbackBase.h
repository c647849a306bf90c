// Base for proxy callbacks outside the real proxy (tests, tools): it can make wake locks.
#pragma once

#include <android/hardware/sensors/1.0/types.h>
#include <android/hardware/sensors/2.1/types.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

#include <cstdint>

#include "ScopedWakelock.h"
#include "V2_1/SubHal.h"

namespace android {
namespace hardware {
namespace sensors {
namespace V2_0 {
namespace implementation {

class ANDROID_API HalProxyCallbackBase : public V2_1::implementation::IHalProxyCallback {
  public:
    // Dynamic sensors are ignored unless a subclass cares.
    ::android::hardware::Return<void> onDynamicSensorsConnected(
        const ::android::hardware::hidl_vec<V1_0::SensorInfo>& dynamicSensorsAdded) override;
    ::android::hardware::Return<void> onDynamicSensorsDisconnected(
        const ::android::hardware::hidl_vec<int32_t>& dynamicSensorHandlesRemoved) override;
    ::android::hardware::Return<void> onDynamicSensorsConnected_2_1(
        const ::android::hardware::hidl_vec<V2_1::SensorInfo>& dynamicSensorsAdded) override;

  protected:
    ~HalProxyCallbackBase() override;

    static ScopedWakelock makeScopedWakelock(IScopedWakelockRefCounter* counter, bool lock);
};

}  // namespace implementation
}  // namespace V2_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
