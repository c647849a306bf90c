// android.hardware.sensors@2.1 types: the 2.1 sensor list and events, which add HINGE_ANGLE.
#pragma once

#include <android/hardware/sensors/1.0/types.h>
#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace android {
namespace hardware {
namespace sensors {
namespace V2_1 {

enum class SensorType : int32_t {
    META_DATA = 0,
    ACCELEROMETER = 1,
    MAGNETIC_FIELD = 2,
    ORIENTATION = 3,
    GYROSCOPE = 4,
    LIGHT = 5,
    PRESSURE = 6,
    TEMPERATURE = 7,
    PROXIMITY = 8,
    GRAVITY = 9,
    LINEAR_ACCELERATION = 10,
    ROTATION_VECTOR = 11,
    RELATIVE_HUMIDITY = 12,
    AMBIENT_TEMPERATURE = 13,
    MAGNETIC_FIELD_UNCALIBRATED = 14,
    GAME_ROTATION_VECTOR = 15,
    GYROSCOPE_UNCALIBRATED = 16,
    SIGNIFICANT_MOTION = 17,
    STEP_DETECTOR = 18,
    STEP_COUNTER = 19,
    GEOMAGNETIC_ROTATION_VECTOR = 20,
    HEART_RATE = 21,
    TILT_DETECTOR = 22,
    WAKE_GESTURE = 23,
    GLANCE_GESTURE = 24,
    PICK_UP_GESTURE = 25,
    WRIST_TILT_GESTURE = 26,
    DEVICE_ORIENTATION = 27,
    POSE_6DOF = 28,
    STATIONARY_DETECT = 29,
    MOTION_DETECT = 30,
    HEART_BEAT = 31,
    DYNAMIC_SENSOR_META = 32,
    ADDITIONAL_INFO = 33,
    LOW_LATENCY_OFFBODY_DETECT = 34,
    ACCELEROMETER_UNCALIBRATED = 35,
    HINGE_ANGLE = 36,
    DEVICE_PRIVATE_BASE = 0x10000,
};

struct SensorInfo {
    int32_t sensorHandle;
    ::android::hardware::hidl_string name;
    ::android::hardware::hidl_string vendor;
    int32_t version;
    SensorType type;
    ::android::hardware::hidl_string typeAsString;
    float maxRange;
    float resolution;
    float power;       // mA
    int32_t minDelay;  // µs
    uint32_t fifoReservedEventCount;
    uint32_t fifoMaxEventCount;
    ::android::hardware::hidl_string requiredPermission;
    int32_t maxDelay;  // µs
    ::android::hardware::hidl_bitfield<V1_0::SensorFlagBits> flags;
};

struct Event {
    int64_t timestamp;  // ns, CLOCK_BOOTTIME
    int32_t sensorHandle;
    SensorType sensorType;
    V1_0::EventPayload u;
};

static_assert(std::is_standard_layout<SensorInfo>::value, "SensorInfo must be standard layout");
static_assert(sizeof(SensorInfo) == 112, "wrong SensorInfo size");
static_assert(offsetof(SensorInfo, sensorHandle) == 0, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, name) == 8, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, vendor) == 24, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, version) == 40, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, type) == 44, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, typeAsString) == 48, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, maxRange) == 64, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, resolution) == 68, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, power) == 72, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, minDelay) == 76, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, fifoReservedEventCount) == 80, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, fifoMaxEventCount) == 84, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, requiredPermission) == 88, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, maxDelay) == 104, "wrong SensorInfo layout");
static_assert(offsetof(SensorInfo, flags) == 108, "wrong SensorInfo layout");

static_assert(std::is_standard_layout<Event>::value, "Event must be standard layout");
static_assert(sizeof(Event) == 80, "wrong Event size");
static_assert(offsetof(Event, timestamp) == 0, "wrong Event layout");
static_assert(offsetof(Event, sensorHandle) == 8, "wrong Event layout");
static_assert(offsetof(Event, sensorType) == 12, "wrong Event layout");
static_assert(offsetof(Event, u) == 16, "wrong Event layout");
static_assert(sizeof(V1_0::EventPayload) == 64, "wrong EventPayload size");
static_assert(alignof(V1_0::EventPayload) == 8, "wrong EventPayload alignment");
static_assert(offsetof(V1_0::EventPayload, vec3) == 0, "wrong EventPayload layout");
static_assert(offsetof(V1_0::Vec3, x) == 0, "wrong Vec3 layout");
static_assert(offsetof(V1_0::Vec3, y) == 4, "wrong Vec3 layout");
static_assert(offsetof(V1_0::Vec3, z) == 8, "wrong Vec3 layout");
static_assert(offsetof(V1_0::Vec3, status) == 12, "wrong Vec3 layout");
static_assert(offsetof(V1_0::EventPayload, scalar) == 0, "wrong EventPayload layout");
static_assert(offsetof(V1_0::EventPayload, meta) == 0, "wrong EventPayload layout");
static_assert(offsetof(V1_0::EventPayload, stepCount) == 0, "wrong EventPayload layout");
static_assert(offsetof(V1_0::EventPayload, data) == 0, "wrong EventPayload layout");

}  // namespace V2_1
}  // namespace sensors
}  // namespace hardware
}  // namespace android
