// android.hardware.sensors@1.0 types.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace android {
namespace hardware {
namespace sensors {
namespace V1_0 {

enum class Result : int32_t {
    OK = 0,
    PERMISSION_DENIED = -1,
    NO_MEMORY = -12,
    BAD_VALUE = -22,
    INVALID_OPERATION = -38,
};

enum class OperationMode : int32_t {
    NORMAL = 0,
    DATA_INJECTION = 1,
};

enum class RateLevel : int32_t {
    STOP = 0,
    NORMAL = 1,
    FAST = 2,
    VERY_FAST = 3,
};

enum class SensorStatus : int8_t {
    NO_CONTACT = -1,
    UNRELIABLE = 0,
    ACCURACY_LOW = 1,
    ACCURACY_MEDIUM = 2,
    ACCURACY_HIGH = 3,
};

enum class MetaDataEventType : uint32_t {
    META_DATA_FLUSH_COMPLETE = 1,
};

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
    DEVICE_PRIVATE_BASE = 0x10000,
};

enum class SensorFlagBits : uint32_t {
    WAKE_UP = 1u,
    CONTINUOUS_MODE = 0u,
    ON_CHANGE_MODE = 2u,
    ONE_SHOT_MODE = 4u,
    SPECIAL_REPORTING_MODE = 6u,
    DATA_INJECTION = 0x10u,
    DYNAMIC_SENSOR = 0x20u,
    ADDITIONAL_INFO = 0x40u,
    DIRECT_CHANNEL_ASHMEM = 0x400u,
    DIRECT_CHANNEL_GRALLOC = 0x800u,
    MASK_REPORTING_MODE = 0xEu,
    MASK_DIRECT_REPORT = 0x380u,
    MASK_DIRECT_CHANNEL = 0xC00u,
};

// Bit positions of the multi-bit fields of SensorFlagBits.
enum class SensorFlagShift : uint8_t {
    REPORTING_MODE = 1,
    DATA_INJECTION = 4,
    DYNAMIC_SENSOR = 5,
    ADDITIONAL_INFO = 6,
    DIRECT_REPORT = 7,
    DIRECT_CHANNEL = 10,
};

// Flag arithmetic gives the underlying integer, as a hidl_bitfield<SensorFlagBits> holds it.
constexpr uint32_t operator|(SensorFlagBits a, SensorFlagBits b) {
    return static_cast<uint32_t>(a) | static_cast<uint32_t>(b);
}
constexpr uint32_t operator|(uint32_t a, SensorFlagBits b) { return a | static_cast<uint32_t>(b); }
constexpr uint32_t operator|(SensorFlagBits a, uint32_t b) { return static_cast<uint32_t>(a) | b; }
constexpr uint32_t operator&(SensorFlagBits a, SensorFlagBits b) {
    return static_cast<uint32_t>(a) & static_cast<uint32_t>(b);
}
constexpr uint32_t operator&(uint32_t a, SensorFlagBits b) { return a & static_cast<uint32_t>(b); }
constexpr uint32_t operator&(SensorFlagBits a, uint32_t b) { return static_cast<uint32_t>(a) & b; }
inline uint32_t& operator|=(uint32_t& a, SensorFlagBits b) { return a |= static_cast<uint32_t>(b); }
inline uint32_t& operator&=(uint32_t& a, SensorFlagBits b) { return a &= static_cast<uint32_t>(b); }

enum class SharedMemType : int32_t {
    ASHMEM = 1,
    GRALLOC = 2,
};

enum class SharedMemFormat : int32_t {
    SENSORS_EVENT = 1,
};

struct SharedMemInfo {
    SharedMemType type;
    SharedMemFormat format;
    uint32_t size;
    ::android::hardware::hidl_handle memoryHandle;
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
    ::android::hardware::hidl_bitfield<SensorFlagBits> flags;
};

struct Vec3 {
    float x;
    float y;
    float z;
    SensorStatus status;
};

struct Vec4 {
    float x;
    float y;
    float z;
    float w;
};

struct Uncal {
    float x;
    float y;
    float z;
    float x_bias;
    float y_bias;
    float z_bias;
};

struct MetaData {
    MetaDataEventType what;
};

union EventPayload {
    Vec3 vec3;
    Vec4 vec4;
    Uncal uncal;
    MetaData meta;
    float scalar;
    uint64_t stepCount;
    float data[16];
};

struct Event {
    int64_t timestamp;  // ns, CLOCK_BOOTTIME
    int32_t sensorHandle;
    SensorType sensorType;
    EventPayload u;
};

static_assert(sizeof(SharedMemInfo) == 32, "wrong SharedMemInfo size");
static_assert(offsetof(SharedMemInfo, size) == 8, "wrong SharedMemInfo layout");
static_assert(offsetof(SharedMemInfo, memoryHandle) == 16, "wrong SharedMemInfo layout");
static_assert(sizeof(SensorInfo) == 112, "wrong SensorInfo size");
static_assert(sizeof(Vec3) == 16, "wrong Vec3 size");
static_assert(sizeof(Vec4) == 16, "wrong Vec4 size");
static_assert(sizeof(Uncal) == 24, "wrong Uncal size");
static_assert(sizeof(EventPayload) == 64, "wrong EventPayload size");
static_assert(alignof(EventPayload) == 8, "wrong EventPayload alignment");
static_assert(sizeof(Event) == 80, "wrong Event size");
static_assert(offsetof(Event, u) == 16, "wrong Event layout");
static_assert(std::is_standard_layout<Event>::value, "Event must be standard layout");

}  // namespace V1_0
}  // namespace sensors
}  // namespace hardware
}  // namespace android
