#include "host/common/Recorder.h"

#include <utils/SystemClock.h>

#include <algorithm>
#include <cstddef>

#include "host/common/RecordingTap.h"
#include "host/description/DescriptionWriter.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"

namespace kelvane::host::common {

namespace {

// Adds a column for `channel` at its place in index order; earlier samples lack it.
void addColumn(description::TimedSamples& t, int32_t channel) {
    const size_t width = t.channels.size();
    const size_t at =
        std::lower_bound(t.channels.begin(), t.channels.end(), channel) - t.channels.begin();
    std::vector<int64_t> values;
    std::vector<bool> present;
    values.reserve(t.size() * (width + 1));
    present.reserve(t.size() * (width + 1));
    for (size_t row = 0; row < t.size(); ++row) {
        for (size_t c = 0; c <= width; ++c) {
            const bool added = c == at;
            const size_t from = row * width + c - (c > at ? 1 : 0);
            values.push_back(added ? 0 : t.values[from]);
            present.push_back(added ? false : static_cast<bool>(t.present[from]));
        }
    }
    t.channels.insert(t.channels.begin() + static_cast<std::ptrdiff_t>(at), channel);
    t.values = std::move(values);
    t.present = std::move(present);
}

void appendSample(description::TimedSamples& t, int64_t atUs,
                  const base::flat_map<int32_t, int64_t>& sample) {
    for (const auto& entry : sample) {
        if (!std::binary_search(t.channels.begin(), t.channels.end(), entry.first)) {
            addColumn(t, entry.first);
        }
    }
    t.atUs.push_back(atUs);
    auto next = sample.begin();  // a sample's keys are in ascending order, like the columns
    for (int32_t channel : t.channels) {
        const bool has = next != sample.end() && next->first == channel;
        t.values.push_back(has ? next->second : 0);
        t.present.push_back(has);
        if (has) ++next;
    }
}

}  // namespace

Recorder::Recorder(bool timestampsOnThisClock) : mTimestampsOnThisClock(timestampsOnThisClock) {}
Recorder::~Recorder() = default;

HostConnection::ServiceInterposer Recorder::interposer() {
    return [this](chromeos::sensors::mojom::SensorServicePtr* service) {
        return std::shared_ptr<void>(interpose(service));
    };
}

std::unique_ptr<RecordingTap> Recorder::interpose(
    chromeos::sensors::mojom::SensorServicePtr* service) {
    {
        base::AutoLock lock(mLock);
        if (!mStart) {
            mStart = base::TimeTicks::Now();
            mStartBootTimeNs = android::elapsedRealtimeNano();
        }
    }
    chromeos::sensors::mojom::SensorServicePtr client;
    auto tap =
        std::make_unique<RecordingTap>(this, std::move(*service), mojo::MakeRequest(&client));
    *service = std::move(client);
    return tap;
}

void Recorder::startOver() {
    base::AutoLock lock(mLock);
    for (auto& [id, device] : mDevices) {
        device.samples = description::TimedSamples();
        device.lastObserver = 0;
    }
    mTimeline.clear();
    mStart = base::TimeTicks::Now();
    mStartBootTimeNs = android::elapsedRealtimeNano();
    mPaused = false;
}

void Recorder::pause() {
    base::AutoLock lock(mLock);
    mPaused = true;
}

bool Recorder::paused() const {
    base::AutoLock lock(mLock);
    return mPaused;
}

Recorder::Device& Recorder::deviceLocked(int32_t id) {
    Device& device = mDevices[id];
    device.served.id = id;
    return device;
}

int64_t Recorder::nowUsLocked() const {
    return mStart ? (base::TimeTicks::Now() - *mStart).InMicroseconds() : 0;
}

void Recorder::listed(const base::flat_map<int32_t, std::vector<int32_t>>& devices) {
    base::AutoLock lock(mLock);
    for (const auto& [id, types] : devices) deviceLocked(id).served.types = types;
}

void Recorder::listedType(int32_t type, const std::vector<int32_t>& ids) {
    base::AutoLock lock(mLock);
    for (int32_t id : ids) {
        std::vector<int32_t>& types = deviceLocked(id).served.types;
        if (std::find(types.begin(), types.end(), type) == types.end()) types.push_back(type);
    }
}

void Recorder::opened(int32_t device) {
    base::AutoLock lock(mLock);
    deviceLocked(device);
}

void Recorder::channelsAsked(int32_t device) {
    base::AutoLock lock(mLock);
    deviceLocked(device).channelsPending = true;
}

void Recorder::channels(int32_t device, const std::vector<std::string>& ids) {
    base::AutoLock lock(mLock);
    Device& d = deviceLocked(device);
    d.served.channels = ids;
    d.channelsPending = false;
}

void Recorder::attributesAsked(int32_t device) {
    base::AutoLock lock(mLock);
    deviceLocked(device).attributesPending = true;
}

void Recorder::attributes(int32_t device, const std::vector<std::string>& names,
                          const std::vector<base::Optional<std::string>>& values) {
    base::AutoLock lock(mLock);
    Device& d = deviceLocked(device);
    d.attributesPending = false;
    for (size_t i = 0; i < names.size(); ++i) {
        std::optional<std::string> value;
        if (i < values.size() && values[i]) value = *values[i];
        d.served.attributes[names[i]] = value;
    }
}

void Recorder::frequency(int32_t device, double requested, double answered) {
    base::AutoLock lock(mLock);
    auto& answers = deviceLocked(device).served.frequencyAnswers;
    for (auto& answer : answers) {
        if (answer.first == requested) {
            answer.second = answered;
            return;
        }
    }
    answers.emplace_back(requested, answered);
}

void Recorder::channelsEnabled(int32_t device, bool enable, const std::vector<int32_t>& failed) {
    if (!enable) return;  // the library only enables; a failure to disable changes nothing seen
    base::AutoLock lock(mLock);
    deviceLocked(device).failChannels.insert(failed.begin(), failed.end());
}

uint64_t Recorder::observerStarted(int32_t) {
    base::AutoLock lock(mLock);
    return ++mObservers;
}

void Recorder::sample(int32_t device, uint64_t observer,
                      const base::flat_map<int32_t, int64_t>& sample) {
    base::AutoLock lock(mLock);
    if (mPaused) return;
    Device& d = deviceLocked(device);
    if (d.samples.size() != 0 && observer != d.lastObserver) {
        d.samples.restarts.push_back(d.samples.size());
    }
    d.lastObserver = observer;
    appendSample(d.samples, nowUsLocked(), sample);
}

void Recorder::addTimelineEventLocked(description::TimelineAction action, int32_t device,
                                      int32_t error, uint32_t reason,
                                      const std::string& description) {
    if (mPaused) return;
    description::TimelineEvent& event = mTimeline.emplace_back();
    event.at = std::chrono::microseconds(nowUsLocked());
    event.action = action;
    event.device = device;
    event.error = error;
    event.reason = reason;
    event.description = description;
}

void Recorder::observerError(int32_t device, int32_t type) {
    base::AutoLock lock(mLock);
    addTimelineEventLocked(description::TimelineAction::kObserverError, device, type);
}

void Recorder::deviceLost(int32_t device) {
    base::AutoLock lock(mLock);
    deviceLocked(device).lost = true;
    addTimelineEventLocked(description::TimelineAction::kCloseDevice, device);
}

void Recorder::serviceClosed(uint32_t reason, const std::string& description) {
    base::AutoLock lock(mLock);
    addTimelineEventLocked(description::TimelineAction::kCloseService, -1, 0, reason, description);
}

description::HostConfig Recorder::description() const {
    base::AutoLock lock(mLock);
    description::HostConfig config;
    for (const auto& [id, d] : mDevices) {
        description::VirtualDevice device = d.served;
        device.failChannels.assign(d.failChannels.begin(), d.failChannels.end());
        // A handshake step the host never answered, while the device was still there.
        if (!d.lost && d.channelsPending) {
            device.stall = description::Stall::kChannels;
        } else if (!d.lost && d.attributesPending) {
            device.stall = description::Stall::kAttributes;
        }
        // Every device replays what it sent, nothing included: one without timedSamples would
        // generate samples of its own on replay.
        device.timedSamples = std::make_shared<description::TimedSamples>(d.samples);
        config.devices.push_back(std::move(device));
    }
    config.timeline = mTimeline;
    if (mStart && mTimestampsOnThisClock) config.startBootTimeNs = mStartBootTimeNs;
    return config;
}

bool Recorder::write(const std::string& path, std::string* error) const {
    return description::saveHostDescription(description(), path, error);
}

}  // namespace kelvane::host::common
