#include "host/libiio/LibiioSensorService.h"

#include <algorithm>
#include <utility>

#include "host/libiio/IioDeviceInfo.h"

namespace kelvane::host::iio {

namespace mojom = chromeos::sensors::mojom;

LibiioSensorService::LibiioSensorService(iio_context* context, common::HostEventLog* log,
                                         std::set<int32_t>* scaleWarned,
                                         scoped_refptr<base::SingleThreadTaskRunner> runner,
                                         mojom::SensorServiceRequest request)
    : common::HostSensorService(log, std::move(request)),
      mContext(context),
      mScaleWarned(scaleWarned),
      mRunner(std::move(runner)) {}

LibiioSensorService::~LibiioSensorService() = default;

base::flat_map<int32_t, std::vector<int32_t>> LibiioSensorService::listing() const {
    base::flat_map<int32_t, std::vector<int32_t>> devices;
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        const iio_device* device = iio_context_get_device(mContext, i);
        if (const std::optional<int32_t> id = deviceNumber(device)) {
            devices[*id] = deviceTypes(device);
        }
    }
    return devices;
}

void LibiioSensorService::GetDevice(int32_t iio_device_id,
                                    mojom::SensorDeviceRequest device_request) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, iio_device_id)
                  .withStep(common::HostStep::kGetDevice));
    const unsigned int count = iio_context_get_devices_count(mContext);
    for (unsigned int i = 0; i < count; ++i) {
        iio_device* device = iio_context_get_device(mContext, i);
        if (deviceNumber(device) != iio_device_id) continue;
        // The device may have gone since the context was made: its request is then closed.
        if (const int error = deviceReadError(device)) {
            mLog->add(common::HostEvent(common::HostEventKind::kStepFailed, iio_device_id)
                          .withStep(common::HostStep::kGetDevice)
                          .withReason("cannot open the device: " + errnoText(error)));
            return;
        }
        // Pipes of devices closed since are dropped here rather than kept for the service's life.
        mDevices.erase(std::remove_if(mDevices.begin(), mDevices.end(),
                                      [](const auto& d) { return d->closed(); }),
                       mDevices.end());
        auto opened = std::make_unique<LibiioSensorDevice>(mContext, device, iio_device_id, mLog,
                                                           mScaleWarned, mRunner);
        opened->bind(std::move(device_request));
        mLog->add(common::HostEvent(common::HostEventKind::kStepAnswered, iio_device_id)
                      .withStep(common::HostStep::kGetDevice));
        mDevices.push_back(std::move(opened));
        return;
    }
    // An unknown device: its request is closed unanswered.
    mLog->add(common::HostEvent(common::HostEventKind::kStepFailed, iio_device_id)
                  .withStep(common::HostStep::kGetDevice)
                  .withReason("no such device"));
}

}  // namespace kelvane::host::iio
