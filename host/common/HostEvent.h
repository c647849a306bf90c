// What a host did and answered, as typed records: the one account a host backend gives of itself.
// Both backends write the same kinds at the same points (see HostEventLog); readers (the tool,
// tests) switch on the kind and read the fields. Text is made from an event only for display.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/time/time.h"

namespace kelvane::host::common {

enum class HostEventKind {
    // The connection with the container.
    kInstanceReady,     // the library's sensors instance arrived over the container bridge
    kInitSent,          // Init called on that instance
    kInitAnswered,      // ... and answered
    kClientRegistered,  // the library registered its sensor HAL client
    kServiceHandedOut,  // SetUpChannel: a sensor service handed to the client
    // The sensor service.
    kDeviceIdsAsked,           // GetDeviceIds; DeviceTypeAsked
    kDeviceListAsked,          // GetAllDeviceIds; DeviceList answered
    kNewDevicesObserverAdded,  // RegisterNewDevicesObserver
    // A device's handshake; step: which one.
    kStepAsked,     // AttributeNames for GetAttributes
    kStepAnswered,  // GetDevice: the device pipe is bound
    kStepStalled,   // the host holds the step unanswered, as configured
    kStepFailed,    // the host could not answer it; reason: why
    // A device's settings and stream.
    kTimeoutSet,             // SetTimeout; TimeoutMs; reason: set when the host could not apply it
    kFrequencyAsked,         // SetFrequency; Rate asked for
    kFrequencyAnswered,      // Rate answered; reason: set when it is not known to be the rate
                             // the device runs at
    kChannelsEnabled,        // SetChannelsEnabled; ChannelsSwitched
    kChannelsFailed,         // Channels: those SetChannelsEnabled reported failed
    kChannelsEnabledAsked,   // GetChannelsEnabled; Channels
    kChannelAttributeAsked,  // GetChannelsAttributes; ChannelAttribute
    kStartReadingAsked,      // StartReadingSamples
    kStopReadingAsked,       // StopReadingSamples
    kStreamStarted,          // the host started sending samples to an observer
    kStreamStopped,          // ... and stopped
    kSamplesSent,            // SampleCount; a run of them with no other event between is one
    kObserverError,          // OnErrorOccurred sent; ObserverError; reason: why
    // Pipes closed; pipe: which one.
    kClosedByHost,    // ServiceClosed for the service; reason: why, for a device
    kClosedByClient,  // the host saw the client's end go
    // The emulated host's timeline.
    kTimelineNotApplied,  // TimelineSkip; reason: why not
    // A replay: every recorded sample was sent and every timeline entry run.
    kReplayOver,
};

enum class HostStep { kNone, kGetDevice, kGetAllChannelIds, kGetAttributes };

enum class HostPipe {
    kNone,
    kVelBridgeHost,
    kIioSensorInstance,
    kIioSensorHost,
    kSensorHalClient,
    kSensorService,
    kSensorDevice,
    kObserver,
};

// What an event carries besides its kind, device, step and pipe: one of these, as its kind says.
struct DeviceTypeAsked {
    int32_t type;  // a DeviceType value, possibly one this side does not know
};
struct DeviceList {
    std::map<int32_t, std::vector<int32_t>> types;  // by device id: its DeviceType values
};
struct AttributeNames {
    std::vector<std::string> names;
};
struct TimeoutMs {
    uint32_t ms;
};
struct Rate {
    double hz;
};
struct Channels {
    std::vector<int32_t> indices;
};
struct ChannelsSwitched {
    std::vector<int32_t> indices;
    bool enable;
};
struct ChannelAttribute {
    std::vector<int32_t> indices;
    std::string attribute;
};
struct SampleCount {
    size_t count;
};
struct ObserverError {
    int32_t type;  // an ObserverErrorType value
};
struct ServiceClosed {
    uint32_t reason;
    std::string description;
};
struct TimelineSkip {
    int64_t atMs;        // when the entry was due
    std::string action;  // the entry's action, as a description names it
};

using HostEventPayload = std::variant<std::monostate, DeviceTypeAsked, DeviceList, AttributeNames,
                                      TimeoutMs, Rate, Channels, ChannelsSwitched, ChannelAttribute,
                                      SampleCount, ObserverError, ServiceClosed, TimelineSkip>;

bool operator==(const DeviceTypeAsked& a, const DeviceTypeAsked& b);
bool operator==(const DeviceList& a, const DeviceList& b);
bool operator==(const AttributeNames& a, const AttributeNames& b);
bool operator==(const TimeoutMs& a, const TimeoutMs& b);
bool operator==(const Rate& a, const Rate& b);
bool operator==(const Channels& a, const Channels& b);
bool operator==(const ChannelsSwitched& a, const ChannelsSwitched& b);
bool operator==(const ChannelAttribute& a, const ChannelAttribute& b);
bool operator==(const SampleCount& a, const SampleCount& b);
bool operator==(const ObserverError& a, const ObserverError& b);
bool operator==(const ServiceClosed& a, const ServiceClosed& b);
bool operator==(const TimelineSkip& a, const TimelineSkip& b);

struct HostEvent {
    HostEvent() = default;
    explicit HostEvent(HostEventKind k, int32_t onDevice = -1) : kind(k), device(onDevice) {}

    // Setters for writing an event in one expression.
    HostEvent& withStep(HostStep s) { return step = s, *this; }
    HostEvent& withPipe(HostPipe p) { return pipe = p, *this; }
    HostEvent& with(HostEventPayload p) { return payload = std::move(p), *this; }
    HostEvent& withReason(std::string r) { return reason = std::move(r), *this; }

    // The payload if it is a T, else null.
    template <typename T>
    const T* as() const {
        return std::get_if<T>(&payload);
    }

    HostEventKind kind = HostEventKind::kInstanceReady;
    int32_t device = -1;  // the host's device id, -1 where none
    HostStep step = HostStep::kNone;
    HostPipe pipe = HostPipe::kNone;
    HostEventPayload payload;
    std::string reason;    // why, in the host's own words (libiio's error text, say)
    base::TimeTicks time;  // set by the log
};

// The event as one line of the host's call log ("SensorDevice[3].SetFrequency 50"), for display.
std::string toText(const HostEvent& event);

// What a reader looks for: unset fields match anything.
struct HostEventPattern {
    HostEventPattern(HostEventKind k, std::optional<int32_t> onDevice = std::nullopt)  // NOLINT
        : kind(k), device(onDevice) {}
    HostEventPattern& withStep(HostStep s) { return step = s, *this; }
    HostEventPattern& withPipe(HostPipe p) { return pipe = p, *this; }
    HostEventPattern& with(HostEventPayload p) { return payload = std::move(p), *this; }
    // Matches only events `where` holds for.
    HostEventPattern& where(std::function<bool(const HostEvent&)> w) {
        return test = std::move(w), *this;
    }

    bool matches(const HostEvent& event) const;

    HostEventKind kind;
    std::optional<int32_t> device;
    std::optional<HostStep> step;
    std::optional<HostPipe> pipe;
    std::optional<HostEventPayload> payload;
    std::function<bool(const HostEvent&)> test;
};

}  // namespace kelvane::host::common
