// The sensor-list rules: each a predicate over one published SensorInfo (and the whole list, for
// uniqueness), run on everything getSensorsList_2_1 answered.
#pragma once

#include "check/CheckRun.h"

namespace kelvane::tools::check {

void runListRules(CheckRun& run);

// The official typeAsString of a public type ("android.sensor.accelerometer"); empty for a
// private or unknown type.
std::string officialTypeString(int32_t type);

}  // namespace kelvane::tools::check
