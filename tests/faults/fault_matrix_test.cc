// What the library does when the host misbehaves, one row per fault: the end state (what it
// publishes, what the host saw, every warning and error it logged) and that it still serves what
// it can. All rows run through one driver against the emulated host; the default host has an
// accelerometer (device 3, handle 1) and a light sensor (device 9, handle 2).
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/iio/host_fixture.h"

namespace kelvane::sensors {
namespace {

using android::hardware::sensors::V2_1::Event;
using host::description::CloseAt;
using host::description::Stall;
using host::description::TimelineAction;
using host::description::TimelineEvent;

constexpr int32_t kAccel = 3;  // handle 1
constexpr int32_t kLight = 9;  // handle 2

HostEventPattern step(Kind kind, HostStep which, int32_t device = kAccel) {
    return HostEventPattern(kind, device).withStep(which);
}

// The library enabling every channel of the accelerometer.
const HostEventPattern kAccelEnabled =
    HostEventPattern(Kind::kChannelsEnabled, kAccel).where([](const HostEvent& e) {
        return e.as<ChannelsSwitched>() != nullptr && e.as<ChannelsSwitched>()->enable;
    });
const HostEventPattern kAccelTimeout = {Kind::kTimeoutSet, kAccel};

// Every sample event the library posts, from the Mojo thread.
class EventRecorder : public IioSensorEventCallback {
  public:
    void postSensorEvents(const std::vector<Event>& events, bool) override {
        mSignal.Notify([&] { mEvents.insert(mEvents.end(), events.begin(), events.end()); });
    }
    bool waitFor(int32_t handle, int64_t timestamp) {
        return mSignal.WaitUntil([&] { return count(handle, timestamp) > 0; });
    }
    size_t seen(int32_t handle, int64_t timestamp) {
        std::lock_guard<std::mutex> lock(mSignal.mutex());
        return count(handle, timestamp);
    }

  private:
    size_t count(int32_t handle, int64_t timestamp) const {
        size_t n = 0;
        for (const Event& e : mEvents) n += e.sensorHandle == handle && e.timestamp == timestamp;
        return n;
    }

    testing::Signal mSignal;
    std::vector<Event> mEvents;  // guarded by mSignal's mutex
};

class FaultDriver;

// One row of the matrix.
struct FaultCase {
    explicit FaultCase(std::string rowName) : name(std::move(rowName)) {
        config.devices = {accelerometer(kAccel), device(kLight, {3}, {"illuminance", "timestamp"})};
    }

    FaultCase& configure(const std::function<void(HostConfig&)>& change) {
        change(config);
        return *this;
    }
    FaultCase& withoutHost() {
        registerHost = false;
        return *this;
    }
    FaultCase& fault(std::function<void(FaultDriver&)> action) {
        inject = std::move(action);
        return *this;
    }
    FaultCase& publishes(std::vector<int> handles) {
        published = std::move(handles);
        return *this;
    }
    FaultCase& endsEnumeration() {
        enumerationEnds = true;
        return *this;
    }
    FaultCase& hostSaw(std::vector<HostEventPattern> events) {
        saw = std::move(events);
        return *this;
    }
    FaultCase& hostSawTimes(const HostEventPattern& event, size_t times) {
        sawTimes.emplace_back(event, times);
        return *this;
    }
    FaultCase& hostNever(std::vector<HostEventPattern> events) {
        never = std::move(events);
        return *this;
    }
    FaultCase& logs(std::vector<std::string> lines) {
        logged = std::move(lines);
        return *this;
    }
    // Every WARNING and ERROR line of the whole run, in order.
    FaultCase& problems(std::vector<std::string> lines) {
        problemLines = std::move(lines);
        return *this;
    }
    FaultCase& serves(int handle, int32_t device) {
        servedHandle = handle;
        servedDevice = device;
        return *this;
    }

