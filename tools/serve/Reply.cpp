#include "serve/Reply.h"

#include <nlohmann/json.hpp>

namespace kelvane::tools::serve {

using nlohmann::json;

Reply refusal(int status, const std::string& why) {
    return {status,
            json{{"error", why}}.dump(-1, ' ', false, json::error_handler_t::replace),
            "application/json",
            {}};
}

Reply unavailable(const std::string& why) {
    Reply reply = refusal(503, why);
    reply.headers.emplace_back("Retry-After", "2");
    return reply;
}

}  // namespace kelvane::tools::serve
