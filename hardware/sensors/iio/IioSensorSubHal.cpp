#include "IioSensorSubHal.h"

#include <log/log.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "vel/MojoProcessSupport.h"

namespace kelvane {
namespace sensors {

using android::sp;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Void;
using android::hardware::sensors::V1_0::MetaDataEventType;
using android::hardware::sensors::V2_1::SensorType;

namespace {

constexpr const char* kLogTag = "IioSensorSubHal";
constexpr const char* kSubHalName = "Kelvane-IIOService-Subhal";
constexpr int kSensorListWaitMs = 10000;
// Upper bound on waiting for the Mojo thread to tear the bridge down at exit.
constexpr std::chrono::seconds kTeardownLimit{10};

#define SUBHAL_LOG(...) __android_log_print(ANDROID_LOG_INFO, kLogTag, __VA_ARGS__)

// Holds the last reference to the bridge, and the event sink its devices post to, and signals
// once the bridge is gone, whether the task that carries it runs or is destroyed unrun. Everything
// it touches is its own or shared, so it may outlive the sub-HAL.
class BridgeRelease {
  public:
    BridgeRelease(sp<IioSensorBridge> bridge, std::shared_ptr<IioSensorSubHal::EventSink> sink,
                  std::shared_ptr<std::promise<void>> done)
        : mSink(std::move(sink)), mBridge(std::move(bridge)), mDone(std::move(done)) {}
    ~BridgeRelease() {
        mBridge.clear();  // the devices go before the sink they post to
        mDone->set_value();
    }

  private:
    std::shared_ptr<IioSensorSubHal::EventSink> mSink;
    sp<IioSensorBridge> mBridge;
    std::shared_ptr<std::promise<void>> mDone;
};

// The bridge's Mojo endpoints and devices are dispatched on the Mojo thread, so it is destroyed
// there: nothing of it is touched while the thread could be dispatching, and tasks it queued
// find it gone. A Mojo thread that stays busy past the limit keeps the bridge (and the sink) to
// release whenever it gets there, or never if the process ends first.
void releaseOnMojoThread(sp<IioSensorBridge> bridge,
                         std::shared_ptr<IioSensorSubHal::EventSink> sink) {
    if (bridge == nullptr) return;
    scoped_refptr<base::SingleThreadTaskRunner> runner =
        vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner();
    if (runner->RunsTasksInCurrentSequence()) return;  // released right here
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> released = done->get_future();
    runner->PostTask(FROM_HERE, base::BindOnce([](std::unique_ptr<BridgeRelease>) {},
                                               std::make_unique<BridgeRelease>(
                                                   std::move(bridge), std::move(sink), done)));
    released.wait_for(kTeardownLimit);
}

}  // namespace

class IioSensorSubHal::EventSink : public IioSensorEventCallback {
  public:
    void setProxyCallback(sp<IHalProxyCallback> callback) EXCLUDES(mLock) {
        sp<IHalProxyCallback> previous;
        {
            base::AutoLock lock(mLock);
            previous = std::move(mHalProxyCallback);
            mHalProxyCallback = std::move(callback);
        }
        // `previous` is released here, outside the lock
    }
    sp<IHalProxyCallback> proxyCallback() const EXCLUDES(mLock) {
        base::AutoLock lock(mLock);
        return mHalProxyCallback;
    }
    // Mojo thread (sample events) and binder threads (flush completions).
    void postSensorEvents(const std::vector<Event>& events, bool wakeup) override {
        sp<IHalProxyCallback> callback = proxyCallback();
        if (callback == nullptr) return;
        callback->postEvents(events, callback->createScopedWakelock(wakeup));
    }

