#include "host/common/RecordingTap.h"

#include <string>
#include <utility>

#include "base/bind.h"
#include "host/common/Recorder.h"
#include "mojo/public/cpp/bindings/binding.h"

namespace kelvane::host::common {

namespace mojom = chromeos::sensors::mojom;

class RecordingTap::Observer : public mojom::SensorDeviceSamplesObserver {
  public:
    Observer(Recorder* recorder, int32_t device, mojom::SensorDeviceSamplesObserverPtr client,
             mojom::SensorDeviceSamplesObserverRequest host)
        : mRecorder(recorder),
          mDevice(device),
          mSerial(recorder->observerStarted(device)),
          mClient(std::move(client)),
          mBinding(this) {
        mBinding.Bind(std::move(host));
        // Either side closing closes the other.
        mBinding.set_connection_error_with_reason_handler(base::BindOnce(
            [](Observer* self, uint32_t reason, const std::string& description) {
                self->mClient.ResetWithReason(reason, description);
            },
            base::Unretained(this)));
        mClient.set_connection_error_handler(
            base::BindOnce([](Observer* self) { self->mBinding.Close(); }, base::Unretained(this)));
    }

    void OnSampleUpdated(const base::flat_map<int32_t, int64_t>& sample) override {
        mRecorder->sample(mDevice, mSerial, sample);
        mClient->OnSampleUpdated(sample);
    }

    void OnErrorOccurred(mojom::ObserverErrorType type) override {
        mRecorder->observerError(mDevice, static_cast<int32_t>(type));
        mClient->OnErrorOccurred(type);
    }

  private:
    Recorder* const mRecorder;
    const int32_t mDevice;
    const uint64_t mSerial;
    mojom::SensorDeviceSamplesObserverPtr mClient;
    mojo::Binding<mojom::SensorDeviceSamplesObserver> mBinding;
};

class RecordingTap::Device : public mojom::SensorDevice {
  public:
    Device(RecordingTap* tap, int32_t id, mojom::SensorDevicePtr host,
           mojom::SensorDeviceRequest client)
        : mTap(tap), mRecorder(tap->mRecorder), mId(id), mHost(std::move(host)), mBinding(this) {
        mBinding.Bind(std::move(client));
        mHost.set_connection_error_with_reason_handler(base::BindOnce(
            [](Device* self, uint32_t reason, const std::string& description) {
                // The host dropped the device: a fault worth replaying.
                self->mRecorder->deviceLost(self->mId);
                self->mBinding.CloseWithReason(reason, description);
            },
            base::Unretained(this)));
        mBinding.set_connection_error_handler(
            base::BindOnce([](Device* self) { self->mHost.reset(); }, base::Unretained(this)));
    }

    void SetTimeout(uint32_t timeout) override { mHost->SetTimeout(timeout); }

    void GetAttributes(const std::vector<std::string>& names,
                       GetAttributesCallback callback) override {
        mRecorder->attributesAsked(mId);
        mHost->GetAttributes(names, base::BindOnce(
                                        [](Recorder* recorder, int32_t id,
                                           std::vector<std::string> names, GetAttributesCallback cb,
                                           const std::vector<base::Optional<std::string>>& values) {
                                            recorder->attributes(id, names, values);
                                            std::move(cb).Run(values);
                                        },
                                        mRecorder, mId, names, std::move(callback)));
    }

    void SetFrequency(double frequency, SetFrequencyCallback callback) override {
        mHost->SetFrequency(frequency, base::BindOnce(
                                           [](Recorder* recorder, int32_t id, double requested,
                                              SetFrequencyCallback cb, double answered) {
                                               recorder->frequency(id, requested, answered);
                                               std::move(cb).Run(answered);
                                           },
                                           mRecorder, mId, frequency, std::move(callback)));
    }

    void StartReadingSamples(mojom::SensorDeviceSamplesObserverPtr observer) override {
        mojom::SensorDeviceSamplesObserverPtr hostSide;
        mTap->mObservers.push_back(std::make_unique<Observer>(mRecorder, mId, std::move(observer),
                                                              mojo::MakeRequest(&hostSide)));
        mHost->StartReadingSamples(std::move(hostSide));
    }

    void StopReadingSamples() override { mHost->StopReadingSamples(); }

