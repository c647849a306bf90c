// A sub-HAL library that stands in front of the real one and reports every activate() on stderr
// ("recording_subhal: activate <handle> <0|1>"), so that a test can tell what a program did to
// its sensors. The real library is named by REAL_SUBHAL_LIBRARY in the environment.
#include <V2_1/SubHal.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::sensors::V1_0::OperationMode;
using android::hardware::sensors::V1_0::RateLevel;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SharedMemInfo;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::implementation::IHalProxyCallback;
using android::hardware::sensors::V2_1::implementation::ISensorsSubHal;
using android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION;

// One unbuffered write, so that lines survive however the process ends.
void report(const std::string& line) {
    const std::string text = "recording_subhal: " + line + "\n";
    ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
    (void)ignored;
}

ISensorsSubHal* loadReal() {
    const char* path = std::getenv("REAL_SUBHAL_LIBRARY");
    void* library = path != nullptr ? dlopen(path, RTLD_NOW) : nullptr;
    if (library == nullptr) return nullptr;
    auto* entry =
        reinterpret_cast<SensorsHalGetSubHalV2_1Func*>(dlsym(library, "sensorsHalGetSubHal_2_1"));
    uint32_t version = 0;
    ISensorsSubHal* real = entry != nullptr ? entry(&version) : nullptr;
    return version == SUB_HAL_2_1_VERSION ? real : nullptr;
}

class RecordingSubHal : public ISensorsSubHal {
  public:
    explicit RecordingSubHal(ISensorsSubHal* real) : mReal(real) {}

    Return<Result> activate(int32_t handle, bool enabled) override {
        report("activate " + std::to_string(handle) + (enabled ? " 1" : " 0"));
        return mReal->activate(handle, enabled);
    }

    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& args) override {
        return mReal->debug(fd, args);
    }
    const std::string getName() override { return mReal->getName(); }
    Return<Result> initialize(const android::sp<IHalProxyCallback>& callback) override {
        return mReal->initialize(callback);
    }
    Return<void> getSensorsList_2_1(getSensorsList_2_1_cb callback) override {
        return mReal->getSensorsList_2_1(callback);
    }
    Return<Result> injectSensorData_2_1(const Event& event) override {
        return mReal->injectSensorData_2_1(event);
    }
    Return<Result> setOperationMode(OperationMode mode) override {
        return mReal->setOperationMode(mode);
    }
    Return<Result> batch(int32_t handle, int64_t periodNs, int64_t latencyNs) override {
        return mReal->batch(handle, periodNs, latencyNs);
    }
    Return<Result> flush(int32_t handle) override { return mReal->flush(handle); }
    Return<void> registerDirectChannel(const SharedMemInfo& mem,
                                       registerDirectChannel_cb callback) override {
        return mReal->registerDirectChannel(mem, callback);
    }
    Return<Result> unregisterDirectChannel(int32_t channel) override {
        return mReal->unregisterDirectChannel(channel);
    }
    Return<void> configDirectReport(int32_t handle, int32_t channel, RateLevel rate,
                                    configDirectReport_cb callback) override {
        return mReal->configDirectReport(handle, channel, rate, callback);
    }

  private:
    ISensorsSubHal* const mReal;  // the real library's static object
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ISensorsSubHal* sensorsHalGetSubHal_2_1(
    uint32_t* version) {
    static ISensorsSubHal* const real = loadReal();
    static RecordingSubHal wrapper(real);
    *version = real != nullptr ? SUB_HAL_2_1_VERSION : 0;
    return real != nullptr ? &wrapper : nullptr;
}
