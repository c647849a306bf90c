// What a control of `serve` answers the page: an HTTP status and a body, JSON on success and one
// line of text saying why otherwise.
#pragma once

#include <string>

namespace kelvane::tools::serve {

struct Reply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
};

inline Reply refusal(int status, std::string why) {
    return {status, std::move(why) + "\n", "text/plain; charset=utf-8"};
}

}  // namespace kelvane::tools::serve
