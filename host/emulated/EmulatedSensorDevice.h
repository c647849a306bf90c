// One opened IIO device on the host side: answers the client's handshake (with the configured
// faults), enables channels, sets the rate and streams samples to the client's observer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/callback.h"
#include "base/memory/weak_ptr.h"
#include "base/single_thread_task_runner.h"
#include "base/time/time.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostEventLog.h"
#include "host/common/HostSensorDevice.h"
#include "host/description/HostConfig.h"
#include "host/emulated/SampleGenerator.h"
#include "host/emulated/SentSample.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::emulated {

class Playback;

// Lives on the host thread: created, called and destroyed there. Its delayed replies and ticks
// hold it weakly.
class EmulatedSensorDevice : public common::HostSensorDevice {
  public:
    // `playback` (owned by the host, outliving every device) plays the device's recorded
    // samples; it is told when this endpoint starts reading. `sentProbe` (owned by the host too)
    // is called for every sample the timer sends, when set.
    EmulatedSensorDevice(const description::VirtualDevice& config, bool stream,
                         common::HostEventLog* log,
                         scoped_refptr<base::SingleThreadTaskRunner> runner, Playback* playback,
                         const SentSampleProbe* sentProbe);
    ~EmulatedSensorDevice() override;
    EmulatedSensorDevice(const EmulatedSensorDevice&) = delete;
    EmulatedSensorDevice& operator=(const EmulatedSensorDevice&) = delete;

    void bind(chromeos::sensors::mojom::SensorDeviceRequest request);
    int32_t id() const { return mConfig.id; }
    // Runs `done` once the client's setup handshake with this device is over: its attributes
    // answered (late replies included), or the step where it stalls or closes reached.
    void whenSetUp(base::OnceClosure done) { mSetUp = std::move(done); }

    // Closes the SensorDevice pipe, logged as "close SensorDevice[<id>]"; sampling ends with it.
    void close();
    // Closes the observer pipe; sampling ends with it.
    void closeObserver();
    // Logged as "Observer[<id>].OnErrorOccurred <type>"; false (nothing sent) without an observer.
    bool sendObserverError(int32_t errorType);
    void pushSample(const SampleGenerator::Sample& sample);
    // `count` samples back to back, scripted or generated.
    void emitBurst(size_t count);
    // Whether an observer is reading samples now.
    bool reading() const { return mReading && mObserver && !mObserver.encountered_error(); }
    // Counts the client's reading sessions on this endpoint (successful StartReadingSamples).
    uint64_t readingSession() const { return mSessions; }
    // Sends recorded sample `index` of `samples`.
    void sendRecorded(const description::TimedSamples& samples, size_t index);

    // chromeos::sensors::mojom::SensorDevice
    void GetAttributes(const std::vector<std::string>& attr_names,
                       GetAttributesCallback callback) override;
    void SetFrequency(double frequency, SetFrequencyCallback callback) override;
    void GetAllChannelIds(GetAllChannelIdsCallback callback) override;

  private:
    double answerFrequency(double requested) const;
    // Runs a handshake reply now or after the configured delay, logged as
    // "SensorDevice[<id>].<step> reply"; closes the pipe after it if asked. The `last` reply of
    // the handshake ends the setup (whenSetUp()).
    template <typename Callback, typename Value>
    void reply(common::HostStep step, Callback callback, Value value, bool closeAfter,
               bool last = false);

    void setUpEnded();
    void onConnectionError();
    void onObserverError();
    void setReading(bool reading);
    // common::HostSensorDevice. A virtual device reads no hardware: no time-out applies.
    std::optional<std::string> applyTimeout(uint32_t) override { return std::nullopt; }
    bool canEnable(int32_t index) const override;
    // Virtual channels carry no attributes of their own.
    std::optional<std::string> channelAttribute(int32_t, const std::string&) override {
        return std::nullopt;
    }
    void startReading(chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr observer) override;
    void stopReading() override;
    void startTimer();
    void markStreamStart();
    void scheduleTick();
    void onTick();
    // Whether sample `index` of the stream is one the faults drop.
    bool dropped(uint64_t index) const;
    // `timerTimestampNs`: the timestamp of a sample of the timer's stream, for the sent-sample
    // probe; -1 for any other sample.
    void send(const SampleGenerator::Sample& sample, int64_t timerTimestampNs = -1);

    const description::VirtualDevice mConfig;
    const bool mStream;
    common::HostEventLog* const mLog;  // owned by the host, outlives every device
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    Playback* const mPlayback;  // null when the device has no recorded samples
    const SentSampleProbe* const mSentProbe;

    mojo::Binding<chromeos::sensors::mojom::SensorDevice> mBinding;
    chromeos::sensors::mojom::SensorDeviceSamplesObserverPtr mObserver;
    SampleGenerator mGenerator;
    SampleGenerator::Sample mRecorded;        // reused by sendRecorded()
    std::vector<base::OnceClosure> mStalled;  // replies held back forever, dropped with the device
    base::OnceClosure mSetUp;                 // see whenSetUp()
    double mFrequency = 0.0;                  // the rate last answered
    double mAskedHz = 0.0;                    // the rate last asked
    bool mReading = false;                    // between a good StartReadingSamples and its end
    uint64_t mSessions = 0;                   // see readingSession()
    double mStreamRate = 0.0;                 // the timer's rate, Hz
    base::TimeTicks mStreamStart;
    int64_t mStreamStartNs = 0;  // mStreamStart on the boot-time clock
    uint64_t mNextIndex = 0;     // the next sample of the stream, counted from mStreamStart
    // Last. The pending tick holds mTicks, invalidated to cancel it; delayed replies hold mWeak.
    base::WeakPtrFactory<EmulatedSensorDevice> mTicks{this};
    base::WeakPtrFactory<EmulatedSensorDevice> mWeak{this};
};

}  // namespace kelvane::host::emulated
