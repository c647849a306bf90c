// What the emulated host serves and what it does over time: plain configuration, no behaviour.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::host {

// A handshake step the device never answers.
enum class Stall { kNone, kDevice, kChannels, kAttributes };

// Where the device closes its SensorDevice pipe instead of answering.
enum class CloseAt { kNever, kOnGetDevice, kOnChannels, kOnAttributes, kAfterAttributes };

// One IIO device of the host.
struct VirtualDevice {
    int32_t id = 0;
    std::vector<int32_t> types;         // host device-type codes, host order
    std::vector<std::string> channels;  // channel ids, host order (index = position)
    std::map<std::string, std::optional<std::string>> attributes;  // missing key or nullopt: absent
    // Raw samples played in order and repeated; empty: generated waveforms.
    std::vector<std::map<int32_t, int64_t>> samples;
    std::optional<double> maxFrequency;  // SetFrequency answers min(requested, max)
    std::vector<int32_t> failChannels;   // indices SetChannelsEnabled reports as failed
    Stall stall = Stall::kNone;
    CloseAt closeAt = CloseAt::kNever;
    std::chrono::milliseconds replyDelay{
        0};  // every handshake reply (channels, attributes) is late
};

enum class TimelineAction { kObserverError, kCloseDevice, kCloseService, kTabletMode };

// Something the host does by itself, `at` after the client set up its devices through the
// SensorService of a SetUpChannel: the device list answered and the handshake of every device the
// client opens over (answered, or stalled or closed as configured).
struct TimelineEvent {
    std::chrono::milliseconds at{0};
    TimelineAction action = TimelineAction::kTabletMode;
    int32_t device = -1;  // kObserverError, kCloseDevice
    int32_t error = 0;    // kObserverError: ObserverErrorType value
    uint32_t reason = 0;  // kCloseService
    std::string description;
    bool on = false;  // kTabletMode
};

struct HostConfig {
    uint32_t bridgeVersion = 54;
    std::vector<VirtualDevice> devices;
    std::vector<TimelineEvent> timeline;
    bool autoSetUpChannel = true;  // call SetUpChannel as soon as RegisterSensorHalClient arrives
    bool stream = true;  // stream by timer after StartReadingSamples; false: pushSample only
};

}  // namespace kelvane::host
