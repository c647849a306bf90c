#include "serve/WebServer.h"

#include <httplib.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>

#include "Arguments.h"
#include "DebugReport.h"
#include "Output.h"
#include "serve/PageAssets.h"

namespace kelvane::tools::serve {

namespace {

using android::hardware::sensors::V1_0::SensorFlagBits;
using nlohmann::json;

// At most this much body in a request: the API's bodies are a few bytes.
constexpr size_t kMaxBody = 16 * 1024;

const char kPagePolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; "
    "connect-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
    "form-action 'none'";

// Serves `server` on `thread` and returns once it accepts (or has given up): the library ignores
// a stop() that comes before it runs, which would leave the thread serving for ever.
void listenOn(httplib::Server& server, std::thread& thread) {
    auto ended = std::make_shared<std::atomic<bool>>(false);
    thread = std::thread([&server, ended] {
        server.listen_after_bind();
        *ended = true;
    });
    while (!server.is_running() && !*ended) std::this_thread::yield();
}

// The HTTP library builds some function-local statics (its table of methods, its Range pattern)
// on first use, inside a build that race checkers cannot see into: two first requests on two of
// its threads look like a race to them. One request served by a throwaway server, whose threads
// are joined before the real server starts its own, builds them in an order every checker sees.
// It costs a few milliseconds, once.
void buildLibraryStatics() {
    static std::once_flag once;
    std::call_once(once, [] {
        httplib::Server warm;
        warm.Get("/", [](const httplib::Request&, httplib::Response& res) {
            res.set_content("ok", "text/plain");
        });
        const int port = warm.bind_to_any_port("127.0.0.1");
        if (port <= 0) return;
        std::thread thread;
        listenOn(warm, thread);
        httplib::Client("127.0.0.1", port).Get("/", {{"Range", "bytes=0-0"}});
        warm.stop();
        thread.join();
    });
}

void answer(httplib::Response& res, const Reply& reply) {
    res.status = reply.status;
    res.set_content(reply.body, reply.contentType.c_str());
}

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

// The published list, with the unit of each sensor's values.
json sensorList(const std::vector<SensorInfo>& sensors) {
    json list = json::array();
    for (const SensorInfo& s : sensors) {
        list.push_back({{"sensorHandle", s.sensorHandle},
                        {"name", std::string(s.name)},
                        {"vendor", std::string(s.vendor)},
                        {"type", static_cast<int32_t>(s.type)},
                        {"typeAsString", std::string(s.typeAsString)},
                        {"shortType", shortTypeName(s)},
                        {"unit", valueUnit(s.type)},
                        {"maxRange", s.maxRange},
                        {"resolution", s.resolution},
                        {"power", s.power},
                        {"minDelay", s.minDelay},
                        {"maxDelay", s.maxDelay},
                        {"flags", s.flags},
                        {"reportingMode", reportingMode(s.flags)},
                        {"wakeUp", (s.flags & SensorFlagBits::WAKE_UP) != 0}});
    }
    return list;
}

// The handle of /api/sensors/<handle>/..., or nullopt after a 400.
std::optional<int32_t> handleOf(const httplib::Request& req, httplib::Response& res) {
    int32_t handle = 0;
    std::string error;
    if (!parseHandle(req.matches[1], &handle, &error)) {
        answer(res, refusal(400, "bad sensor handle: " + (error.empty() ? "not a number" : error)));
        return std::nullopt;
    }
    return handle;
}

// The JSON object of the request's body, or nullopt after a 400. An empty body is {}.
std::optional<json> bodyOf(const httplib::Request& req, httplib::Response& res) {
    if (req.body.empty()) return json::object();
    json body = json::parse(req.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        answer(res, refusal(400, "the body is not a JSON object"));
        return std::nullopt;
    }
    return body;
}

}  // namespace

WebServer::WebServer(ServeParts parts)
    : mParts(std::move(parts)), mServer(std::make_unique<httplib::Server>()) {}

WebServer::~WebServer() { stop(); }

bool WebServer::bind(const std::string& address, int port, const std::string& token,
                     std::string* error) {
    errno = 0;
    const int bound = port == 0 ? mServer->bind_to_any_port(address)
                                : (mServer->bind_to_port(address, port) ? port : -1);
    if (bound <= 0) {
        const std::string where =
            (address.find(':') != std::string::npos ? "[" + address + "]" : address) + ":" +
            std::to_string(port);
        *error = "cannot listen on " + where +
                 (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
        return false;
    }
    port = bound;
    mPort = port;
    mGuard = std::make_unique<RequestGuard>(address, port, token);
    addRoutes();
    return true;
}

void WebServer::start() {
    buildLibraryStatics();
    listenOn(*mServer, mThread);
}

void WebServer::stop() {
    mServer->stop();
    if (mThread.joinable()) mThread.join();
}

void WebServer::addRoutes() {
    httplib::Server& server = *mServer;
    const RequestGuard& guard = *mGuard;
    ServeParts& parts = mParts;

    // One connection, one request: a page's idle connections never hold the server's threads.
    server.set_keep_alive_max_count(1);
    server.set_payload_max_length(kMaxBody);
    server.set_default_headers({{"X-Content-Type-Options", "nosniff"},
                                {"X-Frame-Options", "DENY"},
                                {"Referrer-Policy", "no-referrer"},
                                {"Cache-Control", "no-store"}});

    server.set_pre_routing_handler([&guard](const httplib::Request& req, httplib::Response& res) {
        std::string why = guard.checkHost(req.get_header_value("Host"));
        const bool api = req.path.rfind("/api/", 0) == 0;
        if (why.empty() && api) why = guard.checkOrigin(req.get_header_value("Origin"));
        if (why.empty() && api) {
            const std::string token = req.has_header("X-Token") ? req.get_header_value("X-Token")
                                                                : req.get_param_value("token");
            if (!guard.tokenMatches(token)) {
                why = token.empty() ? "this request needs the token of the URL the tool printed"
                                    : "wrong token: use the URL the tool printed";
            }
        }
        if (why.empty()) return httplib::Server::HandlerResponse::Unhandled;
        answer(res, refusal(403, why));
        return httplib::Server::HandlerResponse::Handled;
    });
    server.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty()) return;  // a handler's own answer
        if (res.status == 404)
            answer(res, refusal(404, "nothing at " + req.path));
        else
            answer(res, refusal(res.status, "the request cannot be served (" +
                                                std::to_string(res.status) + ")"));
    });

    auto page = [](const std::string& name) {
        return [name](const httplib::Request&, httplib::Response& res) {
            const web::Asset* asset = web::servePageAsset(name);
            res.set_content(std::string(asset->body), std::string(asset->contentType).c_str());
            res.set_header("Content-Security-Policy", kPagePolicy);
        };
    };
    server.Get("/", page("index.html"));
    server.Get("/index.html", page("index.html"));
    server.Get(
        "/assets/([A-Za-z0-9._-]+)", [](const httplib::Request& req, httplib::Response& res) {
            const std::string name = req.matches[1];
            const web::Asset* asset = web::servePageAsset(name);
            if (asset == nullptr || name == "index.html") asset = web::chartAsset(name);
            if (asset == nullptr) return answer(res, refusal(404, "no asset named " + name));
            res.set_content(std::string(asset->body), std::string(asset->contentType).c_str());
        });

    server.Get("/api/info", [&parts](const httplib::Request&, httplib::Response& res) {
        json info = {{"host", parts.hostName},
                     {"subHal", std::string(parts.session.subHal()->getName())},
                     {"sensors", sensorList(parts.session.sensors())}};
        res.set_content(info.dump(-1, ' ', false, json::error_handler_t::replace),
                        "application/json");
    });
    server.Get("/api/events", [&parts](const httplib::Request&, httplib::Response& res) {
        std::shared_ptr<EventStream::Subscriber> subscriber = parts.stream.subscribe();
        if (!subscriber) {
            return answer(res, refusal(503, "too many pages follow the live stream; close one"));
        }
        parts.controls.sendStateTo(*subscriber);
        parts.pump.sendStateTo(*subscriber);
        parts.check.sendStateTo(*subscriber);
        parts.recording.sendStateTo(*subscriber);
        res.set_chunked_content_provider("text/event-stream", [subscriber](
                                                                  size_t, httplib::DataSink& sink) {
            std::optional<std::string> frames = subscriber->next(std::chrono::milliseconds(1000));
            if (!frames) {
                sink.done();
                return true;
            }
            // A comment now and then finds out that a page went away.
            if (frames->empty()) *frames = ":\n\n";
            return sink.write(frames->data(), frames->size());
        });
    });
    server.Post("/api/sensors/([0-9]+)/active", [&parts](const httplib::Request& req,
                                                         httplib::Response& res) {
        const auto handle = handleOf(req, res);
        const auto body = handle ? bodyOf(req, res) : std::nullopt;
        if (!body) return;
        if (!body->contains("on") || !(*body)["on"].is_boolean()) {
            return answer(res, refusal(400, "expected {\"on\": true} or {\"on\": false}"));
        }
        answer(res, parts.controls.setActive(*handle, (*body)["on"].get<bool>()));
    });
    server.Post("/api/sensors/([0-9]+)/rate", [&parts](const httplib::Request& req,
                                                       httplib::Response& res) {
        const auto handle = handleOf(req, res);
        const auto body = handle ? bodyOf(req, res) : std::nullopt;
        if (!body) return;
        const json& hz = body->contains("hz") ? (*body)["hz"] : json();
        if (!hz.is_number() || !std::isfinite(hz.get<double>()) || hz.get<double>() < kMinRateHz ||
            hz.get<double>() > kMaxRateHz) {
            return answer(res, refusal(400, "expected {\"hz\": N}, a rate from 0.001 to 1e9 Hz"));
        }
        answer(res, parts.controls.setRate(*handle, hz.get<double>()));
    });
    server.Post("/api/sensors/([0-9]+)/flush",
                [&parts](const httplib::Request& req, httplib::Response& res) {
                    if (const auto handle = handleOf(req, res))
                        answer(res, parts.controls.flush(*handle));
                });
    server.Get("/api/dump", [&parts](const httplib::Request&, httplib::Response& res) {
        std::string report;
        std::string error;
        if (!debugReport(*parts.session.subHal(), &report, &error)) {
            return answer(res, refusal(500, error));
        }
        res.set_content(report, "text/plain; charset=utf-8");
    });
    server.Post("/api/check", [&parts](const httplib::Request& req, httplib::Response& res) {
        const auto body = bodyOf(req, res);
        if (!body) return;
        const json& quick = body->contains("quick") ? (*body)["quick"] : json(false);
        if (!quick.is_boolean()) {
            return answer(res, refusal(400, "expected {\"quick\": true} or {\"quick\": false}"));
        }
        answer(res, parts.check.start(quick.get<bool>()));
    });
    server.Post("/api/recording/start", [&parts](const httplib::Request&, httplib::Response& res) {
        answer(res, parts.recording.start());
    });
    server.Post("/api/recording/stop", [&parts](const httplib::Request&, httplib::Response& res) {
        answer(res, parts.recording.stop());
    });
    server.Get("/api/recording", [&parts](const httplib::Request&, httplib::Response& res) {
        const Reply reply = parts.recording.download();
        answer(res, reply);
        if (reply.status == 200) {
            res.set_header("Content-Disposition", "attachment; filename=\"recording.json\"");
        }
    });
}

}  // namespace kelvane::tools::serve
