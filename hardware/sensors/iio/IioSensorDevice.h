#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "IioSensorEventCallback.h"
#include "base/containers/flat_map.h"
#include "base/optional.h"
#include "base/sequence_checker.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "hardware/sensors/mojom/sensor_kinds.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"

namespace kelvane {
namespace sensors {

// One IIO device of the host, published to Android as one sensor. Everything but getSensorInfo()
// and isReady() runs on the Mojo thread (checked), which also destroys it.
class IioSensorDevice : public chromeos::sensors::mojom::SensorDeviceSamplesObserver {
  public:
    using SensorType = android::hardware::sensors::V2_1::SensorType;
    using SensorInfo = android::hardware::sensors::V2_1::SensorInfo;

    // Published as a sensor of `kind`, one of the device's `deviceTypes`.
    IioSensorDevice(int deviceId, int handle, const SensorKind& kind,
                    const std::vector<int>& deviceTypes, IioSensorEventCallback* callback);
    ~IioSensorDevice() override;
    IioSensorDevice(const IioSensorDevice&) = delete;
    IioSensorDevice& operator=(const IioSensorDevice&) = delete;

    void OnSampleUpdated(const base::flat_map<int32_t, int64_t>& sample) override;
    void OnErrorOccurred(chromeos::sensors::mojom::ObserverErrorType errorType) override;

    // Opens the device through the host's sensor service and starts the setup handshake.
    void initialize(mojo::InterfacePtr<chromeos::sensors::mojom::SensorService>& sensorService);
    void onChannelIds(const std::vector<std::string>& channelIds);
    void onAttributes(const std::vector<base::Optional<std::string>>& values);

    // Any thread, once isReady(): the Android description of this sensor.
    SensorInfo getSensorInfo() const;
    // Any thread: the description is final and visible once this reads true.
    bool isReady() const { return mReady.load(std::memory_order_acquire); }

    void activate(bool enabled);
    void batch(int64_t samplingPeriodNs);

  private:
    void startSampling();
    void stopSampling();

    const int32_t mDeviceId;
    const int32_t mHandle;
    const SensorKind& mKind;
    const SensorType mSensorType;
    const std::vector<int32_t> mDeviceTypes;
    IioSensorEventCallback* const mCallback;
    mojo::InterfacePtr<chromeos::sensors::mojom::SensorDevice> mSensorDevice;
    mojo::Binding<chromeos::sensors::mojom::SensorDeviceSamplesObserver> mObserverBinding;
    std::vector<std::string> mChannelIds;
    std::map<std::string, int> mChannelIndices;
    std::string mName;
    double mScale = 1.0;
    std::string mLocation;
    // Publication flag: stored with release after mName, mScale and mLocation are final.
    std::atomic<bool> mReady{false};
    bool mActive = false;
    double mFrequency = 0.0;
    // The channel index of each of the kind's axes; -1 where the device lacks the channel.
    std::array<int32_t, 3> mAxisIndices{-1, -1, -1};
    int32_t mTimestampIndex = -1;
    // The one-event vector handed to the callback, reused for every sample.
    std::vector<android::hardware::sensors::V2_1::Event> mEvents;
    SEQUENCE_CHECKER(mMojoSequence);
};

}  // namespace sensors
}  // namespace kelvane
