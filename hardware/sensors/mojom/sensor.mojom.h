// C++ bindings of sensor.mojom (module chromeos.sensors.mojom) for the in-process Mojo, in the
// form the bindings generator emits. Change them together with the .mojom.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/callback.h"
#include "base/containers/flat_map.h"
#include "base/optional.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "mojo/public/cpp/bindings/interface_ptr_info.h"
#include "mojo/public/cpp/bindings/interface_request.h"
#include "mojo/public/cpp/bindings/message.h"

namespace chromeos {
namespace sensors {
namespace mojom {

enum class DeviceType : int32_t {
    NONE = 0,
    ACCEL = 1,
    ANGLVEL = 2,
    LIGHT = 3,
    COUNT = 4,
    MAGN = 5,
    ANGL = 6,
    BARO = 7,
    ACCEL_UNCALIBRATED = 8,
    ANGLVEL_UNCALIBRATED = 9,
    MAGN_UNCALIBRATED = 10,
    GRAVITY = 11,
    kMinValue = 0,
    kMaxValue = 11,
};

enum class ObserverErrorType : int32_t {
    ALREADY_STARTED = 0,
    SET_FREQUENCY_IO_FAILED = 1,
    FREQUENCY_INVALID = 2,
    NO_ENABLED_CHANNELS = 3,
    GET_FD_FAILED = 4,
    READ_FAILED = 5,
    READ_TIMEOUT = 6,
    kMinValue = 0,
    kMaxValue = 6,
};

// Values outside the enumeration still travel unchanged: a newer peer may send them.
inline bool IsKnownEnumValue(DeviceType value) {
    return value >= DeviceType::kMinValue && value <= DeviceType::kMaxValue;
}
inline bool IsKnownEnumValue(ObserverErrorType value) {
    return value >= ObserverErrorType::kMinValue && value <= ObserverErrorType::kMaxValue;
}

class SensorService;
class SensorServiceProxy;
class SensorServiceStub;
using SensorServicePtr = mojo::InterfacePtr<SensorService>;
using SensorServicePtrInfo = mojo::InterfacePtrInfo<SensorService>;
using SensorServiceRequest = mojo::InterfaceRequest<SensorService>;

class SensorDevice;
class SensorDeviceProxy;
class SensorDeviceStub;
using SensorDevicePtr = mojo::InterfacePtr<SensorDevice>;
using SensorDevicePtrInfo = mojo::InterfacePtrInfo<SensorDevice>;
using SensorDeviceRequest = mojo::InterfaceRequest<SensorDevice>;

class SensorDeviceSamplesObserver;
class SensorDeviceSamplesObserverProxy;
class SensorDeviceSamplesObserverStub;
using SensorDeviceSamplesObserverPtr = mojo::InterfacePtr<SensorDeviceSamplesObserver>;
using SensorDeviceSamplesObserverPtrInfo = mojo::InterfacePtrInfo<SensorDeviceSamplesObserver>;
using SensorDeviceSamplesObserverRequest = mojo::InterfaceRequest<SensorDeviceSamplesObserver>;

class SensorHalClient;
class SensorHalClientProxy;
class SensorHalClientStub;
using SensorHalClientPtr = mojo::InterfacePtr<SensorHalClient>;
using SensorHalClientPtrInfo = mojo::InterfacePtrInfo<SensorHalClient>;
using SensorHalClientRequest = mojo::InterfaceRequest<SensorHalClient>;

class SensorServiceNewDevicesObserver;
class SensorServiceNewDevicesObserverProxy;
class SensorServiceNewDevicesObserverStub;
using SensorServiceNewDevicesObserverPtr = mojo::InterfacePtr<SensorServiceNewDevicesObserver>;
using SensorServiceNewDevicesObserverPtrInfo =
    mojo::InterfacePtrInfo<SensorServiceNewDevicesObserver>;
using SensorServiceNewDevicesObserverRequest =
    mojo::InterfaceRequest<SensorServiceNewDevicesObserver>;

// Message names: the methods' ordinals.
constexpr uint32_t kSensorService_GetDeviceIds_Name = 0;
constexpr uint32_t kSensorService_GetAllDeviceIds_Name = 1;
constexpr uint32_t kSensorService_GetDevice_Name = 2;
constexpr uint32_t kSensorService_RegisterNewDevicesObserver_Name = 3;
constexpr uint32_t kSensorDevice_SetTimeout_Name = 0;
constexpr uint32_t kSensorDevice_GetAttributes_Name = 1;
constexpr uint32_t kSensorDevice_SetFrequency_Name = 2;
constexpr uint32_t kSensorDevice_StartReadingSamples_Name = 3;
constexpr uint32_t kSensorDevice_StopReadingSamples_Name = 4;
constexpr uint32_t kSensorDevice_GetAllChannelIds_Name = 5;
constexpr uint32_t kSensorDevice_SetChannelsEnabled_Name = 6;
constexpr uint32_t kSensorDevice_GetChannelsEnabled_Name = 7;
constexpr uint32_t kSensorDevice_GetChannelsAttributes_Name = 8;
constexpr uint32_t kSensorDeviceSamplesObserver_OnSampleUpdated_Name = 0;
constexpr uint32_t kSensorDeviceSamplesObserver_OnErrorOccurred_Name = 1;
constexpr uint32_t kSensorHalClient_SetUpChannel_Name = 0;
constexpr uint32_t kSensorServiceNewDevicesObserver_OnNewDeviceAdded_Name = 0;

class SensorService {
  public:
    static constexpr char Name_[] = "chromeos.sensors.mojom.SensorService";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = SensorServiceProxy;
    using Stub_ = SensorServiceStub;

