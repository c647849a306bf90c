#include "ReplayFacts.h"

#include <utility>

namespace kelvane::tools {

ReplayFacts ReplayFacts::of(const host::description::HostConfig& config, double speed,
                            bool remoteClock) {
    ReplayFacts facts;
    facts.speed = speed;
    facts.remoteClock = remoteClock;
    facts.startBootTimeNs = config.startBootTimeNs;
    for (const host::description::VirtualDevice& device : config.devices) {
        if (!device.timedSamples) continue;
        facts.replays = facts.replays || device.timedSamples->size() != 0;
        RecordedDevice recorded{device.types, {}, device.timedSamples, -1};
        for (const auto& answer : device.frequencyAnswers) {
            recorded.requestedHz.push_back(answer.first);
        }
        for (size_t i = 0; i < device.channels.size(); ++i) {
            if (device.channels[i] == "timestamp") {
                recorded.timestampChannel = static_cast<int32_t>(i);
            }
        }
        facts.devices.push_back(std::move(recorded));
    }
    return facts;
}

}  // namespace kelvane::tools
