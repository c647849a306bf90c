// The pipes a Recorder puts between a client and a host's SensorService: a recording
// SensorService forwarding to the host's, a recording SensorDevice per GetDevice and a recording
// samples observer per StartReadingSamples. Each forwards calls, replies and closes (with their
// reasons) unchanged and tells the Recorder what went through.
#pragma once

#include <memory>
#include <vector>

#include "hardware/sensors/mojom/sensor.mojom.h"

namespace kelvane::host::common {

class Recorder;

// Lives on one thread (the host's): created, called and destroyed there. Destroying it closes
// every pipe it holds, toward the client and toward the host.
class RecordingTap {
  public:
    // `recorder` must outlive the tap. `host` is the host's service; `client` is the request the
    // client's pipe ends in.
    RecordingTap(Recorder* recorder, chromeos::sensors::mojom::SensorServicePtr host,
                 chromeos::sensors::mojom::SensorServiceRequest client);
    ~RecordingTap();
    RecordingTap(const RecordingTap&) = delete;
    RecordingTap& operator=(const RecordingTap&) = delete;

  private:
    class Service;
    class Device;
    class Observer;

    Recorder* const mRecorder;
    std::unique_ptr<Service> mService;
    // Devices and observers outlive the service pipe they came through, as on a host.
    std::vector<std::unique_ptr<Device>> mDevices;
    std::vector<std::unique_ptr<Observer>> mObservers;
};

}  // namespace kelvane::host::common
