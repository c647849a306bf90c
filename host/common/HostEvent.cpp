#include "host/common/HostEvent.h"

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

std::string because(const std::string& reason) { return reason.empty() ? "" : ": " + reason; }

}  // namespace

std::string toText(const HostEvent& e) {
    const std::string device = "SensorDevice[" + std::to_string(e.device) + "]";
    // The step's call as the client made it.
    const std::string step = e.step == HostStep::kGetDevice
                                 ? "SensorService.GetDevice " + std::to_string(e.device)
                                 : device + "." + stepName(e.step);
    switch (e.kind) {
        case HostEventKind::kInstanceReady:
            return "VelBridgeHost.OnIioSensorInstanceReady";
        case HostEventKind::kInitSent:
            return "IioSensorInstance.Init";
        case HostEventKind::kInitAnswered:
            return "IioSensorInstance.Init reply";
        case HostEventKind::kClientRegistered:
            return "IioSensorHost.RegisterSensorHalClient";
        case HostEventKind::kServiceHandedOut:
            return "SensorHalClient.SetUpChannel";
        case HostEventKind::kDeviceIdsAsked:
            return "SensorService.GetDeviceIds " + number(e.value);
        case HostEventKind::kDeviceListAsked:
            return "SensorService.GetAllDeviceIds";
        case HostEventKind::kNewDevicesObserverAdded:
            return "SensorService.RegisterNewDevicesObserver";
        case HostEventKind::kStepAsked:
            return step + (e.detail.empty() ? "" : " " + e.detail);
        case HostEventKind::kStepAnswered:
            return step + " reply";
        case HostEventKind::kStepStalled:
            return step + " held unanswered";
        case HostEventKind::kStepFailed:
            return step + " failed" + because(e.reason);
        case HostEventKind::kTimeoutSet:
            return device + ".SetTimeout " + number(e.value) +
                   (e.reason.empty() ? "" : " not applied: " + e.reason);
        case HostEventKind::kFrequencyAsked:
            return device + ".SetFrequency " + number(e.value);
        case HostEventKind::kFrequencyAnswered:
            return device + ".SetFrequency reply " + number(e.value);
        case HostEventKind::kChannelsEnabled:
            return device + ".SetChannelsEnabled " + join(e.channels) +
                   (e.value != 0.0 ? " true" : " false");
        case HostEventKind::kChannelsFailed:
            return device + ".SetChannelsEnabled failed " + join(e.channels);
        case HostEventKind::kChannelsEnabledAsked:
            return device + ".GetChannelsEnabled " + join(e.channels);
        case HostEventKind::kChannelAttributeAsked:
            return device + ".GetChannelsAttributes " + join(e.channels) + " " + e.detail;
        case HostEventKind::kStartReadingAsked:
            return device + ".StartReadingSamples";
        case HostEventKind::kStopReadingAsked:
            return device + ".StopReadingSamples";
        case HostEventKind::kStreamStarted:
            return device + " streaming";
        case HostEventKind::kStreamStopped:
            return device + " stream stopped";
        case HostEventKind::kSamplesSent:
            return device + " sent " + number(e.value) + (e.value == 1.0 ? " sample" : " samples");
        case HostEventKind::kObserverError:
            return "Observer[" + std::to_string(e.device) + "].OnErrorOccurred " + number(e.value) +
                   because(e.reason);
        case HostEventKind::kClosedByHost:
            if (e.pipe == HostPipe::kSensorService) {
                return "close SensorService " + number(e.value) + " " + e.detail;
            }
            return "close " + pipeName(e) + because(e.reason);
        case HostEventKind::kClosedByClient:
            return "error " + pipeName(e);
        case HostEventKind::kTimelineNotApplied:
            return "timeline " + number(e.value) + " " + e.detail + " not applied" +
                   because(e.reason);
        case HostEventKind::kReplayOver:
            return "replay over";
    }
    return "?";
}

bool HostEventPattern::matches(const HostEvent& e) const {
    return e.kind == kind && (!device || e.device == *device) && (!step || e.step == *step) &&
           (!pipe || e.pipe == *pipe) && (!value || e.value == *value);
}

}  // namespace kelvane::host::common
