#include "host/emulated/EmulatedHost.h"

#include <algorithm>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/time/time.h"
#include "host/common/TaskDelay.h"
#include "host/emulated/EmulatedSensorDevice.h"
#include "host/emulated/EmulatedSensorService.h"

namespace kelvane::host::emulated {

namespace mojom = chromeos::sensors::mojom;

EmulatedHost::EmulatedHost(description::HostConfig config,
                           scoped_refptr<base::SingleThreadTaskRunner> runner)
    : mConfig(std::move(config)),
      mCore("emulated-host", mConfig.bridgeVersion, mConfig.autoSetUpChannel, *this,
            std::move(runner)) {
    mPlayback = std::make_unique<Playback>(
        &mConfig, mCore.runner(),
        [this](int32_t device, const std::function<void(EmulatedSensorDevice&)>& fn) {
            forEachDevice(device, [&fn](EmulatedSensorDevice& d) {
                if (d.reading()) fn(d);
            });
        },
        [this](const description::TimelineEvent& event) { runTimelineEvent(event); },
        [this] {
            mPlayedOut = true;
            noteReplayProgress();
        });
}

EmulatedHost::~EmulatedHost() = default;  // mCore goes first: see the header

template <typename Method, typename... Args>
void EmulatedHost::postToConnection(Method method, Args... args) {
    mCore.runner()->PostTask(
        FROM_HERE,
        base::BindOnce(method, base::Unretained(&mCore.connection()), std::move(args)...));
}

template <typename Method, typename... Args>
void EmulatedHost::post(Method method, Args... args) {
    mCore.runner()->PostTask(FROM_HERE,
                             base::BindOnce(method, base::Unretained(this), std::move(args)...));
}

void EmulatedHost::setUpChannel() { postToConnection(&common::HostConnection::setUpChannel); }
void EmulatedHost::callInit() { postToConnection(&common::HostConnection::callInit); }
void EmulatedHost::setTabletMode(bool on) {
    postToConnection(&common::HostConnection::setTabletMode, on);
}
void EmulatedHost::sendObserverError(int32_t device, int32_t errorType) {
    post(&EmulatedHost::doSendObserverError, device, errorType);
}
void EmulatedHost::pushSample(int32_t device, std::map<int32_t, int64_t> sample) {
    post(&EmulatedHost::doPushSample, device, std::move(sample));
}
void EmulatedHost::emitBurst(int32_t device, size_t count) {
    post(&EmulatedHost::doEmitBurst, device, count);
}
void EmulatedHost::setSentSampleProbe(SentSampleProbe probe) {
    post(&EmulatedHost::doSetSentSampleProbe, std::move(probe));
}
void EmulatedHost::closeInstance() { postToConnection(&common::HostConnection::closeInstance); }
void EmulatedHost::closeHalClient() { postToConnection(&common::HostConnection::closeHalClient); }
void EmulatedHost::closeIioSensorHost() {
    postToConnection(&common::HostConnection::closeIioSensorHost);
}
void EmulatedHost::closeService(uint32_t reason, const std::string& description) {
    post(&EmulatedHost::doCloseService, reason, description);
}
void EmulatedHost::closeDevice(int32_t device) { post(&EmulatedHost::doCloseDevice, device); }
void EmulatedHost::closeObserver(int32_t device) { post(&EmulatedHost::doCloseObserver, device); }

std::vector<common::HostEvent> EmulatedHost::events() const { return mCore.log().events(); }

bool EmulatedHost::waitFor(const common::HostEventLog::Predicate& pred,
                           std::chrono::milliseconds limit) {
    return mCore.log().waitFor(pred, limit);
}

bool EmulatedHost::waitForEvent(const common::HostEventPattern& pattern,
                                std::chrono::milliseconds limit) {
    return mCore.log().waitFor(
        [&pattern](const std::vector<common::HostEvent>& events) {
            return std::any_of(events.begin(), events.end(),
                               [&](const common::HostEvent& e) { return pattern.matches(e); });
        },
        limit);
}

size_t EmulatedHost::count(const common::HostEventPattern& pattern) const {
    return mCore.log().count(pattern);
}
size_t EmulatedHost::samplesSent(int32_t device) const { return mCore.log().samplesSent(device); }
double EmulatedHost::frequency(int32_t device) const { return mCore.log().frequency(device); }
bool EmulatedHost::streaming(int32_t device) const { return mCore.log().streaming(device); }

void EmulatedHost::bindService(mojom::SensorServiceRequest request) {
    mServices.push_back(std::make_unique<EmulatedSensorService>(
        &mConfig, &mCore.log(), mPlayback.get(), &mSentProbe, mCore.runner(), std::move(request)));
    // The timeline and the recorded samples start once the client has set up its devices, so
    // that no entry races the handshake: entries at the same time run in the order given.
    mServices.back()->whenSetUp(
        base::BindOnce(&EmulatedHost::startTimeline, base::Unretained(this)));
}

void EmulatedHost::startTimeline() {
    mPlayback->start();
    if (mConfig.speed <= 0.0) return;  // the playback runs the timeline among the samples
    for (const description::TimelineEvent& event : mConfig.timeline) {
        const double delayUs = static_cast<double>(event.at.count()) / mConfig.speed;
        mCore.runner()->PostDelayedTask(
            FROM_HERE, base::BindOnce(&EmulatedHost::runTimelineEvent, mWeak.GetWeakPtr(), event),
            common::boundedDelay(base::TimeDelta::FromMicroseconds(
                static_cast<int64_t>(std::min(delayUs, 9.0e18)))));
    }
}

void EmulatedHost::noteReplayProgress() {
    if (mReplayOver || !mPlayedOut || mTimelineRun < mConfig.timeline.size()) return;
    mReplayOver = true;
    mCore.log().add(common::HostEvent(common::HostEventKind::kReplayOver));
}

void EmulatedHost::runTimelineEvent(description::TimelineEvent event) {
    ++mTimelineRun;  // applied or not, it has had its turn
    // An entry that finds nothing to act on says so in the log rather than vanish.
    auto skipped = [this, &event](const std::string& action, const std::string& why) {
        const auto atMs = std::chrono::duration_cast<std::chrono::milliseconds>(event.at);
        mCore.log().add(common::HostEvent(common::HostEventKind::kTimelineNotApplied, event.device)
                            .with(common::TimelineSkip{atMs.count(), action})
                            .withReason(why));
    };
    const std::string device = "device " + std::to_string(event.device);
    switch (event.action) {
        case description::TimelineAction::kObserverError: {
            bool sent = false;
            forEachDevice(event.device, [&](EmulatedSensorDevice& d) {
                sent = d.sendObserverError(event.error) || sent;
            });
            if (!sent) skipped("observerError", device + " has no observer");
            break;
        }
        case description::TimelineAction::kCloseDevice: {
            bool open = false;
            forEachDevice(event.device, [&open](EmulatedSensorDevice&) { open = true; });
            if (!open) skipped("closeDevice", device + " is not open");
            doCloseDevice(event.device);
            mPlayback->deviceClosed(event.device);
            break;
        }
        case description::TimelineAction::kCloseService:
            if (mServices.empty()) skipped("closeService", "no sensor service yet");
            doCloseService(event.reason, event.description);
            break;
        case description::TimelineAction::kTabletMode:
            if (!mCore.connection().hasInstance()) skipped("tabletMode", "no sensors instance");
            mCore.connection().setTabletMode(event.on);
            break;
    }
    noteReplayProgress();
}

void EmulatedHost::doSendObserverError(int32_t device, int32_t errorType) {
    forEachDevice(device, [errorType](EmulatedSensorDevice& d) { d.sendObserverError(errorType); });
}

void EmulatedHost::doPushSample(int32_t device, std::map<int32_t, int64_t> sample) {
    const SampleGenerator::Sample raw(sample.begin(), sample.end());
    forEachDevice(device, [&raw](EmulatedSensorDevice& d) { d.pushSample(raw); });
}

void EmulatedHost::doEmitBurst(int32_t device, size_t count) {
    forEachDevice(device, [count](EmulatedSensorDevice& d) { d.emitBurst(count); });
}

void EmulatedHost::doSetSentSampleProbe(SentSampleProbe probe) { mSentProbe = std::move(probe); }

void EmulatedHost::doCloseService(uint32_t reason, std::string description) {
    for (auto& service : mServices) service->close(reason, description);
}

void EmulatedHost::doCloseDevice(int32_t device) {
    for (auto& service : mServices) service->closeDevice(device);
}

void EmulatedHost::doCloseObserver(int32_t device) {
    forEachDevice(device, [](EmulatedSensorDevice& d) { d.closeObserver(); });
}

void EmulatedHost::forEachDevice(int32_t device,
                                 const std::function<void(EmulatedSensorDevice&)>& fn) {
    for (auto& service : mServices) {
        for (const auto& d : service->devices(device)) fn(*d);
    }
}

void EmulatedHost::closeDevices() {
    mWeak.InvalidateWeakPtrs();
    mPlayback->stop();
    mServices.clear();
}

}  // namespace kelvane::host::emulated
