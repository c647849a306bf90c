#include "host/emulated/SampleGenerator.h"

#include <time.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>

#include "hardware/sensors/mojom/sensor_kinds.h"

namespace kelvane::host::emulated {
namespace {

constexpr double kPi = 3.14159265358979323846;

// How the values of a kind's axes move, in the kind's unit: base + amplitude * sin(...), with a
// period of periodS + periodPerAxisS * axis seconds.
struct Motion {
    sensors::DeviceType type;
    double base[3];
    double amplitude[3];
    double periodS;
    double periodPerAxisS;
};
constexpr Motion kMotions[] = {
    // A device lying flat, gently shaken.
    {sensors::DeviceType::ACCEL, {0.0, 0.0, 9.8}, {0.3, 0.3, 0.15}, 2.0, 0.9},
    {sensors::DeviceType::ANGLVEL, {0.0, 0.0, 0.0}, {0.05, 0.05, 0.05}, 2.0, 0.9},
    // Between 100 and 1000 lux.
    {sensors::DeviceType::LIGHT, {550.0, 0.0, 0.0}, {450.0, 0.0, 0.0}, 20.0, 0.0},
    // The earth's field, about 43 µT in total (25 to 65 on the earth's surface), slowly turning.
    {sensors::DeviceType::MAGN, {20.0, -15.0, -35.0}, {3.0, 3.0, 3.0}, 7.0, 1.0},
    // A slowly tilting device.
    {sensors::DeviceType::GRAVITY, {0.0, 0.0, 9.75}, {1.0, 0.5, 0.05}, 5.0, 1.0},
};

const Motion* motionOf(const sensors::SensorKind& kind) {
    for (const Motion& motion : kMotions) {
        if (motion.type == kind.deviceType) return &motion;
    }
    return nullptr;
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
    size_t axis = 0;
    const sensors::SensorKind* kind = sensors::kindOfChannel(channel, &axis);
    const Motion* motion = kind != nullptr ? motionOf(*kind) : nullptr;
    const double a = static_cast<double>(axis);
    w.phase = 1.3 * a;
    if (channel == "timestamp") {
        w.timestamp = true;
    } else if (motion != nullptr) {
        w.base = motion->base[axis];
        w.amplitude = motion->amplitude[axis];
        w.period = motion->periodS + motion->periodPerAxisS * a;
    } else {
        w.period = 2.0;
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
