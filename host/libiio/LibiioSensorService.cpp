#include "host/libiio/LibiioSensorService.h"

#include <algorithm>
#include <utility>

#include "base/bind.h"
#include "host/libiio/IioDeviceInfo.h"

namespace kelvane::host::iio {

namespace mojom = chromeos::sensors::mojom;

LibiioSensorService::LibiioSensorService(iio_context* context, HostEventLog* log,
                                         std::set<int32_t>* scaleWarned,
                                         scoped_refptr<base::SingleThreadTaskRunner> runner,
                                         mojom::SensorServiceRequest request)
    : mContext(context),
      mLog(log),
      mScaleWarned(scaleWarned),
      mRunner(std::move(runner)),
      mBinding(this, std::move(request)) {
    mBinding.set_connection_error_handler(base::BindOnce(
        [](HostEventLog* l) {
            l->add(HostEvent(HostEventKind::kClosedByClient).withPipe(HostPipe::kSensorService));
        },
        base::Unretained(mLog)));
}

LibiioSensorService::~LibiioSensorService() = default;

void LibiioSensorService::GetDeviceIds(mojom::DeviceType type, GetDeviceIdsCallback callback) {
    const int32_t code = static_cast<int32_t>(type);
    mLog->add(HostEvent(HostEventKind::kDeviceIdsAsked).withValue(code));
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
    mLog->add(HostEvent(HostEventKind::kDeviceListAsked));
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
    mLog->add(HostEvent(HostEventKind::kStepAsked, iio_device_id).withStep(HostStep::kGetDevice));
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        iio_device* device = iio_context_get_device(mContext, i);
        if (deviceNumber(device) != iio_device_id) continue;
        // The device may have gone since the context was made: its request is then closed.
        if (const int error = deviceReadError(device)) {
            mLog->add(HostEvent(HostEventKind::kStepFailed, iio_device_id)
                          .withStep(HostStep::kGetDevice)
                          .withReason("cannot open the device: " + errnoText(error)));
            return;
        }
        // Pipes of devices closed since are dropped here rather than kept for the service's life.
        mDevices.erase(std::remove_if(mDevices.begin(), mDevices.end(),
                                      [](const auto& d) { return d->closed(); }),
                       mDevices.end());
        auto opened = std::make_shared<LibiioSensorDevice>(mContext, device, iio_device_id, mLog,
                                                           mScaleWarned, mRunner);
        opened->bind(std::move(device_request));
        mLog->add(
            HostEvent(HostEventKind::kStepAnswered, iio_device_id).withStep(HostStep::kGetDevice));
        mDevices.push_back(std::move(opened));
        return;
    }
    // An unknown device: its request is closed unanswered.
    mLog->add(HostEvent(HostEventKind::kStepFailed, iio_device_id)
                  .withStep(HostStep::kGetDevice)
                  .withReason("no such device"));
}

void LibiioSensorService::RegisterNewDevicesObserver(
    mojom::SensorServiceNewDevicesObserverPtr observer) {
    mLog->add(HostEvent(HostEventKind::kNewDevicesObserverAdded));
    // A libiio context's device set is fixed when it is made, so the observer is only kept open.
    mNewDeviceObservers.push_back(std::move(observer));
}

}  // namespace kelvane::host::iio
