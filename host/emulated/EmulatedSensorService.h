// One SensorService the host hands a client: lists the configured devices and opens them. The
// devices it opened outlive its own pipe, as on a real host.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/single_thread_task_runner.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostEventLog.h"
#include "host/common/HostSensorService.h"
#include "host/description/HostConfig.h"
#include "host/emulated/EmulatedSensorDevice.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::emulated {

// Lives on the host thread: created, called and destroyed there.
class EmulatedSensorService : public common::HostSensorService {
  public:
    // `config`, `log`, `playback` and `sentProbe` belong to the host and outlive the service.
    EmulatedSensorService(const description::HostConfig* config, common::HostEventLog* log,
                          Playback* playback, const SentSampleProbe* sentProbe,
                          scoped_refptr<base::SingleThreadTaskRunner> runner,
                          chromeos::sensors::mojom::SensorServiceRequest request);
    ~EmulatedSensorService() override;
    EmulatedSensorService(const EmulatedSensorService&) = delete;
    EmulatedSensorService& operator=(const EmulatedSensorService&) = delete;

    void close(uint32_t reason, const std::string& description);
    // Runs `done` once the client's setup is over: the device list answered and the handshake of
    // every device a sensors client opens (those of a type it publishes) over, or this service's
    // pipe gone first.
    void whenSetUp(base::OnceClosure done) { mSetUp = std::move(done); }
    // Every endpoint opened for `device` through this service, in opening order.
    std::vector<EmulatedSensorDevice*> devices(int32_t device) const;
    // Closes the endpoints of `device`, also the requests still waiting to be answered.
    void closeDevice(int32_t device);

    // chromeos::sensors::mojom::SensorService
    void GetDevice(int32_t iio_device_id,
                   chromeos::sensors::mojom::SensorDeviceRequest device_request) override;

  private:
    // HostSensorService
    base::flat_map<int32_t, std::vector<int32_t>> listing() const override;
    void listed() override;
    void clientGone() override;

    void deviceSetUp(int32_t device);
    void setUpEnded();

    const description::HostConfig* const mConfig;
    Playback* const mPlayback;
    const SentSampleProbe* const mSentProbe;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    std::vector<std::unique_ptr<EmulatedSensorDevice>> mDevices;
    // GetDevice requests of stalled devices: held open, never bound.
    std::vector<std::pair<int32_t, chromeos::sensors::mojom::SensorDeviceRequest>> mStalled;
    base::OnceClosure mSetUp;      // see whenSetUp()
    bool mListed = false;          // the device list was answered
    std::set<int32_t> mSettingUp;  // devices whose handshake is expected or under way
};

}  // namespace kelvane::host::emulated
