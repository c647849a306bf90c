// Enumeration of the host's devices into sensors, and the registry queries.
#include <algorithm>
#include <chrono>
#include <future>

#include "tests/iio/host_fixture.h"

namespace kelvane::sensors {
namespace {

using android::hardware::sensors::V2_1::SensorType;

std::vector<int> handlesOf(const std::vector<std::pair<int, IioSensorBridge::SensorInfo>>& list) {
    std::vector<int> handles;
    for (const auto& entry : list) handles.push_back(entry.first);
    return handles;
}

TEST_F(HostTest, MixedListingTakesTheFirstSupportedTypeInHostOrder) {
    HostConfig config;
    config.devices = {device(3, {2, 1}, {"anglvel_x", "timestamp"}), device(7, {1}), device(9, {4}),
                      device(12, {11})};
    startHost(config);
    startBridge();
    passGracePeriod();
    auto list = sensors(10000);
    ASSERT_EQ(handlesOf(list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(list[0].second.type, SensorType::GYROSCOPE);
    EXPECT_EQ(list[1].second.type, SensorType::ACCELEROMETER);
    EXPECT_EQ(list[2].second.type, SensorType::GRAVITY);
    EXPECT_EQ(std::string(list[0].second.name), "Gyroscope (lid)");
    EXPECT_EQ(logs.count("IioSensorBridge: got 4 IIO devices"), 1u);
    EXPECT_TRUE(logs.contains("IioSensorBridge: device 3 -> handle 1 type 4"));
    EXPECT_TRUE(logs.contains("IioSensorBridge: device 7 -> handle 2 type 1"));
    EXPECT_TRUE(logs.contains("IioSensorBridge: device 12 -> handle 3 type 9"));
    EXPECT_TRUE(logs.contains("IioSensorBridge: 3 devices ready"));
    EXPECT_EQ(host->count(HostEventPattern(Kind::kStepAsked, 9).withStep(HostStep::kGetDevice)),
              0u);
    EXPECT_TRUE(host->waitForEvent(HostEventPattern(Kind::kTimeoutSet, 3).with(TimeoutMs{5000})));
    EXPECT_TRUE(host->waitForEvent(
        HostEventPattern(Kind::kStepAsked, 3).withStep(HostStep::kGetAttributes)));
}

TEST_F(HostTest, ListingsWithoutSupportedDevicesCompleteAtOnce) {
    for (std::vector<VirtualDevice> devices :
         {std::vector<VirtualDevice>{}, {device(1, {4, 6}), device(2, {0, 12}), device(5, {})}}) {
        HostConfig config;
        config.devices = devices;
        startHost(config);
        startBridge();
        // No grace period to wait out: a waiter with a huge limit returns promptly.
        auto waiter = std::async(std::launch::async, [this] { return sensors(600000); });
        ASSERT_EQ(waiter.wait_for(testing::kWaitLimit), std::future_status::ready);
        EXPECT_TRUE(waiter.get().empty());
        EXPECT_TRUE(logs.contains("IioSensorBridge: got " + std::to_string(devices.size()) +
                                  " IIO devices"));
        EXPECT_TRUE(logs.contains("IioSensorBridge: no supported IIO devices found"));
        releaseLibrary();
        host.reset();
    }
}

TEST_F(HostTest, ASecondChannelContinuesTheHandles) {
    HostConfig config;
    config.devices = {accelerometer(3), device(4, {2}, {"anglvel_x"}), device(5, {3})};
    startHost(config);
    startBridge();
    passGracePeriod();
    ASSERT_EQ(handlesOf(sensors(10000)), (std::vector<int>{1, 2, 3}));
    host->setUpChannel();
    ASSERT_TRUE(logs.waitFor("IioSensorBridge: device 5 -> handle 6 type 5"));
    EXPECT_TRUE(logs.contains("IioSensorBridge: device 3 -> handle 4 type 1"));
    // getSensors does not wait for the second pass; the first pass's devices stay.
    auto list = sensors(0);
    ASSERT_GE(list.size(), 3u);
    EXPECT_EQ(list[0].first, 1);
}

TEST_F(HostTest, TimedOutQueryReturnsOnlyTheReadyDevices) {
    HostConfig config;
    VirtualDevice stalled = device(8, {1}, {"accel_x"});
    stalled.stall = host::description::Stall::kAttributes;
    config.devices = {accelerometer(3), stalled, device(9, {3}, {"illuminance"})};
    startHost(config);
    startBridge();
    ASSERT_TRUE(logs.waitFor(
        "IioSensorDevice 3 (Accelerometer): name=bmi160 scale=0.5 location=lid channels=4"));
    ASSERT_TRUE(
        logs.waitFor("IioSensorDevice 9 (Light): name=dev scale=1 location=lid channels=1"));
    EXPECT_EQ(handlesOf(sensors(20)), (std::vector<int>{1, 3}));
    // The grace period ends enumeration whatever is ready.
    passGracePeriod();
    EXPECT_EQ(handlesOf(sensors(10000)), (std::vector<int>{1, 3}));
    EXPECT_TRUE(logs.contains("IioSensorBridge: 2 devices ready"));
}

TEST_F(HostTest, DeviceLostBeforeReadyIsNeverPublishedAndAfterReadyStays) {
    HostConfig config;
    VirtualDevice early = accelerometer(3);
    early.closeAt = host::description::CloseAt::kOnChannels;
    VirtualDevice late = accelerometer(4);
    late.closeAt = host::description::CloseAt::kAfterAttributes;
    config.devices = {early, late};
    startHost(config);
    startBridge();
    passGracePeriod();
    EXPECT_EQ(handlesOf(sensors(10000)), (std::vector<int>{2}));
    EXPECT_TRUE(logs.waitFor("IioSensorDevice 3: SensorDevice connection lost"));
    EXPECT_TRUE(logs.waitFor("IioSensorDevice 4: SensorDevice connection lost"));
}

// Timeline entries at 0 come right after the handshake of every device, whatever its replies
// cost, never in the middle of it.
TEST_F(HostTest, TimelineStartsOnceEveryOpenedDeviceIsSetUp) {
    HostConfig config;
    VirtualDevice late = accelerometer(4);
    late.replyDelay = std::chrono::milliseconds(700);
    VirtualDevice stalled = accelerometer(5);
    stalled.stall = host::description::Stall::kAttributes;
    config.devices = {accelerometer(3), late, stalled, device(6, {4})};
    host::description::TimelineEvent closeDevice;
    closeDevice.action = host::description::TimelineAction::kCloseDevice;
    closeDevice.device = 4;
    host::description::TimelineEvent closeService;
    closeService.action = host::description::TimelineAction::kCloseService;
    closeService.reason = 3;
    config.timeline = {closeDevice, closeService};
    startHost(config);
    startBridge();
    passGracePeriod();
    EXPECT_EQ(handlesOf(sensors(10000)), (std::vector<int>{1, 2}));
    const std::vector<std::string> lines = logs.texts();
    auto at = [&](const std::string& text) {
        return std::find(lines.begin(), lines.end(), text) - lines.begin();
    };
    const auto lost = at("IioSensorDevice 4: SensorDevice connection lost");
    const auto closed = at("IioSensorBridge: SensorService disconnected, reason=3 desc=");
    ASSERT_LT(closed, static_cast<long>(lines.size()));
    EXPECT_LT(lost, closed);  // in the timeline's order
    EXPECT_LT(at("IioSensorDevice 4 (Accelerometer): name=bmi160 scale=0.5 location=lid "
                 "channels=4"),
              lost);
}

// Which devices the timeline waits for is the configuration's to say: a host told its client
// opens nothing starts its timeline at once, here in the middle of a late handshake.
TEST_F(HostTest, TimelineWaitsForTheTypesTheConfigurationSaysTheClientOpens) {
    HostConfig config;
    VirtualDevice late = accelerometer(3);
    late.replyDelay = std::chrono::milliseconds(700);
    config.devices = {late};
    config.clientTypes = {};
    host::description::TimelineEvent closeDevice;
    closeDevice.action = host::description::TimelineAction::kCloseDevice;
    closeDevice.device = 3;
    closeDevice.at = std::chrono::milliseconds(100);  // once the library opened it
    config.timeline = {closeDevice};
    startHost(config);
    startBridge();
    ASSERT_TRUE(host->waitForEvent({Kind::kStepAsked, 3}));
    ASSERT_TRUE(clock->FastForwardBy(base::TimeDelta::FromMilliseconds(200)));
    ASSERT_TRUE(host->waitForEvent(
        HostEventPattern(Kind::kClosedByHost, 3).withPipe(host::common::HostPipe::kSensorDevice)));
    passGracePeriod();
    EXPECT_TRUE(sensors(10000).empty());
    EXPECT_EQ(
        host->count(HostEventPattern(Kind::kStepAnswered, 3).withStep(HostStep::kGetAttributes)),
        0u);
}

TEST_F(HostTest, LostServiceIsLoggedWithItsReason) {
    HostConfig config;
    config.devices = {accelerometer(3)};
    startHost(config);
    startBridge();
    passGracePeriod();
    ASSERT_EQ(sensors(10000).size(), 1u);
    host->closeService(7, "bye");
    EXPECT_TRUE(logs.waitFor("IioSensorBridge: SensorService disconnected, reason=7 desc=bye"));
    EXPECT_EQ(sensors(0).size(), 1u);  // devices keep their own pipes
}

}  // namespace
}  // namespace kelvane::sensors
