#include "host/common/HostSensorService.h"

#include <algorithm>
#include <utility>

#include "base/bind.h"

namespace kelvane::host::common {

namespace mojom = chromeos::sensors::mojom;

HostSensorService::HostSensorService(HostEventLog* log, mojom::SensorServiceRequest request)
    : mLog(log), mBinding(this, std::move(request)) {
    mBinding.set_connection_error_handler(base::BindOnce(
        [](HostSensorService* service) {
            service->mLog->add(
                HostEvent(HostEventKind::kClosedByClient).withPipe(HostPipe::kSensorService));
            service->clientGone();
        },
        base::Unretained(this)));
}

HostSensorService::~HostSensorService() = default;

void HostSensorService::GetDeviceIds(mojom::DeviceType type, GetDeviceIdsCallback callback) {
    const int32_t code = static_cast<int32_t>(type);
    mLog->add(HostEvent(HostEventKind::kDeviceIdsAsked).with(DeviceTypeAsked{code}));
    std::vector<int32_t> ids;
    for (const auto& [id, types] : listing()) {
        if (std::find(types.begin(), types.end(), code) != types.end()) ids.push_back(id);
    }
    std::move(callback).Run(ids);
}

void HostSensorService::GetAllDeviceIds(GetAllDeviceIdsCallback callback) {
    const base::flat_map<int32_t, std::vector<int32_t>> devices = listing();
    mLog->add(HostEvent(HostEventKind::kDeviceListAsked)
                  .with(DeviceList{{devices.begin(), devices.end()}}));
    std::move(callback).Run(devices);
    listed();
}

void HostSensorService::RegisterNewDevicesObserver(
    mojom::SensorServiceNewDevicesObserverPtr observer) {
    mLog->add(HostEvent(HostEventKind::kNewDevicesObserverAdded));
    mNewDeviceObservers.push_back(std::move(observer));
}

}  // namespace kelvane::host::common
