#include "base/strings/string_number_conversions.h"

#include <locale.h>

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <system_error>

namespace base {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Skips a run of digits; returns how many there were.
size_t SkipDigits(const char*& p, const char* end) {
    const char* start = p;
    while (p != end && IsDigit(*p)) ++p;
    return static_cast<size_t>(p - start);
}

// The grammar is checked here rather than left to the converter, which would also take
// "inf", "nan", hexadecimal or (for strtod) leading whitespace.
bool IsDecimalNumber(const char* p, const char* end) {
    if (p != end && (*p == '+' || *p == '-')) ++p;
    size_t digits = SkipDigits(p, end);
    if (p != end && *p == '.') {
        ++p;
        digits += SkipDigits(p, end);
    }
    if (digits == 0) return false;
    if (p != end && (*p == 'e' || *p == 'E')) {
        ++p;
        if (p != end && (*p == '+' || *p == '-')) ++p;
        if (SkipDigits(p, end) == 0) return false;
    }
    return p == end;
}

locale_t CLocale() {
    // Created once and kept for the life of the process.
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

}  // namespace

bool StringToDouble(const std::string& input, double* output) {
    const char* begin = input.data();
    const char* end = begin + input.size();
    if (!IsDecimalNumber(begin, end)) return false;

    // from_chars takes no leading '+'.
    const char* first = *begin == '+' ? begin + 1 : begin;
    double value = 0.0;
    std::from_chars_result result = std::from_chars(first, end, value, std::chars_format::general);
    if (result.ec == std::errc::result_out_of_range) {
        // from_chars reports underflow and overflow alike and leaves `value` alone; strtod_l
        // tells them apart. The grammar check above rules out everything strtod_l would
        // otherwise accept beyond from_chars.
        locale_t c_locale = CLocale();
        if (c_locale == static_cast<locale_t>(0)) return false;
        char* parse_end = nullptr;
        value = strtod_l(input.c_str(), &parse_end, c_locale);
        if (parse_end != input.c_str() + input.size()) return false;
    } else if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    if (!std::isfinite(value)) return false;
    *output = value;
    return true;
}

std::string NumberToString(double value) {
    char buf[64];
    std::to_chars_result result = std::to_chars(buf, buf + sizeof(buf), value);
    return std::string(buf, result.ptr);
}

std::string NumberToString(int value) { return std::to_string(value); }
std::string NumberToString(unsigned int value) { return std::to_string(value); }
std::string NumberToString(long value) { return std::to_string(value); }
std::string NumberToString(unsigned long value) { return std::to_string(value); }
std::string NumberToString(long long value) { return std::to_string(value); }
std::string NumberToString(unsigned long long value) { return std::to_string(value); }

}  // namespace base