    std::string name;
    HostConfig config;
    bool registerHost = true;
    std::function<void(FaultDriver&)> inject = [](FaultDriver&) {};
    std::vector<int> published;
    bool enumerationEnds = false;  // a waiter with no practical limit returns at once
    std::vector<HostEventPattern> saw;
    std::vector<std::pair<HostEventPattern, size_t>> sawTimes;
    std::vector<HostEventPattern> never;
    std::vector<std::string> logged;
    std::vector<std::string> problemLines;
    int servedHandle = 0;  // 0: nothing is expected to stream
    int32_t servedDevice = 0;
};

void PrintTo(const FaultCase& c, std::ostream* out) { *out << c.name; }

// Runs one row: the library (a bridge, as the sub-HAL drives it) against the row's host.
class FaultDriver : public HostTest {
  public:
    using HostTest::bridge;
    using HostTest::host;
    using HostTest::logs;

    ~FaultDriver() override { releaseLibrary(); }  // before the recorder goes

    void start(const FaultCase& c) {
        HostConfig config = c.config;
        config.stream = false;  // samples are pushed one by one
        for (const VirtualDevice& d : config.devices) {
            for (size_t i = 0; i < d.channels.size(); ++i) {
                if (d.channels[i] == "timestamp") mTimestampChannel[d.id] = static_cast<int32_t>(i);
            }
        }
        host = std::make_unique<EmulatedHost>(std::move(config));
        if (c.registerHost) host->registerWithBridge();
        bridge = new IioSensorBridge(vel::MojoProcessSupport::GetInstance(), &mEvents);
        bridge->start();
        if (c.registerHost) awaitHandshake(c.config.bridgeVersion);
        settle();
    }

    // Registers the host with the container bridge after the library asked for it.
    void registerHost(uint32_t version) {
        host->registerWithBridge();
        awaitHandshake(version);
    }

    void awaitHandshake(uint32_t version) {
        if (version < 54) return;
        ASSERT_TRUE(host->waitForEvent(Kind::kInitAnswered));
        mInstanceAlive = true;
    }

    // Lets the host and the library answer each other. While the host holds the library's
    // instance pipe, a tablet-mode change is a round trip through both threads: once the library
    // logged it, everything either side sent before has been handled. Five trips carry the
    // longest chain (listing, opening a device, its channels, its attributes).
    void settle() {
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(testing::Flush(mojoRunner()));
            if (!mInstanceAlive) continue;
            mTabletOn = !mTabletOn;
            const size_t expected = ++mTabletLines[mTabletOn];
            host->setTabletMode(mTabletOn);
            ASSERT_TRUE(logs.waitFor(tabletLine(mTabletOn), expected));
        }
    }

    void closeInstance() {
        mInstanceAlive = false;
        host->closeInstance();
    }

    // Enables `handle` and waits until its device's host side has started reading.
    void activate(int handle, int32_t device) {
        const HostEventPattern start(Kind::kStartReadingAsked, device);
        const size_t before = host->count(start);
        bridge->activate(handle, true);
        ASSERT_TRUE(host->waitFor(
            [&](const std::vector<HostEvent>&) { return host->count(start) > before; }));
    }

    // Pushes one marked sample; returns the mark.
    int64_t push(int32_t device) {
        const int64_t mark = ++mLastMark;
        host->pushSample(device, {{mTimestampChannel.at(device), mark}});
        return mark;
    }

    // A marked sample pushed now reaches the library as an event of `handle`.
    bool streams(int handle, int32_t device) { return mEvents.waitFor(handle, push(device)); }
    size_t seen(int handle, int64_t mark) { return mEvents.seen(handle, mark); }

    std::vector<int> published() {
        std::vector<int> handles;
        for (const auto& entry : bridge->getSensors(0)) handles.push_back(entry.first);
        return handles;
    }

    std::vector<std::string> problems() const {
        std::vector<std::string> lines;
        for (const testing::LogLine& l : logs.lines()) {
            if (l.channel == testing::LogLine::kChrome && l.severity > 0) lines.push_back(l.text);
        }
        return lines;
    }

    static std::string tabletLine(bool on) {
        return std::string("IioSensorBridge: tablet mode ") + (on ? "ON" : "OFF");
    }

