// What every backend's opened device answers alike: its read time-out, the channels the client
// enables, its questions about channel attributes, and the start and end of its reading, each
// logged as the client asked. A backend's device derives from it and answers the rest of
// SensorDevice.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/EnabledChannels.h"
#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

// Host thread only, like the device deriving from it.
class HostSensorDevice : public chromeos::sensors::mojom::SensorDevice {
  public:
    HostSensorDevice(const HostSensorDevice&) = delete;
    HostSensorDevice& operator=(const HostSensorDevice&) = delete;

    // chromeos::sensors::mojom::SensorDevice
    void SetTimeout(uint32_t timeout) final;
    void SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                            SetChannelsEnabledCallback callback) final;
    void GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                            GetChannelsEnabledCallback callback) final;
    void GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                               const std::string& attr_name,
                               GetChannelsAttributesCallback callback) final;
    void StartReadingSamples(
        chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr observer) final;
    void StopReadingSamples() final;

  protected:
    // `log` outlives the device; events name device `id`.
    HostSensorDevice(HostEventLog* log, int32_t id);
    ~HostSensorDevice() override = default;

    const EnabledChannels& enabled() const { return mEnabled; }

  private:
    // Applies the client's read time-out; what went wrong, if anything.
    virtual std::optional<std::string> applyTimeout(uint32_t timeoutMs) = 0;
    // Whether the device can stream channel `index`.
    virtual bool canEnable(int32_t index) const = 0;
    // Attribute `name` of channel `index`, if the device has that channel and it has one.
    virtual std::optional<std::string> channelAttribute(int32_t index, const std::string& name) = 0;
    // Closes the observer reading now, if any, and reads into `observer`.
    virtual void startReading(
        chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr observer) = 0;
    // Closes the observer and ends the stream, if any.
    virtual void stopReading() = 0;

    HostEventLog* const mLog;
    const int32_t mId;
    EnabledChannels mEnabled;  // channels the client enabled
};

}  // namespace kelvane::host::common
