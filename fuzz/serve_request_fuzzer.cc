// `serve`'s request handling on any bytes, as a connection delivers them: read with the server's
// limits, checked by the guard, routed and parsed into a typed request. It never crashes; a
// refusal is an error status with a one-line JSON sentence; nothing but the page and its assets
// is reached without the run's token.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>

#include "serve/ApiRequest.h"
#include "serve/RequestReader.h"

namespace {

using namespace kelvane::tools::serve;

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

[[noreturn]] void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
    std::abort();
}

void checkRefusal(const Reply& reply) {
    if (reply.status < 400 || reply.status > 599)
        fail("refusal status", std::to_string(reply.status));
    const nlohmann::json body = nlohmann::json::parse(reply.body, nullptr, false);
    if (!body.is_object() || !body["error"].is_string() ||
        body["error"].get<std::string>().find('\n') != std::string::npos) {
        fail("refusal body", reply.body);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const RequestGuard guard("127.0.0.1", 8642, kToken);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::variant<HttpRequest, Reply> read = readRequest(bytes);
    if (const Reply* refused = std::get_if<Reply>(&read)) {
        checkRefusal(*refused);
        return 0;
    }
    const HttpRequest& request = std::get<HttpRequest>(read);
    if (request.body.size() > kMaxBodyBytes)
        fail("body over the limit", std::to_string(request.body.size()));
    const Routed routed = route(request, guard);
    if (const Reply* refused = std::get_if<Reply>(&routed)) {
        checkRefusal(*refused);
        return 0;
    }
    const ApiRequest& api = std::get<ApiRequest>(routed);
    if (!std::holds_alternative<PageAsset>(api) && bytes.find(kToken) == std::string::npos)
        fail("an API request without the token", request.target);
    if (const SetRate* rate = std::get_if<SetRate>(&api); rate && rate->hz && !(*rate->hz > 0))
        fail("a rate that is not positive", request.body);
    return 0;
}
