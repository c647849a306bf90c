// A library that exports the sub-HAL entry point but reports the 2.0 version word: the tool must
// refuse it, as the proxy does.
#include <cstdint>

namespace android::hardware::sensors::V2_1::implementation {
class ISensorsSubHal;
}  // namespace android::hardware::sensors::V2_1::implementation

namespace {
constexpr uint32_t kSubHal20Version = 0x02000000;
}  // namespace

extern "C" __attribute__((visibility("default")))
android::hardware::sensors::V2_1::implementation::ISensorsSubHal*
sensorsHalGetSubHal_2_1(uint32_t* version) {
    *version = kSubHal20Version;
    return nullptr;
}
