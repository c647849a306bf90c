#include "host/common/HostEvent.h"

#include <iterator>
#include <sstream>

namespace kelvane::host::common {

namespace {

std::string join(const std::vector<int32_t>& items) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + std::to_string(items[i]);
    return out;
}

// Hz and the like as a person writes them: 50, 0.5, inf, -1.
std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

const char* stepName(HostStep step) {
    switch (step) {
        case HostStep::kGetDevice:
            return "GetDevice";
        case HostStep::kGetAllChannelIds:
            return "GetAllChannelIds";
        case HostStep::kGetAttributes:
            return "GetAttributes";
        case HostStep::kNone:
            break;
    }
    return "?";
}

std::string pipeName(const HostEvent& e) {
    const std::string id = "[" + std::to_string(e.device) + "]";
    switch (e.pipe) {
        case HostPipe::kVelBridgeHost:
            return "VelBridgeHost";
        case HostPipe::kIioSensorInstance:
            return "IioSensorInstance";
        case HostPipe::kIioSensorHost:
            return "IioSensorHost";
        case HostPipe::kSensorHalClient:
            return "SensorHalClient";
        case HostPipe::kSensorService:
            return "SensorService";
        case HostPipe::kSensorDevice:
            return "SensorDevice" + id;
        case HostPipe::kObserver:
            return "Observer" + id;
        case HostPipe::kNone:
            break;
    }
    return "?";
}

// What the payload says, as the call log writes it after the call's name.
struct ArgumentText {
    std::string operator()(std::monostate) const { return ""; }
    std::string operator()(const DeviceTypeAsked& p) const { return std::to_string(p.type); }
    std::string operator()(const DeviceList&) const { return ""; }  // the reply, not the call
    std::string operator()(const AttributeNames& p) const {
        std::string out;
        for (const std::string& name : p.names) out += (out.empty() ? "" : ",") + name;
        return out;
    }
    std::string operator()(const TimeoutMs& p) const { return std::to_string(p.ms); }
    std::string operator()(const Rate& p) const { return number(p.hz); }
    std::string operator()(const Channels& p) const { return join(p.indices); }
    std::string operator()(const ChannelsSwitched& p) const {
        return join(p.indices) + (p.enable ? " true" : " false");
    }
    std::string operator()(const ChannelAttribute& p) const {
        return join(p.indices) + " " + p.attribute;
    }
    std::string operator()(const SampleCount& p) const {
        return std::to_string(p.count) + (p.count == 1 ? " sample" : " samples");
    }
    std::string operator()(const ObserverError& p) const { return std::to_string(p.type); }
    std::string operator()(const ServiceClosed& p) const {
        return std::to_string(p.reason) + " " + p.description;
    }
    std::string operator()(const TimelineSkip& p) const {
        return std::to_string(p.atMs) + " " + p.action;
    }
};

// How a kind reads in the call log: [lead][subject][words][ argument][after][reason].
enum class Subject { kNone, kDevice, kStep, kObserver, kPipe };
enum class ReasonForm { kBecause, kNotApplied };  // ": why" or " not applied: why"
struct Form {
    HostEventKind kind;
    const char* lead;
    Subject subject;
    const char* words;
    const char* after;
    ReasonForm reason;
};

using K = HostEventKind;
constexpr ReasonForm kBy = ReasonForm::kBecause;
// clang-format off
constexpr Form kForms[] = {
    {K::kInstanceReady, "VelBridgeHost.OnIioSensorInstanceReady", Subject::kNone, "", "", kBy},
    {K::kInitSent, "IioSensorInstance.Init", Subject::kNone, "", "", kBy},
    {K::kInitAnswered, "IioSensorInstance.Init reply", Subject::kNone, "", "", kBy},
    {K::kClientRegistered, "IioSensorHost.RegisterSensorHalClient", Subject::kNone, "", "", kBy},
    {K::kServiceHandedOut, "SensorHalClient.SetUpChannel", Subject::kNone, "", "", kBy},
    {K::kDeviceIdsAsked, "SensorService.GetDeviceIds", Subject::kNone, "", "", kBy},
    {K::kDeviceListAsked, "SensorService.GetAllDeviceIds", Subject::kNone, "", "", kBy},
    {K::kNewDevicesObserverAdded, "SensorService.RegisterNewDevicesObserver", Subject::kNone, "",
     "", kBy},
    {K::kStepAsked, "", Subject::kStep, "", "", kBy},
    {K::kStepAnswered, "", Subject::kStep, " reply", "", kBy},
    {K::kStepStalled, "", Subject::kStep, " held unanswered", "", kBy},
    {K::kStepFailed, "", Subject::kStep, " failed", "", kBy},
    {K::kTimeoutSet, "", Subject::kDevice, ".SetTimeout", "", ReasonForm::kNotApplied},
    {K::kFrequencyAsked, "", Subject::kDevice, ".SetFrequency", "", kBy},
    {K::kFrequencyAnswered, "", Subject::kDevice, ".SetFrequency reply", "", kBy},
    {K::kChannelsEnabled, "", Subject::kDevice, ".SetChannelsEnabled", "", kBy},
    {K::kChannelsFailed, "", Subject::kDevice, ".SetChannelsEnabled failed", "", kBy},
    {K::kChannelsEnabledAsked, "", Subject::kDevice, ".GetChannelsEnabled", "", kBy},
    {K::kChannelAttributeAsked, "", Subject::kDevice, ".GetChannelsAttributes", "", kBy},
    {K::kStartReadingAsked, "", Subject::kDevice, ".StartReadingSamples", "", kBy},
    {K::kStopReadingAsked, "", Subject::kDevice, ".StopReadingSamples", "", kBy},
    {K::kStreamStarted, "", Subject::kDevice, " streaming", "", kBy},
    {K::kStreamStopped, "", Subject::kDevice, " stream stopped", "", kBy},
    {K::kSamplesSent, "", Subject::kDevice, " sent", "", kBy},
    {K::kObserverError, "", Subject::kObserver, ".OnErrorOccurred", "", kBy},
    {K::kClosedByHost, "close ", Subject::kPipe, "", "", kBy},
    {K::kClosedByClient, "error ", Subject::kPipe, "", "", kBy},
    {K::kTimelineNotApplied, "timeline", Subject::kNone, "", " not applied", kBy},
    {K::kReplayOver, "replay over", Subject::kNone, "", "", kBy},
};
// clang-format on

constexpr bool formsInKindOrder() {
    for (size_t i = 0; i < std::size(kForms); ++i) {
        if (static_cast<size_t>(kForms[i].kind) != i) return false;
    }
    return std::size(kForms) == static_cast<size_t>(K::kReplayOver) + 1;
}
static_assert(formsInKindOrder(), "one form per kind, in the enumeration's order");

std::string subjectText(Subject subject, const HostEvent& e) {
    const std::string device = "SensorDevice[" + std::to_string(e.device) + "]";
    switch (subject) {
        case Subject::kNone:
            return "";
        case Subject::kDevice:
            return device;
        case Subject::kStep:
            // The step's call as the client made it.
            return e.step == HostStep::kGetDevice
                       ? "SensorService.GetDevice " + std::to_string(e.device)
                       : device + "." + stepName(e.step);
        case Subject::kObserver:
            return "Observer[" + std::to_string(e.device) + "]";
        case Subject::kPipe:
            return pipeName(e);
    }
    return "";
}

}  // namespace

