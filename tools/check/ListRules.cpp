#include "check/ListRules.h"

#include <cstdio>
#include <functional>

namespace kelvane::tools::check {

namespace {

using android::hardware::sensors::V1_0::SensorFlagBits;
using android::hardware::sensors::V2_1::SensorType;

enum Mode : uint32_t { kContinuous = 0, kOnChange = 2, kOneShot = 4, kSpecial = 6, kAnyMode = 99 };

const char* modeName(uint32_t mode) {
    switch (mode) {
        case kContinuous:
            return "CONTINUOUS";
        case kOnChange:
            return "ON_CHANGE";
        case kOneShot:
            return "ONE_SHOT";
        default:
            return "SPECIAL";
    }
}

// The reporting mode a public type must have; kAnyMode where none is fixed.
uint32_t expectedMode(int32_t type) {
    switch (static_cast<SensorType>(type)) {
        case SensorType::ACCELEROMETER:
        case SensorType::GYROSCOPE:
        case SensorType::MAGNETIC_FIELD:
        case SensorType::GRAVITY:
        case SensorType::LINEAR_ACCELERATION:
        case SensorType::ROTATION_VECTOR:
        case SensorType::GAME_ROTATION_VECTOR:
        case SensorType::GEOMAGNETIC_ROTATION_VECTOR:
        case SensorType::MAGNETIC_FIELD_UNCALIBRATED:
        case SensorType::GYROSCOPE_UNCALIBRATED:
        case SensorType::ACCELEROMETER_UNCALIBRATED:
            return kContinuous;
        case SensorType::LIGHT:
        case SensorType::PROXIMITY:
        case SensorType::RELATIVE_HUMIDITY:
        case SensorType::AMBIENT_TEMPERATURE:
        case SensorType::STEP_COUNTER:
            return kOnChange;
        case SensorType::SIGNIFICANT_MOTION:
        case SensorType::WAKE_GESTURE:
        case SensorType::GLANCE_GESTURE:
        case SensorType::PICK_UP_GESTURE:
            return kOneShot;
        case SensorType::STEP_DETECTOR:
        case SensorType::TILT_DETECTOR:
        case SensorType::WRIST_TILT_GESTURE:
            return kSpecial;
        default:
            return kAnyMode;
    }
}

uint32_t modeOf(const SensorInfo& sensor) {
    return sensor.flags & SensorFlagBits::MASK_REPORTING_MODE;
}

int32_t typeOf(const SensorInfo& sensor) { return static_cast<int32_t>(sensor.type); }

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

using Predicate =
    std::function<Outcome(const SensorInfo& sensor, const std::vector<SensorInfo>& all)>;

struct SensorRule {
    RuleId id;
    Predicate check;
};

const std::vector<SensorRule>& sensorRules() {
    static const std::vector<SensorRule> kRules = {
        {rules::kListName,
         [](const SensorInfo& s, const auto&) {
             return s.name.empty() ? fail("name is empty") : pass();
         }},
        {rules::kListNameUnique,
         [](const SensorInfo& s, const std::vector<SensorInfo>& all) {
             for (const SensorInfo& other : all) {
                 if (other.sensorHandle != s.sensorHandle && other.type == s.type &&
                     std::string(other.name) == std::string(s.name)) {
                     return fail("handle " + std::to_string(other.sensorHandle) +
                                 " of the same type is also named " + quoted(s.name));
                 }
             }
             return pass();
         }},
        {rules::kListVendor,
         [](const SensorInfo& s, const auto&) {
             return s.vendor.empty() ? fail("vendor is empty") : pass();
         }},
        {rules::kListType,
         [](const SensorInfo& s, const auto&) {
             if (s.type == SensorType::META_DATA) return fail("type is META_DATA (0)");
             if (s.type == SensorType::ADDITIONAL_INFO) return fail("type is ADDITIONAL_INFO (33)");
             return pass();
         }},
        {rules::kListTypeString,
         [](const SensorInfo& s, const auto&) {
             const std::string text = s.typeAsString;
             if (typeOf(s) >= static_cast<int32_t>(SensorType::DEVICE_PRIVATE_BASE)) {
                 return text.empty() ? fail("a private type needs a typeAsString") : pass();
             }
             const std::string official = officialTypeString(typeOf(s));
             if (text.empty() || text == official) return pass();
             return fail("typeAsString is " + quoted(text) + ", expected empty or " +
                         quoted(official));
         }},
        {rules::kListPower,
         [](const SensorInfo& s, const auto&) {
             return s.power >= 0 ? pass() : fail("power is " + std::to_string(s.power) + " < 0");
         }},
        {rules::kListMaxRange,
         [](const SensorInfo& s, const auto&) {
             return s.maxRange > 0 ? pass()
                                   : fail("maxRange is " + std::to_string(s.maxRange) + " <= 0");
         }},
        {rules::kListFifo,
         [](const SensorInfo& s, const auto&) {
             if (s.fifoMaxEventCount >= s.fifoReservedEventCount) return pass();
             return fail("fifoMaxEventCount " + std::to_string(s.fifoMaxEventCount) +
                         " < fifoReservedEventCount " + std::to_string(s.fifoReservedEventCount));
         }},
        {rules::kListReportingMode,
         [](const SensorInfo& s, const auto&) {
             const uint32_t expected = expectedMode(typeOf(s));
             if (expected == kAnyMode) return skip("the type has no fixed reporting mode");
             if (modeOf(s) == expected) return pass();
             return fail(std::string("reporting mode is ") + modeName(modeOf(s)) +
                         ", the type's is " + modeName(expected));
         }},
        {rules::kListDelays,
         [](const SensorInfo& s, const auto&) {
             const std::string values = "minDelay " + std::to_string(s.minDelay) + ", maxDelay " +
                                        std::to_string(s.maxDelay);
             if (s.minDelay > s.maxDelay) return fail(values + ": minDelay > maxDelay");
             switch (modeOf(s)) {
                 case kContinuous:
                     if (s.minDelay <= 0) return fail(values + ": CONTINUOUS needs minDelay > 0");
                     if (s.maxDelay < 0) return fail(values + ": CONTINUOUS needs maxDelay >= 0");
                     break;
                 case kOnChange:
                     if (s.minDelay < 0 || s.maxDelay < 0) {
                         return fail(values + ": ON_CHANGE needs both >= 0");
                     }
                     break;
                 case kOneShot:
                     if (s.minDelay != -1 || s.maxDelay != 0) {
                         return fail(values + ": ONE_SHOT needs -1 and 0");
                     }
                     break;
                 default:
                     break;
             }
             return pass();
         }},
        {rules::kProxyHandleTopByte,
         [](const SensorInfo& s, const auto&) {
             const uint32_t handle = static_cast<uint32_t>(s.sensorHandle);
             if ((handle & 0xFF000000u) == 0) return pass();
             char text[96];
             std::snprintf(text, sizeof(text),
                           "handle 0x%08x has a non-zero top byte: the proxy drops the sensor",
                           handle);
             return fail(text);
         }},
    };
    return kRules;
}

}  // namespace

std::string officialTypeString(int32_t type) {
    static const char* const kNames[] = {
        nullptr,
        "accelerometer",
        "magnetic_field",
        "orientation",
        "gyroscope",
        "light",
        "pressure",
        "temperature",
        "proximity",
        "gravity",
        "linear_acceleration",
        "rotation_vector",
        "relative_humidity",
        "ambient_temperature",
        "magnetic_field_uncalibrated",
        "game_rotation_vector",
        "gyroscope_uncalibrated",
        "significant_motion",
        "step_detector",
        "step_counter",
        "geomagnetic_rotation_vector",
        "heart_rate",
        "tilt_detector",
        "wake_gesture",
        "glance_gesture",
        "pick_up_gesture",
        "wrist_tilt_gesture",
        "device_orientation",
        "pose_6dof",
        "stationary_detect",
        "motion_detect",
        "heart_beat",
        "dynamic_sensor_meta",
        "additional_info",
        "low_latency_offbody_detect",
        "accelerometer_uncalibrated",
        "hinge_angle",
    };
    constexpr int32_t kCount = sizeof(kNames) / sizeof(kNames[0]);
    if (type <= 0 || type >= kCount) return "";
    return std::string("android.sensor.") + kNames[type];
}

void runListRules(CheckRun& run) {
    run.progress("sensor list: " + std::to_string(run.published().size()) + " sensors");
    run.add(rules::kListPublished, kSubHal,
            run.published().empty() ? fail("getSensorsList_2_1 answered an empty list")
                                    : pass(std::to_string(run.published().size()) + " sensors"));
    for (const SensorInfo& sensor : run.published()) {
        for (const SensorRule& rule : sensorRules()) {
            run.add(rule.id, sensor, "", rule.check(sensor, run.published()));
        }
    }
}

}  // namespace kelvane::tools::check
