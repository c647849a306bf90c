#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/threading/thread.h"
#include "fakes.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "tests/support/wait.h"

namespace kelvane::testing {
namespace {

using Attributes = std::vector<base::Optional<std::string>>;
using Sample = base::flat_map<int32_t, int64_t>;

// Client side of sampling and of device discovery.
class RecordingObserver : public cm::SensorDeviceSamplesObserver,
                          public cm::SensorServiceNewDevicesObserver {
  public:
    void OnSampleUpdated(const Sample& sample) override {
        signal.Notify([&] { samples.push_back(sample); });
    }
    void OnErrorOccurred(cm::ObserverErrorType type) override {
        signal.Notify([&] { errors.push_back(type); });
    }
    void OnNewDeviceAdded(int32_t iio_device_id, const std::vector<int32_t>& types) override {
        signal.Notify([&] { added.emplace_back(iio_device_id, types); });
    }

    Signal signal;
    std::vector<Sample> samples;                                  // guarded by signal
    std::vector<cm::ObserverErrorType> errors;                    // guarded by signal
    std::vector<std::pair<int32_t, std::vector<int32_t>>> added;  // guarded by signal
};

// The sensor service bound on a "host" thread, called from a "client" thread.
class SensorBindingsTest : public ::testing::Test {
  protected:
    struct ClientSide {
        cm::SensorServicePtr service;
        cm::SensorDevicePtr device;
        RecordingObserver observer;
        mojo::Binding<cm::SensorDeviceSamplesObserver> samplesBinding{&observer};
        mojo::Binding<cm::SensorServiceNewDevicesObserver> newDevicesBinding{&observer};
    };

    void SetUp() override {
        host.Start();
        client.Start();
        ASSERT_TRUE(RunAndWait(client.task_runner(), [&] {
            c = std::make_unique<ClientSide>();
            request = mojo::MakeRequest(&c->service);
        }));
        ASSERT_TRUE(RunAndWait(host.task_runner(), [&] {
            serviceBinding =
                std::make_unique<mojo::Binding<cm::SensorService>>(&service, std::move(request));
        }));
    }
    void TearDown() override {
        RunAndWait(client.task_runner(), [&] { c.reset(); });
        RunAndWait(host.task_runner(), [&] {
            serviceBinding.reset();
            service.deviceBinding.Close();
            service.device.observer.reset();
            service.newDevicesObserver.reset();
        });
    }
    // Opens device 3 on the client's `device` pointer.
    void OpenDevice() {
        RunAndWait(client.task_runner(),
                   [&] { c->service->GetDevice(3, mojo::MakeRequest(&c->device)); });
    }
    FakeSensorDevice& device() { return service.device; }

