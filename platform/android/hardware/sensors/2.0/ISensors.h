// android.hardware.sensors@2.0::ISensors.
#pragma once

#include <android/hardware/sensors/1.0/types.h>
#include <android/hardware/sensors/2.0/ISensorsCallback.h>
#include <android/hidl/base/1.0/IBase.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

#include <cstdint>
#include <functional>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_0 {

struct ANDROID_API ISensors : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor = "android.hardware.sensors@2.0::ISensors";

    using getSensorsList_cb =
        std::function<void(const ::android::hardware::hidl_vec<V1_0::SensorInfo>& list)>;
    using registerDirectChannel_cb =
        std::function<void(V1_0::Result result, int32_t channelHandle)>;
    using configDirectReport_cb = std::function<void(V1_0::Result result, int32_t reportToken)>;

    virtual ::android::hardware::Return<void> getSensorsList(getSensorsList_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<V1_0::Result> setOperationMode(
        V1_0::OperationMode mode) = 0;
    virtual ::android::hardware::Return<V1_0::Result> activate(int32_t sensorHandle,
                                                               bool enabled) = 0;
    virtual ::android::hardware::Return<V1_0::Result> initialize(
        const ::android::hardware::MQDescriptorSync<V1_0::Event>& eventQueueDescriptor,
        const ::android::hardware::MQDescriptorSync<uint32_t>& wakeLockDescriptor,
        const ::android::sp<V2_0::ISensorsCallback>& sensorsCallback) = 0;
    virtual ::android::hardware::Return<V1_0::Result> batch(int32_t sensorHandle,
                                                            int64_t samplingPeriodNs,
                                                            int64_t maxReportLatencyNs) = 0;
    virtual ::android::hardware::Return<V1_0::Result> flush(int32_t sensorHandle) = 0;
    virtual ::android::hardware::Return<V1_0::Result> injectSensorData(
        const V1_0::Event& event) = 0;
    virtual ::android::hardware::Return<void> registerDirectChannel(
        const V1_0::SharedMemInfo& mem, registerDirectChannel_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<V1_0::Result> unregisterDirectChannel(
        int32_t channelHandle) = 0;
    virtual ::android::hardware::Return<void> configDirectReport(
        int32_t sensorHandle, int32_t channelHandle, V1_0::RateLevel rate,
        configDirectReport_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;
};

}  // namespace V2_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
