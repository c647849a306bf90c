// The device on its own: channel mapping, attributes, description and sample conversion. Its
// Mojo pointers stay unbound here, so calls it makes to the host are dropped.
#include <gtest/gtest.h>
#include <utils/SystemClock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "IioSensorDevice.h"
#include "tests/support/log_capture.h"

namespace kelvane::sensors {
namespace {

using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;
using kelvane::testing::LogCapture;
using Sample = base::flat_map<int32_t, int64_t>;

class RecordingEvents : public IioSensorEventCallback {
  public:
    void postSensorEvents(const std::vector<Event>& e, bool wakeup) override {
        posts.push_back(e);
        wakeups.push_back(wakeup);
    }
    std::vector<std::vector<Event>> posts;
    std::vector<bool> wakeups;
};

uint32_t bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

const SensorKind& kindFor(SensorType type) {
    return *kindOfAndroidType(static_cast<int32_t>(type));
}

struct DeviceTest : ::testing::Test {
    std::unique_ptr<IioSensorDevice> make(SensorType type, std::vector<std::string> channels,
                                          std::vector<base::Optional<std::string>> attributes = {},
                                          int deviceId = 7, int handle = 1) {
        auto device = std::make_unique<IioSensorDevice>(deviceId, handle, kindFor(type),
                                                        std::vector<int>{1}, &events);
        device->onChannelIds(channels);
        device->onAttributes(attributes);
        return device;
    }
    // The event a sample becomes, with the device active.
    std::vector<Event> convert(IioSensorDevice& device, const Sample& sample) {
        events.posts.clear();
        device.OnSampleUpdated(sample);
        return events.posts.empty() ? std::vector<Event>{} : events.posts.back();
    }
    RecordingEvents events;
    LogCapture logs;
};

// Channel indices are observable through which raw values land on which axis.
TEST_F(DeviceTest, MapsAxisLightAndTimestampChannelsByExactName) {
    struct Case {
        SensorType type;
        std::vector<std::string> channels;
        std::vector<float> expect;  // x, y, z (or the scalar) for raw value = 10 * index + 1
        int64_t timestamp;          // -1: taken from the clock
    };
    const std::vector<Case> cases = {
        {SensorType::ACCELEROMETER,
         {"accel_x", "accel_y", "accel_z", "timestamp"},
         {1, 11, 21},
         31},
        {SensorType::GYROSCOPE,
         {"timestamp", "anglvel_z", "anglvel_y", "anglvel_x"},
         {31, 21, 11},
         1},
        {SensorType::LIGHT, {"illuminance", "timestamp"}, {1}, 11},
        {SensorType::LIGHT, {"accel_x", "timestamp"}, {0}, 11},
        {SensorType::MAGNETIC_FIELD, {"magn_x", "magn_x", "magn_z"}, {11, 0, 21}, -1},
        {SensorType::GRAVITY, {"Gravity_x", "gravity_y ", "gravity_z"}, {0, 0, 21}, -1},
        {SensorType::ACCELEROMETER, {}, {0, 0, 0}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.channels.empty() ? "no channels" : c.channels[0]);
        auto device = make(c.type, c.channels);
        device->activate(true);
        Sample sample;
        for (int i = 0; i < 4; ++i) sample[i] = 10 * i + 1;
        int64_t before = android::elapsedRealtimeNano();
        std::vector<Event> out = convert(*device, sample);
        ASSERT_EQ(out.size(), 1u);
        if (c.type == SensorType::LIGHT) {
            EXPECT_EQ(out[0].u.scalar, c.expect[0]);
        } else {
            EXPECT_EQ(out[0].u.vec3.x, c.expect[0]);
            EXPECT_EQ(out[0].u.vec3.y, c.expect[1]);
            EXPECT_EQ(out[0].u.vec3.z, c.expect[2]);
        }
        if (c.timestamp >= 0) {
            EXPECT_EQ(out[0].timestamp, c.timestamp);
        } else {
            EXPECT_GE(out[0].timestamp, before);
        }
    }
}

TEST_F(DeviceTest, ParsesTheScaleOrFallsBackToOne) {
    const std::vector<std::pair<std::string, double>> cases = {
        {"0.25", 0.25}, {"2.5e-3", 0.0025}, {"abc", 1.0},   {"", 1.0},
        {"1.5x", 1.0},  {" 2", 1.0},        {"0.5\n", 1.0}, {"inf", 1.0},
    };
    for (const auto& [text, scale] : cases) {
        SCOPED_TRACE(text);
        auto device = make(SensorType::ACCELEROMETER, {"accel_x"}, {"name-a", text, "loc-b"});
        device->activate(true);
        std::vector<Event> out = convert(*device, Sample{{0, 1000}});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].u.vec3.x, static_cast<float>(1000.0 * scale));
    }
}

