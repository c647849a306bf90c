#include <android/hardware/sensors/2.1/ISensors.h>
#include <android/hardware/sensors/2.1/ISensorsCallback.h>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_1 {

using ::android::hidl::base::V1_0::IBase;

Return<void> ISensorsCallback::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb(hidl_vec<hidl_string>{ISensorsCallback::descriptor, V2_0::ISensorsCallback::descriptor,
                                   IBase::descriptor});
    return Void();
}

Return<void> ISensorsCallback::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(ISensorsCallback::descriptor);
    return Void();
}

Return<void> ISensors::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb(
        hidl_vec<hidl_string>{ISensors::descriptor, V2_0::ISensors::descriptor, IBase::descriptor});
    return Void();
}

Return<void> ISensors::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(ISensors::descriptor);
    return Void();
}

}  // namespace V2_1
}  // namespace sensors
}  // namespace hardware
}  // namespace android
