#include "host/libiio/LibiioSensorDevice.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/optional.h"
#include "host/libiio/IioDeviceInfo.h"
#include "host/libiio/IioNumbers.h"

namespace kelvane::host::iio {

namespace mojom = chromeos::sensors::mojom;

namespace {

// Unbuffered devices are polled at most this fast, and this is the answer to "as fast as
// possible" from a device that states no rates.
constexpr double kFastestHz = 1000.0;
// A buffer read every 1/kReadsPerSecond s at most, so that high rates cost one read per refill
// of many scans while the default 50 Hz still delivers every scan at once.
constexpr double kReadsPerSecond = 50.0;
constexpr size_t kMaxScansPerRead = 256;

// What sets a device's rate: its own sampling_frequency, or else its trigger's (an hrtimer or
// sysfs trigger samples a buffered device at the trigger's rate). Null if neither has one.
const iio_device* rateOwner(const iio_device* device) {
    if (iio_device_find_attr(device, "sampling_frequency") != nullptr) return device;
    const iio_device* trigger = nullptr;
    if (iio_device_get_trigger(device, &trigger) == 0 && trigger != nullptr &&
        iio_device_find_attr(trigger, "sampling_frequency") != nullptr) {
        return trigger;
    }
    return nullptr;
}

}  // namespace

LibiioSensorDevice::LibiioSensorDevice(iio_context* context, iio_device* device, int32_t id,
                                       common::HostEventLog* log, std::set<int32_t>* scaleWarned,
                                       scoped_refptr<base::SingleThreadTaskRunner> runner)
    : common::HostSensorDevice(log, id),
      mContext(context),
      mDevice(device),
      mId(id),
      mLog(log),
      mScaleWarned(scaleWarned),
      mRunner(std::move(runner)),
      mChannels(inputChannels(device)),
      mBuffered(std::any_of(mChannels.begin(), mChannels.end(),
                            [](const iio_channel* c) { return iio_channel_is_scan_element(c); })),
      mBinding(this) {}

LibiioSensorDevice::~LibiioSensorDevice() { stopReading(); }

void LibiioSensorDevice::bind(mojom::SensorDeviceRequest request) {
    mBinding.Bind(std::move(request));
    mBinding.set_connection_error_handler(base::BindOnce(
        [](LibiioSensorDevice* device) {
            device->mLog->add(common::HostEvent(common::HostEventKind::kClosedByClient, device->mId)
                                  .withPipe(common::HostPipe::kSensorDevice));
            device->stopReading();  // the client is gone: so is its stream
        },
        base::Unretained(this)));
}

bool LibiioSensorDevice::validIndex(int32_t index) const {
    return index >= 0 && static_cast<size_t>(index) < mChannels.size();
}

std::optional<std::string> LibiioSensorDevice::applyTimeout(uint32_t timeoutMs) {
    // libiio keeps one time-out per context: the last device to set one sets it for all.
    if (const int error = iio_context_set_timeout(mContext, timeoutMs); error < 0) {
        return errnoText(-error);
    }
    return std::nullopt;
}

void LibiioSensorDevice::GetAttributes(const std::vector<std::string>& attr_names,
                                       GetAttributesCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, mId)
                  .withStep(common::HostStep::kGetAttributes)
                  .with(common::AttributeNames{attr_names}));
    // A device gone since it was opened has nothing to answer with: its pipe is closed.
    if (const int error = deviceReadError(mDevice)) {
        mLog->add(common::HostEvent(common::HostEventKind::kStepFailed, mId)
                      .withStep(common::HostStep::kGetAttributes)
                      .withReason("cannot read the device: " + errnoText(error)));
        close();
        return;
    }
    std::vector<base::Optional<std::string>> values;
    for (const std::string& attr : attr_names) {
        std::optional<std::string> value = attribute(attr);
        values.push_back(value ? base::Optional<std::string>(*value) : base::nullopt);
    }
    mLog->add(common::HostEvent(common::HostEventKind::kStepAnswered, mId)
                  .withStep(common::HostStep::kGetAttributes));
    std::move(callback).Run(std::move(values));
}

