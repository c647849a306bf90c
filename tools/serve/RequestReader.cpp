#include "serve/RequestReader.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>

namespace kelvane::tools::serve {

namespace http = boost::beast::http;

RequestReader::RequestReader() {
    header_limit(kMaxHeaderBytes);
    body_limit(kMaxBodyBytes);
}

std::optional<Reply> RequestReader::refusalFor(const boost::beast::error_code& error) {
    if (error == http::error::header_limit)
        return refusal(431, "the request's header is over 32 KiB or 100 fields");
    if (error == http::error::body_limit) return refusal(413, "the request's body is over 16 KiB");
    return std::nullopt;
}

void RequestReader::on_request_impl(verb, string_view method, string_view target, int,
                                    error_code&) {
    mRequest.method = std::string(method);
    mRequest.target = std::string(target);
}

void RequestReader::on_field_impl(field name, string_view nameText, string_view value,
                                  error_code& ec) {
    if (++mFields > kMaxHeaderFields) {
        ec = http::error::header_limit;
    } else if (name == field::host) {
        mRequest.host = std::string(value);
    } else if (name == field::origin) {
        mRequest.origin = std::string(value);
    } else if (boost::beast::iequals(nameText, "X-Token")) {
        mRequest.xToken = std::string(value);
        mRequest.hasXToken = true;
    }
}

std::size_t RequestReader::on_body_impl(string_view body, error_code&) {
    mRequest.body.append(body.data(), body.size());
    return body.size();
}

std::size_t RequestReader::on_chunk_body_impl(std::uint64_t, string_view body, error_code& ec) {
    return on_body_impl(body, ec);
}

std::variant<HttpRequest, Reply> readRequest(std::string_view bytes) {
    RequestReader reader;
    reader.eager(true);
    boost::beast::error_code error;
    while (!reader.is_done() && !error) {
        const std::size_t used = reader.put(boost::asio::buffer(bytes.data(), bytes.size()), error);
        if (used == 0 && !error) error = http::error::need_more;
        bytes.remove_prefix(used);
    }
    if (error == http::error::need_more) return refusal(400, "the request is incomplete");
    if (error) {
        if (auto refused = RequestReader::refusalFor(error)) return *refused;
        return refusal(400, "the request is not HTTP: " + error.message());
    }
    return reader.request();
}

}  // namespace kelvane::tools::serve
