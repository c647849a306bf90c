// What a host did and answered, as typed records: the one account a host backend gives of itself.
// Both backends write the same kinds at the same points (see HostEventLog); readers (the tool,
// tests) switch on the kind and read the fields. Text is made from an event only for display.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
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
    kDeviceIdsAsked,           // GetDeviceIds; value: the device type asked for
    kDeviceListAsked,          // GetAllDeviceIds
    kNewDevicesObserverAdded,  // RegisterNewDevicesObserver
    // A device's handshake; step: which one.
    kStepAsked,     // detail: the attribute names asked for, for GetAttributes
    kStepAnswered,  // GetDevice: the device pipe is bound
    kStepStalled,   // the host holds the step unanswered, as configured
    kStepFailed,    // the host could not answer it; reason: why
    // A device's settings and stream.
    kTimeoutSet,             // SetTimeout; value: ms; reason: set when the host could not apply it
    kFrequencyAsked,         // SetFrequency; value: Hz asked for
    kFrequencyAnswered,      // value: Hz answered; reason: set when that is not known to be the
                             // rate the device runs at
    kChannelsEnabled,        // SetChannelsEnabled; channels; value: 1 to enable, 0 to disable
    kChannelsFailed,         // channels: those SetChannelsEnabled reported failed
    kChannelsEnabledAsked,   // GetChannelsEnabled; channels
    kChannelAttributeAsked,  // GetChannelsAttributes; channels; detail: the attribute
    kStartReadingAsked,      // StartReadingSamples
    kStopReadingAsked,       // StopReadingSamples
    kStreamStarted,          // the host started sending samples to an observer
    kStreamStopped,          // ... and stopped
    kSamplesSent,            // value: how many; a run of them with no other event between is one
    kObserverError,          // OnErrorOccurred sent; value: the ObserverErrorType; reason: why
    // Pipes closed; pipe: which one.
    kClosedByHost,    // value: the close reason and detail its description, for the service
    kClosedByClient,  // the host saw the client's end go
    // The emulated host's timeline.
    kTimelineNotApplied,  // detail: the action; value: its time in ms; reason: why not
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

struct HostEvent {
    HostEvent() = default;
    explicit HostEvent(HostEventKind k, int32_t onDevice = -1) : kind(k), device(onDevice) {}

    // Setters for writing an event in one expression.
    HostEvent& withStep(HostStep s) { return step = s, *this; }
    HostEvent& withPipe(HostPipe p) { return pipe = p, *this; }
    HostEvent& withValue(double v) { return value = v, *this; }
    HostEvent& withChannels(std::vector<int32_t> c) { return channels = std::move(c), *this; }
    HostEvent& withDetail(std::string d) { return detail = std::move(d), *this; }
    HostEvent& withReason(std::string r) { return reason = std::move(r), *this; }

    HostEventKind kind = HostEventKind::kInstanceReady;
    int32_t device = -1;  // the host's device id, -1 where none
    HostStep step = HostStep::kNone;
    HostPipe pipe = HostPipe::kNone;
    double value = 0.0;  // what the kind says: Hz, ms, a count, a type or error code
    std::vector<int32_t> channels;
    std::string detail;
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
    HostEventPattern& withValue(double v) { return value = v, *this; }

    bool matches(const HostEvent& event) const;

    HostEventKind kind;
    std::optional<int32_t> device;
    std::optional<HostStep> step;
    std::optional<HostPipe> pipe;
    std::optional<double> value;
};

}  // namespace kelvane::host::common
