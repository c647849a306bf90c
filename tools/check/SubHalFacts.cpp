#include "check/SubHalFacts.h"

namespace kelvane::tools::check {

using android::hardware::sensors::V1_0::MetaDataEventType;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorType;

bool isMetaEvent(const Event& event) { return event.sensorType == SensorType::META_DATA; }

bool isFlushComplete(const Event& event, int32_t handle) {
    return isMetaEvent(event) && event.sensorHandle == handle &&
           event.u.meta.what == MetaDataEventType::META_DATA_FLUSH_COMPLETE;
}

std::string resultName(Result result) {
    switch (result) {
        case Result::OK:
            return "OK";
        case Result::PERMISSION_DENIED:
            return "PERMISSION_DENIED";
        case Result::NO_MEMORY:
            return "NO_MEMORY";
        case Result::BAD_VALUE:
            return "BAD_VALUE";
        case Result::INVALID_OPERATION:
            return "INVALID_OPERATION";
    }
    return std::to_string(static_cast<int>(result));
}

std::string periodText(int64_t periodNs) {
    if (periodNs % 1000000 == 0) return std::to_string(periodNs / 1000000) + " ms";
    if (periodNs % 1000 == 0) return std::to_string(periodNs / 1000) + " us";
    return std::to_string(periodNs) + " ns";
}

}  // namespace kelvane::tools::check
