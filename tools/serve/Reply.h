// What `serve` answers a request: an HTTP status, a body and its type, and any further headers.
// A refusal's body is JSON, {"error": "<one sentence>"}, which the page shows as it is.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kelvane::tools::serve {

struct Reply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers;
};

Reply refusal(int status, const std::string& why);
// 503, with Retry-After: the page says why and tries again.
Reply unavailable(const std::string& why);

}  // namespace kelvane::tools::serve
