#include "check/MarkupText.h"

namespace kelvane::tools::check {

namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0 if there is none.
size_t utf8Length(std::string_view text, size_t i) {
    const auto byte = [&text](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    size_t length = 0;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    if (lead >= 0xE0 && lead <= 0xEF) length = 3;
    if (lead >= 0xF0 && lead <= 0xF4) length = 4;
    if (length == 0 || i + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string markupEscaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8Length(text, i);
        if (length == 0) {
            out += '?';
            ++i;
            continue;
        }
        if (length > 1) {
            out.append(text, i, length);
            i += length;
            continue;
        }
        const char c = text[i++];
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                const bool control =
                    static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
                out += control ? '?' : c;
        }
    }
    return out;
}

}  // namespace kelvane::tools::check
