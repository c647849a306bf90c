#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "IioSensorDevice.h"
#include "IioSensorEventCallback.h"
#include "base/containers/flat_map.h"
#include "base/memory/weak_ptr.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "hardware/sensors/mojom/vel.mojom.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "vel/MojoProcessSupport.h"
#include "vel/VelBridgeSupport.h"

namespace kelvane {
namespace sensors {

// The library's Mojo side: connects to the host through the container bridge, enumerates the
// host's IIO devices into sensors, and routes Android's commands to them on the Mojo thread.
//
// Threads: Mojo objects, the handshake and enumeration live on the Mojo thread; getSensors,
// activate and batch are called from binder threads. The bridge must be destroyed on the Mojo
// thread (the sub-HAL arranges it), which makes every task it posted there either run before
// the destruction or find the bridge gone.
class IioSensorBridge : public vel::VelService,
                        public vel::mojom::IioSensorInstance,
                        public chromeos::sensors::mojom::SensorHalClient {
  public:
    using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;

    IioSensorBridge(vel::MojoProcessSupport* processSupport, IioSensorEventCallback* eventCallback);

    void ready(mojo::InterfacePtr<vel::mojom::VelBridgeHost>* host) override;
    void versionMismatch(uint32_t version) override;
    ~IioSensorBridge() override;

    void Init(vel::mojom::IioSensorHostPtr host,
              const base::RepeatingCallback<void()>& callback) override;
    void OnTabletModeChanged(bool tabletMode) override;
    void SetUpChannel(chromeos::sensors::mojom::SensorServicePtr service) override;

    void start();
    void onAllDeviceIds(const base::flat_map<int, std::vector<int>>& devices);
    void checkEnumerationComplete();

    // Binder threads. Waits up to `timeoutMs` for enumeration, then describes every ready device.
    std::vector<std::pair<int, SensorInfo>> getSensors(int timeoutMs)
        EXCLUDES(mEnumLock, mDevicesLock);
    // Binder threads. Queue the command for the device on the Mojo thread; unknown handles are
    // ignored.
    void activate(int handle, bool enabled) EXCLUDES(mDevicesLock);
    void batch(int handle, int64_t samplingPeriodNs) EXCLUDES(mDevicesLock);

  private:
    void completeEnumeration() EXCLUDES(mEnumLock);
    // Runs `task` on the Mojo thread after `delay`, unless the bridge is gone by then.
    void post(base::OnceClosure task, base::TimeDelta delay = base::TimeDelta());
    void runPosted(base::OnceClosure task) { std::move(task).Run(); }

    vel::MojoProcessSupport* const mProcessSupport;
    IioSensorEventCallback* const mEventCallback;
    // Mojo thread only.
    mojo::Binding<vel::mojom::IioSensorInstance> mInstanceBinding;
    mojo::Binding<chromeos::sensors::mojom::SensorHalClient> mHalClientBinding;
    vel::mojom::IioSensorHostPtr mIioSensorHost;
    chromeos::sensors::mojom::SensorServicePtr mSensorService;
    // The registry; written on the Mojo thread, read by binder threads.
    base::Lock mDevicesLock;
    std::map<int, std::unique_ptr<IioSensorDevice>> mDevices GUARDED_BY(mDevicesLock);
    int mNextHandle GUARDED_BY(mDevicesLock) = 1;
    base::Lock mEnumLock ACQUIRED_BEFORE(mDevicesLock);
    base::ConditionVariable mEnumDone{&mEnumLock};
    bool mEnumerationComplete GUARDED_BY(mEnumLock) = false;
    std::unique_ptr<vel::VelBridgeSupport> mBridgeSupport;
    // Last, so that tasks posted to the Mojo thread find the bridge gone before any member goes.
    base::WeakPtrFactory<IioSensorBridge> mWeak{this};
};

}  // namespace sensors
}  // namespace kelvane
