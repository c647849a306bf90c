// What every backend's SensorService answers alike: the device list, drawn from the backend's
// listing; observers of new devices, kept open since a host's device set is fixed; and the events
// of its pipe. A backend adds how it opens a device (GetDevice).
#pragma once

#include <cstdint>
#include <vector>

#include "base/containers/flat_map.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostEventLog.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::common {

// Lives on the host thread: created, called and destroyed there.
class HostSensorService : public chromeos::sensors::mojom::SensorService {
  public:
    // `log` outlives the service. Binds `request` at once.
    HostSensorService(HostEventLog* log, chromeos::sensors::mojom::SensorServiceRequest request);
    ~HostSensorService() override;
    HostSensorService(const HostSensorService&) = delete;
    HostSensorService& operator=(const HostSensorService&) = delete;

    // chromeos::sensors::mojom::SensorService
    void GetDeviceIds(chromeos::sensors::mojom::DeviceType type,
                      GetDeviceIdsCallback callback) override;  // ascending ids
    void GetAllDeviceIds(GetAllDeviceIdsCallback callback) override;
    void RegisterNewDevicesObserver(
        chromeos::sensors::mojom::SensorServiceNewDevicesObserverPtr observer) override;

  protected:
    // Every device the host lists: its id and its device-type codes, in host order.
    virtual base::flat_map<int32_t, std::vector<int32_t>> listing() const = 0;
    // After the device list went to the client.
    virtual void listed() {}
    // After the client's end of the pipe went.
    virtual void clientGone() {}

    HostEventLog* const mLog;
    mojo::Binding<chromeos::sensors::mojom::SensorService> mBinding;

  private:
    std::vector<chromeos::sensors::mojom::SensorServiceNewDevicesObserverPtr> mNewDeviceObservers;
};

}  // namespace kelvane::host::common
