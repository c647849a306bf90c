#include "serve/SensorControls.h"

#include <utils/SystemClock.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "check/SubHalFacts.h"

namespace kelvane::tools::serve {

using android::hardware::sensors::V1_0::Result;

SensorControls::SensorControls(Session& session, EventStream& stream)
    : mSession(session), mStream(stream) {
    for (const auto& sensor : session.sensors()) mSensors[sensor.sensorHandle];
}

SensorControls::SensorState* SensorControls::findLocked(int32_t handle, Reply* reply) {
    auto found = mSensors.find(handle);
    if (found == mSensors.end()) {
        *reply = refusal(404, "no sensor has handle " + std::to_string(handle));
        return nullptr;
    }
    if (!mSuspended.empty()) {
        *reply = refusal(409, mSuspended);
        return nullptr;
    }
    return &found->second;
}

Reply SensorControls::setActive(int32_t handle, bool on) {
    std::lock_guard<std::mutex> lock(mMutex);
    Reply reply;
    SensorState* sensor = findLocked(handle, &reply);
    if (sensor == nullptr) return reply;
    const Result result = mSession.subHal()->activate(handle, on);
    if (result != Result::OK) {
        return refusal(502, "activate(" + std::to_string(handle) + ", " + (on ? "true" : "false") +
                                ") answered " + check::resultName(result));
    }
    sensor->on = on;
    publishLocked();
    return reply;
}

Reply SensorControls::setRate(int32_t handle, double hz) {
    std::lock_guard<std::mutex> lock(mMutex);
    Reply reply;
    SensorState* sensor = findLocked(handle, &reply);
    if (sensor == nullptr) return reply;
    const int64_t periodNs = std::llround(1e9 / hz);
    const Result result = mSession.subHal()->batch(handle, periodNs, 0);
    if (result != Result::OK) {
        return refusal(502, "batch(" + std::to_string(handle) + ", " + std::to_string(periodNs) +
                                ", 0) answered " + check::resultName(result));
    }
    sensor->rateHz = hz;
    publishLocked();
    return reply;
}

Reply SensorControls::flush(int32_t handle) {
    std::lock_guard<std::mutex> lock(mMutex);
    Reply reply;
    SensorState* sensor = findLocked(handle, &reply);
    if (sensor == nullptr) return reply;
    sensor->flushAskedNs = android::elapsedRealtimeNano();
    const Result result = mSession.subHal()->flush(handle);
    if (result != Result::OK) {
        sensor->flushAskedNs.reset();
        return refusal(
            502, "flush(" + std::to_string(handle) + ") answered " + check::resultName(result));
    }
    publishLocked();
    return reply;
}

void SensorControls::flushCompleted(int32_t handle, int64_t receivedNs) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto found = mSensors.find(handle);
    if (found == mSensors.end()) return;
    SensorState& sensor = found->second;
    ++sensor.flushes;
    if (sensor.flushAskedNs) sensor.lastFlushMs = (receivedNs - *sensor.flushAskedNs) / 1e6;
    sensor.flushAskedNs.reset();
    publishLocked();
}

void SensorControls::suspend(const std::string& why) {
    std::lock_guard<std::mutex> lock(mMutex);
    mOnBeforeSuspend.clear();
    for (auto& [handle, sensor] : mSensors) {
        mOnBeforeSuspend[handle] = sensor.on;
        if (sensor.on) mSession.subHal()->activate(handle, false);
        sensor.on = false;
    }
    mSuspended = why;
    publishLocked();
}

void SensorControls::resume() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSuspended.clear();
    for (auto& [handle, sensor] : mSensors) {
        if (!mOnBeforeSuspend[handle]) continue;
        if (sensor.rateHz) {
            mSession.subHal()->batch(handle, std::llround(1e9 / *sensor.rateHz), 0);
        }
        sensor.on = mSession.subHal()->activate(handle, true) == Result::OK;
    }
    publishLocked();
}

void SensorControls::switchAllOff() {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& [handle, sensor] : mSensors) {
        if (sensor.on) mSession.subHal()->activate(handle, false);
        sensor.on = false;
    }
    mSuspended = "the server is stopping";
}

std::string SensorControls::stateJsonLocked() const {
    nlohmann::json sensors = nlohmann::json::array();
    for (const auto& [handle, sensor] : mSensors) {
        nlohmann::json entry = {
            {"handle", handle},       {"on", sensor.on},
            {"rateHz", nullptr},      {"flushPending", sensor.flushAskedNs.has_value()},
            {"lastFlushMs", nullptr}, {"flushes", sensor.flushes}};
        if (sensor.rateHz) entry["rateHz"] = *sensor.rateHz;
        if (sensor.lastFlushMs) entry["lastFlushMs"] = *sensor.lastFlushMs;
        sensors.push_back(std::move(entry));
    }
    nlohmann::json state = {{"sensors", std::move(sensors)}, {"suspended", mSuspended}};
    return state.dump();
}

void SensorControls::publishLocked() { mStream.publish(sseFrame("sensors", stateJsonLocked())); }

void SensorControls::sendStateTo(EventStream::Subscriber& subscriber) const {
    std::lock_guard<std::mutex> lock(mMutex);
    subscriber.send(sseFrame("sensors", stateJsonLocked()));
}

}  // namespace kelvane::tools::serve
