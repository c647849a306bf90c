// One SensorService the libiio host hands a client: lists the context's IIO devices and opens
// them. The devices it opened outlive its own pipe, as on a real host.
#pragma once

#include <iio.h>

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "base/single_thread_task_runner.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostEventLog.h"
#include "host/common/HostSensorService.h"
#include "host/libiio/LibiioSensorDevice.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::iio {

// Lives on the host thread: created, called and destroyed there.
class LibiioSensorService : public common::HostSensorService {
  public:
    // `context`, `log` and `scaleWarned` belong to the host and outlive the service.
    LibiioSensorService(iio_context* context, common::HostEventLog* log,
                        std::set<int32_t>* scaleWarned,
                        scoped_refptr<base::SingleThreadTaskRunner> runner,
                        chromeos::sensors::mojom::SensorServiceRequest request);
    ~LibiioSensorService() override;
    LibiioSensorService(const LibiioSensorService&) = delete;
    LibiioSensorService& operator=(const LibiioSensorService&) = delete;

    // chromeos::sensors::mojom::SensorService
    void GetDevice(int32_t iio_device_id,
                   chromeos::sensors::mojom::SensorDeviceRequest device_request) override;

  private:
    // HostSensorService: the context's devices; its device set is fixed when it is made.
    base::flat_map<int32_t, std::vector<int32_t>> listing() const override;

    iio_context* const mContext;
    std::set<int32_t>* const mScaleWarned;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    std::vector<std::unique_ptr<LibiioSensorDevice>> mDevices;
};

}  // namespace kelvane::host::iio
