// The whole chain: proxy-like caller -> sub-HAL -> bridge -> device -> emulated host, and samples
// back to the proxy's callback.
#include <cutils/native_handle.h>
#include <fcntl.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <cmath>

#include "tests/iio/host_fixture.h"
#include "tests/support/debug_dump.h"

namespace kelvane::sensors {
namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;

class EndToEndTest : public HostTest {
  protected:
    void SetUp() override {
        HostConfig config;
        VirtualDevice light = device(9, {3}, {"illuminance", "timestamp"});
        light.attributes["location"] = std::nullopt;
        config.devices = {accelerometer(3), light};
        startHost(config);
        startSubHal();
        passGracePeriod();
        list = sensorList();
        ASSERT_EQ(list.size(), 2u);
    }

    std::vector<SensorInfo> sensorList() {
        std::vector<SensorInfo> out;
        subHal->getSensorsList_2_1([&](const hidl_vec<SensorInfo>& l) { out = l; });
        return out;
    }

    std::vector<SensorInfo> list;
};

TEST_F(EndToEndTest, PublishesReadySensorsOnceInHandleOrder) {
    EXPECT_EQ(list[0].sensorHandle, 1);
    EXPECT_EQ(std::string(list[0].name), "Accelerometer (lid)");
    EXPECT_EQ(list[1].sensorHandle, 2);
    EXPECT_EQ(std::string(list[1].name), "Light");
    EXPECT_EQ(list[1].type, SensorType::LIGHT);
    EXPECT_EQ(logs.count("IioSensorSubHal: discovered 2 sensors"), 1u);

    std::vector<SensorInfo> again = sensorList();
    ASSERT_EQ(again.size(), 2u);
    EXPECT_EQ(std::string(again[1].name), "Light");
    EXPECT_EQ(logs.count("IioSensorSubHal: discovered 2 sensors"), 1u);
    EXPECT_EQ(logs.count("IioSensorSubHal::getSensorsList_2_1"), 2u);
    EXPECT_EQ(testing::readDebugDump(*subHal),
              "IioSensorSubHal:\n  sensors: 2\n  [1] Accelerometer (lid) (type 1)\n"
              "  [2] Light (type 5)\n");
}

TEST_F(EndToEndTest, ActivateStreamsScaledEventsUntilDeactivated) {
    EXPECT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_TRUE(host->waitForEvent({Kind::kStartReadingAsked, 3}));
    const std::vector<HostEvent> events = host->events();
    int enable = indexOf(
        events,
        HostEventPattern(Kind::kChannelsEnabled, 3).with(ChannelsSwitched{{0, 1, 2, 3}, true}));
    int rate = indexOf(events, HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{50}));
    int start = indexOf(events, {Kind::kStartReadingAsked, 3});
    ASSERT_GE(enable, 0);
    EXPECT_LT(enable, rate);
    EXPECT_LT(rate, start);

    host->pushSample(3, {{0, 100}, {1, -4}, {2, 3}, {3, 123456789}});
    ASSERT_TRUE(proxy->waitForEvents(1));
    Event e = proxy->events().at(0);
    EXPECT_EQ(e.sensorHandle, 1);
    EXPECT_EQ(e.sensorType, SensorType::ACCELEROMETER);
    EXPECT_EQ(e.timestamp, 123456789);
    EXPECT_EQ(e.u.vec3.x, 50.0f);
    EXPECT_EQ(e.u.vec3.y, -2.0f);
    EXPECT_EQ(e.u.vec3.z, 1.5f);
    EXPECT_FALSE(proxy->posts().at(0).wakelockHeld);
    EXPECT_TRUE(logs.waitFor("IioSensorDevice: frequency set to 50 Hz"));

    EXPECT_EQ(subHal->activate(1, false), Result::OK);
    ASSERT_TRUE(host->waitForEvent({Kind::kStopReadingAsked, 3}));
    host->pushSample(3, {{0, 1}});
    ASSERT_TRUE(testing::Flush(mojoRunner()));
    EXPECT_EQ(proxy->eventCount(), 1u);
}

