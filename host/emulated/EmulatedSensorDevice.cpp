#include "host/emulated/EmulatedSensorDevice.h"

#include <sys/prctl.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/optional.h"
#include "host/common/TaskDelay.h"
#include "host/emulated/Playback.h"

namespace kelvane::host::emulated {

namespace mojom = chromeos::sensors::mojom;

namespace {

// A late stream catches up by at most this many samples at once; older ones are skipped.
constexpr uint64_t kMaxCatchUp = 10;
// Answer to a request for "as fast as possible" from a device without a stated maximum, and the
// fastest the timer streams: a client asking for more still gets its answer, not a flood.
constexpr double kFastestHz = 1000.0;

}  // namespace

EmulatedSensorDevice::EmulatedSensorDevice(const description::VirtualDevice& config, bool stream,
                                           common::HostEventLog* log,
                                           scoped_refptr<base::SingleThreadTaskRunner> runner,
                                           Playback* playback, const SentSampleProbe* sentProbe)
    : common::HostSensorDevice(log, config.id),
      mConfig(config),
      mStream(stream),
      mLog(log),
      mRunner(std::move(runner)),
      mPlayback(config.timedSamples ? playback : nullptr),
      mSentProbe(sentProbe),
      mBinding(this),
      mGenerator(config) {}

EmulatedSensorDevice::~EmulatedSensorDevice() { setReading(false); }

void EmulatedSensorDevice::bind(mojom::SensorDeviceRequest request) {
    mBinding.Bind(std::move(request));
    mBinding.set_connection_error_handler(
        base::BindOnce(&EmulatedSensorDevice::onConnectionError, base::Unretained(this)));
}

void EmulatedSensorDevice::close() {
    if (mBinding.is_bound()) {
        mLog->add(common::HostEvent(common::HostEventKind::kClosedByHost, mConfig.id)
                      .withPipe(common::HostPipe::kSensorDevice));
    }
    mBinding.Close();
    mStalled.clear();
    stopReading();
    setUpEnded();
}

void EmulatedSensorDevice::setUpEnded() {
    if (mSetUp) std::move(mSetUp).Run();
}

void EmulatedSensorDevice::closeObserver() { stopReading(); }

bool EmulatedSensorDevice::sendObserverError(int32_t errorType) {
    if (!mObserver) return false;
    mLog->add(common::HostEvent(common::HostEventKind::kObserverError, mConfig.id)
                  .with(common::ObserverError{errorType}));
    mObserver->OnErrorOccurred(static_cast<mojom::ObserverErrorType>(errorType));
    return true;
}

void EmulatedSensorDevice::pushSample(const SampleGenerator::Sample& sample) { send(sample); }

void EmulatedSensorDevice::sendRecorded(const description::TimedSamples& samples, size_t index) {
    // Keys go in ascending order of column; the columns are usually sorted, so inserting mostly
    // appends to the reused buffer.
    mRecorded.clear();
    const size_t width = samples.channels.size();
    for (size_t column = 0; column < width; ++column) {
        const size_t at = index * width + column;
        if (samples.present[at]) mRecorded.insert({samples.channels[column], samples.values[at]});
    }
    send(mRecorded);
}

void EmulatedSensorDevice::emitBurst(size_t count) {
    // Nothing on this thread can end the stream mid-burst, so the whole burst is counted once,
    // before the first sample goes out, as send() counts each sample before sending it.
    const bool live = mObserver && !mObserver.encountered_error();
    if (live && count > 0)
        mLog->add(common::HostEvent(common::HostEventKind::kSamplesSent, mConfig.id)
                      .with(common::SampleCount{count}));
    for (size_t i = 0; i < count; ++i) {
        const SampleGenerator::Sample& sample =
            mGenerator.next(enabled().indices(), android::elapsedRealtimeNano());
        if (live) mObserver->OnSampleUpdated(sample);
    }
}

void EmulatedSensorDevice::GetAllChannelIds(GetAllChannelIdsCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, mConfig.id)
                  .withStep(common::HostStep::kGetAllChannelIds));
    if (mConfig.closeAt == description::CloseAt::kOnChannels) {
        close();
        return;
    }
    if (mConfig.stall == description::Stall::kChannels) {
        mLog->add(common::HostEvent(common::HostEventKind::kStepStalled, mConfig.id)
                      .withStep(common::HostStep::kGetAllChannelIds));
        mStalled.push_back(base::BindOnce([](GetAllChannelIdsCallback) {}, std::move(callback)));
        setUpEnded();
        return;
    }
    reply(common::HostStep::kGetAllChannelIds, std::move(callback), mConfig.channels, false);
}

