// What a host description says of its recorded samples, as the commands judge and show a replay.
// Made once, before the host runs, and read-only afterwards: any thread may read it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/description/HostConfig.h"

namespace kelvane::tools {

// A device of the description that replays recorded samples.
struct RecordedDevice {
    std::vector<int32_t> types;       // host device-type codes, host order
    std::vector<double> requestedHz;  // the SetFrequency requests it recorded, in order
    std::shared_ptr<const host::description::TimedSamples> samples;
    int32_t timestampChannel = -1;  // the index of its "timestamp" channel, -1 if none
};

struct ReplayFacts {
    // `speed`: how many times faster than recorded the host plays (0: no waiting).
    // `remoteClock`: the samples are stamped on another machine's clock.
    static ReplayFacts of(const host::description::HostConfig& config, double speed,
                          bool remoteClock);

    std::vector<RecordedDevice> devices;  // in description order
    bool replays = false;                 // some device has recorded samples to play
    double speed = 1.0;
    bool remoteClock = false;
    std::optional<int64_t> startBootTimeNs;  // the recording's start on its boot-time clock
};

}  // namespace kelvane::tools
