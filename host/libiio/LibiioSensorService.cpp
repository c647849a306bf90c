#include "host/libiio/LibiioSensorService.h"

#include <algorithm>
#include <utility>

#include "base/bind.h"
#include "host/libiio/IioDeviceInfo.h"

namespace kelvane::host::iio {

namespace mojom = chromeos::sensors::mojom;

LibiioSensorService::LibiioSensorService(iio_context* context, CallLog* log,
                                         std::set<int32_t>* scaleWarned,
                                         scoped_refptr<base::SingleThreadTaskRunner> runner,
                                         mojom::SensorServiceRequest request)
    : mContext(context),
      mLog(log),
      mScaleWarned(scaleWarned),
      mRunner(std::move(runner)),
      mBinding(this, std::move(request)) {
    mBinding.set_connection_error_handler(base::BindOnce(
        [](CallLog* l) { l->record("error SensorService"); }, base::Unretained(mLog)));
}

LibiioSensorService::~LibiioSensorService() = default;

void LibiioSensorService::GetDeviceIds(mojom::DeviceType type, GetDeviceIdsCallback callback) {
    const int32_t code = static_cast<int32_t>(type);
    mLog->record("SensorService.GetDeviceIds " + std::to_string(code));
    std::vector<int32_t> ids;
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(mContext, i);
        const std::optional<int32_t> id = deviceNumber(device);
        const std::vector<int32_t> types = deviceTypes(device);
        if (id && std::find(types.begin(), types.end(), code) != types.end()) ids.push_back(*id);
    }
    std::sort(ids.begin(), ids.end());
    std::move(callback).Run(ids);
}

void LibiioSensorService::GetAllDeviceIds(GetAllDeviceIdsCallback callback) {
    mLog->record("SensorService.GetAllDeviceIds");
    base::flat_map<int32_t, std::vector<int32_t>> listing;
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(mContext, i);
        if (const std::optional<int32_t> id = deviceNumber(device)) {
            listing[*id] = deviceTypes(device);
        }
    }
    std::move(callback).Run(listing);
}

void LibiioSensorService::GetDevice(int32_t iio_device_id,
                                    mojom::SensorDeviceRequest device_request) {
    mLog->record("SensorService.GetDevice " + std::to_string(iio_device_id));
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        iio_device* device = iio_context_get_device(mContext, i);
        if (deviceNumber(device) != iio_device_id) continue;
        // Pipes of devices closed since are dropped here rather than kept for the service's life.
        mDevices.erase(std::remove_if(mDevices.begin(), mDevices.end(),
                                      [](const auto& d) { return d->closed(); }),
                       mDevices.end());
        auto opened = std::make_shared<LibiioSensorDevice>(mContext, device, iio_device_id, mLog,
                                                           mScaleWarned, mRunner);
        opened->bind(std::move(device_request));
        mDevices.push_back(std::move(opened));
        return;
    }
    // An unknown device: its request is closed unanswered.
}

void LibiioSensorService::RegisterNewDevicesObserver(
    mojom::SensorServiceNewDevicesObserverPtr observer) {
    mLog->record("SensorService.RegisterNewDevicesObserver");
    // A libiio context's device set is fixed when it is made, so the observer is only kept open.
    mNewDeviceObservers.push_back(std::move(observer));
}

}  // namespace kelvane::host::iio
