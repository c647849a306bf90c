// A Chrome OS host backend as the tool sees it: it offers itself to the process's container bridge
// and then serves the client on its own thread(s), reporting what it did and answered as host
// events. Every backend is a HostBase.
#pragma once

#include "host/common/HostConnection.h"
#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

class Host {
  public:
    // Stops serving: unregisters and closes every endpoint before it returns.
    virtual ~Host() = default;

    // Offers this host to the process's container bridge. Returns at once.
    virtual void registerWithBridge() = 0;

    // Set before registerWithBridge(): see HostConnection::ServiceInterposer.
    virtual void setServiceInterposer(HostConnection::ServiceInterposer interposer) = 0;

    // What the host saw and did; readable from any thread.
    virtual const HostEventLog& log() const = 0;
};

}  // namespace kelvane::host::common
