#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "hardware/sensors/mojom/vel.mojom.h"

namespace vel {

// A container-bridge service: asks for the host's bridge and is called back on the Mojo thread.
class VelService : public virtual android::RefBase {
  public:
    // The host bridge offers the requested version. `host` belongs to the support library and is
    // valid only during the call.
    virtual void ready(mojo::InterfacePtr<mojom::VelBridgeHost>* host) = 0;
    // The host bridge is older than requested; `version` is what it offers.
    virtual void versionMismatch(uint32_t version) = 0;

  protected:
    ~VelService() override = default;
};

}  // namespace vel
