#include "Arguments.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace kelvane::tools {

namespace {

constexpr double kCenturySeconds = 100.0 * 365.25 * 24 * 3600;

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// A finite decimal or exponent number taking the whole text; no hex, no inf or nan.
bool parseNumber(const std::string& text, double* value) {
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    *value = std::strtod(text.c_str(), &end);
    return *end == '\0' && std::isfinite(*value) && errno != ERANGE;
}

bool isDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string parseRate(const std::string& text, int64_t* periodNs) {
    double hz = 0;
    const std::string expected = "expected a rate in Hz from 0.001 to 1000000000, got ";
    if (!parseNumber(text, &hz)) {
        // Underflowed values such as 1e-400 are numbers too, just far too small.
        return expected + quoted(text);
    }
    if (hz < kMinRateHz) {
        return text + " Hz is slower than the slowest accepted, 0.001 Hz (a period of 1000 s)";
    }
    if (hz > kMaxRateHz) {
        return text + " Hz is faster than the fastest accepted, 1000000000 Hz (a period of 1 ns)";
    }
    *periodNs = std::max<int64_t>(1, std::llround(1e9 / hz));
    return {};
}

std::string parsePeriodNs(const std::string& text, int64_t* periodNs) {
    const std::string expected =
        "expected whole nanoseconds from 1 to 1000000000000 (10000000 is 100 Hz), got ";
    if (!isDigits(text)) return expected + quoted(text);
    const std::string tooLong =
        text + " ns is longer than the longest accepted, 1000000000000 ns (1000 s)";
    const size_t digits = text.size() - std::min(text.find_first_not_of('0'), text.size());
    if (digits > 13) return tooLong;
    const int64_t value = std::strtoll(text.c_str(), nullptr, 10);
    if (value < 1) return expected + quoted(text);
    if (value > kMaxPeriodNs) return tooLong;
    *periodNs = value;
    return {};
}

std::string parseDuration(const std::string& text, std::optional<double>* seconds) {
    double value = 0;
    if (!parseNumber(text, &value) || value < 0) {
        return "expected seconds, 0 or more (0: until Ctrl-C), got " + quoted(text);
    }
    if (value == 0 || value > kCenturySeconds) {
        seconds->reset();
    } else {
        *seconds = value;
    }
    return {};
}

std::string parseSpeed(const std::string& text, double* speed) {
    double value = 0;
    if (!parseNumber(text, &value) || value < 0 || value > kMaxSpeed) {
        return "expected a factor from 0 to 1000000 (0: no waiting), got " + quoted(text);
    }
    *speed = value;
    return {};
}

std::string parseCount(const std::string& text, uint64_t* count) {
    const std::string expected = "expected a whole number of events, 1 or more, got ";
    if (!isDigits(text)) return expected + quoted(text);
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE) return text + " events is more than the tool can count";
    if (value == 0) return expected + quoted(text);
    *count = value;
    return {};
}

bool parseHandle(const std::string& text, int32_t* handle, std::string* error) {
    const bool negative = !text.empty() && text[0] == '-';
    const std::string digits = negative ? text.substr(1) : text;
    if (!isDigits(digits)) return false;
    if (digits.size() > 1 && digits[0] == '0') {
        const std::string plain = digits.substr(digits.find_first_not_of('0') == std::string::npos
                                                    ? digits.size() - 1
                                                    : digits.find_first_not_of('0'));
        *error = "handles are written without leading zeros: " + quoted(text) + " (did you mean " +
                 (negative ? "-" : "") + plain + "?)";
        return false;
    }
    errno = 0;
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE || value < INT32_MIN || value > INT32_MAX) {
        *error = "no sensor handle is that large: " + quoted(text);
        return false;
    }
    *handle = static_cast<int32_t>(value);
    return true;
}

}  // namespace kelvane::tools
