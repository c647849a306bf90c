// A sub-HAL library that stands in front of the real one and breaks the conformance rules that
// no host can break, since the real library fixes them: its sensor descriptions, its command
// answers and the events it posts. The real library is named by REAL_SUBHAL_LIBRARY, the faults
// by FAULTY_SUBHAL_FAULTS (comma-separated names, see kFaults). Each list fault hits one sensor,
// by its position in the list, so that faults given together do not hide one another.
#include <HalProxyCallbackBase.h>
#include <V2_1/SubHal.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::sensors::V1_0::OperationMode;
using android::hardware::sensors::V1_0::RateLevel;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SharedMemInfo;
using android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase;
using android::hardware::sensors::V2_0::implementation::ScopedWakelock;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;
using android::hardware::sensors::V2_1::implementation::IHalProxyCallback;
using android::hardware::sensors::V2_1::implementation::ISensorsSubHal;
using android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION;

const std::set<std::string> kFaults = {
    // sensor list
    "empty-name", "empty-vendor", "meta-type", "type-string", "negative-power", "zero-range",
    "fifo", "on-change", "zero-min-delay", "top-byte", "slow-min-delay", "coarse-resolution",
    // commands
    "accept-any-handle", "refuse-deactivate", "refuse-batch", "double-flush", "direct-channel",
    "refuse-injection", "keep-first-callback", "refuse-late-initialize",
    // events
    "wrong-handle", "foreign-events", "wake-lock"};

std::set<std::string> faultsFromEnvironment() {
    std::set<std::string> faults;
    const char* text = std::getenv("FAULTY_SUBHAL_FAULTS");
    std::stringstream list(text != nullptr ? text : "");
    std::string name;
    while (std::getline(list, name, ',')) {
        if (kFaults.count(name) == 0) std::abort();  // a typo in a test must not pass quietly
        faults.insert(name);
    }
    return faults;
}

const std::set<std::string>& faults() {
    static const std::set<std::string> kActive = faultsFromEnvironment();
    return kActive;
}

bool has(const char* fault) { return faults().count(fault) != 0; }

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

// Rewrites what the real library posts.
class FaultyCallback : public HalProxyCallbackBase {
  public:
    explicit FaultyCallback(android::sp<IHalProxyCallback> real) : mReal(std::move(real)) {}

    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override {
        std::vector<Event> posted;
        for (Event event : events) {
            const bool sensorEvent = event.sensorType != SensorType::META_DATA;
            if (sensorEvent && has("wrong-handle")) event.sensorHandle += 100;
            posted.push_back(event);
            if (sensorEvent && has("foreign-events")) {
                Event foreign = event;
                foreign.sensorHandle = 999;
                posted.push_back(foreign);
            }
        }
        if (has("wake-lock")) {
            mReal->postEvents(posted, mReal->createScopedWakelock(true));
        } else {
            mReal->postEvents(posted, std::move(wakelock));
        }
    }
    ScopedWakelock createScopedWakelock(bool lock) override {
        return mReal->createScopedWakelock(lock);
    }

  private:
    const android::sp<IHalProxyCallback> mReal;
};

class FaultySubHal : public ISensorsSubHal {
  public:
    explicit FaultySubHal(ISensorsSubHal* real) : mReal(real) {}

    Return<void> getSensorsList_2_1(getSensorsList_2_1_cb callback) override {
        return mReal->getSensorsList_2_1([&callback](const hidl_vec<SensorInfo>& real) {
            std::vector<SensorInfo> list = real;
            breakDescriptions(&list);
            callback(list);
        });
    }
    Return<Result> initialize(const android::sp<IHalProxyCallback>& callback) override {
        const int calls = ++mInitializeCalls;
        if (has("keep-first-callback") && calls > 1) return Result::OK;
        if (has("refuse-late-initialize") && calls > 3) return Result::NO_MEMORY;
        return mReal->initialize(new FaultyCallback(callback));
    }
    Return<Result> activate(int32_t handle, bool enabled) override {
        if (!enabled && has("refuse-deactivate")) {
            mReal->activate(handle, false);
            return Result::INVALID_OPERATION;
        }
        return orOk(mReal->activate(handle, enabled));
    }
    Return<Result> batch(int32_t handle, int64_t periodNs, int64_t latencyNs) override {
        if (has("refuse-batch")) return Result::BAD_VALUE;
        return orOk(mReal->batch(handle, periodNs, latencyNs));
    }
    Return<Result> flush(int32_t handle) override {
        if (has("double-flush")) mReal->flush(handle);
        return orOk(mReal->flush(handle));
    }
    Return<Result> setOperationMode(OperationMode mode) override {
        if (mode == OperationMode::DATA_INJECTION && has("refuse-injection")) {
            return Result::INVALID_OPERATION;
        }
        return mReal->setOperationMode(mode);
    }
    Return<void> registerDirectChannel(const SharedMemInfo& mem,
                                       registerDirectChannel_cb callback) override {
        if (has("direct-channel")) {
            callback(Result::OK, 1);
            return Return<void>();
        }
        return mReal->registerDirectChannel(mem, callback);
    }
    Return<Result> unregisterDirectChannel(int32_t channel) override {
        return mReal->unregisterDirectChannel(channel);
    }
    Return<void> configDirectReport(int32_t handle, int32_t channel, RateLevel rate,
                                    configDirectReport_cb callback) override {
        return mReal->configDirectReport(handle, channel, rate, callback);
    }
    Return<Result> injectSensorData_2_1(const Event& event) override {
        return mReal->injectSensorData_2_1(event);
    }
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& args) override {
        return mReal->debug(fd, args);
    }
    const std::string getName() override { return "faulty " + mReal->getName(); }

  private:
    static void breakDescriptions(std::vector<SensorInfo>* list) {
        auto at = [list](size_t index) -> SensorInfo* {
            return index < list->size() ? &(*list)[index] : nullptr;
        };
        if (SensorInfo* s = at(0)) {
            if (has("empty-name")) s->name = "";
            if (has("empty-vendor")) s->vendor = "";
            if (has("type-string")) s->typeAsString = "android.sensor.not_this_one";
            if (has("negative-power")) s->power = -1.0f;
            if (has("zero-range")) s->maxRange = 0.0f;
            if (has("fifo")) s->fifoReservedEventCount = s->fifoMaxEventCount + 10;
            if (has("on-change")) s->flags = 2;
            if (has("slow-min-delay")) s->minDelay = 20000;
            if (has("coarse-resolution")) s->resolution = s->maxRange / 100;
        }
        if (SensorInfo* s = at(1); s != nullptr && has("zero-min-delay")) s->minDelay = 0;
        if (SensorInfo* s = at(2); s != nullptr && has("top-byte")) s->sensorHandle |= 0x01000000;
        if (SensorInfo* s = at(list->size() - 1); s != nullptr && has("meta-type")) {
            s->type = SensorType::META_DATA;
        }
    }
    // With accept-any-handle, what the real library refused is OK.
    static Result orOk(Result result) {
        return result == Result::BAD_VALUE && has("accept-any-handle") ? Result::OK : result;
    }

    ISensorsSubHal* const mReal;  // the real library's static object
    std::atomic<int> mInitializeCalls{0};
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ISensorsSubHal* sensorsHalGetSubHal_2_1(
    uint32_t* version) {
    static ISensorsSubHal* const real = loadReal();
    static FaultySubHal wrapper(real);
    *version = real != nullptr ? SUB_HAL_2_1_VERSION : 0;
    return real != nullptr ? &wrapper : nullptr;
}
