#include "host/libiio/IioNumbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <vector>

namespace kelvane::host::iio {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }

std::string_view trim(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

// Whitespace-separated numbers; nullopt if any word is not one.
std::optional<std::vector<double>> parseList(std::string_view text) {
    std::vector<double> values;
    text = trim(text);
    while (!text.empty()) {
        size_t end = 0;
        while (end < text.size() && !isSpace(text[end])) ++end;
        std::optional<double> value = parseNumber(text.substr(0, end));
        if (!value) return std::nullopt;
        values.push_back(*value);
        text = trim(text.substr(end));
    }
    return values;
}

double nearestOf(const std::vector<double>& candidates, double requested) {
    double best = candidates.front();
    for (double c : candidates) {
        const double gap = std::fabs(c - requested), bestGap = std::fabs(best - requested);
        if (gap < bestGap || (gap == bestGap && c > best)) best = c;
    }
    return best;
}

}  // namespace

std::optional<double> parseNumber(std::string_view text) {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    if (text.front() == '+') text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::string formatNumber(double value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

std::optional<double> nearestAvailable(std::string_view available, double requested) {
    available = trim(available);
    if (!available.empty() && available.front() == '[' && available.back() == ']') {
        std::optional<std::vector<double>> range =
            parseList(available.substr(1, available.size() - 2));
        if (!range || range->size() != 3) return std::nullopt;
        const double min = (*range)[0], step = (*range)[1], max = (*range)[2];
        if (!(max >= min)) return std::nullopt;
        if (!(requested > min)) return min;
        if (!(requested < max)) return max;
        if (!(step > 0)) return requested;
        const double below = min + std::floor((requested - min) / step) * step;
        return nearestOf({below, std::min(below + step, max)}, requested);
    }
    std::optional<std::vector<double>> list = parseList(available);
    if (!list || list->empty()) return std::nullopt;
    if (std::isinf(requested))
        return requested > 0 ? *std::max_element(list->begin(), list->end())
                             : *std::min_element(list->begin(), list->end());
    return nearestOf(*list, requested);
}

}  // namespace kelvane::host::iio
