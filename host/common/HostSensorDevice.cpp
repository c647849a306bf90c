#include "host/common/HostSensorDevice.h"

#include <utility>

namespace kelvane::host::common {

namespace mojom = chromeos::sensors::mojom;

HostSensorDevice::HostSensorDevice(HostEventLog* log, int32_t id)
    : mLog(log), mId(id), mEnabled(log, id) {}

void HostSensorDevice::SetTimeout(uint32_t timeout) {
    HostEvent event = HostEvent(HostEventKind::kTimeoutSet, mId).with(TimeoutMs{timeout});
    if (std::optional<std::string> failure = applyTimeout(timeout)) {
        event.withReason(std::move(*failure));
    }
    mLog->add(std::move(event));
}

void HostSensorDevice::SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                                          SetChannelsEnabledCallback callback) {
    std::move(callback).Run(
        mEnabled.set(iio_chn_indices, en, [this](int32_t index) { return canEnable(index); }));
}

void HostSensorDevice::GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                                          GetChannelsEnabledCallback callback) {
    std::move(callback).Run(mEnabled.get(iio_chn_indices));
}

void HostSensorDevice::GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                                             const std::string& attr_name,
                                             GetChannelsAttributesCallback callback) {
    mLog->add(HostEvent(HostEventKind::kChannelAttributeAsked, mId)
                  .with(ChannelAttribute{iio_chn_indices, attr_name}));
    std::vector<base::Optional<std::string>> values;
    for (int32_t index : iio_chn_indices) {
        std::optional<std::string> value = channelAttribute(index, attr_name);
        values.push_back(value ? base::Optional<std::string>(std::move(*value)) : base::nullopt);
    }
    std::move(callback).Run(std::move(values));
}

void HostSensorDevice::StartReadingSamples(mojom::SensorDeviceSamplesObserverPtr observer) {
    mLog->add(HostEvent(HostEventKind::kStartReadingAsked, mId));
    startReading(std::move(observer));
}

void HostSensorDevice::StopReadingSamples() {
    mLog->add(HostEvent(HostEventKind::kStopReadingAsked, mId));
    stopReading();
}

}  // namespace kelvane::host::common
