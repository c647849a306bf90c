// Loads the built library the way the multi-HAL proxy does and follows the handshake as the host
// sees it. The sub-HAL is a process-wide static, so this binary holds one and keeps it to exit.
#include <V2_1/SubHal.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "base/test/virtual_clock.h"
#include "host/emulated/EmulatedHost.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_proxy_callback.h"

namespace kelvane::sensors {
namespace {

using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::implementation::ISensorsSubHal;

TEST(EntryPointTest, LoadsOnceAndCompletesTheHandshake) {
    testing::LogCapture logs;
    host::description::HostConfig config;
    host::description::VirtualDevice accel;
    accel.id = 4;
    accel.types = {1};
    accel.channels = {"accel_x", "accel_y", "accel_z", "timestamp"};
    accel.attributes = {{"name", "bmi160"}, {"scale", "0.5"}, {"location", "base"}};
    config.devices = {accel};
    config.stream = false;
    base::test::VirtualClock clock;  // the enumeration grace period passes when told
    host::emulated::EmulatedHost host(config);
    host.registerWithBridge();

    void* library = dlopen(IIO_SUBHAL_LIBRARY, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    auto entry =
        reinterpret_cast<SensorsHalGetSubHalV2_1Func*>(dlsym(library, "sensorsHalGetSubHal_2_1"));
    ASSERT_NE(entry, nullptr);

    // Concurrent first calls construct one sub-HAL.
    std::vector<ISensorsSubHal*> seen(4, nullptr);
    std::vector<uint32_t> versions(4, 0);
    std::vector<std::thread> callers;
    for (size_t i = 0; i < seen.size(); ++i) {
        callers.emplace_back([&, i] { seen[i] = entry(&versions[i]); });
    }
    for (auto& t : callers) t.join();
    EXPECT_EQ(std::set<ISensorsSubHal*>(seen.begin(), seen.end()).size(), 1u);
    for (uint32_t v : versions) EXPECT_EQ(v, 0x02010000u);
    uint32_t version = 0;
    ISensorsSubHal* subHal = entry(&version);
    EXPECT_EQ(subHal, seen[0]);
    EXPECT_EQ(version, 0x02010000u);

    ASSERT_TRUE(host.waitForEvent(host::common::HostEventKind::kClientRegistered));
    EXPECT_EQ(logs.count("IioSensorSubHal: starting Mojo bridge in constructor"), 1u);
    EXPECT_EQ(logs.count("IioSensorBridge: connecting to VEL bridge (async)"), 1u);
    EXPECT_TRUE(logs.waitFor("IioSensorBridge::Init - received IioSensorHost from Chrome"));
    EXPECT_EQ(subHal->getName(), "Kelvane-IIOService-Subhal");

    android::sp<testing::RecordingProxyCallback> proxy = new testing::RecordingProxyCallback();
    subHal->initialize(proxy);
    std::vector<SensorInfo> sensors;
    ASSERT_TRUE(clock.FastForwardBy(base::TimeDelta::FromSeconds(2)));
    subHal->getSensorsList_2_1([&](const auto& list) { sensors = list; });
    ASSERT_EQ(sensors.size(), 1u);
    EXPECT_EQ(std::string(sensors[0].name), "Accelerometer (base)");
    subHal->activate(1, true);
    ASSERT_TRUE(host.waitForEvent({host::common::HostEventKind::kStartReadingAsked, 4}));
    host.pushSample(4, {{0, 2}, {3, 99}});
    ASSERT_TRUE(proxy->waitForEvents(1));
    EXPECT_EQ(proxy->events()[0].u.vec3.x, 1.0f);
    // The library stays loaded and streaming; process exit tears it down.
}

}  // namespace
}  // namespace kelvane::sensors
