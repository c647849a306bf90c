// Where a host offers its bridge to this process: the stand-in for reaching the real host.
#pragma once

#include <cstdint>

#include "base/callback.h"
#include "hardware/sensors/mojom/vel.mojom.h"

namespace vel {

class VelHostRegistry {
  public:
    // Runs on the Mojo thread with the receiving end of a new host-bridge pipe; the host binds it
    // on its own thread.
    using Connector = base::RepeatingCallback<void(mojom::VelBridgeHostRequest)>;

    // Offers a host bridge of `version`. Waiting requests are answered now, later ones at once.
    static void registerHost(uint32_t version, Connector connect);
    // Withdraws the host: later requests wait again. Connections already made stay.
    static void unregisterHost();
};

}  // namespace vel
