#pragma once

#include <string>

namespace base {

// True only when the whole of `input` is one finite decimal number: an optional sign, digits
// with an optional point (".5" and "6." count, "." alone does not) and an optional exponent
// ("e" or "E", optional sign, at least one digit). Whitespace anywhere, hexadecimal, "inf", "nan"
// and values that overflow to infinity are refused; underflow gives 0 or a subnormal. The C
// locale of the process plays no part. `*output` is meaningful only when true is returned.
bool StringToDouble(const std::string& input, double* output);

// Shortest text that reads back as the same double ("0.5", "1e-05", "inf", "nan").
std::string NumberToString(double value);
std::string NumberToString(int value);
std::string NumberToString(unsigned int value);
std::string NumberToString(long value);
std::string NumberToString(unsigned long value);
std::string NumberToString(long long value);
std::string NumberToString(unsigned long long value);

}  // namespace base
