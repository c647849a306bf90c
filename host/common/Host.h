// A Chrome OS host backend as the tool sees it: it offers itself to the process's container bridge
// and then serves the client on its own thread(s), reporting what it did and answered as host
// events. A backend owns a HostCore that does all of this; destroying the backend stops it.
#pragma once

#include <utility>

#include "host/common/HostConnection.h"
#include "host/common/HostCore.h"
#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

class Host {
  public:
    // Stops serving: unregisters and closes every endpoint before it returns.
    virtual ~Host() = default;

    // Offers this host to the process's container bridge. Returns at once.
    void registerWithBridge() { core().registerWithBridge(); }

    // Set before registerWithBridge(): see HostConnection::ServiceInterposer.
    void setServiceInterposer(HostConnection::ServiceInterposer interposer) {
        core().setServiceInterposer(std::move(interposer));
    }

    // What the host saw and did; readable from any thread.
    const HostEventLog& log() const { return core().log(); }

  private:
    // The core the backend owns.
    virtual HostCore& core() = 0;
    virtual const HostCore& core() const = 0;
};

}  // namespace kelvane::host::common
