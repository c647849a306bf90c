// Drives the emulated host through the container bridge with a small client that plays the
// library's part on the process's Mojo thread.
#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/bind.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "hardware/sensors/mojom/vel.mojom.h"
#include "host/EmulatedHost.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "tests/support/wait.h"
#include "vel/MojoProcessSupport.h"
#include "vel/VelBridgeSupport.h"

namespace kelvane::host {
namespace {

namespace cm = chromeos::sensors::mojom;
using kelvane::testing::RunAndWait;
using Sample = base::flat_map<int32_t, int64_t>;

scoped_refptr<base::SingleThreadTaskRunner> mojoThread() {
    return vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner();
}

// The client side. Mojo members are used on the Mojo thread only; what the host sent is kept
// under `signal`'s mutex.
class FakeClient : public vel::VelService,
                   public vel::mojom::IioSensorInstance,
                   public cm::SensorHalClient {
  public:
    struct Observer : cm::SensorDeviceSamplesObserver {
        Observer(FakeClient* c, int32_t d) : client(c), device(d), binding(this) {}
        void OnSampleUpdated(const Sample& s) override {
            client->signal.Notify([&] { client->samples[device].push_back(s); });
        }
        void OnErrorOccurred(cm::ObserverErrorType e) override {
            client->signal.Notify([&] { client->errors.push_back(static_cast<int32_t>(e)); });
        }
        FakeClient* client;
        int32_t device;
        mojo::Binding<cm::SensorDeviceSamplesObserver> binding;
    };

    FakeClient() : mInstance(this), mHalClient(this) {}

    void ready(mojo::InterfacePtr<vel::mojom::VelBridgeHost>* host) override {
        vel::mojom::IioSensorInstancePtr instance;
        mInstance.Bind(mojo::MakeRequest(&instance));
        (*host)->OnIioSensorInstanceReady(std::move(instance));
    }
    void versionMismatch(uint32_t version) override {
        signal.Notify([&] { mismatch = version; });
    }
    void Init(vel::mojom::IioSensorHostPtr host, const InitCallback& callback) override {
        mHost = std::move(host);
        cm::SensorHalClientPtr client;
        mHalClient.Close();
        mHalClient.Bind(mojo::MakeRequest(&client));
        mHost->RegisterSensorHalClient(std::move(client));
        callback.Run();
    }
    void OnTabletModeChanged(bool on) override {
        signal.Notify([&] { tabletModes.push_back(on); });
    }
    void SetUpChannel(cm::SensorServicePtr s) override {
        service = std::move(s);
        service.set_connection_error_with_reason_handler(base::BindOnce(
            [](FakeClient* c, uint32_t reason, const std::string& text) {
                c->signal.Notify(
                    [&] { c->lost.push_back("service " + std::to_string(reason) + " " + text); });
            },
            base::Unretained(this)));
        signal.Notify([&] { ++channels; });
    }

    // Mojo thread.
    cm::SensorDevicePtr& open(int32_t id) {
        cm::SensorDevicePtr& device = devices[id];
        service->GetDevice(id, mojo::MakeRequest(&device));
        device.set_connection_error_handler(base::BindOnce(
            [](FakeClient* c, int32_t id) {
                c->signal.Notify([&] { c->lost.push_back("device " + std::to_string(id)); });
            },
            base::Unretained(this), id));
        return device;
    }
    void startReading(int32_t id) {
        auto& observer = observers[id];
        observer = std::make_unique<Observer>(this, id);
        cm::SensorDeviceSamplesObserverPtr ptr;
        observer->binding.Bind(mojo::MakeRequest(&ptr));
        devices[id]->StartReadingSamples(std::move(ptr));
    }
    void close() {
        observers.clear();
        devices.clear();
        service.reset();
        mHost.reset();
        mHalClient.Close();
        mInstance.Close();
    }

    kelvane::testing::Signal signal;
    int channels = 0;
    std::optional<uint32_t> mismatch;
    std::vector<bool> tabletModes;
    std::vector<std::string> lost;
    std::map<int32_t, std::vector<Sample>> samples;
    std::vector<int32_t> errors;

    cm::SensorServicePtr service;
    std::map<int32_t, cm::SensorDevicePtr> devices;
    std::map<int32_t, std::unique_ptr<Observer>> observers;

  private:
    mojo::Binding<vel::mojom::IioSensorInstance> mInstance;
    mojo::Binding<cm::SensorHalClient> mHalClient;
    vel::mojom::IioSensorHostPtr mHost;
};

// Sends a request from the Mojo thread and waits for its reply; nullopt if none came.
template <typename T, typename Arg = const T&, typename Send>
std::optional<T> ask(Send send) {
    auto reply = std::make_shared<std::promise<T>>();
    std::future<T> answered = reply->get_future();
    mojoThread()->PostTask(
        FROM_HERE,
        base::BindOnce(
            [](Send s, std::shared_ptr<std::promise<T>> r) {
                s(base::BindOnce([](std::shared_ptr<std::promise<T>> p, Arg v) { p->set_value(v); },
                                 r));
            },
            std::move(send), reply));
    if (answered.wait_for(kelvane::testing::kWaitLimit) != std::future_status::ready) {
        return std::nullopt;
    }
    return answered.get();
}

VirtualDevice accel(int32_t id) {
    VirtualDevice d;
    d.id = id;
    d.types = {1};
    d.channels = {"accel_x", "accel_y", "accel_z", "timestamp"};
    d.attributes = {{"name", "bmi160"}, {"scale", "0.5"}, {"location", std::nullopt}};
    return d;
}

class EmulatedHostTest : public ::testing::Test {
  protected:
    void start(HostConfig config) {
        host = std::make_unique<EmulatedHost>(std::move(config));
        host->registerWithBridge();
        client = new FakeClient();
        bridge = std::make_unique<vel::VelBridgeSupport>(vel::MojoProcessSupport::GetInstance());
        bridge->requestVelBridgeProxyAsync(client, 54);
    }
    bool waitForChannel() {
        return client->signal.WaitUntil([&] { return client->channels > 0; });
    }
    void TearDown() override {
        if (client) {
            EXPECT_TRUE(RunAndWait(mojoThread(), [c = client] { c->close(); }));
        }
        bridge.reset();
        host.reset();
        client.clear();
    }

