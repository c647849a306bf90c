#include "hardware/sensors/mojom/sensor.mojom.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "hardware/sensors/mojom/bindings_support.h"

namespace chromeos {
namespace sensors {
namespace mojom {
namespace {

using mojom_bindings::internal::ForwardToCallback;
using mojom_bindings::internal::ProxyToResponder;

// SensorService

struct SensorService_GetDeviceIds_Params : mojo::internal::MessagePayload {
    DeviceType type = DeviceType::NONE;
};
struct SensorService_GetDeviceIds_ResponseParams : mojo::internal::MessagePayload {
    std::vector<int32_t> iio_device_ids;
    auto Fields() { return std::tie(iio_device_ids); }
};
using SensorService_GetDeviceIds_ForwardToCallback =
    ForwardToCallback<SensorService_GetDeviceIds_ResponseParams,
                      SensorService::GetDeviceIdsCallback>;
using SensorService_GetDeviceIds_ProxyToResponder =
    ProxyToResponder<SensorService_GetDeviceIds_ResponseParams,
                     SensorService::GetDeviceIdsCallback>;

struct SensorService_GetAllDeviceIds_Params : mojo::internal::MessagePayload {};
struct SensorService_GetAllDeviceIds_ResponseParams : mojo::internal::MessagePayload {
    base::flat_map<int32_t, std::vector<int32_t>> iio_device_ids_types;
    auto Fields() { return std::tie(iio_device_ids_types); }
};
using SensorService_GetAllDeviceIds_ForwardToCallback =
    ForwardToCallback<SensorService_GetAllDeviceIds_ResponseParams,
                      SensorService::GetAllDeviceIdsCallback>;
using SensorService_GetAllDeviceIds_ProxyToResponder =
    ProxyToResponder<SensorService_GetAllDeviceIds_ResponseParams,
                     SensorService::GetAllDeviceIdsCallback>;

struct SensorService_GetDevice_Params : mojo::internal::MessagePayload {
    int32_t iio_device_id = 0;
    SensorDeviceRequest device_request;
};

struct SensorService_RegisterNewDevicesObserver_Params : mojo::internal::MessagePayload {
    SensorServiceNewDevicesObserverPtrInfo observer;
};

// SensorDevice

struct SensorDevice_SetTimeout_Params : mojo::internal::MessagePayload {
    uint32_t timeout = 0;
};

struct SensorDevice_GetAttributes_Params : mojo::internal::MessagePayload {
    std::vector<std::string> attr_names;
};
struct SensorDevice_GetAttributes_ResponseParams : mojo::internal::MessagePayload {
    std::vector<base::Optional<std::string>> values;
    auto Fields() { return std::tie(values); }
};
using SensorDevice_GetAttributes_ForwardToCallback =
    ForwardToCallback<SensorDevice_GetAttributes_ResponseParams,
                      SensorDevice::GetAttributesCallback>;
using SensorDevice_GetAttributes_ProxyToResponder =
    ProxyToResponder<SensorDevice_GetAttributes_ResponseParams,
                     SensorDevice::GetAttributesCallback>;

struct SensorDevice_SetFrequency_Params : mojo::internal::MessagePayload {
    double frequency = 0.0;
};
struct SensorDevice_SetFrequency_ResponseParams : mojo::internal::MessagePayload {
    double result_freq = 0.0;
    auto Fields() { return std::tie(result_freq); }
};
using SensorDevice_SetFrequency_ForwardToCallback =
    ForwardToCallback<SensorDevice_SetFrequency_ResponseParams, SensorDevice::SetFrequencyCallback>;
using SensorDevice_SetFrequency_ProxyToResponder =
    ProxyToResponder<SensorDevice_SetFrequency_ResponseParams, SensorDevice::SetFrequencyCallback>;

struct SensorDevice_StartReadingSamples_Params : mojo::internal::MessagePayload {
    SensorDeviceSamplesObserverPtrInfo observer;
};

struct SensorDevice_StopReadingSamples_Params : mojo::internal::MessagePayload {};

struct SensorDevice_GetAllChannelIds_Params : mojo::internal::MessagePayload {};
struct SensorDevice_GetAllChannelIds_ResponseParams : mojo::internal::MessagePayload {
    std::vector<std::string> iio_chn_ids;
    auto Fields() { return std::tie(iio_chn_ids); }
};
using SensorDevice_GetAllChannelIds_ForwardToCallback =
    ForwardToCallback<SensorDevice_GetAllChannelIds_ResponseParams,
                      SensorDevice::GetAllChannelIdsCallback>;
using SensorDevice_GetAllChannelIds_ProxyToResponder =
    ProxyToResponder<SensorDevice_GetAllChannelIds_ResponseParams,
                     SensorDevice::GetAllChannelIdsCallback>;

struct SensorDevice_SetChannelsEnabled_Params : mojo::internal::MessagePayload {
    std::vector<int32_t> iio_chn_indices;
    bool en = false;
};
struct SensorDevice_SetChannelsEnabled_ResponseParams : mojo::internal::MessagePayload {
    std::vector<int32_t> failed_indices;
    auto Fields() { return std::tie(failed_indices); }
};
using SensorDevice_SetChannelsEnabled_ForwardToCallback =
    ForwardToCallback<SensorDevice_SetChannelsEnabled_ResponseParams,
                      SensorDevice::SetChannelsEnabledCallback>;
using SensorDevice_SetChannelsEnabled_ProxyToResponder =
    ProxyToResponder<SensorDevice_SetChannelsEnabled_ResponseParams,
                     SensorDevice::SetChannelsEnabledCallback>;

struct SensorDevice_GetChannelsEnabled_Params : mojo::internal::MessagePayload {
    std::vector<int32_t> iio_chn_indices;
};
struct SensorDevice_GetChannelsEnabled_ResponseParams : mojo::internal::MessagePayload {
    std::vector<bool> enabled;
    auto Fields() { return std::tie(enabled); }
};
using SensorDevice_GetChannelsEnabled_ForwardToCallback =
    ForwardToCallback<SensorDevice_GetChannelsEnabled_ResponseParams,
                      SensorDevice::GetChannelsEnabledCallback>;
using SensorDevice_GetChannelsEnabled_ProxyToResponder =
    ProxyToResponder<SensorDevice_GetChannelsEnabled_ResponseParams,
                     SensorDevice::GetChannelsEnabledCallback>;

struct SensorDevice_GetChannelsAttributes_Params : mojo::internal::MessagePayload {
    std::vector<int32_t> iio_chn_indices;
    std::string attr_name;
};
struct SensorDevice_GetChannelsAttributes_ResponseParams : mojo::internal::MessagePayload {
    std::vector<base::Optional<std::string>> values;
    auto Fields() { return std::tie(values); }
};
using SensorDevice_GetChannelsAttributes_ForwardToCallback =
    ForwardToCallback<SensorDevice_GetChannelsAttributes_ResponseParams,
                      SensorDevice::GetChannelsAttributesCallback>;
using SensorDevice_GetChannelsAttributes_ProxyToResponder =
    ProxyToResponder<SensorDevice_GetChannelsAttributes_ResponseParams,
                     SensorDevice::GetChannelsAttributesCallback>;

// SensorDeviceSamplesObserver

// The sample travels inside the message object, as a serialized map would: a typical sample (up
// to three axes and a timestamp) makes sending allocate the message and nothing else. The object
// stays small enough for the allocator's fast path.
struct SensorDeviceSamplesObserver_OnSampleUpdated_Params : mojo::internal::MessagePayload {
    using Entry = std::pair<int32_t, int64_t>;
    static constexpr size_t kInlineEntries = 4;
    size_t size = 0;
    Entry inline_entries[kInlineEntries];
    std::unique_ptr<Entry[]> more_entries;  // all entries, when there are more than kInlineEntries

