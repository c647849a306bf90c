#include "bench/bench_env.h"

#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <future>
#include <string>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/logging.h"
#include "vel/MojoProcessSupport.h"

namespace kelvane::bench {

using android::hardware::hidl_vec;
using host::description::HostConfig;
using host::description::VirtualDevice;

class CountingProxyCallback::Counter
    : public android::hardware::sensors::V2_0::implementation::IScopedWakelockRefCounter {
  public:
    bool incrementRefCountAndMaybeAcquireWakelock(size_t delta, int64_t*) override {
        mHeld.fetch_add(delta, std::memory_order_relaxed);
        return true;
    }
    void decrementRefCountAndMaybeReleaseWakelock(size_t delta, int64_t) override {
        mHeld.fetch_sub(delta, std::memory_order_relaxed);
    }

  private:
    std::atomic<size_t> mHeld{0};
};

CountingProxyCallback::CountingProxyCallback() : mCounter(new Counter()) {}
CountingProxyCallback::~CountingProxyCallback() = default;

void CountingProxyCallback::postEvents(const std::vector<Event>& events, ScopedWakelock) {
    const uint64_t before = mEvents.fetch_add(events.size(), std::memory_order_acq_rel);
    const uint64_t target = mTarget.load(std::memory_order_acquire);
    if (before < target && before + events.size() >= target) {
        std::lock_guard<std::mutex> lock(mMutex);
        mReached.notify_all();
    }
}

CountingProxyCallback::ScopedWakelock CountingProxyCallback::createScopedWakelock(bool lock) {
    return makeScopedWakelock(mCounter.get(), lock);
}

bool CountingProxyCallback::waitForEvents(uint64_t target, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mMutex);
    mTarget.store(target, std::memory_order_release);
    const bool reached = mReached.wait_for(lock, limit, [&] { return events() >= target; });
    mTarget.store(UINT64_MAX, std::memory_order_release);
    return reached;
}

namespace {

VirtualDevice makeDevice(int32_t id, int32_t type, const std::string& prefix, bool threeAxis) {
    VirtualDevice d;
    d.id = id;
    d.types = {type};
    if (threeAxis) {
        d.channels = {prefix + "_x", prefix + "_y", prefix + "_z", "timestamp"};
    } else {
        d.channels = {prefix, "timestamp"};
    }
    d.attributes = {{"name", "bench-" + prefix}, {"scale", "0.01"}, {"location", "lid"}};
    return d;
}

bool discardLibchromeLog(int, const char*, int, size_t, const std::string&) { return true; }

}  // namespace

HostConfig fiveDevices(bool stream) {
    HostConfig config;
    config.stream = stream;
    config.devices = {
        makeDevice(kAccel, 1, "accel", true),        makeDevice(kGyro, 2, "anglvel", true),
        makeDevice(kLight, 3, "illuminance", false), makeDevice(kMagn, 5, "magn", true),
        makeDevice(kGravity, 11, "gravity", true),
    };
    return config;
}

QuietLogs::QuietLogs() : mPreviousPriority(__android_log_set_minimum_priority(ANDROID_LOG_SILENT)) {
    logging::SetLogMessageHandler(&discardLibchromeLog);
}

QuietLogs::~QuietLogs() {
    logging::SetLogMessageHandler(nullptr);
    __android_log_set_minimum_priority(mPreviousPriority);
}

System::System(bool stream, android::sp<CountingProxyCallback> proxy) : mProxy(std::move(proxy)) {
    mHost = std::make_unique<host::emulated::EmulatedHost>(fiveDevices(stream));
    mHost->registerWithBridge();

    mSubHal = new IioSensorSubHal();
    if (mProxy == nullptr) mProxy = new CountingProxyCallback();
    mSubHal->initialize(mProxy);
    // Waits for the host's enumeration, as the proxy's first call does.
    mSubHal->getSensorsList_2_1(
        [this](const hidl_vec<SensorInfo>& list) { mSensors.assign(list.begin(), list.end()); });
    if (mSensors.size() != std::size(kDeviceIds)) {
        std::fprintf(stderr, "bench: expected %zu sensors, got %zu\n", std::size(kDeviceIds),
                     mSensors.size());
        std::abort();
    }
}

System::~System() {
    mSubHal.clear();  // its bridge goes on the Mojo thread
    mHost.reset();
}

bool System::activate(int32_t deviceId, int64_t samplingPeriodNs) {
    const int32_t handle = handleOf(deviceId);
    mSubHal->batch(handle, samplingPeriodNs, 0);
    mSubHal->activate(handle, true);
    return mHost->waitFor(
        [&](const std::vector<host::common::HostEvent>&) { return mHost->streaming(deviceId); });
}

bool System::burst(int32_t deviceId, size_t count) {
    const uint64_t target = mProxy->events() + count;
    mHost->emitBurst(deviceId, count);
    return mProxy->waitForEvents(target);
}

struct MojoThreadStall::Gate {
    std::promise<void> open;
    std::shared_future<void> opened = open.get_future().share();
};

MojoThreadStall::MojoThreadStall() : mGate(std::make_shared<Gate>()) {
    std::promise<void> entered;
    std::future<void> inside = entered.get_future();
    vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner()->PostTask(
        FROM_HERE, base::BindOnce(
                       [](std::shared_future<void> opened, std::promise<void>* in) {
                           in->set_value();
                           opened.wait();
                       },
                       mGate->opened, &entered));
    inside.wait();
}

MojoThreadStall::~MojoThreadStall() { mGate->open.set_value(); }

void flushMojoThread() {
    runOnMojoThread([] {});
}

void runOnMojoThread(const std::function<void()>& fn) {
    std::promise<void> done;
    std::future<void> ran = done.get_future();
    vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner()->PostTask(
        FROM_HERE, base::BindOnce(
                       [](const std::function<void()>* f, std::promise<void>* d) {
                           (*f)();
                           d->set_value();
                       },
                       &fn, &done));
    ran.wait();
}

size_t residentKiB() {
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr) return 0;
    unsigned long size = 0;
    unsigned long resident = 0;
    const int read = std::fscanf(statm, "%lu %lu", &size, &resident);
    std::fclose(statm);
    if (read != 2) return 0;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace kelvane::bench