    std::unique_ptr<EmulatedHost> host;
    android::sp<FakeClient> client;
    std::unique_ptr<vel::VelBridgeSupport> bridge;
};

TEST_F(EmulatedHostTest, HandshakeIsRecordedInOrderAndListsEveryDevice) {
    HostConfig config;
    VirtualDevice gyro = accel(7);
    gyro.types = {2, 1};
    config.devices = {accel(3), gyro};
    start(config);
    ASSERT_TRUE(waitForChannel());
    ASSERT_TRUE(host->waitForCall("IioSensorInstance.Init reply"));
    const std::vector<std::string> expected = {
        "VelBridgeHost.OnIioSensorInstanceReady", "IioSensorInstance.Init",
        "IioSensorHost.RegisterSensorHalClient", "SensorHalClient.SetUpChannel"};
    std::vector<std::string> calls = host->calls();
    calls.erase(std::remove(calls.begin(), calls.end(), "IioSensorInstance.Init reply"),
                calls.end());
    EXPECT_EQ(calls, expected);

    auto listing = ask<base::flat_map<int32_t, std::vector<int32_t>>>(
        [c = client](auto done) { c->service->GetAllDeviceIds(std::move(done)); });
    ASSERT_TRUE(listing);
    EXPECT_EQ(*listing, (base::flat_map<int32_t, std::vector<int32_t>>{{3, {1}}, {7, {2, 1}}}));

    // A second channel is a fresh service over the same devices.
    host->setUpChannel();
    EXPECT_TRUE(client->signal.WaitUntil([&] { return client->channels == 2; }));
}

TEST_F(EmulatedHostTest, OlderBridgeIsRefused) {
    HostConfig config;
    config.bridgeVersion = 50;
    start(config);
    EXPECT_TRUE(client->signal.WaitUntil([&] { return client->mismatch == 50u; }));
}

TEST_F(EmulatedHostTest, DeviceHandshakeAnswersChannelsAndAttributes) {
    HostConfig config;
    config.devices = {accel(3)};
    start(config);
    ASSERT_TRUE(waitForChannel());
    auto channels = ask<std::vector<std::string>>([c = client](auto done) {
        cm::SensorDevicePtr& d = c->open(3);
        d->SetTimeout(5000);
        d->GetAllChannelIds(std::move(done));
    });
    ASSERT_TRUE(channels);
    EXPECT_EQ(*channels, accel(3).channels);
    auto values = ask<std::vector<base::Optional<std::string>>>([c = client](auto done) {
        c->devices[3]->GetAttributes({"name", "scale", "location", "colour"}, std::move(done));
    });
    ASSERT_TRUE(values);
    EXPECT_EQ(*values, (std::vector<base::Optional<std::string>>{"bmi160", "0.5", base::nullopt,
                                                                 base::nullopt}));
    EXPECT_EQ(host->count("SensorService.GetDevice 3"), 1u);
    EXPECT_EQ(host->count("SensorDevice[3].SetTimeout 5000"), 1u);
    EXPECT_EQ(host->count("SensorDevice[3].GetAttributes name,scale,location,colour"), 1u);
}

TEST_F(EmulatedHostTest, FaultsStallOrCloseTheirStep) {
    HostConfig config;
    VirtualDevice stalled = accel(1), closing = accel(2), late = accel(3);
    stalled.stall = Stall::kChannels;
    closing.closeAt = CloseAt::kOnAttributes;
    late.replyDelay = std::chrono::milliseconds(30);
    config.devices = {stalled, closing, late};
    start(config);
    ASSERT_TRUE(waitForChannel());

    // Replies come back in order on one pipe: the frequency answer proves the channels never will.
    auto channelsAnswered = std::make_shared<std::atomic<bool>>(false);
    auto rate = ask<double, double>([c = client, channelsAnswered](auto done) {
        cm::SensorDevicePtr& d = c->open(1);
        d->GetAllChannelIds(base::BindOnce([](std::shared_ptr<std::atomic<bool>> a,
                                              const std::vector<std::string>&) { *a = true; },
                                           channelsAnswered));
        d->SetFrequency(20, std::move(done));
    });
    ASSERT_TRUE(rate);
    EXPECT_FALSE(*channelsAnswered);

    EXPECT_TRUE(ask<std::vector<std::string>>(
        [c = client](auto done) { c->open(3)->GetAllChannelIds(std::move(done)); }));
    RunAndWait(mojoThread(), [c = client] {
        c->open(2)->GetAttributes(
            {"name"}, base::BindOnce([](const std::vector<base::Optional<std::string>>&) {}));
        c->open(99);
    });
    EXPECT_TRUE(client->signal.WaitUntil([&] {
        return std::count(client->lost.begin(), client->lost.end(), "device 2") == 1 &&
               std::count(client->lost.begin(), client->lost.end(), "device 99") == 1;
    }));
    std::lock_guard<std::mutex> lock(client->signal.mutex());
    EXPECT_EQ(std::count(client->lost.begin(), client->lost.end(), "device 1"), 0);
}

TEST_F(EmulatedHostTest, ChannelsAndFrequencyAnswers) {
    HostConfig config;
    VirtualDevice capped = accel(3), open = accel(4);
    capped.failChannels = {1};
    capped.maxFrequency = 200.0;
    config.devices = {capped, open};
    config.stream = false;
    start(config);
    ASSERT_TRUE(waitForChannel());
    auto failed = ask<std::vector<int32_t>>([c = client](auto done) {
        c->open(3)->SetChannelsEnabled({0, 1, 3, 4, -1}, true, std::move(done));
    });
    EXPECT_EQ(failed, (std::vector<int32_t>{1, 4, -1}));
    EXPECT_TRUE(host->waitForCall("SensorDevice[3].SetChannelsEnabled 0,1,3,4,-1 true"));

    constexpr double kInf = std::numeric_limits<double>::infinity();
    auto setRate = [&](int32_t id, double hz) {
        return ask<double, double>(
            [c = client, id, hz](auto done) { c->devices[id]->SetFrequency(hz, std::move(done)); });
    };
    RunAndWait(mojoThread(), [c = client] { c->open(4); });
    EXPECT_EQ(setRate(3, 50), 50.0);
    EXPECT_EQ(setRate(3, 500), 200.0);
    EXPECT_EQ(host->frequency(3), 200.0);
    EXPECT_EQ(setRate(3, kInf), 200.0);
    EXPECT_EQ(setRate(4, kInf), 1000.0);
    EXPECT_EQ(setRate(4, std::nan("")), 0.0);
    EXPECT_TRUE(host->waitForCall("SensorDevice[3].SetFrequency 500"));

    // A device without a valid rate refuses to start.
    RunAndWait(mojoThread(), [c = client] { c->startReading(4); });
    EXPECT_TRUE(
        client->signal.WaitUntil([&] { return client->errors == std::vector<int32_t>{2}; }));
    EXPECT_FALSE(host->streaming(4));
}

TEST_F(EmulatedHostTest, ScriptedSamplesPlayInOrderAndRepeat) {
    HostConfig config;
    VirtualDevice d = accel(3);
    d.samples = {{{0, 1}, {3, 100}}, {{0, 2}, {3, 200}}};
    config.devices = {d};
    config.stream = false;
    start(config);
    ASSERT_TRUE(waitForChannel());
    ask<double, double>([c = client](auto done) { c->open(3)->SetFrequency(10, std::move(done)); });
    RunAndWait(mojoThread(), [c = client] { c->startReading(3); });
    ASSERT_TRUE(host->waitFor([&](const auto&) { return host->streaming(3); }));

    host->emitBurst(3, 3);
    host->pushSample(3, {{1, 42}});
    ASSERT_TRUE(client->signal.WaitUntil([&] { return client->samples[3].size() == 4; }));
    const std::vector<Sample> expected = {
        {{0, 1}, {3, 100}}, {{0, 2}, {3, 200}}, {{0, 1}, {3, 100}}, {{1, 42}}};
    std::lock_guard<std::mutex> lock(client->signal.mutex());
    EXPECT_EQ(client->samples[3], expected);
    EXPECT_EQ(host->samplesSent(3), 4u);
}

TEST_F(EmulatedHostTest, StreamsByTimerUntilStopped) {
    HostConfig config;
    config.devices = {accel(3)};
    start(config);
    ASSERT_TRUE(waitForChannel());
    ask<std::vector<int32_t>>([c = client](auto done) {
        c->open(3)->SetChannelsEnabled({0, 3}, true, std::move(done));
    });
    ask<double, double>(
        [c = client](auto done) { c->devices[3]->SetFrequency(100, std::move(done)); });
    RunAndWait(mojoThread(), [c = client] { c->startReading(3); });
    ASSERT_TRUE(client->signal.WaitUntil([&] { return client->samples[3].size() >= 5; }));
    {
        std::lock_guard<std::mutex> lock(client->signal.mutex());
        for (const Sample& s : client->samples[3]) {
            ASSERT_EQ(s.size(), 2u);               // only the enabled channels
            EXPECT_NEAR(s.at(0) * 0.5, 0.0, 1.0);  // a resting x axis, in m/s^2
            EXPECT_GT(s.at(3), 0);
        }
    }
    RunAndWait(mojoThread(), [c = client] { c->devices[3]->StopReadingSamples(); });
    EXPECT_TRUE(host->waitFor([&](const auto&) { return !host->streaming(3); }));
}

TEST_F(EmulatedHostTest, TimelineRunsAfterSetUpChannel) {
    HostConfig config;
    config.devices = {accel(3)};
    TimelineEvent tablet;
    tablet.action = TimelineAction::kTabletMode;
    tablet.on = true;
    TimelineEvent close;
    close.at = std::chrono::milliseconds(20);
    close.action = TimelineAction::kCloseService;
    close.reason = 7;
    close.description = "bye";
    config.timeline = {tablet, close};
    start(config);
    EXPECT_TRUE(client->signal.WaitUntil([&] {
        return client->tabletModes == std::vector<bool>{true} &&
               client->lost == std::vector<std::string>{"service 7 bye"};
    }));
}

TEST_F(EmulatedHostTest, ClientClosingItsEndsIsRecorded) {
    HostConfig config;
    config.devices = {accel(3)};
    start(config);
    ASSERT_TRUE(waitForChannel());
    RunAndWait(mojoThread(), [c = client] { c->open(3); });
    ASSERT_TRUE(host->waitForCall("SensorService.GetDevice 3"));
    RunAndWait(mojoThread(), [c = client] { c->close(); });
    for (const char* error :
         {"error SensorDevice[3]", "error SensorService", "error SensorHalClient",
          "error IioSensorHost", "error IioSensorInstance"}) {
        EXPECT_TRUE(host->waitForCall(error)) << error;
    }
}

}  // namespace
}  // namespace kelvane::host
