// android.hardware.sensors@2.1::ISensors: the 2.0 interface plus 2.1 sensor info and events.
#pragma once

#include <android/hardware/sensors/2.0/ISensors.h>
#include <android/hardware/sensors/2.1/ISensorsCallback.h>
#include <android/hardware/sensors/2.1/types.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

#include <cstdint>
#include <functional>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_1 {

struct ANDROID_API ISensors : public V2_0::ISensors {
    static constexpr const char* descriptor = "android.hardware.sensors@2.1::ISensors";

    using getSensorsList_2_1_cb =
        std::function<void(const ::android::hardware::hidl_vec<V2_1::SensorInfo>& list)>;

    virtual ::android::hardware::Return<void> getSensorsList_2_1(
        getSensorsList_2_1_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<V1_0::Result> initialize_2_1(
        const ::android::hardware::MQDescriptorSync<V2_1::Event>& eventQueueDescriptor,
        const ::android::hardware::MQDescriptorSync<uint32_t>& wakeLockDescriptor,
        const ::android::sp<V2_1::ISensorsCallback>& sensorsCallback) = 0;
    virtual ::android::hardware::Return<V1_0::Result> injectSensorData_2_1(
        const V2_1::Event& event) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;
};

}  // namespace V2_1
}  // namespace sensors
}  // namespace hardware
}  // namespace android
