// Reads one HTTP request, keeping only what `serve` looks at (the request line, Host, Origin,
// X-Token and the body) and refusing, as it reads and before memory is spent on them, a header
// over kMaxHeaderBytes in all or kMaxHeaderFields fields (431), and a body over kMaxBodyBytes
// (413). The server reads sockets with it; readRequest() reads bytes in memory the same way.
//
// Threads: one reader per connection, used by one thread at a time.
#pragma once

#include <boost/beast/http/basic_parser.hpp>
#include <cstddef>
#include <string_view>
#include <variant>

#include "serve/ApiRequest.h"
#include "serve/Reply.h"

namespace kelvane::tools::serve {

// A page's request is a few hundred bytes; a browser with many cookies for localhost sends a
// few kilobytes. The API's bodies are a few bytes.
constexpr std::size_t kMaxHeaderBytes = 32 * 1024;
constexpr std::size_t kMaxHeaderFields = 100;
constexpr std::size_t kMaxBodyBytes = 16 * 1024;

class RequestReader : public boost::beast::http::basic_parser<true> {
  public:
    RequestReader();

    const HttpRequest& request() const { return mRequest; }
    // The refusal for an error the reading ended with, or nullopt when the connection should
    // simply be closed (the peer went away, the deadline passed, a malformed request).
    static std::optional<Reply> refusalFor(const boost::beast::error_code& error);

  private:
    using string_view = boost::beast::string_view;
    using error_code = boost::beast::error_code;
    using field = boost::beast::http::field;
    using verb = boost::beast::http::verb;

    void on_request_impl(verb, string_view method, string_view target, int, error_code&) override;
    void on_response_impl(int, string_view, int, error_code&) override {}
    void on_field_impl(field name, string_view, string_view value, error_code& ec) override;
    void on_header_impl(error_code&) override {}
    void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
    std::size_t on_body_impl(string_view body, error_code&) override;
    void on_chunk_header_impl(std::uint64_t, string_view, error_code&) override {}
    std::size_t on_chunk_body_impl(std::uint64_t, string_view body, error_code&) override;
    void on_finish_impl(error_code&) override {}

    HttpRequest mRequest;
    std::size_t mFields = 0;
};

// The request in `bytes`, read as the server reads a connection's, or the refusal (a 400 for a
// malformed or incomplete one).
std::variant<HttpRequest, Reply> readRequest(std::string_view bytes);

}  // namespace kelvane::tools::serve