TEST_F(DeviceTest, LogsTheSummaryAndBecomesReadyWhateverTheAttributesHold) {
    make(SensorType::ACCELEROMETER, {"accel_x", "accel_x"}, {"name-a", "0.0025", "loc-b", "extra"},
         3);
    make(SensorType::LIGHT, {}, {"name-b"}, 4);
    make(SensorType::GYROSCOPE, {"anglvel_x"}, {}, 5);
    make(SensorType::GRAVITY, {}, {base::nullopt, base::nullopt, base::nullopt}, 6);
    make(SensorType::MAGNETIC_FIELD, {}, {"m", "1e-5"}, 8);
    EXPECT_TRUE(logs.contains(
        "IioSensorDevice 3 (Accelerometer): name=name-a scale=0.0025 location=loc-b channels=2"));
    EXPECT_TRUE(
        logs.contains("IioSensorDevice 4 (Light): name=name-b scale=1 location= channels=0"));
    EXPECT_TRUE(logs.contains("IioSensorDevice 5 (Gyroscope): name= scale=1 location= channels=1"));
    EXPECT_TRUE(logs.contains("IioSensorDevice 6 (Gravity): name= scale=1 location= channels=0"));
    EXPECT_TRUE(
        logs.contains("IioSensorDevice 8 (Magnetometer): name=m scale=1e-05 location= channels=0"));
    auto device = std::make_unique<IioSensorDevice>(9, 1, kindFor(SensorType::LIGHT),
                                                    std::vector<int>{3}, &events);
    EXPECT_FALSE(device->isReady());
    device->onChannelIds({});
    EXPECT_FALSE(device->isReady());
    device->onAttributes({});
    EXPECT_TRUE(device->isReady());
}

TEST_F(DeviceTest, DescribesEachTypeFromTheFixedTable) {
    struct Expect {
        SensorType type;
        std::string name, typeAsString;
        uint32_t maxRange, resolution;
        int32_t minDelay;
        uint32_t flags;
    };
    const std::vector<Expect> table = {
        {SensorType::ACCELEROMETER, "Accelerometer (loc-b)", "android.sensor.accelerometer",
         0x429CE80A, 0x3B1CD0E7, 10000, 0},
        {SensorType::MAGNETIC_FIELD, "Magnetometer (loc-b)", "android.sensor.magnetic_field",
         0x45997FF4, 0x3E19999A, 20000, 0},
        {SensorType::GYROSCOPE, "Gyroscope (loc-b)", "android.sensor.gyroscope", 0x420BA058,
         0x3A8BA054, 10000, 0},
        {SensorType::LIGHT, "Light (loc-b)", "android.sensor.light", 0x47C35000, 0x3F800000, 0, 2},
        {SensorType::GRAVITY, "Gravity (loc-b)", "android.sensor.gravity", 0x411CE80A, 0x3A83126F,
         10000, 0},
    };
    for (const Expect& e : table) {
        SCOPED_TRACE(e.name);
        auto device = make(e.type, {}, {"ignored-name", "2", "loc-b"}, 7, 12);
        SensorInfo info = device->getSensorInfo();
        EXPECT_EQ(info.sensorHandle, 12);
        EXPECT_EQ(std::string(info.name), e.name);
        EXPECT_EQ(std::string(info.vendor), "Tolvik");
        EXPECT_EQ(info.version, 1);
        EXPECT_EQ(info.type, e.type);
        EXPECT_EQ(std::string(info.typeAsString), e.typeAsString);
        EXPECT_EQ(bits(info.maxRange), e.maxRange);
        EXPECT_EQ(bits(info.resolution), e.resolution);
        EXPECT_EQ(bits(info.power), 0x3A83126Fu);
        EXPECT_EQ(info.minDelay, e.minDelay);
        EXPECT_EQ(info.fifoReservedEventCount, 0u);
        EXPECT_EQ(info.fifoMaxEventCount, 0u);
        EXPECT_EQ(std::string(info.requiredPermission), "");
        EXPECT_EQ(info.maxDelay, 200000);
        EXPECT_EQ(static_cast<uint32_t>(info.flags), e.flags);
    }
    EXPECT_EQ(std::string(make(SensorType::ACCELEROMETER, {})->getSensorInfo().name),
              "Accelerometer");
}

