#pragma once

#include <utils/RefBase.h>

#include <cstdint>
#include <memory>

#include "vel/MojoProcessSupport.h"
#include "vel/VelService.h"

namespace vel {

// Fetches the host's bridge for a service. The service is held only weakly: one that has gone by
// the time the host answers is never called.
class VelBridgeSupport {
  public:
    explicit VelBridgeSupport(MojoProcessSupport* support);
    // May run on any thread; the host connection it holds is closed on the Mojo thread.
    ~VelBridgeSupport();
    VelBridgeSupport(const VelBridgeSupport&) = delete;
    VelBridgeSupport& operator=(const VelBridgeSupport&) = delete;

    // Returns at once. Later, on the Mojo thread, calls `ready` on the service when the host offers
    // at least `version`, else `versionMismatch` with the host's version. With no host reachable
    // yet, the request waits.
    void requestVelBridgeProxyAsync(android::wp<VelService> service, uint32_t version);

    struct State;

  private:
    MojoProcessSupport* mSupport;
    std::shared_ptr<State> mState;
};

}  // namespace vel