    using GetDeviceIdsCallback = base::OnceCallback<void(const std::vector<int32_t>&)>;
    // Device types travel as their int32_t values.
    using GetAllDeviceIdsCallback =
        base::OnceCallback<void(const base::flat_map<int32_t, std::vector<int32_t>>&)>;

    virtual ~SensorService() = default;

    virtual void GetDeviceIds(DeviceType type, GetDeviceIdsCallback callback) = 0;
    virtual void GetAllDeviceIds(GetAllDeviceIdsCallback callback) = 0;
    virtual void GetDevice(int32_t iio_device_id, SensorDeviceRequest device_request) = 0;
    virtual void RegisterNewDevicesObserver(SensorServiceNewDevicesObserverPtr observer) = 0;
};

class SensorDevice {
  public:
    static constexpr char Name_[] = "chromeos.sensors.mojom.SensorDevice";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = SensorDeviceProxy;
    using Stub_ = SensorDeviceStub;

    using GetAttributesCallback =
        base::OnceCallback<void(const std::vector<base::Optional<std::string>>&)>;
    using SetFrequencyCallback = base::OnceCallback<void(double)>;
    using GetAllChannelIdsCallback = base::OnceCallback<void(const std::vector<std::string>&)>;
    using SetChannelsEnabledCallback = base::OnceCallback<void(const std::vector<int32_t>&)>;
    using GetChannelsEnabledCallback = base::OnceCallback<void(const std::vector<bool>&)>;
    using GetChannelsAttributesCallback =
        base::OnceCallback<void(const std::vector<base::Optional<std::string>>&)>;

    virtual ~SensorDevice() = default;

    virtual void SetTimeout(uint32_t timeout) = 0;
    virtual void GetAttributes(const std::vector<std::string>& attr_names,
                               GetAttributesCallback callback) = 0;
    virtual void SetFrequency(double frequency, SetFrequencyCallback callback) = 0;
    virtual void StartReadingSamples(SensorDeviceSamplesObserverPtr observer) = 0;
    virtual void StopReadingSamples() = 0;
    virtual void GetAllChannelIds(GetAllChannelIdsCallback callback) = 0;
    virtual void SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                                    SetChannelsEnabledCallback callback) = 0;
    virtual void GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                                    GetChannelsEnabledCallback callback) = 0;
    virtual void GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                                       const std::string& attr_name,
                                       GetChannelsAttributesCallback callback) = 0;
};

class SensorDeviceSamplesObserver {
  public:
    static constexpr char Name_[] = "chromeos.sensors.mojom.SensorDeviceSamplesObserver";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = SensorDeviceSamplesObserverProxy;
    using Stub_ = SensorDeviceSamplesObserverStub;

    virtual ~SensorDeviceSamplesObserver() = default;

    virtual void OnSampleUpdated(const base::flat_map<int32_t, int64_t>& sample) = 0;
    virtual void OnErrorOccurred(ObserverErrorType type) = 0;
};

