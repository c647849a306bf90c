#include "serve/ApiRequest.h"

#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>

#include "Arguments.h"

namespace kelvane::tools::serve {

namespace {

using nlohmann::json;

struct Target {
    std::string path;
    std::string token;  // the query's token=, if any
};

Target splitTarget(const std::string& target) {
    const size_t question = target.find('?');
    Target split{target.substr(0, question), {}};
    if (question == std::string::npos) return split;
    const std::string query = target.substr(question + 1);
    for (size_t start = 0; start <= query.size();) {
        size_t end = query.find('&', start);
        if (end == std::string::npos) end = query.size();
        if (query.compare(start, 6, "token=") == 0)
            split.token = query.substr(start + 6, end - start - 6);
        start = end + 1;
    }
    return split;
}

bool isAssetName(const std::string& name) {
    if (name.empty()) return false;
    for (char c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-')
            return false;
    }
    return true;
}

// "" when the request may go on; otherwise why it is refused.
std::string guardRefusal(const HttpRequest& request, const Target& target, bool api,
                         const RequestGuard& guard) {
    std::string why = guard.checkHost(request.host);
    if (!why.empty() || !api) return why;
    why = guard.checkOrigin(request.origin);
    if (!why.empty()) return why;
    const std::string& token = request.hasXToken ? request.xToken : target.token;
    if (guard.tokenMatches(token)) return {};
    return token.empty() ? "this request needs the token of the URL the tool printed"
                         : "wrong token: use the URL the tool printed";
}

// The body as a JSON object ({} when empty), or nullopt.
std::optional<json> bodyObject(const std::string& body) {
    if (body.empty()) return json::object();
    json parsed = json::parse(body, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
    return parsed;
}

Routed sensorRequest(int32_t handle, const std::string& action, const json& body) {
    if (action == "flush") return ApiRequest(Flush{handle});
    if (action == "active") {
        const auto on = body.find("on");
        if (on == body.end() || !on->is_boolean())
            return refusal(400, R"(expected {"on": true} or {"on": false})");
        return ApiRequest(SetActive{handle, on->get<bool>()});
    }
    const auto hz = body.find("hz");
    if (hz != body.end() && hz->is_null()) return ApiRequest(SetRate{handle, std::nullopt});
    if (hz == body.end() || !hz->is_number() || !std::isfinite(hz->get<double>()) ||
        hz->get<double>() < kMinRateHz || hz->get<double>() > kMaxRateHz) {
        return refusal(
            400,
            R"(expected {"hz": N}, a rate from 0.001 to 1e9 Hz, or {"hz": null} for the default)");
    }
    return ApiRequest(SetRate{handle, hz->get<double>()});
}

// /api/sensors/<handle>/<action>, POST.
Routed routeSensor(const std::string& rest, const std::string& body) {
    const size_t slash = rest.find('/');
    const std::string action = slash == std::string::npos ? "" : rest.substr(slash + 1);
    if (action != "active" && action != "rate" && action != "flush")
        return refusal(404, "nothing at /api/sensors/" + rest);
    int32_t handle = 0;
    std::string error;
    if (!parseHandle(rest.substr(0, slash), &handle, &error))
        return refusal(400, "bad sensor handle: " + (error.empty() ? "not a number" : error));
    const std::optional<json> object = bodyObject(body);
    if (!object) return refusal(400, "the body is not a JSON object");
    return sensorRequest(handle, action, *object);
}

Routed routeApiPost(const std::string& path, const std::string& body) {
    const std::string sensors = "/api/sensors/";
    if (path.compare(0, sensors.size(), sensors) == 0)
        return routeSensor(path.substr(sensors.size()), body);
    if (path == "/api/recording/start") return ApiRequest(StartRecording{});
    if (path == "/api/recording/stop") return ApiRequest(StopRecording{});
    if (path != "/api/check") return refusal(404, "nothing at " + path);
    const std::optional<json> object = bodyObject(body);
    if (!object) return refusal(400, "the body is not a JSON object");
    const json quick = object->value("quick", json(false));
    if (!quick.is_boolean()) return refusal(400, R"(expected {"quick": true} or {"quick": false})");
    return ApiRequest(StartCheck{quick.get<bool>()});
}

std::optional<ApiRequest> routeGet(const std::string& path) {
    if (path == "/" || path == "/index.html") return PageAsset{"index.html"};
    const std::string assets = "/assets/";
    if (path.compare(0, assets.size(), assets) == 0 && isAssetName(path.substr(assets.size())))
        return PageAsset{path.substr(assets.size())};
    if (path == "/api/info") return GetInfo{};
    if (path == "/api/events") return FollowEvents{};
    if (path == "/api/dump") return GetDump{};
    if (path == "/api/recording") return DownloadRecording{};
    return std::nullopt;
}

}  // namespace

Routed route(const HttpRequest& request, const RequestGuard& guard) {
    const Target target = splitTarget(request.target);
    const bool api = target.path.compare(0, 5, "/api/") == 0;
    const std::string why = guardRefusal(request, target, api, guard);
    if (!why.empty()) return refusal(403, why);
    if (request.method == "POST" && api) return routeApiPost(target.path, request.body);
    const std::optional<ApiRequest> get = routeGet(target.path);
    if (get && request.method == "GET") return *get;
    if (get || api) return refusal(405, request.method + " is not served at " + target.path);
    return refusal(404, "nothing at " + target.path);
}

}  // namespace kelvane::tools::serve
