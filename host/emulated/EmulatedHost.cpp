#include "host/emulated/EmulatedHost.h"

#include <algorithm>
#include <future>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/time/time.h"
#include "host/emulated/EmulatedSensorDevice.h"
#include "host/emulated/EmulatedSensorService.h"
#include "host/common/TaskDelay.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "vel/VelHostRegistry.h"

namespace kelvane::host {

namespace mojom = chromeos::sensors::mojom;

EmulatedHost::EmulatedHost(HostConfig config)
    : mConfig(std::move(config)), mThread("emulated-host"), mRunner(mThread.task_runner()) {
    mThread.Start();
}

EmulatedHost::~EmulatedHost() {
    if (mRegistered.exchange(false)) vel::VelHostRegistry::unregisterHost();
    std::promise<void> done;
    std::future<void> tornDown = done.get_future();
    const bool posted =
        mRunner->PostTask(FROM_HERE, base::BindOnce(
                                         [](EmulatedHost* host, std::promise<void>* d) {
                                             host->teardown();
                                             d->set_value();
                                         },
                                         this, &done));
    if (posted) tornDown.wait();
    mThread.Stop();
}

template <typename Method, typename... Args>
void EmulatedHost::post(Method method, Args... args) {
    mRunner->PostTask(FROM_HERE,
                      base::BindOnce(method, base::Unretained(this), std::move(args)...));
}

void EmulatedHost::registerWithBridge() {
    mRegistered = true;
    // Runs on the Mojo thread, possibly late: it only posts, and a post after the host thread
    // stopped is refused, so the host is never touched once gone.
    vel::VelHostRegistry::registerHost(
        mConfig.bridgeVersion,
        base::BindRepeating(
            [](scoped_refptr<base::SingleThreadTaskRunner> runner, EmulatedHost* host,
               vel::mojom::VelBridgeHostRequest request) {
                runner->PostTask(FROM_HERE,
                                 base::BindOnce(&EmulatedHost::bindBridge, base::Unretained(host),
                                                std::move(request)));
            },
            mRunner, this));
}

void EmulatedHost::setUpChannel() { post(&EmulatedHost::doSetUpChannel); }
void EmulatedHost::callInit() { post(&EmulatedHost::doCallInit); }
void EmulatedHost::setTabletMode(bool on) { post(&EmulatedHost::doSetTabletMode, on); }
void EmulatedHost::sendObserverError(int32_t device, int32_t errorType) {
    post(&EmulatedHost::doSendObserverError, device, errorType);
}
void EmulatedHost::pushSample(int32_t device, std::map<int32_t, int64_t> sample) {
    post(&EmulatedHost::doPushSample, device, std::move(sample));
}
void EmulatedHost::emitBurst(int32_t device, size_t count) {
    post(&EmulatedHost::doEmitBurst, device, count);
}
void EmulatedHost::closeInstance() { post(&EmulatedHost::doCloseInstance); }
void EmulatedHost::closeHalClient() { post(&EmulatedHost::doCloseHalClient); }
void EmulatedHost::closeIioSensorHost() { post(&EmulatedHost::doCloseIioSensorHost); }
void EmulatedHost::closeService(uint32_t reason, const std::string& description) {
    post(&EmulatedHost::doCloseService, reason, description);
}
void EmulatedHost::closeDevice(int32_t device) { post(&EmulatedHost::doCloseDevice, device); }
void EmulatedHost::closeObserver(int32_t device) { post(&EmulatedHost::doCloseObserver, device); }

std::vector<std::string> EmulatedHost::calls() const { return mLog.calls(); }

bool EmulatedHost::waitFor(const std::function<bool(const std::vector<std::string>&)>& pred,
                           std::chrono::milliseconds limit) {
    return mLog.waitFor(pred, limit);
}

bool EmulatedHost::waitForCall(const std::string& call, std::chrono::milliseconds limit) {
    return mLog.waitFor(
        [&call](const std::vector<std::string>& calls) {
            return std::find(calls.begin(), calls.end(), call) != calls.end();
        },
        limit);
}

size_t EmulatedHost::count(const std::string& call) const { return mLog.count(call); }
size_t EmulatedHost::samplesSent(int32_t device) const { return mLog.samplesSent(device); }
double EmulatedHost::frequency(int32_t device) const { return mLog.frequency(device); }
bool EmulatedHost::streaming(int32_t device) const { return mLog.streaming(device); }

void EmulatedHost::bindBridge(vel::mojom::VelBridgeHostRequest request) {
    if (mShutDown) return;  // a connection that raced the destructor: closed unanswered
    auto binding = std::make_unique<mojo::Binding<vel::mojom::VelBridgeHost>>(
        static_cast<vel::mojom::VelBridgeHost*>(this), std::move(request));
    binding->set_connection_error_handler(base::BindOnce(
        &EmulatedHost::recordError, base::Unretained(this), std::string("VelBridgeHost")));
    mBridges.push_back(std::move(binding));
}

void EmulatedHost::OnIioSensorInstanceReady(vel::mojom::IioSensorInstancePtr instance) {
    mLog.record("VelBridgeHost.OnIioSensorInstanceReady");
    mInstance = std::move(instance);
    mInstance.set_connection_error_handler(base::BindOnce(
        &EmulatedHost::recordError, base::Unretained(this), std::string("IioSensorInstance")));
    doCallInit();
}

void EmulatedHost::doCallInit() {
    if (!mInstance || mInstance.encountered_error()) return;
    vel::mojom::IioSensorHostPtr hostPtr;
    auto binding = std::make_unique<mojo::Binding<vel::mojom::IioSensorHost>>(
        static_cast<vel::mojom::IioSensorHost*>(this), mojo::MakeRequest(&hostPtr));
    binding->set_connection_error_handler(base::BindOnce(
        &EmulatedHost::recordError, base::Unretained(this), std::string("IioSensorHost")));
    mIioSensorHosts.push_back(std::move(binding));
    mLog.record("IioSensorInstance.Init");
    mInstance->Init(std::move(hostPtr),
                    base::BindRepeating(
                        [](CallLog* log) { log->record("IioSensorInstance.Init reply"); }, &mLog));
}

void EmulatedHost::RegisterSensorHalClient(mojom::SensorHalClientPtr client) {
    mLog.record("IioSensorHost.RegisterSensorHalClient");
    mHalClient = std::move(client);
    mHalClient.set_connection_error_handler(base::BindOnce(
        &EmulatedHost::recordError, base::Unretained(this), std::string("SensorHalClient")));
    if (mConfig.autoSetUpChannel) doSetUpChannel();
}

void EmulatedHost::doSetUpChannel() {
    if (!mHalClient || mHalClient.encountered_error()) return;
    mojom::SensorServicePtr service;
    mServices.push_back(std::make_unique<EmulatedSensorService>(&mConfig, &mLog, mRunner,
                                                                mojo::MakeRequest(&service)));
    mLog.record("SensorHalClient.SetUpChannel");
    mHalClient->SetUpChannel(std::move(service));
    for (const TimelineEvent& event : mConfig.timeline) {
        mRunner->PostDelayedTask(
            FROM_HERE,
            base::BindOnce(&EmulatedHost::runTimelineEvent, base::Unretained(this), event),
            boundedDelay(event.at));
    }
}

void EmulatedHost::runTimelineEvent(TimelineEvent event) {
    // An entry that finds nothing to act on says so in the log rather than vanish.
    auto skipped = [this, &event](const std::string& action, const std::string& why) {
        mLog.record("timeline " + std::to_string(event.at.count()) + " " + action +
                    " not applied: " + why);
    };
    const std::string device = "device " + std::to_string(event.device);
    switch (event.action) {
        case TimelineAction::kObserverError: {
            bool sent = false;
            forEachDevice(event.device, [&](EmulatedSensorDevice& d) {
                sent = d.sendObserverError(event.error) || sent;
            });
            if (!sent) skipped("observerError", device + " has no observer");
            break;
        }
        case TimelineAction::kCloseDevice: {
            bool open = false;
            forEachDevice(event.device, [&open](EmulatedSensorDevice&) { open = true; });
            if (!open) skipped("closeDevice", device + " is not open");
            doCloseDevice(event.device);
            break;
        }
        case TimelineAction::kCloseService:
            if (mServices.empty()) skipped("closeService", "no sensor service yet");
            doCloseService(event.reason, event.description);
            break;
        case TimelineAction::kTabletMode:
            if (!mInstance) skipped("tabletMode", "no sensors instance");
            doSetTabletMode(event.on);
            break;
    }
}

void EmulatedHost::doSetTabletMode(bool on) {
    if (mInstance) mInstance->OnTabletModeChanged(on);
}

void EmulatedHost::doSendObserverError(int32_t device, int32_t errorType) {
    forEachDevice(device, [errorType](EmulatedSensorDevice& d) { d.sendObserverError(errorType); });
}

void EmulatedHost::doPushSample(int32_t device, std::map<int32_t, int64_t> sample) {
    const SampleGenerator::Sample raw(sample.begin(), sample.end());
    forEachDevice(device, [&raw](EmulatedSensorDevice& d) { d.pushSample(raw); });
}

void EmulatedHost::doEmitBurst(int32_t device, size_t count) {
    forEachDevice(device, [count](EmulatedSensorDevice& d) { d.emitBurst(count); });
}

void EmulatedHost::doCloseInstance() { mInstance.reset(); }
void EmulatedHost::doCloseHalClient() { mHalClient.reset(); }

void EmulatedHost::doCloseIioSensorHost() {
    for (auto& binding : mIioSensorHosts) binding->Close();
}

void EmulatedHost::doCloseService(uint32_t reason, std::string description) {
    for (auto& service : mServices) service->close(reason, description);
}

void EmulatedHost::doCloseDevice(int32_t device) {
    for (auto& service : mServices) service->closeDevice(device);
}

void EmulatedHost::doCloseObserver(int32_t device) {
    forEachDevice(device, [](EmulatedSensorDevice& d) { d.closeObserver(); });
}

void EmulatedHost::forEachDevice(int32_t device,
                                 const std::function<void(EmulatedSensorDevice&)>& fn) {
    for (auto& service : mServices) {
        for (const auto& d : service->devices(device)) fn(*d);
    }
}

void EmulatedHost::recordError(const std::string& what) { mLog.record("error " + what); }

void EmulatedHost::teardown() {
    mShutDown = true;
    mServices.clear();
    mHalClient.reset();
    mIioSensorHosts.clear();
    mInstance.reset();
    mBridges.clear();
}

}  // namespace kelvane::host
