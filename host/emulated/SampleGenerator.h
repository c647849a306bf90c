// The samples one opened device sends: its scripted samples in order, repeated, or smooth
// waveforms with raw values that a client scaling by the device's "scale" attribute reads as
// plausible physical values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "base/containers/flat_map.h"
#include "host/description/HostConfig.h"

namespace kelvane::host {

class SampleGenerator {
  public:
    using Sample = base::flat_map<int32_t, int64_t>;

    explicit SampleGenerator(const VirtualDevice& device);

    // The next scripted sample, or a generated one over the `enabled` channels (every channel
    // while none is enabled). The timestamp channel carries the boot-time clock at this call.
    // Valid until the next call: one buffer is reused, so a stream allocates nothing per sample.
    const Sample& next(const std::set<int32_t>& enabled);

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
    int64_t generate(size_t index, int64_t nowNs) const;

    std::vector<std::map<int32_t, int64_t>> mScript;
    size_t mNextScripted = 0;
    std::vector<Wave> mWaves;  // by channel index
    Sample mSample;            // what next() returned last
    double mScale = 1.0;       // unit per raw step
};

}  // namespace kelvane::host
