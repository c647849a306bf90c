// Numbers as sysfs and the host interfaces write them: always C-locale text, whatever the
// process's locale, and never with the trailing newline of a sysfs value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelvane::host::iio {

// One decimal number, surrounding whitespace (the sysfs newline) allowed; nothing else.
std::optional<double> parseNumber(std::string_view text);

// Shortest text that reads back as exactly `value`: "0.009582", "1", "2.5e-05".
std::string formatNumber(double value);

// The rate to ask for when `requested` Hz is wanted from a device whose
// sampling_frequency_available reads `available`: the nearest entry of a list
// ("12.5 25 50 100"), or the nearest step of a range ("[min step max]"). Ties go to the higher
// rate. Nothing usable in `available`: nullopt.
std::optional<double> nearestAvailable(std::string_view available, double requested);

}  // namespace kelvane::host::iio
