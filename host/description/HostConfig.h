// A host description's contents: which IIO devices a host serves and what it does to them over
// time. Plain data, no behaviour: the emulated host serves it, the recorder builds one from what a
// real host served, DescriptionReader and DescriptionWriter turn it into text and back.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hardware/sensors/mojom/sensor_kinds.h"
#include "hardware/sensors/mojom/vel.mojom.h"

namespace kelvane::host::description {

// A handshake step the device never answers.
enum class Stall { kNone, kDevice, kChannels, kAttributes };

// Where the device closes its SensorDevice pipe instead of answering.
enum class CloseAt { kNever, kOnGetDevice, kOnChannels, kOnAttributes, kAfterAttributes };

// Samples as a host sent them: each is sent once, at its time. Rows are stored flat, one value per
// column, so that a long recording costs a few bytes a value rather than a map node each.
struct TimedSamples {
    std::vector<int32_t> channels;  // the channel index of each column
    std::vector<int64_t> atUs;      // per sample: when it is due, microseconds after SetUpChannel
    std::vector<int64_t> values;    // per sample: one value per column
    std::vector<bool> present;      // like `values`: false where the sample lacks that channel
    // Ascending indices of samples the host sent to a new observer: the client had started
    // reading again (after an observer error, say). Each waits for a new reader on replay.
    std::vector<size_t> restarts;

    size_t size() const { return atUs.size(); }
};

// The clock a device's timestamp channel reads. Android stamps events on the boot-time clock;
// an IIO device left at the kernel's default stamps them on the real-time clock.
enum class TimestampClock { kBoottime, kRealtime, kMonotonic };

// How a device's stream departs from a good driver's, for conformance rules to catch. Drops and
// the rate factor act on every stream of the device; the rest shape generated samples only.
struct StreamFaults {
    // Each timestamp is up to this much earlier than its sample's time, uniformly at random.
    std::chrono::microseconds jitter{0};
    uint32_t dropEvery = 0;  // every Nth sample of a stream is not sent; 0: none
    // A burst: samples due from `dropFrom` to `dropFrom + dropFor` after each stream's start are
    // not sent.
    std::chrono::microseconds dropFrom{0};
    std::chrono::microseconds dropFor{0};
    double rateFactor = 1.0;  // the stream runs at the rate answered times this
    TimestampClock clock = TimestampClock::kBoottime;
    std::chrono::microseconds timestampOffset{0};  // added to every timestamp
    std::map<std::string, double> stuck;  // channel id -> what it always reads, in its unit
    std::map<std::string, double> noise;  // channel id -> sigma of added Gaussian noise, its unit

