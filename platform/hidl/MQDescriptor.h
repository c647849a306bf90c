// Fast message queue descriptors. Sub-HALs never receive queues (the multi-HAL proxy owns them),
// so the descriptor carries nothing: it only names the parameter types of the initialize calls a
// sub-HAL refuses.
#pragma once

#include <cstdint>

namespace android {
namespace hardware {

enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 0x01,
    kUnsynchronizedWrite = 0x02,
};

template <typename T, MQFlavor flavor>
struct MQDescriptor {};

template <typename T>
using MQDescriptorSync = MQDescriptor<T, kSynchronizedReadWrite>;
template <typename T>
using MQDescriptorUnsync = MQDescriptor<T, kUnsynchronizedWrite>;

}  // namespace hardware
}  // namespace android
