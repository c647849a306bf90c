// Record and replay through the library: what a host served, recorded on the SensorService pipe
// and replayed from the written description, reaches the proxy as the same events; faults the
// host caused come back at their place among the samples.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "IioSensorSubHal.h"
#include "host/common/Recorder.h"
#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"
#include "host/emulated/EmulatedHost.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_proxy_callback.h"

namespace kelvane::sensors {
namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using host::common::Recorder;
using host::description::HostConfig;
using host::description::VirtualDevice;
using host::emulated::EmulatedHost;

VirtualDevice threeAxis(int32_t id, int32_t type, const std::string& prefix, bool timestamp) {
    VirtualDevice d;
    d.id = id;
    d.types = {type};
    d.channels = {prefix + "_x", prefix + "_y", prefix + "_z"};
    if (timestamp) d.channels.push_back("timestamp");
    d.attributes = {{"name", "bmi160"}, {"scale", "0.0023928226"}, {"location", "lid"}};
    d.maxFrequency = 200.0;
    return d;
}

// Events as the proxy saw them, compared bit for bit: timestamps and payload floats.
bool sameEvent(const Event& a, const Event& b) {
    return a.timestamp == b.timestamp && a.sensorHandle == b.sensorHandle &&
           a.sensorType == b.sensorType && std::memcmp(&a.u.vec3, &b.u.vec3, sizeof(a.u.vec3)) == 0;
}

class RecordReplayTest : public ::testing::Test {
  protected:
    ~RecordReplayTest() override { stop(); }

    // Starts a host and the library against it, and waits for the sensor list.
    void start(HostConfig config, Recorder* recorder = nullptr) {
        host = std::make_unique<EmulatedHost>(std::move(config));
        if (recorder != nullptr) host->setServiceInterposer(recorder->interposer());
        host->registerWithBridge();
        subHal = new IioSensorSubHal();
        proxy = new testing::RecordingProxyCallback();
        subHal->initialize(proxy);
        subHal->getSensorsList_2_1([this](const hidl_vec<SensorInfo>& l) { sensors = l; });
    }

    // The library goes first, then the host (and with it every pipe through a recorder).
    void stop() {
        subHal.clear();
        host.reset();
    }

    HostConfig replayOf(const Recorder& recorder, double speed) {
        HostConfig config;
        std::string error;
        EXPECT_TRUE(host::description::parseHostDescription(
            host::description::hostDescriptionText(recorder.description()), &config, &error))
            << error;
        config.speed = speed;
        return config;
    }