class SensorHalClient {
  public:
    static constexpr char Name_[] = "chromeos.sensors.mojom.SensorHalClient";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = SensorHalClientProxy;
    using Stub_ = SensorHalClientStub;

    virtual ~SensorHalClient() = default;

    virtual void SetUpChannel(SensorServicePtr sensor_service) = 0;
};

class SensorServiceNewDevicesObserver {
  public:
    static constexpr char Name_[] = "chromeos.sensors.mojom.SensorServiceNewDevicesObserver";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = SensorServiceNewDevicesObserverProxy;
    using Stub_ = SensorServiceNewDevicesObserverStub;

    virtual ~SensorServiceNewDevicesObserver() = default;

    // Device types travel as their int32_t values.
    virtual void OnNewDeviceAdded(int32_t iio_device_id, const std::vector<int32_t>& types) = 0;
};

class SensorServiceProxy : public SensorService {
  public:
    explicit SensorServiceProxy(mojo::MessageReceiverWithResponder* receiver);

    void GetDeviceIds(DeviceType type, GetDeviceIdsCallback callback) override;
    void GetAllDeviceIds(GetAllDeviceIdsCallback callback) override;
    void GetDevice(int32_t iio_device_id, SensorDeviceRequest device_request) override;
    void RegisterNewDevicesObserver(SensorServiceNewDevicesObserverPtr observer) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class SensorDeviceProxy : public SensorDevice {
  public:
    explicit SensorDeviceProxy(mojo::MessageReceiverWithResponder* receiver);

    void SetTimeout(uint32_t timeout) override;
    void GetAttributes(const std::vector<std::string>& attr_names,
                       GetAttributesCallback callback) override;
    void SetFrequency(double frequency, SetFrequencyCallback callback) override;
    void StartReadingSamples(SensorDeviceSamplesObserverPtr observer) override;
    void StopReadingSamples() override;
    void GetAllChannelIds(GetAllChannelIdsCallback callback) override;
    void SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                            SetChannelsEnabledCallback callback) override;
    void GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                            GetChannelsEnabledCallback callback) override;
    void GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                               const std::string& attr_name,
                               GetChannelsAttributesCallback callback) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class SensorDeviceSamplesObserverProxy : public SensorDeviceSamplesObserver {
  public:
    explicit SensorDeviceSamplesObserverProxy(mojo::MessageReceiverWithResponder* receiver);

    void OnSampleUpdated(const base::flat_map<int32_t, int64_t>& sample) override;
    void OnErrorOccurred(ObserverErrorType type) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class SensorHalClientProxy : public SensorHalClient {
  public:
    explicit SensorHalClientProxy(mojo::MessageReceiverWithResponder* receiver);

    void SetUpChannel(SensorServicePtr sensor_service) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class SensorServiceNewDevicesObserverProxy : public SensorServiceNewDevicesObserver {
  public:
    explicit SensorServiceNewDevicesObserverProxy(mojo::MessageReceiverWithResponder* receiver);

    void OnNewDeviceAdded(int32_t iio_device_id, const std::vector<int32_t>& types) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

// A stub dispatches on the thread its binding runs on; the sink may destroy the binding (and so
// the stub) while handling a call.
class SensorServiceStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(SensorService* sink) { sink_ = sink; }
    SensorService* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    SensorService* sink_ = nullptr;
};

class SensorDeviceStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(SensorDevice* sink) { sink_ = sink; }
    SensorDevice* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    SensorDevice* sink_ = nullptr;
};

class SensorDeviceSamplesObserverStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(SensorDeviceSamplesObserver* sink) { sink_ = sink; }
    SensorDeviceSamplesObserver* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    SensorDeviceSamplesObserver* sink_ = nullptr;
};

class SensorHalClientStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(SensorHalClient* sink) { sink_ = sink; }
    SensorHalClient* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    SensorHalClient* sink_ = nullptr;
};

class SensorServiceNewDevicesObserverStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(SensorServiceNewDevicesObserver* sink) { sink_ = sink; }
    SensorServiceNewDevicesObserver* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    SensorServiceNewDevicesObserver* sink_ = nullptr;
};

}  // namespace mojom
}  // namespace sensors
}  // namespace chromeos
