// base::StringToDouble against a reference: a hand-written check of the accepted grammar, then
// strtod for the value. Both must accept the same inputs and give the same bits.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/strings/string_number_conversions.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// [+-]? (digits [. digits?] | . digits) ([eE] [+-]? digits)?, and nothing else.
bool referenceGrammar(const std::string& s) {
    size_t i = 0;
    const size_t n = s.size();
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    size_t intDigits = 0;
    while (i < n && isDigit(s[i])) ++i, ++intDigits;
    size_t fracDigits = 0;
    if (i < n && s[i] == '.') {
        ++i;
        while (i < n && isDigit(s[i])) ++i, ++fracDigits;
    }
    if (intDigits + fracDigits == 0) return false;
    if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
        size_t expDigits = 0;
        while (i < n && isDigit(s[i])) ++i, ++expDigits;
        if (expDigits == 0) return false;
    }
    return i == n;
}

// The process never changes its locale, so strtod reads '.' as the decimal point.
bool reference(const std::string& s, double* out) {
    if (!referenceGrammar(s)) return false;
    char* end = nullptr;
    const double value = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size()) return false;
    if (!std::isfinite(value)) return false;  // overflow; underflow keeps 0 or a subnormal
    *out = value;
    return true;
}

[[noreturn]] void mismatch(const std::string& input, const char* what, double expected,
                           double actual) {
    std::fprintf(stderr, "StringToDouble(\"%s\"): %s (reference %.17g, got %.17g)\n", input.c_str(),
                 what, expected, actual);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    double expected = 0.0;
    double actual = 0.0;
    const bool expectedOk = reference(input, &expected);
    const bool actualOk = base::StringToDouble(input, &actual);
    if (expectedOk != actualOk) {
        mismatch(input, actualOk ? "accepted, should refuse" : "refused, should accept", expected,
                 actual);
    }
    // Bits, not ==: the sign of zero matters.
    if (expectedOk && std::memcmp(&expected, &actual, sizeof expected) != 0) {
        mismatch(input, "different value", expected, actual);
    }
    return 0;
}