TEST_F(DeviceTest, ConvertsRawValuesThroughFloatThenScaleInDouble) {
    auto device = make(SensorType::ACCELEROMETER, {"accel_x", "accel_y", "accel_z", "timestamp"},
                       {"n", "0.5", ""});
    device->activate(true);
    std::vector<Event> out =
        convert(*device, Sample{{0, 100}, {1, -7}, {2, (1 << 24) + 1}, {3, -5}, {9, 4}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].u.vec3.x, 50.0f);
    EXPECT_EQ(out[0].u.vec3.y, -3.5f);
    EXPECT_EQ(out[0].u.vec3.z, 8388608.0f);  // 2^24 + 1 rounds to 2^24 before scaling
    EXPECT_EQ(static_cast<int>(out[0].u.vec3.status), 3);
    EXPECT_EQ(out[0].timestamp, -5);
    EXPECT_EQ(out[0].sensorHandle, 1);
    EXPECT_EQ(out[0].sensorType, SensorType::ACCELEROMETER);
    const uint8_t* payload = reinterpret_cast<const uint8_t*>(&out[0].u);
    for (size_t i = 13; i < sizeof(out[0].u); ++i) ASSERT_EQ(payload[i], 0) << "byte " << i;
    EXPECT_EQ(events.wakeups.back(), false);

    // An unscaled large value is the raw value in single precision.
    auto plain = make(SensorType::GYROSCOPE, {"anglvel_x"});
    plain->activate(true);
    EXPECT_EQ(convert(*plain, Sample{{0, (1 << 24) + 1}})[0].u.vec3.x, 16777216.0f);
}

TEST_F(DeviceTest, EmptyAndPartialSamplesStillGiveOneEvent) {
    auto accel = make(SensorType::ACCELEROMETER, {"accel_x", "accel_y", "accel_z"});
    accel->activate(true);
    int64_t before = android::elapsedRealtimeNano();
    std::vector<Event> out = convert(*accel, Sample{});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_GE(out[0].timestamp, before);
    EXPECT_LE(out[0].timestamp, android::elapsedRealtimeNano());
    EXPECT_EQ(out[0].u.vec3.x, 0.0f);
    EXPECT_EQ(out[0].u.vec3.z, 0.0f);
    EXPECT_EQ(static_cast<int>(out[0].u.vec3.status), 3);

    auto light = make(SensorType::LIGHT, {"illuminance", "timestamp"});
    light->activate(true);
    out = convert(*light, Sample{{1, 0}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].timestamp, 0);
    EXPECT_EQ(out[0].u.scalar, 0.0f);
    EXPECT_EQ(static_cast<int>(out[0].u.vec3.status), 0);
    // An unchanged light value is still an event.
    EXPECT_EQ(convert(*light, Sample{{1, 0}}).size(), 1u);
}

TEST_F(DeviceTest, DropsSamplesWhileInactive) {
    auto accel = make(SensorType::ACCELEROMETER, {"accel_x"});
    EXPECT_TRUE(convert(*accel, Sample{{0, 1}}).empty());
    accel->activate(true);
    EXPECT_EQ(convert(*accel, Sample{{0, 1}}).size(), 1u);
    accel->activate(false);
    EXPECT_TRUE(convert(*accel, Sample{{0, 1}}).empty());

    IioSensorDevice noCallback(1, 1, kindFor(SensorType::ACCELEROMETER), {1}, nullptr);
    noCallback.activate(true);
    noCallback.OnSampleUpdated(Sample{{0, 1}});  // nothing to post to; must not crash
}

TEST_F(DeviceTest, ObserverErrorsAreLoggedAndInactiveOnesChangeNothing) {
    auto accel = make(SensorType::ACCELEROMETER, {"accel_x"}, {}, 11);
    accel->OnErrorOccurred(chromeos::sensors::mojom::ObserverErrorType::READ_FAILED);
    accel->OnErrorOccurred(static_cast<chromeos::sensors::mojom::ObserverErrorType>(42));
    EXPECT_TRUE(logs.contains("IioSensorDevice 11: observer error 5"));
    EXPECT_TRUE(logs.contains("IioSensorDevice 11: observer error 42"));
    EXPECT_TRUE(convert(*accel, Sample{{0, 1}}).empty());  // still inactive
}

TEST_F(DeviceTest, StartingWithoutUsableChannelsWarnsOnly) {
    auto accel = make(SensorType::ACCELEROMETER, {"temp"}, {}, 12);
    accel->activate(true);  // no control pipe here: nothing is sent, nothing is logged
    EXPECT_FALSE(logs.contains("IioSensorDevice 12: no channels to enable"));
}

}  // namespace
}  // namespace kelvane::sensors