void EmulatedSensorDevice::GetAttributes(const std::vector<std::string>& attr_names,
                                         GetAttributesCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kStepAsked, mConfig.id)
                  .withStep(common::HostStep::kGetAttributes)
                  .with(common::AttributeNames{attr_names}));
    if (mConfig.closeAt == description::CloseAt::kOnAttributes) {
        close();
        return;
    }
    if (mConfig.stall == description::Stall::kAttributes) {
        mLog->add(common::HostEvent(common::HostEventKind::kStepStalled, mConfig.id)
                      .withStep(common::HostStep::kGetAttributes));
        mStalled.push_back(base::BindOnce([](GetAttributesCallback) {}, std::move(callback)));
        setUpEnded();
        return;
    }
    std::vector<base::Optional<std::string>> values;
    values.reserve(attr_names.size());
    for (const std::string& attr : attr_names) {
        auto it = mConfig.attributes.find(attr);
        values.push_back(it == mConfig.attributes.end() ? base::nullopt : it->second);
    }
    reply(common::HostStep::kGetAttributes, std::move(callback), std::move(values),
          mConfig.closeAt == description::CloseAt::kAfterAttributes, true);
}

template <typename Callback, typename Value>
void EmulatedSensorDevice::reply(common::HostStep step, Callback callback, Value value,
                                 bool closeAfter, bool last) {
    // The log says when the answer went out, so that readers can tell a late answer from none.
    auto answer = [](const base::WeakPtr<EmulatedSensorDevice>& device, common::HostStep answered,
                     Callback cb, Value v, bool close, bool lastStep) {
        if (device) {
            device->mLog->add(
                common::HostEvent(common::HostEventKind::kStepAnswered, device->mConfig.id)
                    .withStep(answered));
        }
        std::move(cb).Run(v);
        if (device && close) device->close();
        if (device && lastStep) device->setUpEnded();
    };
    if (mConfig.replyDelay.count() <= 0) {
        answer(mWeak.GetWeakPtr(), step, std::move(callback), std::move(value), closeAfter, last);
        return;
    }
    mRunner->PostDelayedTask(FROM_HERE,
                             base::BindOnce(answer, mWeak.GetWeakPtr(), step, std::move(callback),
                                            std::move(value), closeAfter, last),
                             common::boundedDelay(mConfig.replyDelay));
}

bool EmulatedSensorDevice::canEnable(int32_t index) const {
    const auto& failing = mConfig.failChannels;
    return index >= 0 && index < static_cast<int32_t>(mConfig.channels.size()) &&
           std::find(failing.begin(), failing.end(), index) == failing.end();
}

double EmulatedSensorDevice::answerFrequency(double requested) const {
    for (const auto& [asked, answered] : mConfig.frequencyAnswers) {
        if (asked == requested) return answered;
    }
    if (std::isnan(requested) || requested <= 0.0) return 0.0;
    if (std::isinf(requested)) return mConfig.maxFrequency ? *mConfig.maxFrequency : kFastestHz;
    return mConfig.maxFrequency ? std::min(requested, *mConfig.maxFrequency) : requested;
}

void EmulatedSensorDevice::SetFrequency(double frequency, SetFrequencyCallback callback) {
    mLog->add(common::HostEvent(common::HostEventKind::kFrequencyAsked, mConfig.id)
                  .with(common::Rate{frequency}));
    mAskedHz = frequency;
    mFrequency = answerFrequency(frequency);
    mLog->add(common::HostEvent(common::HostEventKind::kFrequencyAnswered, mConfig.id)
                  .with(common::Rate{mFrequency}));
    if (mReading && mStream && mPlayback == nullptr) {
        if (mFrequency > 0.0) {
            startTimer();
        } else {
            mTicks.InvalidateWeakPtrs();
        }
    }
    std::move(callback).Run(mFrequency);
}

void EmulatedSensorDevice::startReading(mojom::SensorDeviceSamplesObserverPtr observer) {
    stopReading();  // the previous observer is closed
    mObserver = std::move(observer);
    mObserver.set_connection_error_handler(
        base::BindOnce(&EmulatedSensorDevice::onObserverError, base::Unretained(this)));
    // A real host cannot start without a valid rate. A recorded one that could not set the rate
    // it was asked (it answered 0) streamed all the same, at the pace its samples keep.
    if (!(mFrequency > 0.0) && !(mPlayback != nullptr && mAskedHz > 0.0)) {
        sendObserverError(static_cast<int32_t>(mojom::ObserverErrorType::FREQUENCY_INVALID));
        return;
    }
    setReading(true);
    ++mSessions;
    if (mPlayback != nullptr) {
        mPlayback->wake();
    } else if (mStream) {
        startTimer();
    }
}

void EmulatedSensorDevice::onConnectionError() {
    mLog->add(common::HostEvent(common::HostEventKind::kClosedByClient, mConfig.id)
                  .withPipe(common::HostPipe::kSensorDevice));
    // The client is gone: so is its stream.
    stopReading();
}