    const Entry* begin() const {
        return size <= kInlineEntries ? inline_entries : more_entries.get();
    }
    const Entry* end() const { return begin() + size; }
};

// A map for rebuilding received samples in, one per thread.
struct SampleScratch {
    base::flat_map<int32_t, int64_t> map;
    bool inUse = false;
};

SampleScratch& ThreadSampleScratch() {
    // The pointer is trivial, so the hot path is a single thread-local read; the owner frees the
    // scratch when the thread exits.
    thread_local SampleScratch* tScratch = nullptr;
    if (SampleScratch* scratch = tScratch) return *scratch;
    thread_local std::unique_ptr<SampleScratch> tOwner;
    tOwner = std::make_unique<SampleScratch>();
    tScratch = tOwner.get();
    return *tScratch;
}

// Hands `sink` the sample as a map kept by this thread, so dispatching allocates nothing either.
// A sample dispatched from inside that call gets a map of its own.
template <typename Sink>
void WithSampleMap(const SensorDeviceSamplesObserver_OnSampleUpdated_Params& params, Sink sink) {
    auto fill = [&params](base::flat_map<int32_t, int64_t>& map) {
        map.clear();
        for (const auto& entry : params) map.insert(map.end(), entry);  // in key order: appends
    };
    SampleScratch& scratch = ThreadSampleScratch();
    if (scratch.inUse) {
        base::flat_map<int32_t, int64_t> own;
        fill(own);
        sink(own);
        return;
    }
    fill(scratch.map);
    scratch.inUse = true;
    sink(scratch.map);
    scratch.inUse = false;
}

struct SensorDeviceSamplesObserver_OnErrorOccurred_Params : mojo::internal::MessagePayload {
    ObserverErrorType type = ObserverErrorType::ALREADY_STARTED;
};

// SensorHalClient

struct SensorHalClient_SetUpChannel_Params : mojo::internal::MessagePayload {
    SensorServicePtrInfo sensor_service;
};

// SensorServiceNewDevicesObserver

struct SensorServiceNewDevicesObserver_OnNewDeviceAdded_Params : mojo::internal::MessagePayload {
    int32_t iio_device_id = 0;
    std::vector<int32_t> types;
};

}  // namespace

// SensorServiceProxy

SensorServiceProxy::SensorServiceProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void SensorServiceProxy::GetDeviceIds(DeviceType type, GetDeviceIdsCallback callback) {
    auto params = std::make_unique<SensorService_GetDeviceIds_Params>();
    params->type = type;
    mojo::Message message(kSensorService_GetDeviceIds_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorService_GetDeviceIds_ForwardToCallback>(std::move(callback)));
}

void SensorServiceProxy::GetAllDeviceIds(GetAllDeviceIdsCallback callback) {
    auto params = std::make_unique<SensorService_GetAllDeviceIds_Params>();
    mojo::Message message(kSensorService_GetAllDeviceIds_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorService_GetAllDeviceIds_ForwardToCallback>(std::move(callback)));
}

void SensorServiceProxy::GetDevice(int32_t iio_device_id, SensorDeviceRequest device_request) {
    auto params = std::make_unique<SensorService_GetDevice_Params>();
    params->iio_device_id = iio_device_id;
    params->device_request = std::move(device_request);
    mojo::Message message(kSensorService_GetDevice_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

void SensorServiceProxy::RegisterNewDevicesObserver(SensorServiceNewDevicesObserverPtr observer) {
    auto params = std::make_unique<SensorService_RegisterNewDevicesObserver_Params>();
    params->observer = observer.PassInterface();
    mojo::Message message(kSensorService_RegisterNewDevicesObserver_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// SensorDeviceProxy

SensorDeviceProxy::SensorDeviceProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void SensorDeviceProxy::SetTimeout(uint32_t timeout) {
    auto params = std::make_unique<SensorDevice_SetTimeout_Params>();
    params->timeout = timeout;
    mojo::Message message(kSensorDevice_SetTimeout_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

void SensorDeviceProxy::GetAttributes(const std::vector<std::string>& attr_names,
                                      GetAttributesCallback callback) {
    auto params = std::make_unique<SensorDevice_GetAttributes_Params>();
    params->attr_names = attr_names;
    mojo::Message message(kSensorDevice_GetAttributes_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorDevice_GetAttributes_ForwardToCallback>(std::move(callback)));
}

void SensorDeviceProxy::SetFrequency(double frequency, SetFrequencyCallback callback) {
    auto params = std::make_unique<SensorDevice_SetFrequency_Params>();
    params->frequency = frequency;
    mojo::Message message(kSensorDevice_SetFrequency_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorDevice_SetFrequency_ForwardToCallback>(std::move(callback)));
}

void SensorDeviceProxy::StartReadingSamples(SensorDeviceSamplesObserverPtr observer) {
    auto params = std::make_unique<SensorDevice_StartReadingSamples_Params>();
    params->observer = observer.PassInterface();
    mojo::Message message(kSensorDevice_StartReadingSamples_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

void SensorDeviceProxy::StopReadingSamples() {
    auto params = std::make_unique<SensorDevice_StopReadingSamples_Params>();
    mojo::Message message(kSensorDevice_StopReadingSamples_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

void SensorDeviceProxy::GetAllChannelIds(GetAllChannelIdsCallback callback) {
    auto params = std::make_unique<SensorDevice_GetAllChannelIds_Params>();
    mojo::Message message(kSensorDevice_GetAllChannelIds_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorDevice_GetAllChannelIds_ForwardToCallback>(std::move(callback)));
}

void SensorDeviceProxy::SetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices, bool en,
                                           SetChannelsEnabledCallback callback) {
    auto params = std::make_unique<SensorDevice_SetChannelsEnabled_Params>();
    params->iio_chn_indices = iio_chn_indices;
    params->en = en;
    mojo::Message message(kSensorDevice_SetChannelsEnabled_Name,
                          mojo::Message::kFlagExpectsResponse, std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorDevice_SetChannelsEnabled_ForwardToCallback>(std::move(callback)));
}

void SensorDeviceProxy::GetChannelsEnabled(const std::vector<int32_t>& iio_chn_indices,
                                           GetChannelsEnabledCallback callback) {
    auto params = std::make_unique<SensorDevice_GetChannelsEnabled_Params>();
    params->iio_chn_indices = iio_chn_indices;
    mojo::Message message(kSensorDevice_GetChannelsEnabled_Name,
                          mojo::Message::kFlagExpectsResponse, std::move(params));
    receiver_->AcceptWithResponder(
        &message,
        std::make_unique<SensorDevice_GetChannelsEnabled_ForwardToCallback>(std::move(callback)));
}

void SensorDeviceProxy::GetChannelsAttributes(const std::vector<int32_t>& iio_chn_indices,
                                              const std::string& attr_name,
                                              GetChannelsAttributesCallback callback) {
    auto params = std::make_unique<SensorDevice_GetChannelsAttributes_Params>();
    params->iio_chn_indices = iio_chn_indices;
    params->attr_name = attr_name;
    mojo::Message message(kSensorDevice_GetChannelsAttributes_Name,
                          mojo::Message::kFlagExpectsResponse, std::move(params));
    receiver_->AcceptWithResponder(
        &message, std::make_unique<SensorDevice_GetChannelsAttributes_ForwardToCallback>(
                      std::move(callback)));
}

// SensorDeviceSamplesObserverProxy

SensorDeviceSamplesObserverProxy::SensorDeviceSamplesObserverProxy(
    mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void SensorDeviceSamplesObserverProxy::OnSampleUpdated(
    const base::flat_map<int32_t, int64_t>& sample) {
    auto params = std::make_unique<SensorDeviceSamplesObserver_OnSampleUpdated_Params>();
    params->size = sample.size();
    if (sample.size() <= params->kInlineEntries) {
        std::copy(sample.begin(), sample.end(), params->inline_entries);
    } else {
        params->more_entries.reset(
            new SensorDeviceSamplesObserver_OnSampleUpdated_Params::Entry[sample.size()]);
        std::copy(sample.begin(), sample.end(), params->more_entries.get());
    }
    mojo::Message message(kSensorDeviceSamplesObserver_OnSampleUpdated_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

void SensorDeviceSamplesObserverProxy::OnErrorOccurred(ObserverErrorType type) {
    auto params = std::make_unique<SensorDeviceSamplesObserver_OnErrorOccurred_Params>();
    params->type = type;
    mojo::Message message(kSensorDeviceSamplesObserver_OnErrorOccurred_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// SensorHalClientProxy

SensorHalClientProxy::SensorHalClientProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void SensorHalClientProxy::SetUpChannel(SensorServicePtr sensor_service) {
    auto params = std::make_unique<SensorHalClient_SetUpChannel_Params>();
    params->sensor_service = sensor_service.PassInterface();
    mojo::Message message(kSensorHalClient_SetUpChannel_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// SensorServiceNewDevicesObserverProxy

SensorServiceNewDevicesObserverProxy::SensorServiceNewDevicesObserverProxy(
    mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void SensorServiceNewDevicesObserverProxy::OnNewDeviceAdded(int32_t iio_device_id,
                                                            const std::vector<int32_t>& types) {
    auto params = std::make_unique<SensorServiceNewDevicesObserver_OnNewDeviceAdded_Params>();
    params->iio_device_id = iio_device_id;
    params->types = types;
    mojo::Message message(kSensorServiceNewDevicesObserver_OnNewDeviceAdded_Name, 0,
                          std::move(params));
    receiver_->Accept(&message);
}

// Stubs. Nothing touches the stub after the sink returns: the sink may have destroyed it.

bool SensorServiceStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorService_GetDevice_Name: {
            auto* params = message->payload<SensorService_GetDevice_Params>();
            if (!params) return false;
            sink_->GetDevice(params->iio_device_id, std::move(params->device_request));
            return true;
        }
        case kSensorService_RegisterNewDevicesObserver_Name: {
            auto* params = message->payload<SensorService_RegisterNewDevicesObserver_Params>();
            if (!params) return false;
            sink_->RegisterNewDevicesObserver(
                SensorServiceNewDevicesObserverPtr(std::move(params->observer)));
            return true;
        }
    }
    return false;
}

bool SensorServiceStub::AcceptWithResponder(mojo::Message* message,
                                            std::unique_ptr<mojo::MessageReceiver> responder) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorService_GetDeviceIds_Name: {
            auto* params = message->payload<SensorService_GetDeviceIds_Params>();
            if (!params) return false;
            sink_->GetDeviceIds(params->type,
                                SensorService_GetDeviceIds_ProxyToResponder::CreateCallback(
                                    message->name(), std::move(responder)));
            return true;
        }
        case kSensorService_GetAllDeviceIds_Name: {
            if (!message->payload<SensorService_GetAllDeviceIds_Params>()) return false;
            sink_->GetAllDeviceIds(SensorService_GetAllDeviceIds_ProxyToResponder::CreateCallback(
                message->name(), std::move(responder)));
            return true;
        }
    }
    return false;
}

bool SensorDeviceStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorDevice_SetTimeout_Name: {
            auto* params = message->payload<SensorDevice_SetTimeout_Params>();
            if (!params) return false;
            sink_->SetTimeout(params->timeout);
            return true;
        }
        case kSensorDevice_StartReadingSamples_Name: {
            auto* params = message->payload<SensorDevice_StartReadingSamples_Params>();
            if (!params) return false;
            sink_->StartReadingSamples(SensorDeviceSamplesObserverPtr(std::move(params->observer)));
            return true;
        }
        case kSensorDevice_StopReadingSamples_Name: {
            if (!message->payload<SensorDevice_StopReadingSamples_Params>()) return false;
            sink_->StopReadingSamples();
            return true;
        }
    }
    return false;
}

bool SensorDeviceStub::AcceptWithResponder(mojo::Message* message,
                                           std::unique_ptr<mojo::MessageReceiver> responder) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorDevice_GetAttributes_Name: {
            auto* params = message->payload<SensorDevice_GetAttributes_Params>();
            if (!params) return false;
            sink_->GetAttributes(params->attr_names,
                                 SensorDevice_GetAttributes_ProxyToResponder::CreateCallback(
                                     message->name(), std::move(responder)));
            return true;
        }
        case kSensorDevice_SetFrequency_Name: {
            auto* params = message->payload<SensorDevice_SetFrequency_Params>();
            if (!params) return false;
            sink_->SetFrequency(params->frequency,
                                SensorDevice_SetFrequency_ProxyToResponder::CreateCallback(
                                    message->name(), std::move(responder)));
            return true;
        }
        case kSensorDevice_GetAllChannelIds_Name: {
            if (!message->payload<SensorDevice_GetAllChannelIds_Params>()) return false;
            sink_->GetAllChannelIds(SensorDevice_GetAllChannelIds_ProxyToResponder::CreateCallback(
                message->name(), std::move(responder)));
            return true;
        }
        case kSensorDevice_SetChannelsEnabled_Name: {
            auto* params = message->payload<SensorDevice_SetChannelsEnabled_Params>();
            if (!params) return false;
            sink_->SetChannelsEnabled(
                params->iio_chn_indices, params->en,
                SensorDevice_SetChannelsEnabled_ProxyToResponder::CreateCallback(
                    message->name(), std::move(responder)));
            return true;
        }
        case kSensorDevice_GetChannelsEnabled_Name: {
            auto* params = message->payload<SensorDevice_GetChannelsEnabled_Params>();
            if (!params) return false;
            sink_->GetChannelsEnabled(
                params->iio_chn_indices,
                SensorDevice_GetChannelsEnabled_ProxyToResponder::CreateCallback(
                    message->name(), std::move(responder)));
            return true;
        }
        case kSensorDevice_GetChannelsAttributes_Name: {
            auto* params = message->payload<SensorDevice_GetChannelsAttributes_Params>();
            if (!params) return false;
            sink_->GetChannelsAttributes(
                params->iio_chn_indices, params->attr_name,
                SensorDevice_GetChannelsAttributes_ProxyToResponder::CreateCallback(
                    message->name(), std::move(responder)));
            return true;
        }
    }
    return false;
}

bool SensorDeviceSamplesObserverStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorDeviceSamplesObserver_OnSampleUpdated_Name: {
            auto* params = message->payload<SensorDeviceSamplesObserver_OnSampleUpdated_Params>();
            if (!params) return false;
            SensorDeviceSamplesObserver* sink = sink_;
            WithSampleMap(*params, [sink](const base::flat_map<int32_t, int64_t>& sample) {
                sink->OnSampleUpdated(sample);
            });
            return true;
        }
        case kSensorDeviceSamplesObserver_OnErrorOccurred_Name: {
            auto* params = message->payload<SensorDeviceSamplesObserver_OnErrorOccurred_Params>();
            if (!params) return false;
            sink_->OnErrorOccurred(params->type);
            return true;
        }
    }
    return false;
}

bool SensorDeviceSamplesObserverStub::AcceptWithResponder(mojo::Message*,
                                                          std::unique_ptr<mojo::MessageReceiver>) {
    return false;
}

bool SensorHalClientStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorHalClient_SetUpChannel_Name: {
            auto* params = message->payload<SensorHalClient_SetUpChannel_Params>();
            if (!params) return false;
            sink_->SetUpChannel(SensorServicePtr(std::move(params->sensor_service)));
            return true;
        }
    }
    return false;
}

bool SensorHalClientStub::AcceptWithResponder(mojo::Message*,
                                              std::unique_ptr<mojo::MessageReceiver>) {
    return false;
}

bool SensorServiceNewDevicesObserverStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kSensorServiceNewDevicesObserver_OnNewDeviceAdded_Name: {
            auto* params =
                message->payload<SensorServiceNewDevicesObserver_OnNewDeviceAdded_Params>();
            if (!params) return false;
            sink_->OnNewDeviceAdded(params->iio_device_id, params->types);
            return true;
        }
    }
    return false;
}

bool SensorServiceNewDevicesObserverStub::AcceptWithResponder(
    mojo::Message*, std::unique_ptr<mojo::MessageReceiver>) {
    return false;
}

}  // namespace mojom
}  // namespace sensors
}  // namespace chromeos