TEST_F(EndToEndTest, BatchSetsTheRateNowOrAtTheNextStart) {
    EXPECT_EQ(subHal->batch(1, 10000000, 123456), Result::OK);  // latency is ignored
    subHal->activate(1, true);
    ASSERT_TRUE(host->waitForEvent(HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{100})));
    subHal->batch(1, 20000000, 0);
    ASSERT_TRUE(host->waitForEvent(HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{50})));
    EXPECT_TRUE(logs.waitFor("IioSensorDevice: SetFrequency result=50"));
    subHal->activate(1, false);
    subHal->activate(1, true);  // keeps the last rate
    ASSERT_TRUE(host->waitFor([](const std::vector<HostEvent>& events) {
        return countOf(events, HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{50})) == 2;
    }));
    subHal->batch(1, 0, 0);  // +inf, sent as is while active
    ASSERT_TRUE(
        host->waitForEvent(HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{HUGE_VAL})));
    subHal->batch(1, -1000000000, 0);
    ASSERT_TRUE(host->waitForEvent(HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{-1})));
    subHal->activate(1, true);  // a negative rate is replaced at the next start
    ASSERT_TRUE(host->waitFor([](const std::vector<HostEvent>& events) {
        return countOf(events, HostEventPattern(Kind::kFrequencyAsked, 3).with(Rate{50})) == 3;
    }));
}

TEST_F(EndToEndTest, ReadErrorRestartsSamplingWhileActiveOnly) {
    subHal->activate(1, true);
    ASSERT_TRUE(host->waitForEvent({Kind::kStartReadingAsked, 3}));
    host->sendObserverError(3, 5);
    ASSERT_TRUE(logs.waitFor("IioSensorDevice 3: observer error 5"));
    ASSERT_TRUE(host->waitFor([](const std::vector<HostEvent>& events) {
        return countOf(events, {Kind::kStartReadingAsked, 3}) == 2;
    }));
    host->sendObserverError(3, 6);
    ASSERT_TRUE(logs.waitFor("IioSensorDevice 3: observer error 6"));
    EXPECT_EQ(host->count({Kind::kStartReadingAsked, 3}), 2u);
    // Exactly one observer is live: a sample reaches the proxy once.
    host->pushSample(3, {{0, 2}});
    ASSERT_TRUE(proxy->waitForEvents(1));
    ASSERT_TRUE(testing::Flush(mojoRunner()));
    EXPECT_EQ(proxy->eventCount(), 1u);
}

TEST_F(EndToEndTest, TwoActivationsLeaveOneLiveObserver) {
    subHal->activate(2, true);
    subHal->activate(2, true);
    ASSERT_TRUE(host->waitFor([](const std::vector<HostEvent>& events) {
        return countOf(events, {Kind::kStartReadingAsked, 9}) == 2;
    }));
    host->pushSample(9, {{0, 321}, {1, 77}});
    ASSERT_TRUE(proxy->waitForEvents(1));
    ASSERT_TRUE(testing::Flush(mojoRunner()));
    auto events = proxy->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].u.scalar, 321.0f);
    EXPECT_EQ(events[0].timestamp, 77);
    EXPECT_EQ(static_cast<int>(events[0].u.vec3.status), 0);
}

TEST_F(EndToEndTest, FlushAnswersAtOnceWithoutAWakeLock) {
    int64_t before = android::elapsedRealtimeNano();
    EXPECT_EQ(subHal->flush(2), Result::OK);  // inactive sensor
    EXPECT_EQ(subHal->flush(3), Result::BAD_VALUE);
    auto posts = proxy->posts();
    ASSERT_EQ(posts.size(), 1u);
    ASSERT_EQ(posts[0].events.size(), 1u);
    const Event& e = posts[0].events[0];
    EXPECT_EQ(e.sensorType, SensorType::META_DATA);
    EXPECT_EQ(e.sensorHandle, 2);
    EXPECT_EQ(static_cast<uint32_t>(e.u.meta.what), 1u);
    EXPECT_GE(e.timestamp, before);
    EXPECT_FALSE(posts[0].wakelockHeld);
    EXPECT_EQ(proxy->wakelockRequests(), std::vector<bool>{false});
    EXPECT_EQ(subHal->activate(7, true), Result::BAD_VALUE);
    EXPECT_EQ(subHal->batch(0, 1, 0), Result::BAD_VALUE);
}

