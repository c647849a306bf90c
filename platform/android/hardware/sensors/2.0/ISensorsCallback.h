// android.hardware.sensors@2.0::ISensorsCallback: how a sensors HAL reports dynamic sensors.
#pragma once

#include <android/hardware/sensors/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

#include <cstdint>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_0 {

struct ANDROID_API ISensorsCallback : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor = "android.hardware.sensors@2.0::ISensorsCallback";

    virtual ::android::hardware::Return<void> onDynamicSensorsConnected(
        const ::android::hardware::hidl_vec<V1_0::SensorInfo>& dynamicSensorsAdded) = 0;
    virtual ::android::hardware::Return<void> onDynamicSensorsDisconnected(
        const ::android::hardware::hidl_vec<int32_t>& dynamicSensorHandlesRemoved) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;
};

}  // namespace V2_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