std::optional<std::string> LibiioSensorDevice::attribute(const std::string& attr) {
    if (attr == "scale") {
        const ScaleChoice choice = chooseScale(mDevice);
        if (!choice.disagreement.empty() && mScaleWarned->insert(mId).second) {
            const char* deviceName = iio_device_get_name(mDevice);
            std::fprintf(stderr,
                         "libiio host: iio:device%d (%s): axis scales differ (%s); the first "
                         "axis's applies to all\n",
                         mId, deviceName ? deviceName : "?", choice.disagreement.c_str());
        }
        return formatNumber(choice.scale);
    }
    return hostAttribute(mDevice, attr);
}

double LibiioSensorDevice::applyFrequency(double requested, std::string* unknownRate) {
    if (std::isnan(requested) || requested <= 0.0) return 0.0;
    const iio_device* owner = rateOwner(mDevice);
    if (owner == nullptr) {
        if (mBuffered) {
            const char* name = iio_device_get_name(mDevice);
            *unknownRate = "iio:device" + std::to_string(mId) + " (" + (name ? name : "?") +
                           ") has no sampling_frequency, nor has its trigger: it streams at a "
                           "rate the host can neither set nor read";
        }
        return std::min(requested, kFastestHz);  // the poll rate, or the pace of buffer reads
    }
    double wanted = std::isinf(requested) ? kFastestHz : requested;
    if (std::optional<std::string> available =
            readAttribute(owner, "sampling_frequency_available")) {
        wanted = nearestAvailable(*available, requested).value_or(wanted);
    }
    // The newline keeps the value readable by libiio, which drops a value's last byte.
    const std::string text = formatNumber(wanted) + "\n";
    iio_device_attr_write(owner, "sampling_frequency", text.c_str());
    // What the driver made of it: rounded to its own steps, or refused.
    const std::optional<std::string> readBack = readAttribute(owner, "sampling_frequency");
    return parseNumber(readBack.value_or("")).value_or(0.0);
}

void LibiioSensorDevice::SetFrequency(double frequency, SetFrequencyCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kFrequencyAsked, mId)
                  .with(common::Rate{frequency}));
    std::string unknownRate;
    mFrequency = applyFrequency(frequency, &unknownRate);
    // A rate nobody set is no rate to claim: 0 says none was set, the reason says why.
    const double answer = unknownRate.empty() ? mFrequency : 0.0;
    mLog->add(common::HostEvent(common::HostEventKind::kFrequencyAnswered, mId)
                  .with(common::Rate{answer})
                  .withReason(std::move(unknownRate)));
    // A new rate takes effect with a new buffer or poll period.
    if (mReader) startReader();
    std::move(callback).Run(answer);
}

void LibiioSensorDevice::startReading(mojom::SensorDeviceSamplesObserverPtr observer) {
    stopReading();
    mObserver = std::move(observer);
    mObserver.set_connection_error_handler(base::BindOnce(
        [](LibiioSensorDevice* device) {
            device->mLog->add(common::HostEvent(common::HostEventKind::kClosedByClient, device->mId)
                                  .withPipe(common::HostPipe::kObserver));
            device->stopReading();
        },
        base::Unretained(this)));
    if (!(mFrequency > 0.0)) {
        observerError(mojom::ObserverErrorType::FREQUENCY_INVALID, "no valid rate set");
        return;
    }
    if (enabled().empty()) {
        observerError(mojom::ObserverErrorType::NO_ENABLED_CHANNELS, "no channel enabled");
        return;
    }
    if (mBuffered && readAttribute(mDevice, "current_timestamp_clock")) {
        // Android stamps events on the boot-time clock.
        iio_device_attr_write(mDevice, "current_timestamp_clock", "boottime\n");
    }
    startReader();
}