std::string toText(const HostEvent& e) {
    const Form& form = kForms[static_cast<size_t>(e.kind)];
    const std::string argument = std::visit(ArgumentText(), e.payload);
    std::string text = form.lead + subjectText(form.subject, e) + form.words +
                       (argument.empty() ? "" : " " + argument) + form.after;
    if (e.reason.empty()) return text;
    return text + (form.reason == ReasonForm::kNotApplied ? " not applied: " : ": ") + e.reason;
}

bool operator==(const DeviceTypeAsked& a, const DeviceTypeAsked& b) { return a.type == b.type; }
bool operator==(const DeviceList& a, const DeviceList& b) { return a.types == b.types; }
bool operator==(const AttributeNames& a, const AttributeNames& b) { return a.names == b.names; }
bool operator==(const TimeoutMs& a, const TimeoutMs& b) { return a.ms == b.ms; }
bool operator==(const Rate& a, const Rate& b) { return a.hz == b.hz; }
bool operator==(const Channels& a, const Channels& b) { return a.indices == b.indices; }
bool operator==(const ChannelsSwitched& a, const ChannelsSwitched& b) {
    return a.indices == b.indices && a.enable == b.enable;
}
bool operator==(const ChannelAttribute& a, const ChannelAttribute& b) {
    return a.indices == b.indices && a.attribute == b.attribute;
}
bool operator==(const SampleCount& a, const SampleCount& b) { return a.count == b.count; }
bool operator==(const ObserverError& a, const ObserverError& b) { return a.type == b.type; }
bool operator==(const ServiceClosed& a, const ServiceClosed& b) {
    return a.reason == b.reason && a.description == b.description;
}
bool operator==(const TimelineSkip& a, const TimelineSkip& b) {
    return a.atMs == b.atMs && a.action == b.action;
}

bool HostEventPattern::matches(const HostEvent& e) const {
    return e.kind == kind && (!device || e.device == *device) && (!step || e.step == *step) &&
           (!pipe || e.pipe == *pipe) && (!payload || e.payload == *payload) && (!test || test(e));
}

}  // namespace kelvane::host::common