    void GetAllChannelIds(GetAllChannelIdsCallback callback) override {
        mRecorder->channelsAsked(mId);
        mHost->GetAllChannelIds(base::BindOnce(
            [](Recorder* recorder, int32_t id, GetAllChannelIdsCallback cb,
               const std::vector<std::string>& ids) {
                recorder->channels(id, ids);
                std::move(cb).Run(ids);
            },
            mRecorder, mId, std::move(callback)));
    }

    void SetChannelsEnabled(const std::vector<int32_t>& indices, bool enable,
                            SetChannelsEnabledCallback callback) override {
        mHost->SetChannelsEnabled(
            indices, enable,
            base::BindOnce(
                [](Recorder* recorder, int32_t id, bool en, SetChannelsEnabledCallback cb,
                   const std::vector<int32_t>& failed) {
                    recorder->channelsEnabled(id, en, failed);
                    std::move(cb).Run(failed);
                },
                mRecorder, mId, enable, std::move(callback)));
    }

    void GetChannelsEnabled(const std::vector<int32_t>& indices,
                            GetChannelsEnabledCallback callback) override {
        mHost->GetChannelsEnabled(indices, std::move(callback));
    }

    void GetChannelsAttributes(const std::vector<int32_t>& indices, const std::string& name,
                               GetChannelsAttributesCallback callback) override {
        mHost->GetChannelsAttributes(indices, name, std::move(callback));
    }

  private:
    RecordingTap* const mTap;
    Recorder* const mRecorder;
    const int32_t mId;
    mojom::SensorDevicePtr mHost;
    mojo::Binding<mojom::SensorDevice> mBinding;
};

class RecordingTap::Service : public mojom::SensorService {
  public:
    Service(RecordingTap* tap, mojom::SensorServicePtr host, mojom::SensorServiceRequest client)
        : mTap(tap), mRecorder(tap->mRecorder), mHost(std::move(host)), mBinding(this) {
        mBinding.Bind(std::move(client));
        mHost.set_connection_error_with_reason_handler(base::BindOnce(
            [](Service* self, uint32_t reason, const std::string& description) {
                self->mRecorder->serviceClosed(reason, description);
                self->mBinding.CloseWithReason(reason, description);
            },
            base::Unretained(this)));
        mBinding.set_connection_error_handler(
            base::BindOnce([](Service* self) { self->mHost.reset(); }, base::Unretained(this)));
    }

    void GetDeviceIds(mojom::DeviceType type, GetDeviceIdsCallback callback) override {
        mHost->GetDeviceIds(type, base::BindOnce(
                                      [](Recorder* recorder, int32_t code, GetDeviceIdsCallback cb,
                                         const std::vector<int32_t>& ids) {
                                          recorder->listedType(code, ids);
                                          std::move(cb).Run(ids);
                                      },
                                      mRecorder, static_cast<int32_t>(type), std::move(callback)));
    }

    void GetAllDeviceIds(GetAllDeviceIdsCallback callback) override {
        mHost->GetAllDeviceIds(base::BindOnce(
            [](Recorder* recorder, GetAllDeviceIdsCallback cb,
               const base::flat_map<int32_t, std::vector<int32_t>>& devices) {
                recorder->listed(devices);
                std::move(cb).Run(devices);
            },
            mRecorder, std::move(callback)));
    }

    void GetDevice(int32_t id, mojom::SensorDeviceRequest request) override {
        mRecorder->opened(id);
        mojom::SensorDevicePtr hostSide;
        mHost->GetDevice(id, mojo::MakeRequest(&hostSide));
        mTap->mDevices.push_back(
            std::make_unique<Device>(mTap, id, std::move(hostSide), std::move(request)));
    }

    void RegisterNewDevicesObserver(mojom::SensorServiceNewDevicesObserverPtr observer) override {
        mHost->RegisterNewDevicesObserver(std::move(observer));
    }

  private:
    RecordingTap* const mTap;
    Recorder* const mRecorder;
    mojom::SensorServicePtr mHost;
    mojo::Binding<mojom::SensorService> mBinding;
};

RecordingTap::RecordingTap(Recorder* recorder, mojom::SensorServicePtr host,
                           mojom::SensorServiceRequest client)
    : mRecorder(recorder),
      mService(std::make_unique<Service>(this, std::move(host), std::move(client))) {}

RecordingTap::~RecordingTap() = default;

}  // namespace kelvane::host::common