void EmulatedSensorDevice::onObserverError() {
    mLog->add(common::HostEvent(common::HostEventKind::kClosedByClient, mConfig.id)
                  .withPipe(common::HostPipe::kObserver));
    stopReading();
}

void EmulatedSensorDevice::setReading(bool reading) {
    if (mReading == reading) return;
    mReading = reading;
    mLog->add(common::HostEvent(
        reading ? common::HostEventKind::kStreamStarted : common::HostEventKind::kStreamStopped,
        mConfig.id));
}

void EmulatedSensorDevice::stopReading() {
    mTicks.InvalidateWeakPtrs();
    mObserver.reset();
    setReading(false);
}

void EmulatedSensorDevice::startTimer() {
    // A device samples when it is due: the thread's timed waits end on time rather than up to
    // the default 50 us of timer slack later, which every sample would carry as lateness.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    mTicks.InvalidateWeakPtrs();
    mStreamRate = std::min(mFrequency, kFastestHz) * mConfig.faults.rateFactor;
    markStreamStart();
    mNextIndex = 0;
    scheduleTick();
}

void EmulatedSensorDevice::markStreamStart() {
    // The timer runs on TimeTicks (virtual in tests), timestamps on the boot-time clock. A thread
    // preempted between the two reads would shift every timestamp of the stream by the stall, so
    // the boot clock is read on both sides of the other, and the tightest of a few tries is kept.
    constexpr int64_t kTightNs = 2000;
    int64_t tightest = std::numeric_limits<int64_t>::max();
    for (int attempt = 0; attempt < 4 && tightest > kTightNs; ++attempt) {
        const int64_t beforeNs = android::elapsedRealtimeNano();
        const base::TimeTicks ticks = base::TimeTicks::Now();
        const int64_t afterNs = android::elapsedRealtimeNano();
        if (afterNs - beforeNs < tightest) {
            tightest = afterNs - beforeNs;
            mStreamStart = ticks;
            mStreamStartNs = beforeNs + tightest / 2;
        }
    }
}

void EmulatedSensorDevice::scheduleTick() {
    // Due times are absolute, start + k / rate, so the stream does not drift.
    const base::TimeTicks due =
        mStreamStart + base::TimeDelta::FromSecondsD(static_cast<double>(mNextIndex) / mStreamRate);
    const base::TimeDelta delay = common::boundedDelay(due - base::TimeTicks::Now());
    mRunner->PostDelayedTask(
        FROM_HERE, base::BindOnce(&EmulatedSensorDevice::onTick, mTicks.GetWeakPtr()), delay);
}

void EmulatedSensorDevice::onTick() {
    const double elapsed = (base::TimeTicks::Now() - mStreamStart).InSecondsF();
    const uint64_t due = static_cast<uint64_t>(std::max(0.0, elapsed * mStreamRate)) + 1;
    if (due > mNextIndex + kMaxCatchUp) mNextIndex = due - kMaxCatchUp;
    const int64_t nowNs = android::elapsedRealtimeNano();
    for (; mNextIndex < due; ++mNextIndex) {
        if (dropped(mNextIndex)) continue;
        // Taken when it was due; under virtual time that may be ahead of the real clock.
        const int64_t takenNs =
            mStreamStartNs +
            static_cast<int64_t>(static_cast<double>(mNextIndex) * 1e9 / mStreamRate);
        const int64_t timestampNs = std::min(takenNs, nowNs);
        send(mGenerator.next(enabled().indices(), timestampNs), timestampNs);
    }
    scheduleTick();
}

bool EmulatedSensorDevice::dropped(uint64_t index) const {
    const description::StreamFaults& f = mConfig.faults;
    if (f.dropEvery != 0 && (index + 1) % f.dropEvery == 0) return true;
    const double dueUs = static_cast<double>(index) * 1e6 / mStreamRate;
    const double fromUs = static_cast<double>(f.dropFrom.count());
    return dueUs >= fromUs && dueUs < fromUs + static_cast<double>(f.dropFor.count());
}

void EmulatedSensorDevice::send(const SampleGenerator::Sample& sample, int64_t timerTimestampNs) {
    if (!mObserver || mObserver.encountered_error()) return;
    // Counted first, so a client that has a sample always finds it counted.
    mLog->add(common::HostEvent(common::HostEventKind::kSamplesSent, mConfig.id)
                  .with(common::SampleCount{1}));
    if (timerTimestampNs >= 0 && *mSentProbe)
        (*mSentProbe)(SentSample{mConfig.id, timerTimestampNs, android::elapsedRealtimeNano()});
    mObserver->OnSampleUpdated(sample);
}

}  // namespace kelvane::host::emulated
