// Values typed on the command line, checked with messages a person reads in one go. Each parser
// returns "" on success, or the problem without the option's name ("expected ..., got \"x\"").
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane::tools {

// Rates and periods the tool accepts: from 1000 s (0.001 Hz) to 1 ns (1 GHz). Anything outside
// would either not fit batch()'s int64 period or round to a different request.
constexpr double kMinRateHz = 0.001;
constexpr double kMaxRateHz = 1e9;
constexpr int64_t kMaxPeriodNs = 1000'000'000'000;

// A rate in Hz, kMinRateHz to kMaxRateHz; *periodNs is the nearest whole period.
std::string parseRate(const std::string& text, int64_t* periodNs);
// A whole number of nanoseconds, 1 to kMaxPeriodNs.
std::string parsePeriodNs(const std::string& text, int64_t* periodNs);
// Seconds >= 0; 0 means no limit (nullopt), and so does anything beyond a century.
std::string parseDuration(const std::string& text, std::optional<double>* seconds);
// How many times faster host time runs: 0 (no waiting) to kMaxSpeed.
constexpr double kMaxSpeed = 1e6;
std::string parseSpeed(const std::string& text, double* speed);
// A whole number of events, at least 1.
std::string parseCount(const std::string& text, uint64_t* count);
// A sensor handle: decimal, no sign other than '-', no leading zeros. Empty error and false
// result for text that is not a number at all (it may be a name).
bool parseHandle(const std::string& text, int32_t* handle, std::string* error);

}  // namespace kelvane::tools