    base::Thread host{"host"};
    base::Thread client{"client"};
    FakeSensorService service;  // host thread, apart from what it records
    std::unique_ptr<mojo::Binding<cm::SensorService>> serviceBinding;  // host thread
    std::unique_ptr<ClientSide> c;                                     // client thread
    cm::SensorServiceRequest request;
};

TEST_F(SensorBindingsTest, ServiceListsDevicesAndReportsNewOnes) {
    Reply<std::vector<int32_t>> accels, gyros;
    Reply<base::flat_map<int32_t, std::vector<int32_t>>> all;
    RunAndWait(client.task_runner(), [&] {
        c->service->GetDeviceIds(cm::DeviceType::ACCEL, accels.Callback());
        c->service->GetDeviceIds(cm::DeviceType::ANGLVEL, gyros.Callback());
        c->service->GetAllDeviceIds(all.Callback());
        cm::SensorServiceNewDevicesObserverPtr observer;
        c->newDevicesBinding.Bind(mojo::MakeRequest(&observer));
        c->service->RegisterNewDevicesObserver(std::move(observer));
    });
    ASSERT_TRUE(accels.Wait() && gyros.Wait() && all.Wait());
    EXPECT_EQ(accels.value(), (std::vector<int32_t>{0, 3}));
    EXPECT_TRUE(gyros.value().empty());
    // Types unknown to this side (42) travel unchanged; the map iterates by ascending id.
    base::flat_map<int32_t, std::vector<int32_t>> expected{{0, {1}}, {3, {1, 11}}, {7, {42}}};
    EXPECT_EQ(all.value(), expected);
    EXPECT_EQ(all.thread(), client.GetThreadId());

    ASSERT_TRUE(service.signal.WaitUntil([&] { return service.observerRegistered; }));
    RunAndWait(host.task_runner(), [&] {
        service.newDevicesObserver->OnNewDeviceAdded(9, {5, 2});
    });
    RecordingObserver& observer = c->observer;
    ASSERT_TRUE(observer.signal.WaitUntil([&] { return !observer.added.empty(); }));
    std::lock_guard<std::mutex> lock(observer.signal.mutex());
    EXPECT_EQ(observer.added.at(0).first, 9);
    EXPECT_EQ(observer.added.at(0).second, (std::vector<int32_t>{5, 2}));
}

TEST_F(SensorBindingsTest, OpenedDeviceAnswersEveryCall) {
    OpenDevice();
    Reply<std::vector<std::string>> channels;
    Reply<Attributes> attributes, channelAttributes;
    Reply<std::vector<int32_t>> failed;
    Reply<std::vector<bool>> enabled;
    Reply<double> frequency;
    // Calls queued right after GetDevice reach the device once the host has bound it.
    RunAndWait(client.task_runner(), [&] {
        c->device->SetTimeout(5000);
        c->device->GetAllChannelIds(channels.Callback());
        c->device->GetAttributes({"name", "label", "location"}, attributes.Callback());
        c->device->SetChannelsEnabled({0, 2, 3, 9}, true, failed.Callback());
        c->device->GetChannelsEnabled({0, 1, 2}, enabled.Callback());
        c->device->GetChannelsAttributes({2, 0, 3}, "raw", channelAttributes.Callback());
        c->device->SetFrequency(400.0, frequency.Callback<double>());
    });
    ASSERT_TRUE(channels.Wait() && attributes.Wait() && failed.Wait() && enabled.Wait() &&
                channelAttributes.Wait() && frequency.Wait());
    EXPECT_EQ(channels.value(),
              (std::vector<std::string>{"accel_x", "accel_y", "accel_z", "timestamp"}));
    EXPECT_EQ(attributes.value(), (Attributes{"cros-ec-accel", std::string(), base::nullopt}));
    EXPECT_EQ(failed.value(), std::vector<int32_t>{9});
    EXPECT_EQ(enabled.value(), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(channelAttributes.value(), (Attributes{"20", "0", base::nullopt}));
    EXPECT_DOUBLE_EQ(frequency.value(), 100.0);
    EXPECT_EQ(frequency.thread(), client.GetThreadId());

    std::lock_guard<std::mutex> lock(device().signal.mutex());
    EXPECT_EQ(device().timeout, 5000u);
    EXPECT_DOUBLE_EQ(device().requestedFrequency, 400.0);
    EXPECT_EQ(device().enableRequest, std::make_pair(std::vector<int32_t>{0, 2, 3, 9}, true));
    std::lock_guard<std::mutex> serviceLock(service.signal.mutex());
    EXPECT_EQ(service.openedId, 3);
}

TEST_F(SensorBindingsTest, SamplesAndErrorsFlowBackOnTheObserverPipeUntilStopped) {
    OpenDevice();
    RunAndWait(client.task_runner(), [&] {
        cm::SensorDeviceSamplesObserverPtr observer;
        c->samplesBinding.Bind(mojo::MakeRequest(&observer));
        c->device->StartReadingSamples(std::move(observer));
    });
    ASSERT_TRUE(device().signal.WaitUntil([&] { return device().observing; }));
    const int64_t timestamp = 1'700'000'000'123'456'789;
    RunAndWait(host.task_runner(), [&] {
        for (int64_t i = 0; i < 50; ++i) {
            device().observer->OnSampleUpdated({{0, -i}, {1, i * 1000}, {3, timestamp + i}});
        }
        device().observer->OnErrorOccurred(cm::ObserverErrorType::READ_FAILED);
        // A value this side does not know still arrives as sent.
        device().observer->OnErrorOccurred(static_cast<cm::ObserverErrorType>(42));
    });
    RecordingObserver& observer = c->observer;
    ASSERT_TRUE(observer.signal.WaitUntil([&] { return observer.errors.size() == 2; }));
    {
        std::lock_guard<std::mutex> lock(observer.signal.mutex());
        ASSERT_EQ(observer.samples.size(), 50u);
        for (int64_t i = 0; i < 50; ++i) {
            EXPECT_EQ(observer.samples[i], (Sample{{0, -i}, {1, i * 1000}, {3, timestamp + i}}));
        }
        EXPECT_EQ(observer.errors[0], cm::ObserverErrorType::READ_FAILED);
        EXPECT_EQ(static_cast<int32_t>(observer.errors[1]), 42);
        EXPECT_FALSE(cm::IsKnownEnumValue(observer.errors[1]));
    }
    RunAndWait(client.task_runner(), [&] { c->device->StopReadingSamples(); });
    ASSERT_TRUE(device().signal.WaitUntil([&] { return device().stops == 1; }));
    EXPECT_FALSE(device().observing);
}

// Stands in a reply callback; reports where it is destroyed.
struct Sentinel {
    explicit Sentinel(Reply<std::thread::id>* d) : destroyed(d) {}
    ~Sentinel() { destroyed->Store(std::this_thread::get_id()); }
    Reply<std::thread::id>* destroyed;
};

TEST_F(SensorBindingsTest, RepliesAreDroppedOnceThePointerIsReset) {
    OpenDevice();
    RunAndWait(host.task_runner(), [&] {
        std::lock_guard<std::mutex> lock(device().signal.mutex());
        device().holdChannelIds = true;
    });
    Reply<std::thread::id> destroyed;
    Reply<std::vector<std::string>> channels;
    RunAndWait(client.task_runner(), [&] {
        c->device->GetAllChannelIds(base::BindOnce(
            [](std::unique_ptr<Sentinel>, const std::vector<std::string>&) { FAIL(); },
            std::make_unique<Sentinel>(&destroyed)));
        c->device->GetAllChannelIds(channels.Callback());
    });
    ASSERT_TRUE(device().signal.WaitUntil([&] { return device().held.size() == 2; }));
    RunAndWait(client.task_runner(), [&] { c->device.reset(); });
    // The pending reply callback went unrun, on the thread that owned the pointer.
    ASSERT_TRUE(destroyed.Wait());
    EXPECT_EQ(destroyed.thread(), client.GetThreadId());

    // Replying now, or dropping the reply callback, reaches nobody.
    RunAndWait(host.task_runner(), [&] {
        std::vector<cm::SensorDevice::GetAllChannelIdsCallback> held;
        {
            std::lock_guard<std::mutex> lock(device().signal.mutex());
            held.swap(device().held);
        }
        std::move(held[0]).Run({"accel_x"});
    });
    ASSERT_TRUE(Flush(client.task_runner()));
    EXPECT_EQ(channels.runs(), 0);
}

TEST_F(SensorBindingsTest, ReplyMayBeSentFromAnyThreadAndArrivesOnTheCallingThread) {
    OpenDevice();
    RunAndWait(host.task_runner(), [&] {
        std::lock_guard<std::mutex> lock(device().signal.mutex());
        device().holdChannelIds = true;
    });
    Reply<std::vector<std::string>> channels;
    RunAndWait(client.task_runner(), [&] { c->device->GetAllChannelIds(channels.Callback()); });
    ASSERT_TRUE(device().signal.WaitUntil([&] { return device().held.size() == 1; }));
    cm::SensorDevice::GetAllChannelIdsCallback callback;
    {
        std::lock_guard<std::mutex> lock(device().signal.mutex());
        callback = std::move(device().held[0]);
    }
    std::thread other([&] { std::move(callback).Run({"illuminance", "timestamp"}); });
    other.join();
    ASSERT_TRUE(channels.Wait());
    EXPECT_EQ(channels.value(), (std::vector<std::string>{"illuminance", "timestamp"}));
    EXPECT_EQ(channels.thread(), client.GetThreadId());
}

TEST_F(SensorBindingsTest, NullReplyCallbackDropsOnlyThatReply) {
    OpenDevice();
    Reply<double> frequency;
    RunAndWait(client.task_runner(), [&] {
        c->device->SetFrequency(10.0, cm::SensorDevice::SetFrequencyCallback());
        c->device->SetFrequency(20.0, frequency.Callback<double>());
    });
    ASSERT_TRUE(frequency.Wait());
    EXPECT_DOUBLE_EQ(frequency.value(), 20.0);
    EXPECT_EQ(frequency.runs(), 1);
}

TEST(SensorStubTest, RejectsUnknownNamesCallsOfTheWrongKindAndAMissingSink) {
    FakeSensorDevice device;
    cm::SensorDeviceStub stub;
    mojo::Message unknown(99, 0, nullptr);
    EXPECT_FALSE(stub.Accept(&unknown));  // no sink yet
    stub.set_sink(&device);
    EXPECT_FALSE(stub.Accept(&unknown));
    EXPECT_FALSE(stub.AcceptWithResponder(&unknown, nullptr));
    // A method with a reply never arrives without a responder, and the other way round.
    mojo::Message channelIds(cm::kSensorDevice_GetAllChannelIds_Name, 0, nullptr);
    EXPECT_FALSE(stub.Accept(&channelIds));
    mojo::Message stop(cm::kSensorDevice_StopReadingSamples_Name, 0, nullptr);
    EXPECT_FALSE(stub.AcceptWithResponder(&stop, nullptr));
    std::lock_guard<std::mutex> lock(device.signal.mutex());
    EXPECT_EQ(device.stops, 0);
}

}  // namespace
}  // namespace kelvane::testing
