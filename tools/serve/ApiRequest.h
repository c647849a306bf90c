// What a request to `serve` asks for, as a typed record: the one place where a request's method,
// path, query, headers and body are read. route() first applies the RequestGuard (Host, and for
// the API the Origin and the token), then matches the path and parses the body; anything it
// cannot make sense of is a refusal with one sentence saying why. Pure: no I/O, any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "serve/Reply.h"
#include "serve/RequestGuard.h"

namespace kelvane::tools::serve {

// A request as the HTTP server read it.
struct HttpRequest {
    std::string method;  // "GET", "POST", ...
    std::string target;  // path and query, as sent
    std::string host;    // the headers that the guard reads ("" when absent)
    std::string origin;
    std::string xToken;
    bool hasXToken = false;
    std::string body;
};

struct PageAsset {
    std::string name;  // "index.html", "app.js", ...
};
struct GetInfo {};
struct FollowEvents {};
struct SetActive {
    int32_t handle = 0;
    bool on = false;
};
struct SetRate {
    int32_t handle = 0;
    std::optional<double> hz;  // none: back to the sensor's default rate
};
struct Flush {
    int32_t handle = 0;
};
struct GetDump {};
struct StartCheck {
    bool quick = false;
};
struct StartRecording {};
struct StopRecording {};
struct DownloadRecording {};

using ApiRequest =
    std::variant<PageAsset, GetInfo, FollowEvents, SetActive, SetRate, Flush, GetDump, StartCheck,
                 StartRecording, StopRecording, DownloadRecording>;

// The typed request, or the refusal to answer instead.
using Routed = std::variant<ApiRequest, Reply>;

Routed route(const HttpRequest& request, const RequestGuard& guard);

}  // namespace kelvane::tools::serve