TEST_F(EndToEndTest, DeviceReadyAfterPublicationStaysUnpublished) {
    host->setUpChannel();  // the same devices again, under handles 3 and 4
    ASSERT_TRUE(logs.waitFor("IioSensorBridge: device 9 -> handle 4 type 5"));
    ASSERT_TRUE(
        logs.waitFor("IioSensorDevice 9 (Light): name=dev scale=1 location= channels=2", 2));
    EXPECT_EQ(sensorList().size(), 2u);
    EXPECT_EQ(subHal->activate(4, true), Result::BAD_VALUE);
}

TEST_F(HostTest, FlushBeforeInitializeIsAcceptedAndPostsNothing) {
    HostConfig config;
    config.devices = {accelerometer(3)};
    startHost(config);
    subHal = new IioSensorSubHal();
    std::vector<SensorInfo> list;
    passGracePeriod();
    subHal->getSensorsList_2_1([&](const hidl_vec<SensorInfo>& l) { list = l; });
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(subHal->flush(1), Result::OK);
    subHal->activate(1, true);
    ASSERT_TRUE(host->waitForEvent({Kind::kStartReadingAsked, 3}));
    host->pushSample(3, {{0, 1}});  // dropped: nobody to post to yet
    // The host sends the tablet-mode change after the sample, and the Mojo thread handles them
    // in that order: once it is logged, the sample has been handled.
    host->setTabletMode(true);
    ASSERT_TRUE(logs.waitFor("IioSensorBridge: tablet mode ON"));
    proxy = new testing::RecordingProxyCallback();
    subHal->initialize(proxy);
    host->pushSample(3, {{0, 2}});
    ASSERT_TRUE(proxy->waitForEvents(1));
    EXPECT_EQ(proxy->events()[0].u.vec3.x, 1.0f);  // 2 * 0.5
}

TEST_F(HostTest, SensorWithoutUsableChannelsWarnsAndRequestsNothing) {
    HostConfig config;
    config.devices = {device(5, {1}, {"temp", "in_voltage0"})};
    startHost(config);
    startSubHal();
    std::vector<SensorInfo> list;
    passGracePeriod();
    subHal->getSensorsList_2_1([&](const hidl_vec<SensorInfo>& l) { list = l; });
    ASSERT_EQ(list.size(), 1u);  // published all the same
    EXPECT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_TRUE(logs.waitFor("IioSensorDevice 5: no channels to enable"));
    ASSERT_TRUE(testing::Flush(mojoRunner()));
    EXPECT_EQ(host->count({Kind::kStartReadingAsked, 5}), 0u);
    EXPECT_EQ(host->count({Kind::kChannelsEnabled, 5}), 0u);
    EXPECT_EQ(host->count({Kind::kFrequencyAsked, 5}), 0u);
}

// What the host reports sending is what the client gets: the rates benchmark takes each sample's
// send time from this probe and matches it to the event by timestamp.
TEST_F(HostTest, SentSampleProbeReportsEveryTimerSampleWithTheTimestampDelivered) {
    HostConfig config;
    config.devices = {accelerometer(3)};  // streams by its timer
    host = std::make_unique<EmulatedHost>(std::move(config));
    auto sent = std::make_shared<std::vector<host::emulated::SentSample>>();
    host->setSentSampleProbe([sent](const host::emulated::SentSample& s) { sent->push_back(s); });
    host->registerWithBridge();
    startSubHal();
    passGracePeriod();
    subHal->getSensorsList_2_1([](const hidl_vec<SensorInfo>& l) { ASSERT_EQ(l.size(), 1u); });
    ASSERT_EQ(subHal->batch(1, 10000000, 0), Result::OK);  // 100 Hz
    ASSERT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_TRUE(host->waitForEvent({Kind::kStreamStarted, 3}));
    ASSERT_TRUE(clock->FastForwardBy(base::TimeDelta::FromMilliseconds(95)));
    subHal->activate(1, false);
    ASSERT_TRUE(host->waitForEvent({Kind::kStreamStopped, 3}));
    ASSERT_TRUE(testing::Flush(mojoRunner()));

    // The host thread wrote *sent; the stream's end, logged on that thread, was seen above.
    const std::vector<Event> events = proxy->events();
    ASSERT_EQ(sent->size(), 10u);
    ASSERT_EQ(events.size(), sent->size());
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ((*sent)[i].device, 3);
        EXPECT_EQ((*sent)[i].timestampNs, events[i].timestamp);
        EXPECT_GE((*sent)[i].sentNs, (*sent)[i].timestampNs);
    }
}

}  // namespace
}  // namespace kelvane::sensors
