// The host's event log: what its events add up to, how a stream of samples stays a few events,
// and the text made from events for people (the call log's format).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "host/common/HostEventLog.h"

namespace kelvane::host::common {
namespace {

using Kind = HostEventKind;

TEST(HostEventLogTest, DevicesAddUpTheirSamplesRatesAndStreams) {
    HostEventLog log;
    log.add(HostEvent(Kind::kFrequencyAsked, 3).with(Rate{400}));
    log.add(HostEvent(Kind::kFrequencyAnswered, 3).with(Rate{200}));
    log.add(HostEvent(Kind::kStreamStarted, 3));
    log.add(HostEvent(Kind::kStreamStarted, 3));  // a second endpoint of the same device
    log.add(HostEvent(Kind::kStreamStopped, 3));
    log.add(HostEvent(Kind::kSamplesSent, 3).with(SampleCount{5}));
    EXPECT_EQ(log.frequency(3), 200.0);
    EXPECT_TRUE(log.streaming(3));
    EXPECT_EQ(log.samplesSent(3), 5u);
    log.add(HostEvent(Kind::kStreamStopped, 3));
    log.add(HostEvent(Kind::kStreamStopped, 3));  // more stops than starts stay at none
    log.add(HostEvent(Kind::kStreamStarted, 3));
    EXPECT_TRUE(log.streaming(3));
    EXPECT_FALSE(log.streaming(4));
    EXPECT_EQ(log.frequency(4), 0.0);
}

TEST(HostEventLogTest, SamplesBetweenOtherEventsAreOneEventEach) {
    HostEventLog log;
    for (int i = 0; i < 100; ++i) {
        log.add(HostEvent(Kind::kSamplesSent, 0).with(SampleCount{1}));
        log.add(HostEvent(Kind::kSamplesSent, 1).with(SampleCount{2}));
    }
    log.add(HostEvent(Kind::kObserverError, 0).with(ObserverError{5}));
    log.add(HostEvent(Kind::kSamplesSent, 0).with(SampleCount{1}));
    const std::vector<HostEvent> events = log.events();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].payload, HostEventPayload(SampleCount{100}));
    EXPECT_EQ(events[1].payload, HostEventPayload(SampleCount{200}));
    EXPECT_EQ(events[2].kind, Kind::kObserverError);
    EXPECT_EQ(events[3].payload, HostEventPayload(SampleCount{1}));  // after the error: a new run
    EXPECT_EQ(log.samplesSent(0), 101u);
    EXPECT_EQ(log.events(3).size(), 1u);
    EXPECT_TRUE(log.events(9).empty());
    EXPECT_EQ(log.count({Kind::kSamplesSent, 0}), 2u);
    EXPECT_EQ(log.count(HostEventPattern(Kind::kObserverError).with(ObserverError{6})), 0u);
}

TEST(HostEventLogTest, WaitingSeesEventsFromOtherThreads) {
    HostEventLog log;
    std::thread writer([&] {
        for (int i = 0; i < 50; ++i) log.add(HostEvent(Kind::kStartReadingAsked, i));
    });
    EXPECT_TRUE(
        log.waitFor([](const std::vector<HostEvent>& events) { return events.size() == 50; },
                    std::chrono::seconds(30)));
    writer.join();
    EXPECT_FALSE(log.waitFor([](const std::vector<HostEvent>&) { return false; },
                             std::chrono::milliseconds(0)));
}

TEST(HostEventTextTest, EventsReadAsTheCallsTheyStandFor) {
    const std::pair<HostEvent, std::string> cases[] = {
        {HostEvent(Kind::kInitAnswered), "IioSensorInstance.Init reply"},
        {HostEvent(Kind::kStepAsked, 3).withStep(HostStep::kGetDevice),
         "SensorService.GetDevice 3"},
        {HostEvent(Kind::kStepAsked, 3)
             .withStep(HostStep::kGetAttributes)
             .with(AttributeNames{{"name", "scale", "location"}}),
         "SensorDevice[3].GetAttributes name,scale,location"},
        {HostEvent(Kind::kStepAnswered, 3).withStep(HostStep::kGetAllChannelIds),
         "SensorDevice[3].GetAllChannelIds reply"},
        {HostEvent(Kind::kStepFailed, 1)
             .withStep(HostStep::kGetDevice)
             .withReason("cannot open the device: No such file or directory (2)"),
         "SensorService.GetDevice 1 failed: cannot open the device: No such file or directory "
         "(2)"},
        {HostEvent(Kind::kFrequencyAsked, 3).with(Rate{HUGE_VAL}),
         "SensorDevice[3].SetFrequency inf"},
        {HostEvent(Kind::kFrequencyAsked, 3).with(Rate{0.5}), "SensorDevice[3].SetFrequency 0.5"},
        {HostEvent(Kind::kChannelsEnabled, 3).with(ChannelsSwitched{{0, 1, 2, 3}, true}),
         "SensorDevice[3].SetChannelsEnabled 0,1,2,3 true"},
        {HostEvent(Kind::kObserverError, 0).with(ObserverError{5}).withReason("device gone"),
         "Observer[0].OnErrorOccurred 5: device gone"},
        {HostEvent(Kind::kClosedByHost)
             .withPipe(HostPipe::kSensorService)
             .with(ServiceClosed{7, "bye"}),
         "close SensorService 7 bye"},
        {HostEvent(Kind::kClosedByClient, 3).withPipe(HostPipe::kSensorDevice),
         "error SensorDevice[3]"},
        {HostEvent(Kind::kSamplesSent, 2).with(SampleCount{1}), "SensorDevice[2] sent 1 sample"},
        {HostEvent(Kind::kTimelineNotApplied, 0)
             .with(TimelineSkip{100, "observerError"})
             .withReason("device 0 has no observer"),
         "timeline 100 observerError not applied: device 0 has no observer"},
    };
    for (const auto& [event, text] : cases) EXPECT_EQ(toText(event), text);
    HostEventLog log;
    log.add(HostEvent(Kind::kInstanceReady));
    log.add(HostEvent(Kind::kClientRegistered));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"VelBridgeHost.OnIioSensorInstanceReady",
                                                     "IioSensorHost.RegisterSensorHalClient"}));
}

}  // namespace
}  // namespace kelvane::host::common
