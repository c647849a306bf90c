// How the sub-HAL's events and answers read, for the rules and for serve: meta events, flush
// completions, Result names and periods as text. Pure functions, any thread.
#pragma once

#include <android/hardware/sensors/2.1/types.h>

#include <cstdint>
#include <string>

namespace kelvane::tools::check {

bool isMetaEvent(const android::hardware::sensors::V2_1::Event& event);
bool isFlushComplete(const android::hardware::sensors::V2_1::Event& event, int32_t handle);
std::string resultName(android::hardware::sensors::V1_0::Result result);
std::string periodText(int64_t periodNs);  // "200 ms", "5 ms", "10 us"

}  // namespace kelvane::tools::check
