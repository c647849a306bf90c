#include "serve/ServeApi.h"

#include <nlohmann/json.hpp>

#include "DebugReport.h"
#include "Output.h"
#include "serve/PageAssets.h"

namespace kelvane::tools::serve {

namespace {

using android::hardware::sensors::V1_0::SensorFlagBits;
using nlohmann::json;
using Respond = HttpServer::Respond;

const char kPagePolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; "
    "connect-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
    "form-action 'none'";

const char* reportingMode(uint32_t flags) {
    switch (flags & SensorFlagBits::MASK_REPORTING_MODE) {
        case static_cast<uint32_t>(SensorFlagBits::CONTINUOUS_MODE):
            return "continuous";
        case static_cast<uint32_t>(SensorFlagBits::ON_CHANGE_MODE):
            return "on-change";
        case static_cast<uint32_t>(SensorFlagBits::ONE_SHOT_MODE):
            return "one-shot";
        default:
            return "special";
    }
}

// What the sensor-kinds table says of a sensor: its value columns, unit, name and default rate.
json kindFacts(const Session::SensorInfo& sensor) {
    const sensors::SensorKind* kind = sensorKind(sensor.type);
    if (kind == nullptr) {
        return {{"axes", json::array()},
                {"unit", ""},
                {"shortName", shortTypeName(sensor)},
                {"defaultHz", nullptr}};
    }
    json axes = json::array();
    for (size_t axis = 0; axis < kind->axisCount; ++axis) axes.push_back(kind->axes[axis]);
    return {{"axes", std::move(axes)},
            {"unit", kind->unit},
            {"shortName", kind->shortName},
            {"defaultHz", kind->defaultHz}};
}

json sensorList(const std::vector<Session::SensorInfo>& sensors) {
    json list = json::array();
    for (const Session::SensorInfo& s : sensors) {
        json entry = {{"sensorHandle", s.sensorHandle},
                      {"name", std::string(s.name)},
                      {"vendor", std::string(s.vendor)},
                      {"type", static_cast<int32_t>(s.type)},
                      {"typeAsString", std::string(s.typeAsString)},
                      {"shortType", shortTypeName(s)},
                      {"maxRange", s.maxRange},
                      {"resolution", s.resolution},
                      {"power", s.power},
                      {"minDelay", s.minDelay},
                      {"maxDelay", s.maxDelay},
                      {"flags", s.flags},
                      {"reportingMode", reportingMode(s.flags)},
                      {"wakeUp", (s.flags & SensorFlagBits::WAKE_UP) != 0}};
        entry.update(kindFacts(s));
        list.push_back(std::move(entry));
    }
    return list;
}

const char* hostKindName(HostKind kind) {
    switch (kind) {
        case HostKind::kBuiltIn:
            return "built-in";
        case HostKind::kDescription:
            return "description";
        case HostKind::kIio:
            return "iio";
    }
    return "built-in";
}

std::string infoJson(const Session& session) {
    const json info = {{"host", session.hostName()},
                       {"hostKind", hostKindName(session.hostKind())},
                       {"replay", session.replays()},
                       {"subHal", std::string(session.subHal()->getName())},
                       {"tool",
                        {{"version", IIO_SUBHAL_VERSION},
                         {"library", session.subHalPath()},
                         {"build", IIO_SUBHAL_BUILD}}},
                       {"sensors", sensorList(session.sensors())}};
    return info.dump(-1, ' ', false, json::error_handler_t::replace);
}

void reply(const Respond& respond, Reply reply) { respond({std::move(reply), nullptr}); }

// Answers with what the controls did, from the controller thread.
SensorControls::Done replyWith(const Respond& respond) {
    return [respond](Reply r) { reply(respond, std::move(r)); };
}

}  // namespace

ServeApi::ServeApi(ServeParts parts, RequestGuard guard)
    : mParts(parts), mGuard(std::move(guard)), mInfo(infoJson(parts.session)) {}

void ServeApi::handle(const HttpRequest& request, HttpServer::Respond respond) {
    Routed routed = route(request, mGuard);
    if (auto* refused = std::get_if<Reply>(&routed)) return reply(respond, std::move(*refused));
    std::visit([&](const auto& typed) { answer(typed, respond); }, std::get<ApiRequest>(routed));
}

void ServeApi::answer(const PageAsset& asset, const Respond& respond) {
    const web::Asset* found = web::servePageAsset(asset.name);
    if (found == nullptr) found = web::chartAsset(asset.name);
    if (found == nullptr) return reply(respond, refusal(404, "no asset named " + asset.name));
    Reply page{200, std::string(found->body), std::string(found->contentType), {}};
    if (asset.name == "index.html")
        page.headers.emplace_back("Content-Security-Policy", kPagePolicy);
    reply(respond, std::move(page));
}

void ServeApi::answer(const GetInfo&, const Respond& respond) {
    reply(respond, {200, mInfo, "application/json", {}});
}

void ServeApi::answer(const FollowEvents&, const Respond& respond) {
    std::shared_ptr<EventStream::Subscriber> subscriber = mParts.stream.subscribe();
    if (subscriber) return respond({{}, std::move(subscriber)});
    reply(respond,
          unavailable(mParts.stream.closed() ? "the server is stopping"
                                             : "too many pages follow the live stream; close one"));
}

void ServeApi::answer(const SetActive& request, const Respond& respond) {
    mParts.controls.setActive(request.handle, request.on, replyWith(respond));
}

void ServeApi::answer(const SetRate& request, const Respond& respond) {
    mParts.controls.setRate(request.handle, request.hz, replyWith(respond));
}

void ServeApi::answer(const Flush& request, const Respond& respond) {
    mParts.controls.flush(request.handle, replyWith(respond));
}

void ServeApi::answer(const GetDump&, const Respond& respond) {
    ISensorsSubHal* subHal = mParts.session.subHal();
    mParts.controller.post([subHal, respond] {
        std::string report;
        std::string error;
        if (!debugReport(*subHal, &report, &error)) return reply(respond, refusal(500, error));
        reply(respond, {200, std::move(report), "text/plain; charset=utf-8", {}});
    });
}

void ServeApi::answer(const StartCheck& request, const Respond& respond) {
    reply(respond, mParts.check.start(request.quick));
}

void ServeApi::answer(const StartRecording&, const Respond& respond) {
    reply(respond, mParts.recording.start());
}

void ServeApi::answer(const StopRecording&, const Respond& respond) {
    reply(respond, mParts.recording.stop());
}

void ServeApi::answer(const DownloadRecording&, const Respond& respond) {
    RecordingControl& recording = mParts.recording;
    mParts.controller.post([&recording, respond] { reply(respond, recording.download()); });
}

}  // namespace kelvane::tools::serve
