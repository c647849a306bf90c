// The sub-HAL's debug report, as the proxy's dumpsys gets it: debug() with a real descriptor.
#pragma once

#include <string>

#include "SubHalLoader.h"

namespace kelvane::tools {

// Any thread the sub-HAL may be called from. On failure returns false and sets *error to one
// line.
bool debugReport(ISensorsSubHal& subHal, std::string* report, std::string* error);

}  // namespace kelvane::tools
