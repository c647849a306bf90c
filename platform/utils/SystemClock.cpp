#include <time.h>
#include <utils/SystemClock.h>

namespace android {

int64_t elapsedRealtimeNano() {
    timespec ts{};
    clock_gettime(CLOCK_BOOTTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

}  // namespace android
