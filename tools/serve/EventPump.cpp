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
    std::lock_guard<std::mutex> lock(mTakeMutex);
    mPaused = true;
}

void EventPump::resume() {
    std::lock_guard<std::mutex> lock(mTakeMutex);
    mPaused = false;
}

void EventPump::stop() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
    }
    mWake.notify_all();
    if (mThread.joinable()) mThread.join();
}

void EventPump::sendStateTo(EventStream::Subscriber& subscriber) const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mHostJson.empty()) subscriber.send(sseFrame("host", mHostJson));
    if (!mStatsJson.empty()) subscriber.send(sseFrame("stats", mStatsJson));
}

void EventPump::run() {
    auto nextBatch = Clock::now() + kBatchInterval;
    auto nextStats = Clock::now();
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mWake.wait_until(lock, nextBatch, [this] { return mStopping; });
            if (mStopping) break;
        }
        takeAndPublish();
        const auto now = Clock::now();
        nextBatch = std::max(nextBatch + kBatchInterval, now);
        if (now >= nextStats) {
            publishStats();
            publishHostIfChanged();
            nextStats = now + kStatsInterval;
        }
    }
    takeAndPublish();
    publishStats();
}

void EventPump::takeAndPublish() {
    std::lock_guard<std::mutex> lock(mTakeMutex);
    if (mPaused) return;
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
    nlohmann::json sensors = nlohmann::json::array();
    for (auto& [handle, sensor] : mSensors) {
        if (now - sensor.lastReceivedNs > kStaleNs) sensor.stats.reset();
        const LiveFigures figures = sensor.stats.figures();
        sensors.push_back({{"handle", handle},
                           {"events", sensor.total},
                           {"rateHz", optionalNumber(figures.rateHz)},
                           {"intervalMs", optionalNumber(figures.intervalMs)},
                           {"jitterMs", optionalNumber(figures.jitterMs)},
                           {"latencyP50Ms", optionalNumber(figures.latencyP50Ms)},
                           {"latencyP99Ms", optionalNumber(figures.latencyP99Ms)}});
    }
    const std::string json = nlohmann::json{{"sensors", std::move(sensors)}}.dump();
    std::lock_guard<std::mutex> lock(mMutex);
    mStatsJson = json;
    mStream.publish(sseFrame("stats", json));
}

void EventPump::publishHostIfChanged() {
    HostWatch& watch = mSession.hostWatch();
    nlohmann::json host = {
        {"problems", watch.problems()}, {"lost", nullptr}, {"replayOver", watch.replayOver()}};
    if (auto lost = watch.hostLost()) host["lost"] = *lost;
    const std::string json = host.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::lock_guard<std::mutex> lock(mMutex);
    if (json == mHostJson) return;
    mHostJson = json;
    mStream.publish(sseFrame("host", json));
}

}  // namespace kelvane::tools::serve
