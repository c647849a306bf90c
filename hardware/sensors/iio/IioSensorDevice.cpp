#include "IioSensorDevice.h"

#include <utils/SystemClock.h>

#include <cstring>
#include <utility>

#include "base/bind.h"
#include "base/logging.h"
#include "base/strings/string_number_conversions.h"

namespace kelvane {
namespace sensors {

using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorType;
using chromeos::sensors::mojom::ObserverErrorType;

namespace {

constexpr uint32_t kDeviceTimeoutMs = 5000;

constexpr float kPowerMa = 0.001f;
constexpr int32_t kMaxDelayUs = 200000;

uint32_t flagsOf(ReportingMode mode) {
    using android::hardware::sensors::V1_0::SensorFlagBits;
    switch (mode) {
        case ReportingMode::kContinuous:
            return static_cast<uint32_t>(SensorFlagBits::CONTINUOUS_MODE);
        case ReportingMode::kOnChange:
            return static_cast<uint32_t>(SensorFlagBits::ON_CHANGE_MODE);
    }
    return 0;
}

// The table holds Android's type numbers; these are the values Android defines for them.
constexpr int32_t androidTypeOf(DeviceType type) { return kindOf(type)->androidType; }
static_assert(androidTypeOf(DeviceType::ACCEL) == int32_t(SensorType::ACCELEROMETER));
static_assert(androidTypeOf(DeviceType::ANGLVEL) == int32_t(SensorType::GYROSCOPE));
static_assert(androidTypeOf(DeviceType::LIGHT) == int32_t(SensorType::LIGHT));
static_assert(androidTypeOf(DeviceType::MAGN) == int32_t(SensorType::MAGNETIC_FIELD));
static_assert(androidTypeOf(DeviceType::GRAVITY) == int32_t(SensorType::GRAVITY));

// The published ranges are exact float values that compatibility results were taken with.
constexpr uint32_t bitsOf(float f) { return __builtin_bit_cast(uint32_t, f); }
static_assert(bitsOf(kPowerMa) == 0x3A83126F);
static_assert(bitsOf(kindOf(DeviceType::ACCEL)->maxRange) == 0x429CE80A);
static_assert(bitsOf(kindOf(DeviceType::ACCEL)->resolution) == 0x3B1CD0E7);
static_assert(bitsOf(kindOf(DeviceType::MAGN)->maxRange) == 0x45997FF4);
static_assert(bitsOf(kindOf(DeviceType::MAGN)->resolution) == 0x3E19999A);
static_assert(bitsOf(kindOf(DeviceType::ANGLVEL)->maxRange) == 0x420BA058);
static_assert(bitsOf(kindOf(DeviceType::ANGLVEL)->resolution) == 0x3A8BA054);
static_assert(bitsOf(kindOf(DeviceType::LIGHT)->maxRange) == 0x47C35000);
static_assert(bitsOf(kindOf(DeviceType::LIGHT)->resolution) == 0x3F800000);
static_assert(bitsOf(kindOf(DeviceType::GRAVITY)->maxRange) == 0x411CE80A);
static_assert(bitsOf(kindOf(DeviceType::GRAVITY)->resolution) == 0x3A83126F);

// raw -> float -> double, times the scale in double, back to float.
float scaled(const base::flat_map<int32_t, int64_t>& sample, int32_t index, double scale) {
    if (index < 0) return 0.0f;
    auto it = sample.find(index);
    if (it == sample.end()) return 0.0f;
    return static_cast<float>(static_cast<double>(static_cast<float>(it->second)) * scale);
}

void onChannelsEnabled(int32_t deviceId, const std::vector<int32_t>& failedIndices) {
    if (!failedIndices.empty()) {
        LOG(WARNING) << "IioSensorDevice " << deviceId << ": failed to enable "
                     << failedIndices.size() << " channels";
    }
}

void onStartFrequency(double frequency) {
    LOG(INFO) << "IioSensorDevice: frequency set to " << frequency << " Hz";
}

void onBatchFrequency(double frequency) {
    LOG(INFO) << "IioSensorDevice: SetFrequency result=" << frequency;
}

}  // namespace

IioSensorDevice::IioSensorDevice(int deviceId, int handle, const SensorKind& kind,
                                 const std::vector<int>& deviceTypes,
                                 IioSensorEventCallback* callback)
    : mDeviceId(deviceId),
      mHandle(handle),
      mKind(kind),
      mSensorType(static_cast<SensorType>(kind.androidType)),
      mDeviceTypes(deviceTypes.begin(), deviceTypes.end()),
      mCallback(callback),
      mObserverBinding(this),
      mEvents(1) {}

IioSensorDevice::~IioSensorDevice() {
    // No StopReadingSamples: the closed pipes tell the host.
    if (mObserverBinding.is_bound()) mObserverBinding.Close();
}

void IioSensorDevice::initialize(
    mojo::InterfacePtr<chromeos::sensors::mojom::SensorService>& sensorService) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    sensorService->GetDevice(mDeviceId, mojo::MakeRequest(&mSensorDevice));
    mSensorDevice.set_connection_error_handler(base::BindOnce(
        [](int32_t deviceId) {
            LOG(WARNING) << "IioSensorDevice " << deviceId << ": SensorDevice connection lost";
        },
        mDeviceId));
    mSensorDevice->SetTimeout(kDeviceTimeoutMs);
    mSensorDevice->GetAllChannelIds(
        base::BindRepeating(&IioSensorDevice::onChannelIds, base::Unretained(this)));
}

void IioSensorDevice::onChannelIds(const std::vector<std::string>& channelIds) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    mChannelIds = channelIds;
    for (size_t i = 0; i < mChannelIds.size(); ++i) {
        mChannelIndices[mChannelIds[i]] = static_cast<int>(i);
    }
    auto lookup = [this](const std::string& id, int32_t* field) {
        auto it = mChannelIndices.find(id);
        if (it != mChannelIndices.end()) *field = it->second;
    };
    for (size_t axis = 0; axis < mKind.axisCount; ++axis) {
        lookup(channelId(mKind, axis), &mAxisIndices[axis]);
    }
    lookup("timestamp", &mTimestampIndex);

