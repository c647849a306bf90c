// What the benchmark programs share: a proxy callback that only counts, and a running system of
// the emulated host with five sensors and one IioSensorSubHal, set up the way the proxy sets it up.
#pragma once

#include <HalProxyCallbackBase.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "IioSensorSubHal.h"
#include "host/emulated/EmulatedHost.h"

namespace kelvane::bench {

using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using sensors::IioSensorDevice;
using sensors::IioSensorSubHal;

// Counts events and wake locks; wakes a waiter once a target count is reached. The counting is
// one relaxed atomic add, so it costs the path under test next to nothing.
class CountingProxyCallback
    : public android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase {
  public:
    using ScopedWakelock = android::hardware::sensors::V2_0::implementation::ScopedWakelock;

    CountingProxyCallback();
    ~CountingProxyCallback() override;

    // Derived callbacks that record more call this too.
    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override;
    ScopedWakelock createScopedWakelock(bool lock) override;

    uint64_t events() const { return mEvents.load(std::memory_order_acquire); }
    // Waits until at least `target` events were posted; false after `limit`.
    bool waitForEvents(uint64_t target, std::chrono::milliseconds limit = std::chrono::seconds(60));

  private:
    class Counter;
    android::sp<Counter> mCounter;
    std::atomic<uint64_t> mEvents{0};
    std::atomic<uint64_t> mTarget{UINT64_MAX};
    std::mutex mMutex;
    std::condition_variable mReached;
};

// Host device ids; the sub-HAL gives them handles 1..5 in this order.
enum DeviceId : int32_t { kAccel = 1, kGyro = 2, kLight = 3, kMagn = 4, kGravity = 5 };
constexpr int32_t kDeviceIds[] = {kAccel, kGyro, kLight, kMagn, kGravity};

// Five devices, one of each supported kind, in the order of kDeviceIds.
host::description::HostConfig fiveDevices(bool stream);

// Keeps both logs quiet while it lives: log lines would dominate what is measured.
class QuietLogs {
  public:
    QuietLogs();
    ~QuietLogs();
    QuietLogs(const QuietLogs&) = delete;
    QuietLogs& operator=(const QuietLogs&) = delete;

  private:
    const int mPreviousPriority;  // liblog's minimum priority before, put back on destruction
};

// Emulated host with five devices, registered with the container bridge, and a sub-HAL that has
// published their five sensors. Logging is silenced for the life of the object.
class System {
  public:
    // `stream`: the host streams by timer at the rate asked for; otherwise only on emitBurst.
    // `proxy`: the callback given to initialize; a plain CountingProxyCallback when null.
    explicit System(bool stream = false, android::sp<CountingProxyCallback> proxy = nullptr);
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    host::emulated::EmulatedHost& host() { return *mHost; }
    IioSensorSubHal& subHal() { return *mSubHal; }
    CountingProxyCallback& proxy() { return *mProxy; }
    const std::vector<SensorInfo>& sensors() const { return mSensors; }
    // The sensor handle the sub-HAL gave a host device.
    static int32_t handleOf(int32_t deviceId) { return deviceId; }

    // Activates a device's sensor and waits until the host streams to it.
    bool activate(int32_t deviceId, int64_t samplingPeriodNs = 20000000);
    // Sends `count` samples of one device as fast as the host can and waits for all of them to
    // reach the proxy callback.
    bool burst(int32_t deviceId, size_t count);

  private:
    QuietLogs mQuiet;
    std::unique_ptr<host::emulated::EmulatedHost> mHost;
    android::sp<IioSensorSubHal> mSubHal;
    android::sp<CountingProxyCallback> mProxy;
    std::vector<SensorInfo> mSensors;
};

// Blocks the Mojo thread until released, to show what waits on it and what does not.
class MojoThreadStall {
  public:
    MojoThreadStall();
    ~MojoThreadStall();  // releases it
    MojoThreadStall(const MojoThreadStall&) = delete;
    MojoThreadStall& operator=(const MojoThreadStall&) = delete;

  private:
    struct Gate;
    std::shared_ptr<Gate> mGate;
};

// Waits until everything already posted to the Mojo thread has run.
void flushMojoThread();
// Runs `fn` on the Mojo thread and waits for it.
void runOnMojoThread(const std::function<void()>& fn);

// Resident set size of this process, in KiB.
size_t residentKiB();

}  // namespace kelvane::bench
