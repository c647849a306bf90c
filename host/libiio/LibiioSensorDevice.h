// One opened libiio device on the host side: answers the client's SensorDevice calls from the
// device's attributes and streams its samples to the client's observer.
#pragma once

#include <iio.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/memory/weak_ptr.h"
#include "base/single_thread_task_runner.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostEventLog.h"
#include "host/common/HostSensorDevice.h"
#include "host/libiio/SampleReader.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::iio {

// Lives on the host thread: created, called and destroyed there. The samples its reader thread
// posts there hold it weakly. A read failure (the device went away)
// sends the observer READ_FAILED and then closes both pipes; a timed-out read sends READ_TIMEOUT
// and reading goes on.
class LibiioSensorDevice : public common::HostSensorDevice {
  public:
    // `context`, `log` and `scaleWarned` (the devices whose differing axis scales were already
    // reported on stderr, shared by the host's devices) outlive the device.
    LibiioSensorDevice(iio_context* context, iio_device* device, int32_t id,
                       common::HostEventLog* log, std::set<int32_t>* scaleWarned,
                       scoped_refptr<base::SingleThreadTaskRunner> runner);
    ~LibiioSensorDevice() override;
    LibiioSensorDevice(const LibiioSensorDevice&) = delete;
    LibiioSensorDevice& operator=(const LibiioSensorDevice&) = delete;

    void bind(chromeos::sensors::mojom::SensorDeviceRequest request);
    bool closed() const { return !mBinding.is_bound(); }

    // chromeos::sensors::mojom::SensorDevice
    void GetAttributes(const std::vector<std::string>& attr_names,
                       GetAttributesCallback callback) override;
    void SetFrequency(double frequency, SetFrequencyCallback callback) override;
    void GetAllChannelIds(GetAllChannelIdsCallback callback) override;

  private:
    // common::HostSensorDevice. A buffered device streams its scan elements only; a polled one
    // reads any channel.
    std::optional<std::string> applyTimeout(uint32_t timeoutMs) override;
    bool canEnable(int32_t index) const override;
    std::optional<std::string> channelAttribute(int32_t index, const std::string& name) override;
    void startReading(chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr observer) override;
    void stopReading() override;

    // Sets the rate where the device or its trigger has one and answers what the driver then
    // holds. Where neither has one, a buffered device's *unknownRate says so and the request is
    // only the pace of its reads.
    double applyFrequency(double requested, std::string* unknownRate);
    std::optional<std::string> attribute(const std::string& name);
    void startReader();
    void close();
    // Sends the observer `type`, logged with the host's reason.
    void observerError(chromeos::sensors::mojom::ObserverErrorType type, std::string reason);
    void onSamples(std::vector<Sample> samples);
    void onReadError(int error);
    bool validIndex(int32_t index) const;

    iio_context* const mContext;
    iio_device* const mDevice;
    const int32_t mId;
    common::HostEventLog* const mLog;
    std::set<int32_t>* const mScaleWarned;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    const std::vector<iio_channel*> mChannels;  // index = the host's channel index
    const bool mBuffered;                       // has scan elements: streams through a buffer

    mojo::Binding<chromeos::sensors::mojom::SensorDevice> mBinding;
    chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr mObserver;
    double mFrequency = 0.0;  // the rate read or polled at; 0 before a valid SetFrequency
    std::unique_ptr<SampleReader> mReader;
    base::WeakPtrFactory<LibiioSensorDevice> mWeak{this};  // last
};

}  // namespace kelvane::host::iio
