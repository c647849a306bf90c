// The samples one opened device sends: its scripted samples in order, repeated, or smooth
// waveforms with raw values that a client scaling by the device's "scale" attribute reads as
// plausible physical values, shaped by the device's configured faults (stuck or noisy channels,
// a jittered, offset or foreign timestamp clock).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <vector>

#include "base/containers/flat_map.h"
#include "host/description/HostConfig.h"

namespace kelvane::host::emulated {

class SampleGenerator {
  public:
    using Sample = base::flat_map<int32_t, int64_t>;

    explicit SampleGenerator(const description::VirtualDevice& device);

    // The next scripted sample, or a generated one over the `enabled` channels (every channel
    // while none is enabled) taken at `sampleTimeNs` on the boot-time clock, which its timestamp
    // channel carries (as the faults shape it), the way a device stamps a sample when it is
    // taken rather than when it is sent. Valid until the next call: one buffer is reused, so a
    // stream allocates nothing per sample.
    const Sample& next(const std::set<int32_t>& enabled, int64_t sampleTimeNs);

  private:
    // value(t) = base + amplitude * sin(2 pi t / period + phase), in the channel's unit.
    struct Wave {
        bool timestamp = false;
        double base = 0.0;
        double amplitude = 0.0;
        double period = 1.0;  // seconds
        double phase = 0.0;
    };

    static Wave waveFor(const std::string& channel, size_t index);
    int64_t generate(size_t index, int64_t nowNs);
    int64_t timestamp(int64_t sampleTimeNs);

    std::vector<std::map<int32_t, int64_t>> mScript;
    size_t mNextScripted = 0;
    std::vector<Wave> mWaves;  // by channel index
    Sample mSample;            // what next() returned last
    double mScale = 1.0;       // unit per raw step
    description::StreamFaults mFaults;
    std::vector<std::optional<double>> mStuck;  // by channel index
    std::vector<double> mNoise;                 // by channel index; 0: none
    std::mt19937_64 mRandom;                    // jitter and noise, seeded by the device id
};

}  // namespace kelvane::host::emulated
