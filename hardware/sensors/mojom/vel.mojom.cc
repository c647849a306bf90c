#include "hardware/sensors/mojom/vel.mojom.h"

#include <tuple>
#include <utility>

#include "hardware/sensors/mojom/bindings_support.h"

namespace vel {
namespace mojom {
namespace {

using mojom_bindings::internal::ForwardToCallback;
using mojom_bindings::internal::ProxyToResponder;

// VelBridgeHost

struct VelBridgeHost_OnIioSensorInstanceReady_Params : mojo::internal::MessagePayload {
    IioSensorInstancePtrInfo instance;
};

// IioSensorInstance

struct IioSensorInstance_Init_Params : mojo::internal::MessagePayload {
    IioSensorHostPtrInfo host;
};
struct IioSensorInstance_Init_ResponseParams : mojo::internal::MessagePayload {
    auto Fields() { return std::tie(); }
};
using IioSensorInstance_Init_ForwardToCallback =
    ForwardToCallback<IioSensorInstance_Init_ResponseParams, IioSensorInstance::InitCallback>;
using IioSensorInstance_Init_ProxyToResponder =
    ProxyToResponder<IioSensorInstance_Init_ResponseParams, IioSensorInstance::InitCallback>;

struct IioSensorInstance_OnTabletModeChanged_Params : mojo::internal::MessagePayload {
    bool tablet_mode = false;
};

// IioSensorHost

struct IioSensorHost_RegisterSensorHalClient_Params : mojo::internal::MessagePayload {
    chromeos::sensors::mojom::SensorHalClientPtrInfo client;
};

}  // namespace

// VelBridgeHostProxy

VelBridgeHostProxy::VelBridgeHostProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void VelBridgeHostProxy::OnIioSensorInstanceReady(IioSensorInstancePtr instance) {
    auto params = std::make_unique<VelBridgeHost_OnIioSensorInstanceReady_Params>();
    params->instance = instance.PassInterface();
    mojo::Message message(kVelBridgeHost_OnIioSensorInstanceReady_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// IioSensorInstanceProxy

IioSensorInstanceProxy::IioSensorInstanceProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void IioSensorInstanceProxy::Init(IioSensorHostPtr host, const InitCallback& callback) {
    auto params = std::make_unique<IioSensorInstance_Init_Params>();
    params->host = host.PassInterface();
    mojo::Message message(kIioSensorInstance_Init_Name, mojo::Message::kFlagExpectsResponse,
                          std::move(params));
    receiver_->AcceptWithResponder(
        &message, std::make_unique<IioSensorInstance_Init_ForwardToCallback>(callback));
}

void IioSensorInstanceProxy::OnTabletModeChanged(bool tablet_mode) {
    auto params = std::make_unique<IioSensorInstance_OnTabletModeChanged_Params>();
    params->tablet_mode = tablet_mode;
    mojo::Message message(kIioSensorInstance_OnTabletModeChanged_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// IioSensorHostProxy

IioSensorHostProxy::IioSensorHostProxy(mojo::MessageReceiverWithResponder* receiver)
    : receiver_(receiver) {}

void IioSensorHostProxy::RegisterSensorHalClient(
    chromeos::sensors::mojom::SensorHalClientPtr client) {
    auto params = std::make_unique<IioSensorHost_RegisterSensorHalClient_Params>();
    params->client = client.PassInterface();
    mojo::Message message(kIioSensorHost_RegisterSensorHalClient_Name, 0, std::move(params));
    receiver_->Accept(&message);
}

// Stubs. Nothing touches the stub after the sink returns: the sink may have destroyed it.

bool VelBridgeHostStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kVelBridgeHost_OnIioSensorInstanceReady_Name: {
            auto* params = message->payload<VelBridgeHost_OnIioSensorInstanceReady_Params>();
            if (!params) return false;
            sink_->OnIioSensorInstanceReady(IioSensorInstancePtr(std::move(params->instance)));
            return true;
        }
    }
    return false;
}

bool VelBridgeHostStub::AcceptWithResponder(mojo::Message*,
                                            std::unique_ptr<mojo::MessageReceiver>) {
    return false;
}

bool IioSensorInstanceStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kIioSensorInstance_OnTabletModeChanged_Name: {
            auto* params = message->payload<IioSensorInstance_OnTabletModeChanged_Params>();
            if (!params) return false;
            sink_->OnTabletModeChanged(params->tablet_mode);
            return true;
        }
    }
    return false;
}

bool IioSensorInstanceStub::AcceptWithResponder(mojo::Message* message,
                                                std::unique_ptr<mojo::MessageReceiver> responder) {
    if (!sink_) return false;
    switch (message->name()) {
        case kIioSensorInstance_Init_Name: {
            auto* params = message->payload<IioSensorInstance_Init_Params>();
            if (!params) return false;
            // Lives through the call; an implementation that replies later keeps a copy.
            IioSensorInstance::InitCallback callback =
                IioSensorInstance_Init_ProxyToResponder::CreateCallback(message->name(),
                                                                        std::move(responder));
            sink_->Init(IioSensorHostPtr(std::move(params->host)), callback);
            return true;
        }
    }
    return false;
}

bool IioSensorHostStub::Accept(mojo::Message* message) {
    if (!sink_) return false;
    switch (message->name()) {
        case kIioSensorHost_RegisterSensorHalClient_Name: {
            auto* params = message->payload<IioSensorHost_RegisterSensorHalClient_Params>();
            if (!params) return false;
            sink_->RegisterSensorHalClient(
                chromeos::sensors::mojom::SensorHalClientPtr(std::move(params->client)));
            return true;
        }
    }
    return false;
}

bool IioSensorHostStub::AcceptWithResponder(mojo::Message*,
                                            std::unique_ptr<mojo::MessageReceiver>) {
    return false;
}

}  // namespace mojom
}  // namespace vel
