#include "IioSensorBridge.h"

#include <chrono>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/logging.h"

namespace kelvane {
namespace sensors {

namespace {

constexpr int64_t kEnumerationGraceUs = 2000000;

}  // namespace

IioSensorBridge::IioSensorBridge(vel::MojoProcessSupport* processSupport,
                                 IioSensorEventCallback* eventCallback)
    : mProcessSupport(processSupport),
      mEventCallback(eventCallback),
      mInstanceBinding(this),
      mHalClientBinding(this) {}

IioSensorBridge::~IioSensorBridge() {
    if (mInstanceBinding.is_bound()) mInstanceBinding.Close();
    if (mHalClientBinding.is_bound()) mHalClientBinding.Close();
}

void IioSensorBridge::start() {
    mBridgeSupport = std::make_unique<vel::VelBridgeSupport>(mProcessSupport);
    mBridgeSupport->requestVelBridgeProxyAsync(android::wp<vel::VelService>(this),
                                               vel::mojom::kBridgeVersion);
    LOG(INFO) << "IioSensorBridge: connecting to VEL bridge (async)";
}

void IioSensorBridge::ready(mojo::InterfacePtr<vel::mojom::VelBridgeHost>* host) {
    LOG(INFO) << "IioSensorBridge: VEL bridge ready";
    // A repeated offer replaces the earlier instance pipe.
    if (mInstanceBinding.is_bound()) mInstanceBinding.Close();
    vel::mojom::IioSensorInstancePtr instance;
    mInstanceBinding.Bind(mojo::MakeRequest(&instance));
    mInstanceBinding.set_connection_error_handler(
        base::BindOnce([] { LOG(WARNING) << "IioSensorBridge: IioSensorInstance binding lost"; }));
    (*host)->OnIioSensorInstanceReady(std::move(instance));
    LOG(INFO) << "IioSensorBridge: registered IioSensorInstance with Chrome OS";
}

void IioSensorBridge::versionMismatch(uint32_t version) {
    LOG(ERROR) << "IioSensorBridge: version mismatch - Chrome supports v" << version << ", need v"
               << vel::mojom::kBridgeVersion;
    completeEnumeration();
}

void IioSensorBridge::Init(vel::mojom::IioSensorHostPtr host,
                           const base::RepeatingCallback<void()>& callback) {
    LOG(INFO) << "IioSensorBridge::Init - received IioSensorHost from Chrome";
    mIioSensorHost.reset();
    mIioSensorHost = std::move(host);
    // A repeated Init registers a fresh client pipe in place of the earlier one.
    if (mHalClientBinding.is_bound()) mHalClientBinding.Close();
    chromeos::sensors::mojom::SensorHalClientPtr client;
    mHalClientBinding.Bind(mojo::MakeRequest(&client));
    mHalClientBinding.set_connection_error_handler(
        base::BindOnce([] { LOG(WARNING) << "IioSensorBridge: SensorHalClient binding lost"; }));
    mIioSensorHost->RegisterSensorHalClient(std::move(client));
    callback.Run();
}

void IioSensorBridge::OnTabletModeChanged(bool tabletMode) {
    LOG(INFO) << "IioSensorBridge: tablet mode " << (tabletMode ? "ON" : "OFF");
}

void IioSensorBridge::SetUpChannel(chromeos::sensors::mojom::SensorServicePtr service) {
    LOG(INFO) << "IioSensorBridge::SetUpChannel - received SensorService from Chrome";
    mSensorService.reset();
    mSensorService = std::move(service);
    mSensorService.set_connection_error_with_reason_handler(
        base::BindOnce([](uint32_t reason, const std::string& description) {
            LOG(WARNING) << "IioSensorBridge: SensorService disconnected, reason=" << reason
                         << " desc=" << description;
        }));
    mSensorService->GetAllDeviceIds(
        base::BindRepeating(&IioSensorBridge::onAllDeviceIds, base::Unretained(this)));
}

void IioSensorBridge::onAllDeviceIds(const base::flat_map<int, std::vector<int>>& devices) {
    LOG(INFO) << "IioSensorBridge: got " << devices.size() << " IIO devices";
    int created = 0;
    for (const auto& [deviceId, types] : devices) {
        const SensorKind* kind = firstServedKind(types);
        if (kind == nullptr) continue;
        int handle;
        {
            base::AutoLock lock(mDevicesLock);
            handle = mNextHandle++;
            auto device =
                std::make_unique<IioSensorDevice>(deviceId, handle, *kind, types, mEventCallback);
            device->initialize(mSensorService);
            mDevices[handle] = std::move(device);
        }
        ++created;
        LOG(INFO) << "IioSensorBridge: device " << deviceId << " -> handle " << handle << " type "
                  << kind->androidType;
    }
    if (created == 0) {
        LOG(INFO) << "IioSensorBridge: no supported IIO devices found";
        completeEnumeration();
        return;
    }
    post(base::BindOnce(&IioSensorBridge::checkEnumerationComplete, base::Unretained(this)),
         base::TimeDelta::FromMicroseconds(kEnumerationGraceUs));
}

void IioSensorBridge::checkEnumerationComplete() {
    int ready = 0;
    {
        base::AutoLock lock(mDevicesLock);
        for (const auto& entry : mDevices) {
            if (entry.second->isReady()) ++ready;
        }
    }
    LOG(INFO) << "IioSensorBridge: " << ready << " devices ready";
    completeEnumeration();
}

void IioSensorBridge::completeEnumeration() {
    base::AutoLock lock(mEnumLock);
    mEnumerationComplete = true;
    mEnumDone.Broadcast();
}

std::vector<std::pair<int, IioSensorBridge::SensorInfo>> IioSensorBridge::getSensors(
    int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::nanoseconds(static_cast<int64_t>(timeoutMs) * 1000000);
    base::AutoLock enumLock(mEnumLock);
    while (!mEnumerationComplete) {
        if (!mEnumDone.WaitUntil(deadline)) break;
    }

    std::vector<std::pair<int, SensorInfo>> sensors;
    base::AutoLock devicesLock(mDevicesLock);
    for (const auto& [handle, device] : mDevices) {
        if (device->isReady()) sensors.emplace_back(handle, device->getSensorInfo());
    }
    return sensors;
}

void IioSensorBridge::activate(int handle, bool enabled) {
    base::AutoLock lock(mDevicesLock);
    auto it = mDevices.find(handle);
    if (it == mDevices.end()) return;
    post(base::BindOnce(&IioSensorDevice::activate, base::Unretained(it->second.get()), enabled));
}

void IioSensorBridge::batch(int handle, int64_t samplingPeriodNs) {
    base::AutoLock lock(mDevicesLock);
    auto it = mDevices.find(handle);
    if (it == mDevices.end()) return;
    post(base::BindOnce(&IioSensorDevice::batch, base::Unretained(it->second.get()),
                        samplingPeriodNs));
}

void IioSensorBridge::post(base::OnceClosure task, base::TimeDelta delay) {
    scoped_refptr<base::SingleThreadTaskRunner> runner =
        mProcessSupport->getThread()->getTaskRunner();
    runner->PostDelayedTask(
        base::Location::CreateFromHere(__FILE__),
        base::BindOnce(&IioSensorBridge::runPosted, mWeak.GetWeakPtr(), std::move(task)), delay);
}

}  // namespace sensors
}  // namespace kelvane
