#pragma once

#include <V2_1/SubHal.h>
#include <utils/RefBase.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "IioSensorBridge.h"
#include "IioSensorEventCallback.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"

namespace kelvane {
namespace sensors {

// The sub-HAL the multi-HAL proxy talks to. Binder threads call every operation, several at once;
// devices post events from the Mojo thread.
class IioSensorSubHal : public android::hardware::sensors::V2_1::implementation::ISensorsSubHal,
                        public IioSensorEventCallback {
  public:
    using Result = android::hardware::sensors::V1_0::Result;
    using OperationMode = android::hardware::sensors::V1_0::OperationMode;
    using RateLevel = android::hardware::sensors::V1_0::RateLevel;
    using SharedMemInfo = android::hardware::sensors::V1_0::SharedMemInfo;
    using Event = android::hardware::sensors::V2_1::Event;
    using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;
    using IHalProxyCallback = android::hardware::sensors::V2_1::implementation::IHalProxyCallback;
    template <typename T>
    using Return = android::hardware::Return<T>;

    IioSensorSubHal();
    ~IioSensorSubHal() override;

    Return<void> debug(
        const android::hardware::hidl_handle& fd,
        const android::hardware::hidl_vec<android::hardware::hidl_string>& args) override;
    Return<Result> setOperationMode(OperationMode mode) override;
    Return<Result> activate(int32_t sensorHandle, bool enabled) override;
    // Passes the period through as asked, unclamped: the host answers with the rate it can do.
    // maxReportLatencyNs is ignored (nothing is batched). BAD_VALUE for an unpublished handle.
    Return<Result> batch(int32_t sensorHandle, int64_t samplingPeriodNs,
                         int64_t maxReportLatencyNs) override;
    // OK with exactly one META_DATA_FLUSH_COMPLETE for any published sensor, active or not (an
    // inactive sensor has nothing queued, so its flush is complete at once). Before initialize
    // nothing is posted. BAD_VALUE for an unpublished handle.
    Return<Result> flush(int32_t sensorHandle) override;
    Return<void> registerDirectChannel(const SharedMemInfo& mem,
                                       registerDirectChannel_cb callback) override;
    Return<Result> unregisterDirectChannel(int32_t channelHandle) override;
    Return<void> configDirectReport(int32_t sensorHandle, int32_t channelHandle, RateLevel rate,
                                    configDirectReport_cb callback) override;
    // A call before the list is published (the first one, normally) may block up to 10 s
    // (kSensorListWaitMs) waiting for the host's sensors. The list is published once, by the first
    // call that finds sensors, and never changes afterwards; a call that finds none answers an
    // empty list and a later call asks again.
    Return<void> getSensorsList_2_1(getSensorsList_2_1_cb callback) override;
    Return<Result> injectSensorData_2_1(const Event& event) override;
    const std::string getName() override;
    Return<Result> initialize(const android::sp<IHalProxyCallback>& halProxyCallback) override;

    // Mojo thread (sample events) and binder threads.
    void postSensorEvents(const std::vector<Event>& events, bool wakeup) override;

    class EventSink;

  private:
    // Asks the bridge for the sensors and publishes them if there are any, waiting at most
    // kSensorListWaitMs from the call (also while another caller is asking).
    void discover() EXCLUDES(mDiscoveryLock);
    // Whether `handle` was published; the tables are read only once published.
    bool isPublished(int32_t handle) const;

    // Holds the proxy's callback and receives the devices' events. The bridge's devices post
    // there rather than to this object, and the task that releases the bridge at exit shares it,
    // so it outlives every device even when the destructor stops waiting for that task.
    const std::shared_ptr<EventSink> mEventSink;
    std::atomic<OperationMode> mOperationMode{OperationMode::NORMAL};
    android::sp<IioSensorBridge> mBridge;  // set in the constructor, released in the destructor
    // Filled once by the first discovery that finds sensors, under mDiscoveryLock, then
    // published through mPublished (release) and never written again: readers that see
    // mPublished (acquire) read them without a lock.
    std::vector<SensorInfo> mSensorList;
    std::map<int, SensorInfo> mSensorMap;
    base::Lock mDiscoveryLock;
    base::ConditionVariable mDiscoveryDone{&mDiscoveryLock};
    bool mDiscovering GUARDED_BY(mDiscoveryLock) = false;  // a caller is asking the bridge
    std::atomic<bool> mPublished{false};
};

}  // namespace sensors
}  // namespace kelvane
