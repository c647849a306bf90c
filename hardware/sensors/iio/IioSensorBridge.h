#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "IioSensorDevice.h"
#include "IioSensorEventCallback.h"
#include "base/containers/flat_map.h"
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
    std::vector<std::pair<int, SensorInfo>> getSensors(int timeoutMs);
    // Binder threads. Queue the command for the device on the Mojo thread; unknown handles are
    // ignored.
    void activate(int handle, bool enabled);
    void batch(int handle, int64_t samplingPeriodNs);

  private:
    void completeEnumeration();
    void post(base::OnceClosure task, base::TimeDelta delay = base::TimeDelta());

    vel::MojoProcessSupport* const mProcessSupport;
    IioSensorEventCallback* const mEventCallback;
    // Mojo thread only.
    mojo::Binding<vel::mojom::IioSensorInstance> mInstanceBinding;
    mojo::Binding<chromeos::sensors::mojom::SensorHalClient> mHalClientBinding;
    vel::mojom::IioSensorHostPtr mIioSensorHost;
    chromeos::sensors::mojom::SensorServicePtr mSensorService;
    // The registry; written on the Mojo thread, read by binder threads.
    std::mutex mDevicesMutex;
    std::map<int, std::unique_ptr<IioSensorDevice>> mDevices;  // guarded by mDevicesMutex
    int mNextHandle = 1;                                       // guarded by mDevicesMutex
    // Taken before mDevicesMutex when both are held.
    std::mutex mEnumMutex;
    std::condition_variable mEnumCv;
    bool mEnumerationComplete = false;  // guarded by mEnumMutex
    std::unique_ptr<vel::VelBridgeSupport> mBridgeSupport;
    // Tasks posted to the Mojo thread hold this weakly and skip their work once it has expired.
    std::shared_ptr<int> mLifetime = std::make_shared<int>(0);
};

}  // namespace sensors
}  // namespace kelvane