    bool any() const;
};

// One IIO device of the host.
struct VirtualDevice {
    int32_t id = 0;
    std::vector<int32_t> types;         // host device-type codes, host order
    std::vector<std::string> channels;  // channel ids, host order (index = position)
    std::map<std::string, std::optional<std::string>> attributes;  // missing key or nullopt: absent
    // Raw samples played in order and repeated; empty: generated waveforms.
    std::vector<std::map<int32_t, int64_t>> samples;
    // Recorded samples, played once at their times instead of `samples` or waveforms. Shared:
    // every opened endpoint of the device reads the same rows.
    std::shared_ptr<const TimedSamples> timedSamples;
    // SetFrequency answers recorded from a host: {requested, answered}. A request found here gets
    // its recorded answer; any other is answered by the maxFrequency rule.
    std::vector<std::pair<double, double>> frequencyAnswers;
    std::optional<double> maxFrequency;  // SetFrequency answers min(requested, max)
    std::vector<int32_t> failChannels;   // indices SetChannelsEnabled reports as failed
    Stall stall = Stall::kNone;
    CloseAt closeAt = CloseAt::kNever;
    std::chrono::milliseconds replyDelay{
        0};  // every handshake reply (channels, attributes) is late
    StreamFaults faults;
};

enum class TimelineAction { kObserverError, kCloseDevice, kCloseService, kTabletMode };

// Something the host does by itself, `at` after the client set up its devices through the
// SensorService of a SetUpChannel: the device list answered and the handshake of every device the
// client opens over (answered, or stalled or closed as configured).
struct TimelineEvent {
    std::chrono::microseconds at{0};
    TimelineAction action = TimelineAction::kTabletMode;
    int32_t device = -1;  // kObserverError, kCloseDevice
    int32_t error = 0;    // kObserverError: ObserverErrorType value
    uint32_t reason = 0;  // kCloseService
    std::string description;
    bool on = false;  // kTabletMode
};

struct HostConfig {
    uint32_t bridgeVersion = vel::mojom::kBridgeVersion;
    // The device types a client opens: those the sub-HAL publishes (the served sensor kinds)
    // unless a description models another client. The timeline and
    // recorded samples start once every listed device of one of these types is set up.
    std::vector<int32_t> clientTypes = sensors::servedDeviceTypes();
    // A recording's: the boot-time clock of the machine that recorded it at the moment its times
    // count from, so that a sample's send time reads on that clock. Only where the samples'
    // timestamps were on that clock too (not a remote board's).
    std::optional<int64_t> startBootTimeNs;
    std::vector<VirtualDevice> devices;
    std::vector<TimelineEvent> timeline;
    bool autoSetUpChannel = true;  // call SetUpChannel as soon as RegisterSensorHalClient arrives
    bool stream = true;  // stream by timer after StartReadingSamples; false: pushSample only
    // Host time runs this many times faster: recorded sample times and the timeline are divided
    // by it. 0: no waiting at all, recorded samples go out as fast as they can be sent.
    double speed = 1.0;
};

// Equality of every field, for round trips; a new field joins its struct's comparison.
inline bool operator==(const TimedSamples& a, const TimedSamples& b) {
    return a.channels == b.channels && a.atUs == b.atUs && a.values == b.values &&
           a.present == b.present && a.restarts == b.restarts;
}

inline bool operator==(const StreamFaults& a, const StreamFaults& b) {
    return a.jitter == b.jitter && a.dropEvery == b.dropEvery && a.dropFrom == b.dropFrom &&
           a.dropFor == b.dropFor && a.rateFactor == b.rateFactor && a.clock == b.clock &&
           a.timestampOffset == b.timestampOffset && a.stuck == b.stuck && a.noise == b.noise;
}

inline bool StreamFaults::any() const { return !(*this == StreamFaults()); }

inline bool operator==(const VirtualDevice& a, const VirtualDevice& b) {
    const bool sameTimed = a.timedSamples == b.timedSamples ||
                           (a.timedSamples && b.timedSamples && *a.timedSamples == *b.timedSamples);
    return a.id == b.id && a.types == b.types && a.channels == b.channels &&
           a.attributes == b.attributes && a.samples == b.samples && sameTimed &&
           a.frequencyAnswers == b.frequencyAnswers && a.maxFrequency == b.maxFrequency &&
           a.failChannels == b.failChannels && a.stall == b.stall && a.closeAt == b.closeAt &&
           a.replyDelay == b.replyDelay && a.faults == b.faults;
}

inline bool operator==(const TimelineEvent& a, const TimelineEvent& b) {
    return a.at == b.at && a.action == b.action && a.device == b.device && a.error == b.error &&
           a.reason == b.reason && a.description == b.description && a.on == b.on;
}

inline bool operator==(const HostConfig& a, const HostConfig& b) {
    return a.bridgeVersion == b.bridgeVersion && a.clientTypes == b.clientTypes &&
           a.startBootTimeNs == b.startBootTimeNs && a.devices == b.devices &&
           a.timeline == b.timeline && a.autoSetUpChannel == b.autoSetUpChannel &&
           a.stream == b.stream && a.speed == b.speed;
}

}  // namespace kelvane::host::description
