#include "check/CheckRun.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "check/RecordedStreams.h"
#include "check/RuleCatalogue.h"
#include "host/description/HostConfig.h"

namespace kelvane::tools::check {

namespace {

using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::SensorType;
using Clock = std::chrono::steady_clock;

// How soon a cancelled run notices, while it waits for events.
constexpr milliseconds kCancelPoll{100};

// The host device-type code the library publishes as `type`; 0 if none.
int32_t hostTypeOf(SensorType type) {
    switch (type) {
        case SensorType::ACCELEROMETER:
            return 1;
        case SensorType::GYROSCOPE:
            return 2;
        case SensorType::LIGHT:
            return 3;
        case SensorType::MAGNETIC_FIELD:
            return 5;
        case SensorType::GRAVITY:
            return 11;
        default:
            return 0;
    }
}

// The library publishes a device as its first type it supports.
bool publishedAs(const RecordedDevice& device, SensorType type) {
    for (int32_t code : device.types) {
        if (code == 1 || code == 2 || code == 3 || code == 5 || code == 11) {
            return code == hostTypeOf(type);
        }
    }
    return false;
}

}  // namespace

CheckRun::CheckRun(Session& session, const CheckOptions& options)
    : mSession(session), mOptions(options), mCurrent(&session.callback()) {
    mCallbacks.push_back(mCurrent);
}

CheckRun::~CheckRun() = default;

bool CheckRun::wants(RuleId rule) const {
    if (mOptions.rules.empty()) return true;
    for (const std::string& pattern : mOptions.rules) {
        if (fnmatch(pattern.c_str(), rule.c_str(), 0) == 0) return true;
    }
    return false;
}

bool CheckRun::wantsAny(const std::vector<RuleId>& rules) const {
    for (const RuleId& rule : rules) {
        if (wants(rule)) return true;
    }
    return false;
}

void CheckRun::progress(const std::string& what) const {
    if (mOptions.onProgress) return mOptions.onProgress(what);
    std::fprintf(stderr, "check: %s\n", what.c_str());
}

void CheckRun::add(RuleId rule, const SensorInfo& sensor, const std::string& suffix,
                   Outcome outcome) {
    if (!wants(rule)) return;
    add(rule, std::string(sensor.name) + suffix, std::move(outcome));
    mResults.back().handle = sensor.sensorHandle;
}

void CheckRun::add(RuleId rule, const std::string& subject, Outcome outcome) {
    if (!wants(rule)) return;
    const RuleInfo* info = findRule(rule.str());
    mResults.push_back({rule.str(), info != nullptr ? info->source : "", ruleGroup(rule.str()),
                        subject, std::nullopt, outcome.verdict, std::move(outcome.detail)});
}

void CheckRun::note(const std::vector<Event>& events) {
    for (const Event& event : events) {
        if (isMetaEvent(event)) continue;
        ++mSensorEvents;
        ++mEventsPerHandle[event.sensorHandle];
        auto last = mLastTimestamp.find(event.sensorHandle);
        if (last != mLastTimestamp.end() && event.timestamp <= last->second &&
            mViolations.count(event.sensorHandle) == 0) {
            mViolations[event.sensorHandle] =
                std::to_string(last->second) + " then " + std::to_string(event.timestamp);
        }
        mLastTimestamp[event.sensorHandle] = event.timestamp;
    }
}

std::vector<Event> CheckRun::collectFor(milliseconds duration, std::vector<int64_t>* receivedNs) {
    return collectUntil([](const std::vector<Event>&) { return false; }, duration, receivedNs);
}

std::vector<Event> CheckRun::collectUntil(
    const std::function<bool(const std::vector<Event>&)>& done, milliseconds limit,
    std::vector<int64_t>* receivedNs) {
    const auto deadline = Clock::now() + limit;
    std::vector<Event> all;
    while (!done(all) && Clock::now() < deadline && !cancelled()) {
        // A cancelled run is looked for between short waits.
        const auto wake =
            mOptions.cancelled ? std::min(deadline, Clock::now() + kCancelPoll) : deadline;
        std::vector<Event> taken = mCurrent->queue().takeUntil(wake, receivedNs);
        note(taken);
        all.insert(all.end(), taken.begin(), taken.end());
    }
    return all;
}

std::vector<Event> CheckRun::settle(milliseconds quiet, milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    std::vector<Event> all;
    while (Clock::now() < deadline && !cancelled()) {
        const auto wake = std::min(deadline, Clock::now() + quiet);
        std::vector<Event> taken = mCurrent->queue().takeUntil(wake);
        if (taken.empty()) break;
        note(taken);
        all.insert(all.end(), taken.begin(), taken.end());
    }
    return all;
}

android::sp<ProxyCallback> CheckRun::newCallback() {
    android::sp<ProxyCallback> callback = new ProxyCallback();
    std::set<int32_t> wakeUp;
    for (const SensorInfo& sensor : sensors()) {
        if ((sensor.flags & SensorFlagBits::WAKE_UP) != 0) wakeUp.insert(sensor.sensorHandle);
    }
    callback->setWakeUpHandles(std::move(wakeUp));
    mCallbacks.push_back(callback);
    return callback;
}

uint64_t CheckRun::sensorEventsSeen(int32_t handle) const {
    auto found = mEventsPerHandle.find(handle);
    return found == mEventsPerHandle.end() ? 0 : found->second;
}

uint64_t CheckRun::wakelockMismatches() const {
    uint64_t total = 0;
    for (const auto& callback : mCallbacks) total += callback->wakelockMismatches();
    return total;
}

bool CheckRun::isReplay(const SensorInfo& sensor) const {
    for (const RecordedDevice& device : mSession.recordedDevices()) {
        if (publishedAs(device, sensor.type)) return true;
    }
    return false;
}

std::vector<double> CheckRun::recordedRates(const SensorInfo& sensor) const {
    std::vector<double> rates;
    for (const RecordedDevice& device : mSession.recordedDevices()) {
        if (!publishedAs(device, sensor.type)) continue;
        for (double hz : device.requestedHz) {
            if (std::find(rates.begin(), rates.end(), hz) == rates.end()) rates.push_back(hz);
        }
    }
    return rates;
}

std::optional<int64_t> CheckRun::recordedSendTimeNs(const SensorInfo& sensor,
                                                    int64_t timestampNs) const {
    const std::optional<int64_t> start = mSession.recordingStartBootTimeNs();
    if (!start) return std::nullopt;
    const int32_t type = static_cast<int32_t>(sensor.type);
    auto index = mSendTimes.find(type);
    if (index == mSendTimes.end()) {
        std::map<int64_t, int64_t>& times = mSendTimes[type];
        for (const RecordedDevice& device : mSession.recordedDevices()) {
            if (!publishedAs(device, sensor.type) || !device.samples) continue;
            const host::description::TimedSamples& t = *device.samples;
            const auto column =
                std::find(t.channels.begin(), t.channels.end(), device.timestampChannel);
            if (device.timestampChannel < 0 || column == t.channels.end()) continue;
            const size_t width = t.channels.size();
            const size_t c = static_cast<size_t>(column - t.channels.begin());
            for (size_t row = 0; row < t.size(); ++row) {
                if (!t.present[row * width + c]) continue;
                times.emplace(t.values[row * width + c], *start + t.atUs[row] * 1000);
            }
        }
        index = mSendTimes.find(type);
    }
    const auto found = index->second.find(timestampNs);
    if (found == index->second.end()) return std::nullopt;
    return found->second;
}

bool CheckRun::remoteClock(const SensorInfo& sensor) const {
    return mSession.stampedOnBoard(hostTypeOf(sensor.type));
}

std::pair<int64_t, int64_t> CheckRun::recordedSpanUs() const {
    std::optional<std::pair<int64_t, int64_t>> span;
    for (const RecordedDevice& device : mSession.recordedDevices()) {
        if (!device.samples || device.samples->size() == 0) continue;
        const std::vector<int64_t>& at = device.samples->atUs;
        span = span ? std::make_pair(std::min(span->first, at.front()),
                                     std::max(span->second, at.back()))
                    : std::make_pair(at.front(), at.back());
    }
    return span.value_or(std::make_pair(int64_t{0}, int64_t{0}));
}

std::string CheckRun::sendTimeProblem(const SensorInfo& sensor) const {
    if (!mSession.recordingStartBootTimeNs()) {
        return "the recording does not say when it started on the boot-time clock, so no send "
               "time is known";
    }
    for (const RecordedDevice& device : mSession.recordedDevices()) {
        if (publishedAs(device, sensor.type) && device.timestampChannel < 0) {
            return "its device records no timestamp channel: its events carry the library's own "
                   "stamps, which no recorded send time matches";
        }
    }
    return {};
}

void CheckRun::setRecording(std::unique_ptr<RecordedStreams> recording) {
    mRecording = std::move(recording);
}

const SensorInfo* CheckRun::defaultSensor(SensorType type) const {
    for (const SensorInfo& sensor : sensors()) {
        if (sensor.type == type) return &sensor;
    }
    return nullptr;
}

}  // namespace kelvane::tools::check
