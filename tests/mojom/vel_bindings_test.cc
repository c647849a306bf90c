#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "base/threading/thread.h"
#include "fakes.h"
#include "hardware/sensors/mojom/vel.mojom.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "tests/support/wait.h"

namespace kelvane::testing {
namespace {

namespace vm = vel::mojom;

// The host's bridge: initialises each instance offered to it, then hands the registered client
// the sensor service.
class FakeBridgeHost : public vm::VelBridgeHost, public vm::IioSensorHost {
  public:
    void OnIioSensorInstanceReady(vm::IioSensorInstancePtr instance) override {
        this->instance = std::move(instance);
        vm::IioSensorHostPtr host;
        hostBinding.Bind(mojo::MakeRequest(&host));
        this->instance->Init(std::move(host), base::BindRepeating(&FakeBridgeHost::OnInitReply,
                                                                  base::Unretained(this)));
        this->instance->OnTabletModeChanged(true);
    }
    void RegisterSensorHalClient(cm::SensorHalClientPtr client) override {
        halClient = std::move(client);
        cm::SensorServicePtr sensorService;
        serviceBinding.Bind(mojo::MakeRequest(&sensorService));
        halClient->SetUpChannel(std::move(sensorService));
    }
    void OnInitReply() {
        signal.Notify([&] { ++initReplies; });
    }

    // Host thread only.
    FakeSensorService service;
    mojo::Binding<vm::VelBridgeHost> bridgeBinding{this};
    mojo::Binding<vm::IioSensorHost> hostBinding{this};
    mojo::Binding<cm::SensorService> serviceBinding{&service};
    vm::IioSensorInstancePtr instance;
    cm::SensorHalClientPtr halClient;

    Signal signal;
    int initReplies = 0;  // guarded by signal
};

// The container's side: registers a client in Init and keeps the reply callback for the test.
class FakeInstance : public vm::IioSensorInstance, public cm::SensorHalClient {
  public:
    void Init(vm::IioSensorHostPtr host, const InitCallback& callback) override {
        this->host = std::move(host);
        cm::SensorHalClientPtr client;
        clientBinding.Bind(mojo::MakeRequest(&client));
        this->host->RegisterSensorHalClient(std::move(client));
        signal.Notify([&] { initCallback = callback; });
    }
    void OnTabletModeChanged(bool tablet_mode) override { tabletMode.Store(tablet_mode); }
    void SetUpChannel(cm::SensorServicePtr sensor_service) override {
        this->sensorService = std::move(sensor_service);
        this->sensorService->GetAllDeviceIds(devices.Callback());
    }

    // Client thread only.
    mojo::Binding<vm::IioSensorInstance> instanceBinding{this};
    mojo::Binding<cm::SensorHalClient> clientBinding{this};
    vm::IioSensorHostPtr host;
    cm::SensorServicePtr sensorService;

    Signal signal;
    InitCallback initCallback;  // guarded by signal
    Reply<bool> tabletMode;
    Reply<base::flat_map<int32_t, std::vector<int32_t>>> devices;
};

class VelBindingsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        host.Start();
        client.Start();
        bridgeHost = std::make_unique<FakeBridgeHost>();
        instance = std::make_unique<FakeInstance>();
    }
    void TearDown() override {
        RunAndWait(client.task_runner(), [&] {
            bridge.reset();
            instance.reset();
        });
        RunAndWait(host.task_runner(), [&] { bridgeHost.reset(); });
    }

    // The whole handshake: the container offers its instance, the host initialises it, the
    // instance registers its client and the host hands that client the sensor service.
    void Connect() {
        vm::VelBridgeHostRequest request;
        RunAndWait(client.task_runner(), [&] { request = mojo::MakeRequest(&bridge); });
        RunAndWait(host.task_runner(), [&] { bridgeHost->bridgeBinding.Bind(std::move(request)); });
        RunAndWait(client.task_runner(), [&] {
            vm::IioSensorInstancePtr ptr;
            instance->instanceBinding.Bind(mojo::MakeRequest(&ptr));
            bridge->OnIioSensorInstanceReady(std::move(ptr));
        });
    }

    base::Thread host{"host"};
    base::Thread client{"client"};
    std::unique_ptr<FakeBridgeHost> bridgeHost;  // host thread
    std::unique_ptr<FakeInstance> instance;      // client thread
    vm::VelBridgeHostPtr bridge;                 // client thread
};

TEST_F(VelBindingsTest, HandshakeCarriesEachEndAndInitRepliesOnceWhoeverRunsIt) {
    Connect();
    // The sensor service reached the container through Init and RegisterSensorHalClient.
    ASSERT_TRUE(instance->devices.Wait());
    EXPECT_EQ(instance->devices.value().size(), 3u);
    EXPECT_EQ(instance->devices.thread(), client.GetThreadId());
    ASSERT_TRUE(instance->tabletMode.Wait());
    EXPECT_TRUE(instance->tabletMode.value());

    // Init's reply waits for the kept callback.
    ASSERT_TRUE(instance->signal.WaitUntil([&] { return !instance->initCallback.is_null(); }));
    ASSERT_TRUE(Flush(host.task_runner()));
    {
        std::lock_guard<std::mutex> lock(bridgeHost->signal.mutex());
        EXPECT_EQ(bridgeHost->initReplies, 0);
    }
    vm::IioSensorInstance::InitCallback first, second;
    {
        std::lock_guard<std::mutex> lock(instance->signal.mutex());
        first = instance->initCallback;
        second = instance->initCallback;
    }
    // Two copies race from two threads; a third run follows on the client thread.
    std::thread other([&] { first.Run(); });
    second.Run();
    other.join();
    RunAndWait(client.task_runner(), [&] { instance->initCallback.Run(); });
    ASSERT_TRUE(bridgeHost->signal.WaitUntil([&] { return bridgeHost->initReplies > 0; }));
    ASSERT_TRUE(Flush(host.task_runner()));
    std::lock_guard<std::mutex> lock(bridgeHost->signal.mutex());
    EXPECT_EQ(bridgeHost->initReplies, 1);
}

}  // namespace
}  // namespace kelvane::testing
