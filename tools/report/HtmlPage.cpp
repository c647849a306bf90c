#include "report/HtmlPage.h"

#include "check/MarkupText.h"

namespace kelvane::tools::report {

std::string scriptSafeJson(const nlohmann::json& data) {
    const std::string text = data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        // Outside strings JSON has none of these, so the escapes only ever land inside strings.
        switch (c) {
            case '<':
                out += "\\u003c";
                break;
            case '>':
                out += "\\u003e";
                break;
            case '&':
                out += "\\u0026";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string selfContainedPage(const std::string& title, const std::vector<std::string_view>& styles,
                              const nlohmann::json& data,
                              const std::vector<std::string_view>& scripts) {
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data:\">\n<title>" +
        check::markupEscaped(title) + "</title>\n";
    for (std::string_view style : styles) {
        page += "<style>\n";
        page += style;
        page += "\n</style>\n";
    }
    page += "</head>\n<body>\n<script type=\"application/json\" id=\"data\">";
    page += scriptSafeJson(data);
    page += "</script>\n";
    for (std::string_view script : scripts) {
        page += "<script>\n";
        page += script;
        page += "\n</script>\n";
    }
    return page + "</body>\n</html>\n";
}

}  // namespace kelvane::tools::report
