#include "host/emulated/EmulatedSensorService.h"

#include <algorithm>

#include "base/bind.h"

namespace kelvane::host::emulated {

namespace mojom = chromeos::sensors::mojom;

namespace {

// Whether the client opens `d`: it has one of the types the configuration says the client opens.
bool clientOpens(const description::HostConfig& config, const description::VirtualDevice& d) {
    for (int32_t type : d.types) {
        const auto& opened = config.clientTypes;
        if (std::find(opened.begin(), opened.end(), type) != opened.end()) return true;
    }
    return false;
}

}  // namespace

EmulatedSensorService::EmulatedSensorService(const description::HostConfig* config,
                                             common::HostEventLog* log, Playback* playback,
                                             const SentSampleProbe* sentProbe,
                                             scoped_refptr<base::SingleThreadTaskRunner> runner,
                                             mojom::SensorServiceRequest request)
    : common::HostSensorService(log, std::move(request)),
      mConfig(config),
      mPlayback(playback),
      mSentProbe(sentProbe),
      mRunner(std::move(runner)) {}

EmulatedSensorService::~EmulatedSensorService() = default;

void EmulatedSensorService::close(uint32_t reason, const std::string& description) {
    if (!mBinding.is_bound()) return;
    mLog->add(common::HostEvent(common::HostEventKind::kClosedByHost)
                  .withPipe(common::HostPipe::kSensorService)
                  .with(common::ServiceClosed{reason, description}));
    mBinding.CloseWithReason(reason, description);
    setUpEnded();
}

std::vector<EmulatedSensorDevice*> EmulatedSensorService::devices(int32_t device) const {
    std::vector<EmulatedSensorDevice*> found;
    for (const auto& d : mDevices) {
        if (d->id() == device) found.push_back(d.get());
    }
    return found;
}

void EmulatedSensorService::closeDevice(int32_t device) {
    for (const auto& d : devices(device)) d->close();
    mStalled.erase(std::remove_if(mStalled.begin(), mStalled.end(),
                                  [device](const auto& entry) { return entry.first == device; }),
                   mStalled.end());
}

base::flat_map<int32_t, std::vector<int32_t>> EmulatedSensorService::listing() const {
    base::flat_map<int32_t, std::vector<int32_t>> devices;
    for (const description::VirtualDevice& d : mConfig->devices) devices[d.id] = d.types;
    return devices;
}

void EmulatedSensorService::listed() {
    if (mListed) return;
    mListed = true;
    for (const description::VirtualDevice& d : mConfig->devices) {
        if (clientOpens(*mConfig, d)) mSettingUp.insert(d.id);
    }
    if (mSettingUp.empty()) setUpEnded();
}

void EmulatedSensorService::deviceSetUp(int32_t device) {
    if (mSettingUp.erase(device) != 0 && mListed && mSettingUp.empty()) setUpEnded();
}

void EmulatedSensorService::setUpEnded() {
    if (mSetUp) std::move(mSetUp).Run();
}

void EmulatedSensorService::GetDevice(int32_t iio_device_id,
                                      mojom::SensorDeviceRequest device_request) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, iio_device_id)
                  .withStep(common::HostStep::kGetDevice));
    auto config =
        std::find_if(mConfig->devices.begin(), mConfig->devices.end(),
                     [&](const description::VirtualDevice& d) { return d.id == iio_device_id; });
    // Unknown devices and devices set to close here get their request closed unanswered.
    if (config == mConfig->devices.end() || config->closeAt == description::CloseAt::kOnGetDevice) {
        mLog->add(common::HostEvent(common::HostEventKind::kClosedByHost, iio_device_id)
                      .withPipe(common::HostPipe::kSensorDevice));
        deviceSetUp(iio_device_id);
        return;
    }
    if (config->stall == description::Stall::kDevice) {
        mLog->add(common::HostEvent(common::HostEventKind::kStepStalled, iio_device_id)
                      .withStep(common::HostStep::kGetDevice));
        mStalled.emplace_back(iio_device_id, std::move(device_request));
        deviceSetUp(iio_device_id);
        return;
    }
    auto device = std::make_unique<EmulatedSensorDevice>(*config, mConfig->stream, mLog, mRunner,
                                                         mPlayback, mSentProbe);
    device->whenSetUp(
        base::BindOnce(&EmulatedSensorService::deviceSetUp, base::Unretained(this), iio_device_id));
    device->bind(std::move(device_request));
    mLog->add(common::HostEvent(common::HostEventKind::kStepAnswered, iio_device_id)
                  .withStep(common::HostStep::kGetDevice));
    mDevices.push_back(std::move(device));
}

void EmulatedSensorService::clientGone() { setUpEnded(); }

}  // namespace kelvane::host::emulated
