// The multi-HAL 2.1 sub-HAL contract: what a sub-HAL library implements (ISensorsSubHal) and what
// the proxy hands it (IHalProxyCallback).
#pragma once

#include <android/hardware/sensors/2.1/ISensors.h>
#include <android/hardware/sensors/2.1/ISensorsCallback.h>
#include <android/hardware/sensors/2.1/types.h>
#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ScopedWakelock.h"

namespace android {
namespace hardware {
namespace sensors {
namespace V2_1 {
namespace implementation {

// The version a sub-HAL's entry point writes.
constexpr uint32_t SUB_HAL_2_1_VERSION = 0x02010000;

class ANDROID_API IHalProxyCallback : public ISensorsCallback {
  public:
    // Delivers events. May be called from any thread, concurrently. The wake lock must be held
    // exactly when the events include one from a wake-up sensor.
    virtual void postEvents(const std::vector<Event>& events,
                            V2_0::implementation::ScopedWakelock wakelock) = 0;

    virtual V2_0::implementation::ScopedWakelock createScopedWakelock(bool lock) = 0;

  protected:
    ~IHalProxyCallback() override;
};

class ANDROID_API ISensorsSubHal : public ISensors {
  public:
    // The proxy owns the sensor list of the 1.0 form, the message queues and data injection of
    // 1.0 events; a sub-HAL gives these fixed answers.
    ::android::hardware::Return<void> getSensorsList(getSensorsList_cb _hidl_cb) override;
    ::android::hardware::Return<V1_0::Result> initialize(
        const ::android::hardware::MQDescriptorSync<V1_0::Event>& eventQueueDescriptor,
        const ::android::hardware::MQDescriptorSync<uint32_t>& wakeLockDescriptor,
        const ::android::sp<V2_0::ISensorsCallback>& sensorsCallback) override;
    ::android::hardware::Return<V1_0::Result> initialize_2_1(
        const ::android::hardware::MQDescriptorSync<V2_1::Event>& eventQueueDescriptor,
        const ::android::hardware::MQDescriptorSync<uint32_t>& wakeLockDescriptor,
        const ::android::sp<V2_1::ISensorsCallback>& sensorsCallback) override;
    ::android::hardware::Return<V1_0::Result> injectSensorData(const V1_0::Event& event) override;

    ::android::hardware::Return<void> debug(
        const ::android::hardware::hidl_handle& fd,
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& args) override = 0;

    // Names the sub-HAL in the proxy's logs and dumps.
    virtual const std::string getName() = 0;

    // Called by the proxy when the framework initializes, each time with a new callback.
    virtual ::android::hardware::Return<V1_0::Result> initialize(
        const ::android::sp<IHalProxyCallback>& halProxyCallback) = 0;

  protected:
    ~ISensorsSubHal() override;
};

}  // namespace implementation
}  // namespace V2_1
}  // namespace sensors
}  // namespace hardware
}  // namespace android

// The entry point a sub-HAL library exports as sensorsHalGetSubHal_2_1.
using SensorsHalGetSubHalV2_1Func =
    ::android::hardware::sensors::V2_1::implementation::ISensorsSubHal*(uint32_t* version);
