// An emulated Chrome OS host: serves virtual IIO devices behind the host's Mojo interfaces, on its
// own thread (or a runner it is given), with fault injection, and records what it was asked.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/memory/weak_ptr.h"
#include "base/single_thread_task_runner.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/Host.h"
#include "host/common/HostCore.h"
#include "host/description/HostConfig.h"
#include "host/emulated/Playback.h"
#include "host/emulated/SentSample.h"

namespace kelvane::host::emulated {

class EmulatedSensorDevice;
class EmulatedSensorService;

// Every call returns at once: the work is posted to the host thread. What the host saw and did is
// kept as host events, readable from any thread.
class EmulatedHost : public common::Host, private common::HostCore::Devices {
  public:
    // Starts the host thread, or runs on `runner` when one is given: it must run tasks until the
    // host is destroyed, on a thread other than the one that destroys it. Does not register yet.
    explicit EmulatedHost(description::HostConfig config,
                          scoped_refptr<base::SingleThreadTaskRunner> runner = nullptr);
    // Unregisters, destroys every endpoint on the host thread, then stops it.
    ~EmulatedHost() override;
    EmulatedHost(const EmulatedHost&) = delete;
    EmulatedHost& operator=(const EmulatedHost&) = delete;

    // Calls toward the client.
    void setUpChannel();  // SetUpChannel with a new SensorService over the configured devices
    void callInit();      // Init again on the IioSensorInstance, with a new IioSensorHost
    void setTabletMode(bool on);
    void sendObserverError(int32_t device, int32_t errorType);
    void pushSample(int32_t device, std::map<int32_t, int64_t> sample);
    void emitBurst(int32_t device, size_t count);
    // Calls `probe` on the host thread for every sample the timer sends, once this call has
    // reached that thread: set it before the streams it should see start. For measurements.
    void setSentSampleProbe(SentSampleProbe probe);

    // Closing the host's ends on demand.
    void closeInstance();
    void closeHalClient();
    void closeIioSensorHost();
    void closeService(uint32_t reason, const std::string& description);
    void closeDevice(int32_t device);
    void closeObserver(int32_t device);

    std::vector<common::HostEvent> events() const;
    // Waits up to `limit` for `pred(events())` to hold; `pred` may query this host.
    bool waitFor(const common::HostEventLog::Predicate& pred,
                 std::chrono::milliseconds limit = std::chrono::seconds(10));
    bool waitForEvent(const common::HostEventPattern& pattern,
                      std::chrono::milliseconds limit = std::chrono::seconds(10));
    size_t count(const common::HostEventPattern& pattern) const;
    size_t samplesSent(int32_t device) const;  // OnSampleUpdated sent for that device
    double frequency(int32_t device) const;    // last rate set for that device, 0 if none
    bool streaming(int32_t device) const;

  private:
    // Host thread.
    template <typename Method, typename... Args>
    void post(Method method, Args... args);
    template <typename Method, typename... Args>
    void postToConnection(Method method, Args... args);
    void bindService(chromeos::sensors::mojom::SensorServiceRequest request) override;
    void closeDevices() override;
    common::HostCore& core() override { return mCore; }
    const common::HostCore& core() const override { return mCore; }
    void doSendObserverError(int32_t device, int32_t errorType);
    void doPushSample(int32_t device, std::map<int32_t, int64_t> sample);
    void doEmitBurst(int32_t device, size_t count);
    void doSetSentSampleProbe(SentSampleProbe probe);
    void doCloseService(uint32_t reason, std::string description);
    void doCloseDevice(int32_t device);
    void doCloseObserver(int32_t device);
    void startTimeline();
    void runTimelineEvent(description::TimelineEvent event);
    // A replay is over once its samples are played out and its timeline has run.
    void noteReplayProgress();
    void forEachDevice(int32_t device, const std::function<void(EmulatedSensorDevice&)>& fn);

    const description::HostConfig mConfig;

    // Host thread only. The core, destroyed first, runs the teardown there before any goes.
    std::vector<std::unique_ptr<EmulatedSensorService>> mServices;
    std::unique_ptr<Playback> mPlayback;
    SentSampleProbe mSentProbe;  // the devices hold its address
    size_t mTimelineRun = 0;     // entries run so far
    bool mPlayedOut = false;     // every recorded sample sent
    bool mReplayOver = false;    // kReplayOver logged
    // The timeline's entries hold it; the teardown invalidates it.
    base::WeakPtrFactory<EmulatedHost> mWeak{this};
    // Last, so that it is the first to go: it stops the host before the members above go.
    common::HostCore mCore;
};

}  // namespace kelvane::host::emulated
