#include "serve/SensorControls.h"

#include <utils/SystemClock.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "Output.h"
#include "check/SubHalFacts.h"

namespace kelvane::tools::serve {

namespace {

using android::hardware::sensors::V1_0::Result;

// The library's own default when the kinds table does not know the sensor.
constexpr double kFallbackDefaultHz = 50;

int64_t periodNs(double hz) { return std::llround(1e9 / hz); }

Reply libraryRefused(const std::string& call, Result result) {
    return refusal(502, "the library answered " + call + " with " + check::resultName(result));
}

}  // namespace

SensorControls::SensorControls(Session& session, EventStream& stream, Controller& controller)
    : mSession(session), mStream(stream), mController(controller) {
    for (const auto& sensor : session.sensors()) {
        const sensors::SensorKind* kind = sensorKind(sensor.type);
        SensorState& state = mSensors[sensor.sensorHandle];
        state.defaultHz = kind ? kind->defaultHz : kFallbackDefaultHz;
        if (kind) state.deviceType = static_cast<int32_t>(kind->deviceType);
    }
    takeAnswers();
    publish();
}

void SensorControls::setActive(int32_t handle, bool on, Done done) {
    mController.post([this, handle, on, done] { done(setActiveNow(handle, on)); });
}

void SensorControls::setRate(int32_t handle, std::optional<double> hz, Done done) {
    mController.post([this, handle, hz, done] { done(setRateNow(handle, hz)); });
}

void SensorControls::flush(int32_t handle, Done done) {
    mController.post([this, handle, done] { done(flushNow(handle)); });
}

SensorControls::SensorState* SensorControls::find(int32_t handle, Reply* reply) {
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

Reply SensorControls::setActiveNow(int32_t handle, bool on) {
    Reply reply;
    SensorState* sensor = find(handle, &reply);
    if (sensor == nullptr) return reply;
    const Result result = mSession.subHal()->activate(handle, on);
    if (result != Result::OK) {
        return libraryRefused(
            "activate(" + std::to_string(handle) + ", " + (on ? "true" : "false") + ")", result);
    }
    sensor->on = on;
    publish();
    return reply;
}

Reply SensorControls::setRateNow(int32_t handle, std::optional<double> hz) {
    Reply reply;
    SensorState* sensor = find(handle, &reply);
    if (sensor == nullptr) return reply;
    const int64_t period = periodNs(hz.value_or(sensor->defaultHz));
    const Result result = mSession.subHal()->batch(handle, period, 0);
    if (result != Result::OK) {
        return libraryRefused(
            "batch(" + std::to_string(handle) + ", " + std::to_string(period) + ", 0)", result);
    }
    sensor->askedHz = hz;
    publish();
    return reply;
}

Reply SensorControls::flushNow(int32_t handle) {
    Reply reply;
    SensorState* sensor = find(handle, &reply);
    if (sensor == nullptr) return reply;
    sensor->flushAskedNs = android::elapsedRealtimeNano();
    const Result result = mSession.subHal()->flush(handle);
    if (result != Result::OK) {
        sensor->flushAskedNs.reset();
        return libraryRefused("flush(" + std::to_string(handle) + ")", result);
    }
    publish();
    return reply;
}

void SensorControls::flushCompleted(int32_t handle, int64_t receivedNs) {
    mController.post([this, handle, receivedNs] {
        auto found = mSensors.find(handle);
        if (found == mSensors.end()) return;
        SensorState& sensor = found->second;
        ++sensor.flushes;
        if (sensor.flushAskedNs) sensor.lastFlushMs = (receivedNs - *sensor.flushAskedNs) / 1e6;
        sensor.flushAskedNs.reset();
        publish();
    });
}

void SensorControls::refreshAnswers() {
    mController.post([this] {
        if (takeAnswers()) publish();
    });
}

bool SensorControls::takeAnswers() {
    bool changed = false;
    for (auto& [handle, sensor] : mSensors) {
        if (!sensor.deviceType) continue;
        const std::optional<double> hz = mSession.hostWatch().answeredHz(*sensor.deviceType);
        changed = changed || hz != sensor.answeredHz;
        sensor.answeredHz = hz;
    }
    return changed;
}

void SensorControls::suspend(const std::string& why) {
    mController.runAndWait([this, why] {
        mOnBeforeSuspend.clear();
        for (auto& [handle, sensor] : mSensors) mOnBeforeSuspend[handle] = sensor.on;
        turnAllOff();
        mSuspended = why;
        publish();
    });
}

void SensorControls::resume() {
    mController.runAndWait([this] {
        mSuspended.clear();
        for (auto& [handle, sensor] : mSensors) {
            if (!mOnBeforeSuspend[handle]) continue;
            if (sensor.askedHz) mSession.subHal()->batch(handle, periodNs(*sensor.askedHz), 0);
            sensor.on = mSession.subHal()->activate(handle, true) == Result::OK;
        }
        publish();
    });
}

void SensorControls::switchAllOff() {
    mController.runAndWait([this] {
        turnAllOff();
        mSuspended = "the server is stopping";
    });
}

void SensorControls::turnAllOff() {
    for (auto& [handle, sensor] : mSensors) {
        if (sensor.on) mSession.subHal()->activate(handle, false);
        sensor.on = false;
    }
}

void SensorControls::publish() {
    nlohmann::json sensors = nlohmann::json::array();
    for (const auto& [handle, sensor] : mSensors) {
        // askedHz: null for the default rate; answeredHz: null while unknown.
        nlohmann::json entry = {
            {"handle", handle},       {"on", sensor.on},
            {"rateHz", nullptr},      {"askedHz", nullptr},
            {"answeredHz", nullptr},  {"flushPending", sensor.flushAskedNs.has_value()},
            {"lastFlushMs", nullptr}, {"flushes", sensor.flushes}};
        if (sensor.askedHz) entry["rateHz"] = entry["askedHz"] = *sensor.askedHz;
        if (sensor.lastFlushMs) entry["lastFlushMs"] = *sensor.lastFlushMs;
        if (sensor.answeredHz) entry["answeredHz"] = *sensor.answeredHz;
        sensors.push_back(std::move(entry));
    }
    nlohmann::json state = {{"sensors", std::move(sensors)}, {"suspended", mSuspended}};
    mStream.publishState("sensors", state.dump());
}

}  // namespace kelvane::tools::serve