    testing::LogCapture logs;
    std::unique_ptr<EmulatedHost> host;
    android::sp<IioSensorSubHal> subHal;
    android::sp<testing::RecordingProxyCallback> proxy;
    std::vector<SensorInfo> sensors;
};

TEST_F(RecordReplayTest, ReplayGivesTheRecordedEventsBitForBit) {
    HostConfig config;
    config.stream = false;
    // One device with a timestamp channel, one without; raw values at the edges of float.
    config.devices = {threeAxis(3, 1, "accel", true), threeAxis(7, 2, "anglvel", false)};
    Recorder recorder;
    start(config, &recorder);
    ASSERT_EQ(sensors.size(), 2u);
    ASSERT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_EQ(subHal->activate(2, true), Result::OK);
    ASSERT_TRUE(host->waitFor([this](const std::vector<host::common::HostEvent>&) {
        return host->streaming(3) && host->streaming(7);
    }));
    const int64_t raws[] = {0, 1, -1, 4096, -32768, 16777217, INT64_MAX / 3, INT64_MIN / 5};
    int64_t timestamp = 1'000'000'000;
    for (int64_t raw : raws) {
        host->pushSample(3, {{0, raw}, {1, -raw}, {2, raw / 7}, {3, timestamp += 2'500'000}});
        host->pushSample(7, {{0, raw}, {2, raw}});  // a sample without its y channel
    }
    const size_t count = 2 * std::size(raws);
    ASSERT_TRUE(proxy->waitForEvents(count));
    const std::vector<Event> recorded = proxy->events();
    subHal->activate(1, false);
    subHal->activate(2, false);
    stop();

    for (double speed : {0.0, 50.0}) {
        SCOPED_TRACE(speed);
        start(replayOf(recorder, speed));
        ASSERT_EQ(sensors.size(), 2u);
        ASSERT_EQ(subHal->activate(1, true), Result::OK);
        ASSERT_EQ(subHal->activate(2, true), Result::OK);
        ASSERT_TRUE(proxy->waitForEvents(count));
        // Played once: the host goes quiet after the last recorded sample.
        ASSERT_TRUE(host->waitFor([this](const std::vector<host::common::HostEvent>&) {
            return host->samplesSent(3) + host->samplesSent(7) == count;
        }));
        const std::vector<Event> replayed = proxy->events();
        ASSERT_EQ(replayed.size(), recorded.size());
        for (int32_t handle : {1, 2}) {
            const std::vector<Event> a = proxy->eventsFor(handle);
            size_t matched = 0;
            for (const Event& e : recorded) {
                if (e.sensorHandle != handle) continue;
                ASSERT_LT(matched, a.size());
                if (handle == 1) {
                    EXPECT_TRUE(sameEvent(e, a[matched])) << "event " << matched;
                } else {  // no timestamp channel: the library stamps it on arrival
                    EXPECT_EQ(std::memcmp(&e.u.vec3, &a[matched].u.vec3, sizeof(e.u.vec3)), 0);
                }
                ++matched;
            }
            EXPECT_EQ(matched, a.size());
        }
        stop();
    }
}

TEST_F(RecordReplayTest, HostFaultsReplayAtTheirPlaceAmongTheSamples) {
    HostConfig config;
    config.stream = false;
    config.devices = {threeAxis(3, 1, "accel", true)};
    Recorder recorder;
    start(config, &recorder);
    ASSERT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_TRUE(host->waitForEvent({host::common::HostEventKind::kStartReadingAsked, 3}));
    auto push = [this](int64_t t) { host->pushSample(3, {{0, t}, {1, 0}, {2, 0}, {3, t}}); };
    push(1);
    push(2);
    ASSERT_TRUE(proxy->waitForEvents(2));
    // A read failure: the library restarts sampling.
    host->sendObserverError(3, 5);
    ASSERT_TRUE(host->waitFor([this](const std::vector<host::common::HostEvent>&) {
        return host->count({host::common::HostEventKind::kStartReadingAsked, 3}) == 2 &&
               host->streaming(3);
    }));
    push(3);
    ASSERT_TRUE(proxy->waitForEvents(3));
    host->closeDevice(3);
    ASSERT_TRUE(logs.waitFor("IioSensorDevice 3: SensorDevice connection lost"));
    stop();

    const std::string text = host::description::hostDescriptionText(recorder.description());
    HostConfig replay = replayOf(recorder, 0.0);
    ASSERT_EQ(replay.timeline.size(), 2u) << text;
    EXPECT_EQ(replay.timeline[0].action, host::description::TimelineAction::kObserverError);
    EXPECT_EQ(replay.timeline[0].error, 5);
    EXPECT_EQ(replay.timeline[1].action, host::description::TimelineAction::kCloseDevice);
    EXPECT_EQ(replay.timeline[1].device, 3);
    const auto& timed = *replay.devices.at(0).timedSamples;
    ASSERT_EQ(timed.size(), 3u);
    // Each fault sits between the samples it came between.
    EXPECT_LE(timed.atUs[1], replay.timeline[0].at.count());
    EXPECT_GE(timed.atUs[2], replay.timeline[0].at.count());
    EXPECT_LE(timed.atUs[2], replay.timeline[1].at.count());
    // The third went to the observer the library started after the error.
    EXPECT_EQ(timed.restarts, (std::vector<size_t>{2}));

    start(std::move(replay));
    ASSERT_EQ(subHal->activate(1, true), Result::OK);
    ASSERT_TRUE(logs.waitFor("IioSensorDevice 3: SensorDevice connection lost", 2)) << text;
    ASSERT_TRUE(proxy->waitForEvents(3));
    std::vector<int64_t> stamps;
    for (const Event& e : proxy->events()) stamps.push_back(e.timestamp);
    EXPECT_EQ(stamps, (std::vector<int64_t>{1, 2, 3}));
    // The error came after two samples and made the library read again.
    EXPECT_EQ(host->count({host::common::HostEventKind::kStartReadingAsked, 3}), 2u);
}

// A device the timeline closes while it still holds samples: the replay ends all the same, at
// any speed (what it held was for the endpoint that is gone).
TEST_F(RecordReplayTest, AReplayEndsWhenItsTimelineClosesADeviceWithSamplesLeft) {
    for (double speed : {0.0, 50.0}) {
        SCOPED_TRACE(speed);
        auto samples = std::make_shared<host::description::TimedSamples>();
        samples->channels = {0, 1, 2, 3};
        for (int64_t i = 0; i < 10; ++i) {
            samples->atUs.push_back(i * 20'000);
            samples->values.insert(samples->values.end(), {0, 0, 4098, 1'000'000 + i});
            samples->present.insert(samples->present.end(), 4, true);
        }
        HostConfig config;
        config.speed = speed;
        config.devices = {threeAxis(3, 1, "accel", true)};
        config.devices[0].timedSamples = samples;
        host::description::TimelineEvent close;
        close.at = std::chrono::microseconds(50'000);
        close.action = host::description::TimelineAction::kCloseDevice;
        close.device = 3;
        config.timeline = {close};
        start(std::move(config));
        ASSERT_EQ(subHal->activate(1, true), Result::OK);
        EXPECT_TRUE(host->waitForEvent({host::common::HostEventKind::kReplayOver}));
        stop();
    }
}

}  // namespace
}  // namespace kelvane::sensors
