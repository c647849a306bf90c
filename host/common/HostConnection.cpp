#include "host/common/HostConnection.h"

#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "vel/VelHostRegistry.h"

namespace kelvane::host::common {

namespace mojom = chromeos::sensors::mojom;

HostConnection::HostConnection(uint32_t bridgeVersion, HostEventLog* log,
                               scoped_refptr<base::SingleThreadTaskRunner> runner,
                               ServiceBinder bindService, bool autoSetUpChannel)
    : mBridgeVersion(bridgeVersion),
      mLog(log),
      mRunner(std::move(runner)),
      mBindService(std::move(bindService)),
      mAutoSetUpChannel(autoSetUpChannel) {}

HostConnection::~HostConnection() { unregister(); }

void HostConnection::setServiceInterposer(ServiceInterposer interposer) {
    mInterposer = std::move(interposer);
}

void HostConnection::registerWithBridge() {
    mRegistered = true;
    // Runs on the Mojo thread, possibly late: it only posts, and the connection is touched on
    // the host thread only if it has not been shut down there (the post is refused once the
    // host thread stopped).
    vel::VelHostRegistry::registerHost(
        mBridgeVersion, base::BindRepeating(
                            [](scoped_refptr<base::SingleThreadTaskRunner> runner,
                               const base::WeakPtr<HostConnection>& connection,
                               vel::mojom::VelBridgeHostRequest request) {
                                // Raced the shutdown: closed unanswered.
                                runner->PostTask(FROM_HERE,
                                                 base::BindOnce(&HostConnection::bindBridge,
                                                                connection, std::move(request)));
                            },
                            mRunner, mWeak.GetWeakPtr()));
}

void HostConnection::unregister() {
    if (mRegistered.exchange(false)) vel::VelHostRegistry::unregisterHost();
}

void HostConnection::bindBridge(vel::mojom::VelBridgeHostRequest request) {
    auto binding = std::make_unique<mojo::Binding<vel::mojom::VelBridgeHost>>(
        static_cast<vel::mojom::VelBridgeHost*>(this), std::move(request));
    binding->set_connection_error_handler(base::BindOnce(
        &HostConnection::recordError, base::Unretained(this), HostPipe::kVelBridgeHost));
    mBridges.push_back(std::move(binding));
}

void HostConnection::OnIioSensorInstanceReady(vel::mojom::IioSensorInstancePtr instance) {
    mLog->add(HostEvent(HostEventKind::kInstanceReady));
    mInstance = std::move(instance);
    mInstance.set_connection_error_handler(base::BindOnce(
        &HostConnection::recordError, base::Unretained(this), HostPipe::kIioSensorInstance));
    callInit();
}

void HostConnection::callInit() {
    if (!mInstance || mInstance.encountered_error()) return;
    vel::mojom::IioSensorHostPtr hostPtr;
    auto binding = std::make_unique<mojo::Binding<vel::mojom::IioSensorHost>>(
        static_cast<vel::mojom::IioSensorHost*>(this), mojo::MakeRequest(&hostPtr));
    binding->set_connection_error_handler(base::BindOnce(
        &HostConnection::recordError, base::Unretained(this), HostPipe::kIioSensorHost));
    mIioSensorHosts.push_back(std::move(binding));
    mLog->add(HostEvent(HostEventKind::kInitSent));
    mInstance->Init(
        std::move(hostPtr),
        base::BindRepeating(
            [](HostEventLog* log) { log->add(HostEvent(HostEventKind::kInitAnswered)); }, mLog));
}

void HostConnection::RegisterSensorHalClient(mojom::SensorHalClientPtr client) {
    mLog->add(HostEvent(HostEventKind::kClientRegistered));
    mHalClient = std::move(client);
    mHalClient.set_connection_error_handler(base::BindOnce(
        &HostConnection::recordError, base::Unretained(this), HostPipe::kSensorHalClient));
    if (mAutoSetUpChannel) setUpChannel();
}

void HostConnection::setUpChannel() {
    if (!mHalClient || mHalClient.encountered_error()) return;
    // The one place where the service pipe handed to the client is made.
    mojom::SensorServicePtr service;
    mBindService(mojo::MakeRequest(&service));
    if (mInterposer) mInterposed.push_back(mInterposer(&service));
    mLog->add(HostEvent(HostEventKind::kServiceHandedOut));
    mHalClient->SetUpChannel(std::move(service));
}

void HostConnection::setTabletMode(bool on) {
    if (mInstance) mInstance->OnTabletModeChanged(on);
}

void HostConnection::closeInstance() { mInstance.reset(); }
void HostConnection::closeHalClient() { mHalClient.reset(); }

void HostConnection::closeIioSensorHost() {
    for (auto& binding : mIioSensorHosts) binding->Close();
}

void HostConnection::shutDown() {
    mWeak.InvalidateWeakPtrs();
    mInterposed.clear();
    mHalClient.reset();
    mIioSensorHosts.clear();
    mInstance.reset();
    mBridges.clear();
}

void HostConnection::recordError(HostPipe pipe) {
    mLog->add(HostEvent(HostEventKind::kClosedByClient).withPipe(pipe));
}

}  // namespace kelvane::host::common
