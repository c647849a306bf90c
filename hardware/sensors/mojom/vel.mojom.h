// C++ bindings of vel.mojom (module vel.mojom) for the in-process Mojo, in the form the bindings
// generator emits. Change them together with the .mojom.
#pragma once

#include <cstdint>
#include <memory>

#include "base/callback.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "mojo/public/cpp/bindings/interface_ptr_info.h"
#include "mojo/public/cpp/bindings/interface_request.h"
#include "mojo/public/cpp/bindings/message.h"

namespace vel {
namespace mojom {

// The bridge version both sides speak: the container needs at least this one, the hosts offer it.
constexpr uint32_t kBridgeVersion = 54;

class VelBridgeHost;
class VelBridgeHostProxy;
class VelBridgeHostStub;
using VelBridgeHostPtr = mojo::InterfacePtr<VelBridgeHost>;
using VelBridgeHostPtrInfo = mojo::InterfacePtrInfo<VelBridgeHost>;
using VelBridgeHostRequest = mojo::InterfaceRequest<VelBridgeHost>;

class IioSensorInstance;
class IioSensorInstanceProxy;
class IioSensorInstanceStub;
using IioSensorInstancePtr = mojo::InterfacePtr<IioSensorInstance>;
using IioSensorInstancePtrInfo = mojo::InterfacePtrInfo<IioSensorInstance>;
using IioSensorInstanceRequest = mojo::InterfaceRequest<IioSensorInstance>;

class IioSensorHost;
class IioSensorHostProxy;
class IioSensorHostStub;
using IioSensorHostPtr = mojo::InterfacePtr<IioSensorHost>;
using IioSensorHostPtrInfo = mojo::InterfacePtrInfo<IioSensorHost>;
using IioSensorHostRequest = mojo::InterfaceRequest<IioSensorHost>;

// Message names: the methods' ordinals.
constexpr uint32_t kVelBridgeHost_OnIioSensorInstanceReady_Name = 53;
constexpr uint32_t kIioSensorInstance_Init_Name = 0;
constexpr uint32_t kIioSensorInstance_OnTabletModeChanged_Name = 1;
constexpr uint32_t kIioSensorHost_RegisterSensorHalClient_Name = 0;

class VelBridgeHost {
  public:
    static constexpr char Name_[] = "vel.mojom.VelBridgeHost";
    static constexpr uint32_t Version_ = kBridgeVersion;
    using Proxy_ = VelBridgeHostProxy;
    using Stub_ = VelBridgeHostStub;

    enum MethodMinVersions : uint32_t {
        kOnIioSensorInstanceReadyMinVersion = kBridgeVersion,
    };

    virtual ~VelBridgeHost() = default;

    virtual void OnIioSensorInstanceReady(IioSensorInstancePtr instance) = 0;
};

class IioSensorInstance {
  public:
    static constexpr char Name_[] = "vel.mojom.IioSensorInstance";
    static constexpr uint32_t Version_ = 1;
    using Proxy_ = IioSensorInstanceProxy;
    using Stub_ = IioSensorInstanceStub;

    enum MethodMinVersions : uint32_t {
        kInitMinVersion = 0,
        kOnTabletModeChangedMinVersion = 1,
    };

    // Repeating: the implementation may keep and copy it. Only the first run replies.
    using InitCallback = base::RepeatingCallback<void()>;

    virtual ~IioSensorInstance() = default;

    virtual void Init(IioSensorHostPtr host, const InitCallback& callback) = 0;
    virtual void OnTabletModeChanged(bool tablet_mode) = 0;
};

class IioSensorHost {
  public:
    static constexpr char Name_[] = "vel.mojom.IioSensorHost";
    static constexpr uint32_t Version_ = 0;
    using Proxy_ = IioSensorHostProxy;
    using Stub_ = IioSensorHostStub;

    virtual ~IioSensorHost() = default;

    virtual void RegisterSensorHalClient(chromeos::sensors::mojom::SensorHalClientPtr client) = 0;
};

class VelBridgeHostProxy : public VelBridgeHost {
  public:
    explicit VelBridgeHostProxy(mojo::MessageReceiverWithResponder* receiver);

    void OnIioSensorInstanceReady(IioSensorInstancePtr instance) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class IioSensorInstanceProxy : public IioSensorInstance {
  public:
    explicit IioSensorInstanceProxy(mojo::MessageReceiverWithResponder* receiver);

    void Init(IioSensorHostPtr host, const InitCallback& callback) override;
    void OnTabletModeChanged(bool tablet_mode) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

class IioSensorHostProxy : public IioSensorHost {
  public:
    explicit IioSensorHostProxy(mojo::MessageReceiverWithResponder* receiver);

    void RegisterSensorHalClient(chromeos::sensors::mojom::SensorHalClientPtr client) override;

  private:
    mojo::MessageReceiverWithResponder* receiver_;
};

// A stub dispatches on the thread its binding runs on; the sink may destroy the binding (and so
// the stub) while handling a call.
class VelBridgeHostStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(VelBridgeHost* sink) { sink_ = sink; }
    VelBridgeHost* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    VelBridgeHost* sink_ = nullptr;
};

class IioSensorInstanceStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(IioSensorInstance* sink) { sink_ = sink; }
    IioSensorInstance* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    IioSensorInstance* sink_ = nullptr;
};

class IioSensorHostStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(IioSensorHost* sink) { sink_ = sink; }
    IioSensorHost* sink() { return sink_; }

    bool Accept(mojo::Message* message) override;
    bool AcceptWithResponder(mojo::Message* message,
                             std::unique_ptr<mojo::MessageReceiver> responder) override;

  private:
    IioSensorHost* sink_ = nullptr;
};

}  // namespace mojom
}  // namespace vel