void LibiioSensorDevice::startReader() {
    if (mReader) {
        mReader.reset();
        mLog->add(common::HostEvent(common::HostEventKind::kStreamStopped, mId));
    }
    std::vector<SampleReader::Channel> channels;
    for (int32_t index : enabled().indices()) channels.push_back({index, mChannels[index]});
    base::WeakPtr<LibiioSensorDevice> self = mWeak.GetWeakPtr();
    auto deliver = [runner = mRunner, self](std::vector<Sample> samples) {
        runner->PostTask(FROM_HERE,
                         base::BindOnce(&LibiioSensorDevice::onSamples, self, std::move(samples)));
    };
    auto fail = [runner = mRunner, self](int error) {
        runner->PostTask(FROM_HERE, base::BindOnce(&LibiioSensorDevice::onReadError, self, error));
    };
    if (mBuffered) {
        const size_t scans = std::clamp<size_t>(
            static_cast<size_t>(std::lround(mFrequency / kReadsPerSecond)), 1, kMaxScansPerRead);
        int error = 0;
        mReader = SampleReader::startBuffered(mDevice, channels, scans, deliver, fail, &error);
        if (!mReader) {
            observerError(mojom::ObserverErrorType::GET_FD_FAILED,
                          "cannot open the device's buffer: " + errnoText(error));
            return;
        }
    } else {
        mReader = SampleReader::startPolled(mDevice, std::move(channels),
                                            std::min(mFrequency, kFastestHz), deliver, fail);
    }
    mLog->add(common::HostEvent(common::HostEventKind::kStreamStarted, mId));
}

void LibiioSensorDevice::stopReading() {
    if (mReader) {
        mReader.reset();  // joins the reader thread; its posted samples find no observer
        mLog->add(common::HostEvent(common::HostEventKind::kStreamStopped, mId));
    }
    mObserver.reset();
}

void LibiioSensorDevice::close() {
    stopReading();
    if (mBinding.is_bound()) {
        mLog->add(common::HostEvent(common::HostEventKind::kClosedByHost, mId)
                      .withPipe(common::HostPipe::kSensorDevice));
    }
    mBinding.Close();
}

void LibiioSensorDevice::observerError(mojom::ObserverErrorType type, std::string reason) {
    mLog->add(common::HostEvent(common::HostEventKind::kObserverError, mId)
                  .with(common::ObserverError{static_cast<int32_t>(type)})
                  .withReason(std::move(reason)));
    mObserver->OnErrorOccurred(type);
}

void LibiioSensorDevice::onSamples(std::vector<Sample> samples) {
    if (!mReader || !mObserver || mObserver.encountered_error()) return;
    mLog->add(common::HostEvent(common::HostEventKind::kSamplesSent, mId)
                  .with(common::SampleCount{samples.size()}));
    for (const Sample& sample : samples) mObserver->OnSampleUpdated(sample);
}

void LibiioSensorDevice::onReadError(int error) {
    if (!mReader || !mObserver) return;  // from a reader already stopped
    if (error == ETIMEDOUT) {
        observerError(mojom::ObserverErrorType::READ_TIMEOUT, "time-out: " + errnoText(error));
        return;
    }
    // The device went away, or its bus or the network did: it cannot be read again.
    observerError(mojom::ObserverErrorType::READ_FAILED,
                  (error == ENODEV ? "device gone: " : "read failed: ") + errnoText(error));
    close();
}

void LibiioSensorDevice::GetAllChannelIds(GetAllChannelIdsCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, mId)
                  .withStep(common::HostStep::kGetAllChannelIds));
    std::vector<std::string> ids;
    for (const iio_channel* channel : mChannels) ids.push_back(channelId(channel));
    mLog->add(common::HostEvent(common::HostEventKind::kStepAnswered, mId)
                  .withStep(common::HostStep::kGetAllChannelIds));
    std::move(callback).Run(ids);
}

bool LibiioSensorDevice::canEnable(int32_t index) const {
    return validIndex(index) && (!mBuffered || iio_channel_is_scan_element(mChannels[index]));
}

std::optional<std::string> LibiioSensorDevice::channelAttribute(int32_t index,
                                                                const std::string& name) {
    if (!validIndex(index)) return std::nullopt;
    return readChannelAttribute(mChannels[index], name.c_str());
}

}  // namespace kelvane::host::iio
