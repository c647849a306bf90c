// android.hidl.base@1.0::IBase, the root of every HIDL interface. The defaults answer as an
// in-process object does: never remote, always alive.
#pragma once

#include <cutils/compiler.h>
#include <hidl/HidlSupport.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <functional>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct DebugInfo {
    enum class Architecture : int32_t {
        UNKNOWN = 0,
        IS_64BIT = 1,
        IS_32BIT = 2,
    };

    int32_t pid;
    uint64_t ptr;
    Architecture arch;
};

struct ANDROID_API IBase : virtual public ::android::RefBase {
    static constexpr const char* descriptor = "android.hidl.base@1.0::IBase";

    using interfaceChain_cb = std::function<void(
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& descriptors)>;
    using interfaceDescriptor_cb =
        std::function<void(const ::android::hardware::hidl_string& descriptor)>;
    using getHashChain_cb =
        std::function<void(const ::android::hardware::hidl_vec<
                           ::android::hardware::hidl_array<uint8_t, 32>>& hashchain)>;
    using getDebugInfo_cb = std::function<void(const DebugInfo& info)>;

    virtual bool isRemote() const;
    // Descriptors of this interface and its ancestors, most derived first.
    virtual ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> debug(
        const ::android::hardware::hidl_handle& fd,
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);
    virtual ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb);
    // One all-zero hash per entry of the interface chain.
    virtual ::android::hardware::Return<void> getHashChain(getHashChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> setHALInstrumentation();
    // In-process objects never die: linking always succeeds and the recipient is never called.
    virtual ::android::hardware::Return<bool> linkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient, uint64_t cookie);
    virtual ::android::hardware::Return<void> ping();
    virtual ::android::hardware::Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb);
    virtual ::android::hardware::Return<void> notifySyspropsChanged();
    virtual ::android::hardware::Return<bool> unlinkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient);
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
