// The bridge's connection to the host: handshake, version check, lost pipes, lifetime.
#include <future>
#include <thread>

#include "tests/iio/host_fixture.h"

namespace kelvane::sensors {
namespace {

HostConfig configWithoutChannel(uint32_t version = 54) {
    HostConfig config;
    config.bridgeVersion = version;
    config.autoSetUpChannel = false;
    return config;
}

TEST_F(HostTest, HandshakeRegistersTheClientBeforeAnsweringInit) {
    startHost(configWithoutChannel());
    startBridge();
    ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
    const std::vector<HostEvent> events = host->events();
    int ready = indexOf(events, Kind::kInstanceReady);
    int init = indexOf(events, Kind::kInitSent);
    int registered = indexOf(events, Kind::kClientRegistered);
    int reply = indexOf(events, Kind::kInitAnswered);
    ASSERT_GE(ready, 0);
    EXPECT_LT(ready, init);
    EXPECT_LT(init, registered);
    EXPECT_LT(registered, reply);
    for (const char* line :
         {"IioSensorBridge: connecting to VEL bridge (async)", "IioSensorBridge: VEL bridge ready",
          "IioSensorBridge: registered IioSensorInstance with Chrome OS",
          "IioSensorBridge::Init - received IioSensorHost from Chrome"}) {
        EXPECT_EQ(logs.count(line), 1u) << line;
    }
    std::vector<testing::LogLine> storage;
    const testing::LogLine* line = logs.find("IioSensorBridge: VEL bridge ready", &storage);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->file, "hardware/sensors/iio/IioSensorBridge.cpp");
    EXPECT_EQ(line->severity, 0);
}

TEST_F(HostTest, OlderHostBridgeEndsTheWaitForEnumerationWithNoSensors) {
    startBridge();
    // A waiter blocked before the host answers wakes on the mismatch, long before its limit.
    auto waiter = std::async(std::launch::async, [this] { return sensors(600000); });
    startHost(configWithoutChannel(50));
    ASSERT_EQ(waiter.wait_for(testing::kWaitLimit), std::future_status::ready);
    EXPECT_TRUE(waiter.get().empty());
    std::vector<testing::LogLine> storage;
    const testing::LogLine* line =
        logs.find("IioSensorBridge: version mismatch - Chrome supports v50, need v54", &storage);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->severity, 2);
    EXPECT_TRUE(sensors(0).empty());
    EXPECT_EQ(host->count(Kind::kInstanceReady), 0u);
}

TEST_F(HostTest, TabletModeIsLoggedOnly) {
    startHost(configWithoutChannel());
    startBridge();
    ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
    host->setTabletMode(true);
    host->setTabletMode(false);
    EXPECT_TRUE(logs.waitFor("IioSensorBridge: tablet mode ON"));
    EXPECT_TRUE(logs.waitFor("IioSensorBridge: tablet mode OFF"));
}

TEST_F(HostTest, LostInstancePipeIsLoggedOnceAndChangesNothing) {
    HostConfig config = configWithoutChannel();
    config.devices = {accelerometer(3)};
    startHost(config);
    startBridge();
    ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
    host->closeInstance();
    ASSERT_TRUE(logs.waitFor("IioSensorBridge: IioSensorInstance binding lost"));
    // The client pipe still works: the host can hand over its service and devices appear.
    host->setUpChannel();
    passGracePeriod();
    auto list = sensors(10000);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].first, 1);
    EXPECT_EQ(logs.count("IioSensorBridge: IioSensorInstance binding lost"), 1u);
}

TEST_F(HostTest, LostClientPipeIsLogged) {
    startHost(configWithoutChannel());
    startBridge();
    ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
    host->closeHalClient();
    EXPECT_TRUE(logs.waitFor("IioSensorBridge: SensorHalClient binding lost"));
}

TEST_F(HostTest, RepeatedInitRegistersAFreshClient) {
    HostConfig config = configWithoutChannel();
    config.devices = {accelerometer(3)};
    startHost(config);
    startBridge();
    ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
    host->callInit();
    ASSERT_TRUE(host->waitFor([](const std::vector<HostEvent>& events) {
        return countOf(events, Kind::kInitAnswered) == 2;
    }));
    EXPECT_EQ(host->count(Kind::kClientRegistered), 2u);
    host->setUpChannel();  // through the newest client
    passGracePeriod();
    EXPECT_EQ(sensors(10000).size(), 1u);
}

TEST_F(HostTest, BridgeGoneBeforeTheHostAnswersIsNeverCalled) {
    startBridge();
    testing::RunAndWait(mojoRunner(), [this] { bridge.clear(); });
    EXPECT_TRUE(logs.contains("IioSensorBridge: connecting to VEL bridge (async)"));
    startHost(configWithoutChannel());
    ASSERT_TRUE(testing::Flush(mojoRunner()));
    EXPECT_FALSE(logs.contains("IioSensorBridge: VEL bridge ready"));
    EXPECT_EQ(host->count(Kind::kInstanceReady), 0u);
}

TEST_F(HostTest, NoHostMeansGetSensorsWaitsItsLimitAndFindsNothing) {
    startBridge();
    EXPECT_TRUE(sensors(50).empty());
    EXPECT_TRUE(sensors(0).empty());
    EXPECT_TRUE(sensors(-5).empty());
}

// A host that shares the Mojo thread cannot have that thread discard what it left queued: its
// pending timeline entries must find it gone rather than run on freed memory.
TEST_F(HostTest, HostOnTheMojoThreadLeavesNothingToRunAfterItGoes) {
    HostConfig config;
    config.stream = false;
    config.devices = {accelerometer(1)};
    host::description::TimelineEvent closeService;
    closeService.at = std::chrono::seconds(1);
    closeService.action = host::description::TimelineAction::kCloseService;
    host::description::TimelineEvent tabletMode;
    tabletMode.at = std::chrono::seconds(2);
    config.timeline = {closeService, tabletMode};
    host = std::make_unique<EmulatedHost>(std::move(config), mojoRunner());
    host->registerWithBridge();
    startBridge();
    ASSERT_TRUE(clock->RunUntilIdle());
    ASSERT_EQ(sensors(0).size(), 1u);  // set up: the timeline is queued

    releaseLibrary();
    host.reset();
    ASSERT_TRUE(clock->FastForwardBy(base::TimeDelta::FromSeconds(3)));
    EXPECT_TRUE(clock->NextTaskDelay().is_max());
}

}  // namespace
}  // namespace kelvane::sensors
