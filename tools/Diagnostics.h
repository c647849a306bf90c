// The tool's own messages on stderr: errors and warnings, one line each.
#pragma once

#include <string>

namespace kelvane::tools {

// "iio-subhal: <message>".
void printError(const std::string& message);
// "iio-subhal: warning: <message>".
void printWarning(const std::string& message);

}  // namespace kelvane::tools
