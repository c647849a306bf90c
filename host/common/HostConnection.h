// The connection every host backend makes with the container: it offers itself to the process's
// container bridge, answers the sensors instance with Init, takes the client's
// RegisterSensorHalClient and hands that client a SensorService from the backend.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/memory/weak_ptr.h"
#include "base/single_thread_task_runner.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "hardware/sensors/mojom/vel.mojom.h"
#include "host/common/HostEventLog.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::common {

// Lives on the host thread: everything but registerWithBridge()/unregister() runs there. The
// owner runs shutDown() on that thread before destroying it; the thread may be shared and go on
// running (connections queued for it then find the connection shut down).
class HostConnection : private vel::mojom::VelBridgeHost, private vel::mojom::IioSensorHost {
  public:
    // Binds a new SensorService of the backend on `request`; host thread.
    using ServiceBinder = std::function<void(chromeos::sensors::mojom::SensorServiceRequest)>;
    // Puts something between the client and the backend's service (e.g. a recorder's tap): it
    // turns *service into the pipe handed to the client and returns what must live as long as
    // that pipe. Host thread; what it returns is dropped first in shutDown().
    using ServiceInterposer =
        std::function<std::shared_ptr<void>(chromeos::sensors::mojom::SensorServicePtr* service)>;

    // `log` outlives the connection. With `autoSetUpChannel`, SetUpChannel follows
    // RegisterSensorHalClient at once.
    HostConnection(uint32_t bridgeVersion, HostEventLog* log,
                   scoped_refptr<base::SingleThreadTaskRunner> runner, ServiceBinder bindService,
                   bool autoSetUpChannel = true);
    ~HostConnection() override;
    HostConnection(const HostConnection&) = delete;
    HostConnection& operator=(const HostConnection&) = delete;

    // Set before registerWithBridge(); none by default.
    void setServiceInterposer(ServiceInterposer interposer);

    // Any thread. Connections arrive on the host thread, until the thread stops.
    void registerWithBridge();
    void unregister();

    // Host thread: calls toward the client and closing the host's ends on demand.
    void setUpChannel();  // SetUpChannel with a new service of the backend
    void callInit();      // Init again on the IioSensorInstance, with a new IioSensorHost
    void setTabletMode(bool on);
    bool hasInstance() const { return static_cast<bool>(mInstance); }
    void closeInstance();
    void closeHalClient();
    void closeIioSensorHost();
    // Closes every endpoint; later connections are closed unanswered.
    void shutDown();

  private:
    // vel::mojom::VelBridgeHost
    void OnIioSensorInstanceReady(vel::mojom::IioSensorInstancePtr instance) override;
    // vel::mojom::IioSensorHost
    void RegisterSensorHalClient(chromeos::sensors::mojom::SensorHalClientPtr client) override;

    void bindBridge(vel::mojom::VelBridgeHostRequest request);
    void recordError(HostPipe pipe);

    const uint32_t mBridgeVersion;
    HostEventLog* const mLog;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    const ServiceBinder mBindService;
    const bool mAutoSetUpChannel;
    std::atomic<bool> mRegistered{false};

    // Host thread only.
    ServiceInterposer mInterposer;
    std::vector<std::shared_ptr<void>> mInterposed;  // between the client and the backend
    std::vector<std::unique_ptr<mojo::Binding<vel::mojom::VelBridgeHost>>> mBridges;
    vel::mojom::IioSensorInstancePtr mInstance;
    std::vector<std::unique_ptr<mojo::Binding<vel::mojom::IioSensorHost>>> mIioSensorHosts;
    chromeos::sensors::mojom::SensorHalClientPtr mHalClient;
    // Last. The connections queued for the host thread hold it; shutDown() invalidates it.
    base::WeakPtrFactory<HostConnection> mWeak{this};
};

}  // namespace kelvane::host::common
