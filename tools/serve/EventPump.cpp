#include "serve/EventPump.h"

#include <utils/SystemClock.h>

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Output.h"
#include "check/SubHalFacts.h"

namespace kelvane::tools::serve {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kBatchInterval{50};
constexpr milliseconds kStatsInterval{500};
// A sensor with no event for this long shows no figures rather than stale ones.
constexpr int64_t kStaleNs = 2'000'000'000;

void appendNumber(std::string& list, const std::string& number) {
    if (!list.empty()) list += ',';
    list += number;
}

nlohmann::json optionalNumber(const std::optional<double>& value) {
    return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

}  // namespace

EventPump::EventPump(Session& session, EventStream& stream, SensorControls& controls,
                     int64_t originNs)
    : mSession(session), mStream(stream), mControls(controls), mOriginNs(originNs), mThread([this] {
          run();
      }) {}

EventPump::~EventPump() { stop(); }

void EventPump::pause() {
    base::AutoLock lock(mMutex);
    mPaused = true;
    while (mTaking) mIdle.Wait();
}

void EventPump::resume() {
    base::AutoLock lock(mMutex);
    mPaused = false;
}

void EventPump::stop() {
    {
        base::AutoLock lock(mMutex);
        mStopping = true;
    }
    mWake.Broadcast();
    if (mThread.joinable()) mThread.join();
}

void EventPump::run() {
    auto nextBatch = Clock::now() + kBatchInterval;
    auto nextStats = Clock::now();
    for (;;) {
        {
            base::AutoLock lock(mMutex);
            while (!mStopping && mWake.WaitUntil(nextBatch)) {
            }
            if (mStopping) break;
        }
        takeAndPublish();
        const auto now = Clock::now();
        nextBatch = std::max(nextBatch + kBatchInterval, now);
        if (now >= nextStats) {
            publishStats();
            publishHostIfChanged();
            mControls.refreshAnswers();
            nextStats = now + kStatsInterval;
        }
    }
    takeAndPublish();
    publishStats();
}

void EventPump::takeAndPublish() {
    {
        base::AutoLock lock(mMutex);
        if (mPaused) return;
        mTaking = true;
    }
    takeEvents();
    {
        base::AutoLock lock(mMutex);
        mTaking = false;
    }
    mIdle.Broadcast();
}

void EventPump::takeEvents() {
    std::vector<int64_t> receivedNs;
    const std::vector<Event> events =
        mSession.callback().queue().takeUntil(Clock::now(), &receivedNs);
    for (size_t i = 0; i < events.size(); ++i) {
        const Event& event = events[i];
        if (isMeta(event)) {
            if (check::isFlushComplete(event, event.sensorHandle)) {
                mControls.flushCompleted(event.sensorHandle, receivedNs[i]);
            }
            continue;
        }
        if (mSession.find(event.sensorHandle) == nullptr) continue;  // the proxy drops it
        Sensor& sensor = mSensors[event.sensorHandle];
        sensor.axes = isThreeAxis(event) ? 3 : 1;
        ++sensor.total;
        sensor.stats.add(event.timestamp, receivedNs[i]);
        sensor.lastReceivedNs = receivedNs[i];
        char time[32];
        std::snprintf(time, sizeof(time), "%.6f", (event.timestamp - mOriginNs) / 1e9);
        appendNumber(sensor.times, time);
        for (int axis = 0; axis < sensor.axes; ++axis) {
            appendNumber(sensor.values[axis], formatFloat(event.u.data[axis]));
        }
    }

    std::string sensors;
    for (auto& [handle, sensor] : mSensors) {
        if (sensor.times.empty()) continue;
        if (!sensors.empty()) sensors += ',';
        sensors += "{\"handle\":" + std::to_string(handle) +
                   ",\"total\":" + std::to_string(sensor.total) + ",\"t\":[" + sensor.times +
                   "],\"v\":[";
        for (int axis = 0; axis < sensor.axes; ++axis) {
            sensors += (axis == 0 ? "[" : ",[") + sensor.values[axis] + "]";
            sensor.values[axis].clear();
        }
        sensors += "]}";
        sensor.times.clear();
    }
    if (!sensors.empty()) mStream.publish(sseFrame("samples", "{\"sensors\":[" + sensors + "]}"));
}

void EventPump::publishStats() {
    const int64_t now = android::elapsedRealtimeNano();
    // A replay's timestamps are the recording's own: its latency means nothing.
    const bool replay = mSession.replays();
    nlohmann::json sensors = nlohmann::json::array();
    for (auto& [handle, sensor] : mSensors) {
        if (now - sensor.lastReceivedNs > kStaleNs) sensor.stats.reset();
        const LiveFigures figures = sensor.stats.figures();
        sensors.push_back(
            {{"handle", handle},
             {"events", sensor.total},
             {"rateHz", optionalNumber(figures.rateHz)},
             {"intervalMs", optionalNumber(figures.intervalMs)},
             {"jitterMs", optionalNumber(figures.jitterMs)},
             {"latencyP50Ms", replay ? nullptr : optionalNumber(figures.latencyP50Ms)},
             {"latencyP99Ms", replay ? nullptr : optionalNumber(figures.latencyP99Ms)}});
    }
    mStream.publishState("stats", nlohmann::json{{"sensors", std::move(sensors)}}.dump());
}

void EventPump::publishHostIfChanged() {
    HostWatch& watch = mSession.hostWatch();
    nlohmann::json host = {
        {"problems", watch.problems()}, {"lost", nullptr}, {"replayOver", watch.replayOver()}};
    if (auto lost = watch.hostLost()) host["lost"] = *lost;
    const std::string json = host.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    if (json == mHostJson) return;
    mHostJson = json;
    mStream.publishState("host", json);
}

}  // namespace kelvane::tools::serve
