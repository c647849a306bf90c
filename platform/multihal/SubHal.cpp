#include "V2_1/SubHal.h"

#include "HalProxyCallbackBase.h"

namespace android {
namespace hardware {
namespace sensors {

namespace V2_1 {
namespace implementation {

using V1_0::Result;

IHalProxyCallback::~IHalProxyCallback() = default;

ISensorsSubHal::~ISensorsSubHal() = default;

// The proxy serves the 1.0 list itself from getSensorsList_2_1; the callback is not called.
Return<void> ISensorsSubHal::getSensorsList(getSensorsList_cb /*_hidl_cb*/) { return Void(); }

Return<Result> ISensorsSubHal::initialize(
    const MQDescriptorSync<V1_0::Event>& /*eventQueueDescriptor*/,
    const MQDescriptorSync<uint32_t>& /*wakeLockDescriptor*/,
    const sp<V2_0::ISensorsCallback>& /*sensorsCallback*/) {
    return Result::INVALID_OPERATION;
}

Return<Result> ISensorsSubHal::initialize_2_1(
    const MQDescriptorSync<V2_1::Event>& /*eventQueueDescriptor*/,
    const MQDescriptorSync<uint32_t>& /*wakeLockDescriptor*/,
    const sp<V2_1::ISensorsCallback>& /*sensorsCallback*/) {
    return Result::INVALID_OPERATION;
}

Return<Result> ISensorsSubHal::injectSensorData(const V1_0::Event& /*event*/) {
    return Result::INVALID_OPERATION;
}

}  // namespace implementation
}  // namespace V2_1

namespace V2_0 {
namespace implementation {

Return<void> HalProxyCallbackBase::onDynamicSensorsConnected(
    const hidl_vec<V1_0::SensorInfo>& /*dynamicSensorsAdded*/) {
    return Void();
}

Return<void> HalProxyCallbackBase::onDynamicSensorsDisconnected(
    const hidl_vec<int32_t>& /*dynamicSensorHandlesRemoved*/) {
    return Void();
}

Return<void> HalProxyCallbackBase::onDynamicSensorsConnected_2_1(
    const hidl_vec<V2_1::SensorInfo>& /*dynamicSensorsAdded*/) {
    return Void();
}

HalProxyCallbackBase::~HalProxyCallbackBase() = default;

ScopedWakelock HalProxyCallbackBase::makeScopedWakelock(IScopedWakelockRefCounter* counter,
                                                        bool lock) {
    return ScopedWakelock(counter, lock);
}

}  // namespace implementation
}  // namespace V2_0

}  // namespace sensors
}  // namespace hardware
}  // namespace android