  private:
    mutable base::Lock mLock;
    sp<IHalProxyCallback> mHalProxyCallback GUARDED_BY(mLock);
};

IioSensorSubHal::IioSensorSubHal() : mEventSink(std::make_shared<EventSink>()) {
    SUBHAL_LOG("IioSensorSubHal: starting Mojo bridge in constructor");
    vel::MojoProcessSupport* support = vel::MojoProcessSupport::GetInstance();
    mBridge = new IioSensorBridge(support, mEventSink.get());
    mBridge->start();
}

IioSensorSubHal::~IioSensorSubHal() { releaseOnMojoThread(std::move(mBridge), mEventSink); }

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::initialize(
    const sp<IHalProxyCallback>& halProxyCallback) {
    SUBHAL_LOG("IioSensorSubHal::initialize");
    mEventSink->setProxyCallback(halProxyCallback);
    mOperationMode = OperationMode::NORMAL;
    return Result::OK;
}

const std::string IioSensorSubHal::getName() { return kSubHalName; }

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::setOperationMode(
    OperationMode mode) {
    mOperationMode = mode;
    return Result::OK;
}

IioSensorSubHal::Return<void> IioSensorSubHal::registerDirectChannel(
    const SharedMemInfo&, registerDirectChannel_cb callback) {
    callback(Result::INVALID_OPERATION, -1);
    return Void();
}

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::unregisterDirectChannel(int32_t) {
    return Result::INVALID_OPERATION;
}

IioSensorSubHal::Return<void> IioSensorSubHal::configDirectReport(int32_t, int32_t, RateLevel,
                                                                  configDirectReport_cb callback) {
    callback(Result::INVALID_OPERATION, 0);
    return Void();
}

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::injectSensorData_2_1(
    const Event&) {
    return Result::INVALID_OPERATION;
}

IioSensorSubHal::Return<void> IioSensorSubHal::getSensorsList_2_1(getSensorsList_2_1_cb callback) {
    SUBHAL_LOG("IioSensorSubHal::getSensorsList_2_1");
    if (!mPublished.load(std::memory_order_acquire) && mBridge != nullptr) discover();
    hidl_vec<SensorInfo> sensors;
    if (mPublished.load(std::memory_order_acquire)) sensors = mSensorList;
    callback(sensors);
    return Void();
}

void IioSensorSubHal::discover() {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kSensorListWaitMs);
    base::AutoLock lock(mDiscoveryLock);
    while (!mPublished.load(std::memory_order_relaxed)) {
        if (mDiscovering) {
            // Another caller asks the bridge; its answer serves this call too, but this call
            // waits no longer than its own limit.
            if (!mDiscoveryDone.WaitUntil(deadline) && mDiscovering) return;
            continue;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        mDiscovering = true;
        std::vector<std::pair<int, SensorInfo>> found;
        {
            base::AutoUnlock unlocked(mDiscoveryLock);
            found = mBridge->getSensors(static_cast<int>(std::max<int64_t>(left.count(), 0)));
            SUBHAL_LOG("IioSensorSubHal: discovered %zu sensors", found.size());
        }
        mDiscovering = false;
        if (!found.empty()) {
            for (const auto& [handle, info] : found) {
                mSensorList.push_back(info);
                mSensorMap[handle] = info;
            }
            mPublished.store(true, std::memory_order_release);
        }
        mDiscoveryDone.Broadcast();
        return;
    }
}

bool IioSensorSubHal::isPublished(int32_t handle) const {
    return mPublished.load(std::memory_order_acquire) && mSensorMap.count(handle) != 0;
}

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::activate(int32_t sensorHandle,
                                                                           bool enabled) {
    if (!isPublished(sensorHandle)) return Result::BAD_VALUE;
    if (mBridge != nullptr) mBridge->activate(sensorHandle, enabled);
    return Result::OK;
}

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::batch(int32_t sensorHandle,
                                                                        int64_t samplingPeriodNs,
                                                                        int64_t) {
    if (!isPublished(sensorHandle)) return Result::BAD_VALUE;
    if (mBridge != nullptr) mBridge->batch(sensorHandle, samplingPeriodNs);
    return Result::OK;
}

IioSensorSubHal::Return<IioSensorSubHal::Result> IioSensorSubHal::flush(int32_t sensorHandle) {
    if (!isPublished(sensorHandle)) return Result::BAD_VALUE;
    std::vector<Event> events(1);
    Event& event = events[0];
    event.timestamp = android::elapsedRealtimeNano();
    event.sensorHandle = sensorHandle;
    event.sensorType = SensorType::META_DATA;
    event.u.meta.what = MetaDataEventType::META_DATA_FLUSH_COMPLETE;
    // Before initialize there is nobody to tell: the flush is accepted and nothing is posted.
    mEventSink->postSensorEvents(events, false);
    return Result::OK;
}

void IioSensorSubHal::postSensorEvents(const std::vector<Event>& events, bool wakeup) {
    mEventSink->postSensorEvents(events, wakeup);
}

IioSensorSubHal::Return<void> IioSensorSubHal::debug(const hidl_handle& fd,
                                                     const hidl_vec<hidl_string>&) {
    const native_handle_t* handle = fd.getNativeHandle();
    if (handle == nullptr || handle->numFds < 1) return Void();
    int duplicate = dup(handle->data[0]);
    if (duplicate < 0) return Void();
    FILE* out = fdopen(duplicate, "w");
    if (out == nullptr) {
        close(duplicate);
        return Void();
    }
    const bool published = mPublished.load(std::memory_order_acquire);
    fprintf(out, "IioSensorSubHal:\n");
    fprintf(out, "  sensors: %zu\n", published ? mSensorMap.size() : size_t{0});
    if (published) {
        for (const auto& [sensorHandle, info] : mSensorMap) {
            fprintf(out, "  [%d] %s (type %d)\n", sensorHandle, info.name.c_str(),
                    static_cast<int>(info.type));
        }
    }
    fclose(out);
    return Void();
}

}  // namespace sensors
}  // namespace kelvane

extern "C" __attribute__((visibility("default")))
android::hardware::sensors::V2_1::implementation::ISensorsSubHal*
sensorsHalGetSubHal_2_1(uint32_t* version) {
    static kelvane::sensors::IioSensorSubHal subHal;
    *version = android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION;
    return &subHal;
}
