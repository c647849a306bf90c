#include "host/emulated/SampleGenerator.h"

#include <time.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>

namespace kelvane::host::emulated {
namespace {

constexpr double kPi = 3.14159265358979323846;

bool startsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

// 0, 1, 2 for the "_x", "_y", "_z" suffixes; -1 otherwise.
int axisOf(const std::string& channel) {
    if (channel.size() < 2 || channel[channel.size() - 2] != '_') return -1;
    switch (channel.back()) {
        case 'x':
            return 0;
        case 'y':
            return 1;
        case 'z':
            return 2;
        default:
            return -1;
    }
}

// The device's "scale" attribute when it is a usable number, else 1.
double scaleOf(const description::VirtualDevice& device) {
    auto it = device.attributes.find("scale");
    if (it == device.attributes.end() || !it->second || it->second->empty()) return 1.0;
    const char* text = it->second->c_str();
    char* end = nullptr;
    errno = 0;
    double value = std::strtod(text, &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(value) || value == 0.0) return 1.0;
    return value;
}

// The offset from the boot-time clock to `clock` now.
int64_t clockOffsetNs(description::TimestampClock clock) {
    if (clock == description::TimestampClock::kBoottime) return 0;
    timespec boot{};
    timespec other{};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    clock_gettime(
        clock == description::TimestampClock::kRealtime ? CLOCK_REALTIME : CLOCK_MONOTONIC, &other);
    return (int64_t{other.tv_sec} - boot.tv_sec) * 1000000000 + (other.tv_nsec - boot.tv_nsec);
}

}  // namespace

SampleGenerator::SampleGenerator(const description::VirtualDevice& device)
    : mScript(device.samples),
      mScale(scaleOf(device)),
      mFaults(device.faults),
      mRandom(static_cast<uint64_t>(device.id) * 0x9E3779B97F4A7C15ull + 1) {
    mWaves.reserve(device.channels.size());
    for (size_t i = 0; i < device.channels.size(); ++i) {
        Wave wave = waveFor(device.channels[i], i);
        // Devices of the same kind should not move in lockstep.
        wave.phase += 0.7 * static_cast<double>(device.id);
        mWaves.push_back(wave);
        auto stuck = mFaults.stuck.find(device.channels[i]);
        mStuck.push_back(stuck == mFaults.stuck.end() ? std::nullopt
                                                      : std::optional<double>(stuck->second));
        auto noise = mFaults.noise.find(device.channels[i]);
        mNoise.push_back(noise == mFaults.noise.end() ? 0.0 : noise->second);
    }
}

SampleGenerator::Wave SampleGenerator::waveFor(const std::string& channel, size_t index) {
    Wave w;
    const int axis = axisOf(channel);
    const double a = axis < 0 ? 0.0 : static_cast<double>(axis);
    w.period = 2.0 + 0.9 * a;
    w.phase = 1.3 * a;
    if (channel == "timestamp") {
        w.timestamp = true;
    } else if (startsWith(channel, "accel")) {
        // m/s^2: a device lying flat, gently shaken.
        w.base = axis == 2 ? 9.8 : 0.0;
        w.amplitude = axis == 2 ? 0.15 : 0.3;
    } else if (startsWith(channel, "anglvel")) {
        w.amplitude = 0.05;  // rad/s
    } else if (startsWith(channel, "magn")) {
        // µT, the unit Android reports: the earth's field, about 43 µT in total (25 to 65 on
        // the earth's surface), slowly turning.
        static constexpr double kField[3] = {20.0, -15.0, -35.0};
        w.base = axis < 0 ? 30.0 : kField[axis];
        w.amplitude = 3.0;
        w.period = 7.0 + a;
    } else if (startsWith(channel, "gravity")) {
        // m/s^2: a slowly tilting device.
        w.base = axis == 2 ? 9.75 : 0.0;
        w.amplitude = axis == 2 ? 0.05 : (axis == 0 ? 1.0 : 0.5);
        w.period = 5.0 + a;
    } else if (startsWith(channel, "illuminance")) {
        w.base = 550.0;  // lux, between 100 and 1000
        w.amplitude = 450.0;
        w.period = 20.0;
    } else {
        w.amplitude = 100.0;
        w.phase = static_cast<double>(index);
    }
    return w;
}

int64_t SampleGenerator::timestamp(int64_t sampleTimeNs) {
    int64_t stamp = sampleTimeNs + clockOffsetNs(mFaults.clock) +
                    std::chrono::nanoseconds(mFaults.timestampOffset).count();
    if (mFaults.jitter.count() > 0) {
        const int64_t jitterNs = std::chrono::nanoseconds(mFaults.jitter).count();
        stamp -= std::uniform_int_distribution<int64_t>(0, jitterNs)(mRandom);
    }
    return stamp;
}

int64_t SampleGenerator::generate(size_t index, int64_t nowNs) {
    const Wave& w = mWaves[index];
    if (w.timestamp) return timestamp(nowNs);
    const double t = static_cast<double>(nowNs) / 1e9;
    double value = w.base + w.amplitude * std::sin(2.0 * kPi * t / w.period + w.phase);
    if (mStuck[index]) value = *mStuck[index];
    if (mNoise[index] > 0.0) value += std::normal_distribution<double>(0.0, mNoise[index])(mRandom);
    const double raw = std::round(value / mScale);
    // A tiny scale must not push the raw value past what int64 holds.
    constexpr int64_t kLimit = int64_t{1} << 62;
    if (!(std::fabs(raw) < static_cast<double>(kLimit))) return raw < 0 ? -kLimit : kLimit;
    return static_cast<int64_t>(raw);
}

const SampleGenerator::Sample& SampleGenerator::next(const std::set<int32_t>& enabled,
                                                     int64_t sampleTimeNs) {
    // Keys go in ascending, so every insertion appends to the reused buffer.
    mSample.clear();
    if (!mScript.empty()) {
        const std::map<int32_t, int64_t>& scripted = mScript[mNextScripted];
        mNextScripted = (mNextScripted + 1) % mScript.size();
        for (const auto& entry : scripted) mSample.insert(mSample.end(), entry);
        return mSample;
    }
    for (size_t i = 0; i < mWaves.size(); ++i) {
        const int32_t index = static_cast<int32_t>(i);
        if (!enabled.empty() && enabled.count(index) == 0) continue;
        mSample.insert(mSample.end(), {index, generate(i, sampleTimeNs)});
    }
    return mSample;
}

}  // namespace kelvane::host::emulated