    mSensorDevice->GetAttributes(
        {"name", "scale", "location"},
        base::BindRepeating(&IioSensorDevice::onAttributes, base::Unretained(this)));
}

void IioSensorDevice::onAttributes(const std::vector<base::Optional<std::string>>& values) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    if (values.size() > 0 && values[0].has_value()) mName = *values[0];
    if (values.size() > 1 && values[1].has_value()) {
        if (!base::StringToDouble(*values[1], &mScale)) mScale = 1.0;
    }
    if (values.size() > 2 && values[2].has_value()) mLocation = *values[2];

    LOG(INFO) << "IioSensorDevice " << mDeviceId << " (" << mKind.name << "): name=" << mName
              << " scale=" << mScale << " location=" << mLocation
              << " channels=" << mChannelIds.size();
    mReady.store(true, std::memory_order_release);
}

IioSensorDevice::SensorInfo IioSensorDevice::getSensorInfo() const {
    SensorInfo info{};
    info.sensorHandle = mHandle;
    info.name = mLocation.empty() ? std::string(mKind.name)
                                  : std::string(mKind.name) + " (" + mLocation + ")";
    info.vendor = "Tolvik";
    info.version = 1;
    info.type = mSensorType;
    info.power = kPowerMa;
    info.fifoReservedEventCount = 0;
    info.fifoMaxEventCount = 0;
    info.requiredPermission = "";
    info.maxDelay = kMaxDelayUs;
    info.typeAsString = mKind.typeAsString;
    info.maxRange = mKind.maxRange;
    info.resolution = mKind.resolution;
    info.minDelay = mKind.minDelayUs;
    info.flags = flagsOf(mKind.reportingMode);
    return info;
}

void IioSensorDevice::activate(bool enabled) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    mActive = enabled;
    if (enabled) {
        startSampling();
        return;
    }
    stopSampling();
}

void IioSensorDevice::startSampling() {
    if (!mSensorDevice.is_bound()) return;
    std::vector<int32_t> channels;
    for (size_t axis = 0; axis < mKind.axisCount; ++axis) {
        if (mAxisIndices[axis] >= 0) channels.push_back(mAxisIndices[axis]);
    }
    if (mTimestampIndex >= 0) channels.push_back(mTimestampIndex);
    if (channels.empty()) {
        LOG(WARNING) << "IioSensorDevice " << mDeviceId << ": no channels to enable";
        return;
    }
    mSensorDevice->SetChannelsEnabled(channels, true,
                                      base::BindRepeating(&onChannelsEnabled, mDeviceId));
    double frequency = mFrequency > 0.0 ? mFrequency : mKind.defaultHz;
    mSensorDevice->SetFrequency(frequency, base::BindRepeating(&onStartFrequency));

    if (mObserverBinding.is_bound()) mObserverBinding.Close();
    chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr observer;
    mObserverBinding.Bind(mojo::MakeRequest(&observer));
    mSensorDevice->StartReadingSamples(std::move(observer));
}

void IioSensorDevice::stopSampling() {
    if (!mSensorDevice.is_bound()) return;
    mSensorDevice->StopReadingSamples();
    if (mObserverBinding.is_bound()) mObserverBinding.Close();
}

void IioSensorDevice::batch(int64_t samplingPeriodNs) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    mFrequency = 1e9 / static_cast<double>(samplingPeriodNs);
    if (mActive) mSensorDevice->SetFrequency(mFrequency, base::BindRepeating(&onBatchFrequency));
}

void IioSensorDevice::OnErrorOccurred(ObserverErrorType errorType) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    LOG(WARNING) << "IioSensorDevice " << mDeviceId << ": observer error "
                 << static_cast<int32_t>(errorType);
    // A failed read is the one error sampling recovers from: the host reads again once restarted.
    if (errorType == ObserverErrorType::READ_FAILED && mActive) {
        if (mObserverBinding.is_bound()) mObserverBinding.Close();
        startSampling();
    }
}

void IioSensorDevice::OnSampleUpdated(const base::flat_map<int32_t, int64_t>& sample) {
    DCHECK_CALLED_ON_VALID_SEQUENCE(mMojoSequence);
    if (!mActive || mCallback == nullptr) return;

    auto ts = mTimestampIndex >= 0 ? sample.find(mTimestampIndex) : sample.end();
    const int64_t timestamp = ts != sample.end() ? ts->second : android::elapsedRealtimeNano();

    Event& event = mEvents[0];
    std::memset(&event.u, 0, sizeof(event.u));
    event.timestamp = timestamp;
    event.sensorHandle = mHandle;
    event.sensorType = mSensorType;
    if (mKind.axisCount == 3) {
        event.u.vec3.x = scaled(sample, mAxisIndices[0], mScale);
        event.u.vec3.y = scaled(sample, mAxisIndices[1], mScale);
        event.u.vec3.z = scaled(sample, mAxisIndices[2], mScale);
        event.u.vec3.status = android::hardware::sensors::V1_0::SensorStatus::ACCURACY_HIGH;
    } else {
        event.u.scalar = scaled(sample, mAxisIndices[0], mScale);
    }
    mCallback->postSensorEvents(mEvents, false);
}

}  // namespace sensors
}  // namespace kelvane