    EventRecorder mEvents;
    std::map<int32_t, int32_t> mTimestampChannel;  // device -> channel index
    bool mInstanceAlive = false;
    bool mTabletOn = false;
    size_t mTabletLines[2] = {0, 0};
    int64_t mLastMark = 4000;
};

VirtualDevice faultyAccelerometer(Stall stall, CloseAt closeAt) {
    VirtualDevice d = accelerometer(kAccel);
    d.stall = stall;
    d.closeAt = closeAt;
    return d;
}

const char* const kAccelReady =
    "IioSensorDevice 3 (Accelerometer): name=bmi160 scale=0.5 location=lid channels=4";
const char* const kLightReady =
    "IioSensorDevice 9 (Light): name=dev scale=1 location=lid channels=2";

std::vector<FaultCase> faultCases() {
    std::vector<FaultCase> rows;

    for (uint32_t version : {0u, 53u}) {
        const std::string line = "IioSensorBridge: version mismatch - Chrome supports v" +
                                 std::to_string(version) + ", need v54";
        rows.push_back(FaultCase("HostBridgeVersion" + std::to_string(version))
                           .configure([=](HostConfig& c) { c.bridgeVersion = version; })
                           .endsEnumeration()
                           .hostNever({Kind::kInstanceReady})
                           .problems({line}));
    }

    // Nobody answers the request for the host bridge: nothing happens until a host appears,
    // and then everything does.
    rows.push_back(FaultCase("NoHostUntilOneRegisters")
                       .withoutHost()
                       .fault([](FaultDriver& d) {
                           EXPECT_TRUE(d.host->events().empty());
                           EXPECT_EQ(d.logs.texts(),
                                     std::vector<std::string>{
                                         "IioSensorBridge: connecting to VEL bridge (async)"});
                           EXPECT_TRUE(d.published().empty());
                           d.registerHost(54);
                       })
                       .publishes({1, 2})
                       .logs({kAccelReady, kLightReady})
                       .serves(1, kAccel));

    // A device that never answers one step of its handshake is never published; the other is.
    const std::pair<Stall, std::pair<HostEventPattern, std::optional<HostEventPattern>>> stalls[] =
        {
            {Stall::kDevice, {step(Kind::kStepStalled, HostStep::kGetDevice), kAccelTimeout}},
            {Stall::kChannels,
             {step(Kind::kStepStalled, HostStep::kGetAllChannelIds),
              step(Kind::kStepAsked, HostStep::kGetAttributes)}},
            {Stall::kAttributes,
             {step(Kind::kStepStalled, HostStep::kGetAttributes), std::nullopt}},
        };
    const char* const stallNames[] = {"", "Device", "Channels", "Attributes"};
    for (const auto& [stall, calls] : stalls) {
        FaultCase row("DeviceNeverAnswers" + std::string(stallNames[static_cast<int>(stall)]));
        row.configure([stall = stall](HostConfig& c) {
               c.devices[0] = faultyAccelerometer(stall, CloseAt::kNever);
           })
            .publishes({2})
            .hostSaw({calls.first})
            .logs({kLightReady})
            .serves(2, kLight);
        if (calls.second) row.hostNever({*calls.second});
        rows.push_back(row);
    }

    // A device pipe closed before the device is ready loses the device; closed after, the
    // sensor stays published but silent.
    struct Close {
        CloseAt at;
        const char* name;
        HostEventPattern lastCall;   // what the host still saw
        HostEventPattern neverCall;  // what it never did
    };
    const Close closes[] = {
        {CloseAt::kOnGetDevice, "OnGetDevice", step(Kind::kStepAsked, HostStep::kGetDevice),
         kAccelTimeout},
        {CloseAt::kOnChannels, "OnChannels", step(Kind::kStepAsked, HostStep::kGetAllChannelIds),
         step(Kind::kStepAsked, HostStep::kGetAttributes)},
        {CloseAt::kOnAttributes, "OnAttributes", step(Kind::kStepAsked, HostStep::kGetAttributes),
         kAccelEnabled},
    };
    for (const Close& close : closes) {
        rows.push_back(
            FaultCase(std::string("DevicePipeClosed") + close.name)
                .configure([at = close.at](HostConfig& c) {
                    c.devices[0] = faultyAccelerometer(Stall::kNone, at);
                })
                .publishes({2})
                .hostSaw({close.lastCall, HostEventPattern(Kind::kClosedByHost, kAccel)
                                              .withPipe(host::common::HostPipe::kSensorDevice)})
                .hostNever({close.neverCall})
                .problems({"IioSensorDevice 3: SensorDevice connection lost"})
                .serves(2, kLight));
    }
    rows.push_back(FaultCase("DevicePipeClosedAfterReady")
                       .configure([](HostConfig& c) {
                           c.devices[0] =
                               faultyAccelerometer(Stall::kNone, CloseAt::kAfterAttributes);
                       })
                       .fault([](FaultDriver& d) {
                           d.bridge->activate(1, true);  // goes nowhere
                           d.settle();
                       })
                       .publishes({1, 2})
                       .hostNever({kAccelEnabled})
                       .logs({kAccelReady})
                       .problems({"IioSensorDevice 3: SensorDevice connection lost"})
                       .serves(2, kLight));

    // The service closed with a reason before it listed the devices: no device is ever known.
    // The Mojo thread is held while the host hands over the service and closes it, so that the
    // request for the listing reaches a closed pipe.
    rows.push_back(
        FaultCase("ServiceClosedBeforeTheListing")
            .configure([](HostConfig& c) { c.autoSetUpChannel = false; })
            .fault([](FaultDriver& d) {
                std::promise<void> gate;
                std::shared_future<void> opened = gate.get_future().share();
                mojoRunner()->PostTask(FROM_HERE, base::BindOnce(
                                                      [](std::shared_future<void> f) {
                                                          f.wait_for(testing::kWaitLimit);
                                                      },
                                                      opened));
                d.host->setUpChannel();
                d.host->closeService(7, "gone");
                gate.set_value();
            })
            .hostSaw({Kind::kServiceHandedOut})
            .hostNever({Kind::kDeviceListAsked, step(Kind::kStepAsked, HostStep::kGetDevice)})
            .problems({"IioSensorBridge: SensorService disconnected, reason=7 desc=gone"}));
    // After the listing, the devices keep their own pipes.
    rows.push_back(
        FaultCase("ServiceClosedAfterTheListing")
            .fault([](FaultDriver& d) { d.host->closeService(8, "later"); })
            .publishes({1, 2})
            .problems({"IioSensorBridge: SensorService disconnected, reason=8 desc=later"})
            .serves(1, kAccel));

    rows.push_back(FaultCase("InstancePipeClosed")
                       .fault([](FaultDriver& d) { d.closeInstance(); })
                       .publishes({1, 2})
                       .problems({"IioSensorBridge: IioSensorInstance binding lost"})
                       .serves(1, kAccel));
    rows.push_back(FaultCase("ClientPipeClosed")
                       .fault([](FaultDriver& d) { d.host->closeHalClient(); })
                       .publishes({1, 2})
                       .problems({"IioSensorBridge: SensorHalClient binding lost"})
                       .serves(1, kAccel));
    rows.push_back(FaultCase("IioSensorHostPipeClosed")
                       .fault([](FaultDriver& d) { d.host->closeIioSensorHost(); })
                       .publishes({1, 2})
                       .serves(1, kAccel));

    // Observer errors: a read failure (5) restarts an active stream; any other error is only
    // logged and the stream goes on over the same observer.
    rows.push_back(FaultCase("ReadFailureWhileActive")
                       .fault([](FaultDriver& d) {
                           d.activate(1, kAccel);
                           d.host->sendObserverError(kAccel, 5);
                           ASSERT_TRUE(d.host->waitFor([&](const std::vector<HostEvent>&) {
                               return d.host->count({Kind::kStartReadingAsked, kAccel}) == 2;
                           }));
                           EXPECT_TRUE(d.streams(1, kAccel));
                       })
                       .publishes({1, 2})
                       .hostSawTimes(kAccelEnabled, 2)
                       .hostSawTimes({Kind::kStartReadingAsked, kAccel}, 2)
                       .problems({"IioSensorDevice 3: observer error 5"})
                       .serves(2, kLight));
    for (int32_t error : {0, 1, 2, 3, 4, 6, 42, -1}) {
        rows.push_back(FaultCase("ObserverError" + std::string(error < 0 ? "Minus" : "") +
                                 std::to_string(error < 0 ? -error : error) + "WhileActive")
                           .fault([error](FaultDriver& d) {
                               d.activate(1, kAccel);
                               d.host->sendObserverError(kAccel, error);
                               EXPECT_TRUE(d.streams(1, kAccel));
                           })
                           .publishes({1, 2})
                           .hostSawTimes({Kind::kStartReadingAsked, kAccel}, 1)
                           .problems({"IioSensorDevice 3: observer error " + std::to_string(error)})
                           .serves(2, kLight));
    }
    // Once the library stopped the stream the host has no observer left to report to.
    for (int32_t error : {5, 1}) {
        rows.push_back(FaultCase("ObserverError" + std::to_string(error) + "WhileInactive")
                           .fault([error](FaultDriver& d) {
                               d.activate(1, kAccel);
                               d.bridge->activate(1, false);
                               ASSERT_TRUE(d.host->waitForEvent({Kind::kStopReadingAsked, kAccel}));
                               d.host->sendObserverError(kAccel, error);
                               d.settle();
                           })
                           .publishes({1, 2})
                           .hostSawTimes({Kind::kStartReadingAsked, kAccel}, 1)
                           .serves(2, kLight));
    }

    // The host drops the observer: nothing arrives until the next activation binds a new one.
    rows.push_back(FaultCase("HostClosesTheObserver")
                       .fault([](FaultDriver& d) {
                           d.activate(1, kAccel);
                           d.host->closeObserver(kAccel);
                           const int64_t lost = d.push(kAccel);
                           d.settle();
                           d.activate(1, kAccel);
                           EXPECT_TRUE(d.streams(1, kAccel));
                           EXPECT_EQ(d.seen(1, lost), 0u);
                       })
                       .publishes({1, 2})
                       .hostSawTimes({Kind::kStartReadingAsked, kAccel}, 2)
                       .serves(1, kAccel));

    // The host repeats its part of the handshake.
    rows.push_back(FaultCase("SecondSetUpChannel")
                       .fault([](FaultDriver& d) {
                           d.host->setUpChannel();
                           d.settle();
                       })
                       .publishes({1, 2, 3, 4})
                       .hostSawTimes(step(Kind::kStepAsked, HostStep::kGetDevice), 2)
                       .logs({"IioSensorBridge: device 3 -> handle 3 type 1",
                              "IioSensorBridge: device 9 -> handle 4 type 5"})
                       .serves(1, kAccel));
    // A second Init registers a fresh client, to which this host hands a fresh service.
    rows.push_back(FaultCase("SecondInit")
                       .fault([](FaultDriver& d) {
                           d.host->callInit();
                           d.settle();
                       })
                       .publishes({1, 2, 3, 4})
                       .hostSawTimes(Kind::kClientRegistered, 2)
                       .hostSawTimes(Kind::kInitAnswered, 2)
                       .hostSawTimes(Kind::kServiceHandedOut, 2)
                       .logs({"IioSensorBridge: device 9 -> handle 4 type 5"})
                       .serves(3, kAccel));
    return rows;
}

class FaultMatrixTest : public FaultDriver, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(FaultMatrixTest, EndsInTheDocumentedStateAndKeepsServing) {
    const FaultCase& c = GetParam();
    start(c);
    if (c.enumerationEnds) {
        auto waiter = std::async(std::launch::async, [this] { return bridge->getSensors(600000); });
        ASSERT_EQ(waiter.wait_for(testing::kWaitLimit), std::future_status::ready);
    }
    c.inject(*this);
    if (HasFatalFailure()) return;
    settle();

    for (const std::string& line : c.logged) EXPECT_TRUE(logs.waitFor(line)) << line;
    for (size_t i = 0; i < c.saw.size(); ++i) EXPECT_TRUE(host->waitForEvent(c.saw[i])) << i;
    for (size_t i = 0; i < c.sawTimes.size(); ++i) {
        EXPECT_EQ(host->count(c.sawTimes[i].first), c.sawTimes[i].second) << i;
    }
    for (size_t i = 0; i < c.never.size(); ++i) EXPECT_EQ(host->count(c.never[i]), 0u) << i;
    EXPECT_EQ(published(), c.published);

    if (c.servedHandle != 0) {
        activate(c.servedHandle, c.servedDevice);
        EXPECT_TRUE(streams(c.servedHandle, c.servedDevice));
    }
    settle();
    EXPECT_EQ(problems(), c.problemLines);
}

INSTANTIATE_TEST_SUITE_P(Matrix, FaultMatrixTest, ::testing::ValuesIn(faultCases()),
                         [](const ::testing::TestParamInfo<FaultCase>& info) {
                             return info.param.name;
                         });

}  // namespace
}  // namespace kelvane::sensors
