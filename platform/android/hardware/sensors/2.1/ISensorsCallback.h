// android.hardware.sensors@2.1::ISensorsCallback: dynamic sensors with 2.1 sensor info.
#pragma once

#include <android/hardware/sensors/2.0/ISensorsCallback.h>
#include <android/hardware/sensors/2.1/types.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_1 {

struct ANDROID_API ISensorsCallback : public V2_0::ISensorsCallback {
    static constexpr const char* descriptor = "android.hardware.sensors@2.1::ISensorsCallback";

    virtual ::android::hardware::Return<void> onDynamicSensorsConnected_2_1(
        const ::android::hardware::hidl_vec<V2_1::SensorInfo>& dynamicSensorsAdded) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;
};

}  // namespace V2_1
}  // namespace sensors
}  // namespace hardware
}  // namespace android
