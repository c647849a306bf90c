// The channels a client enabled on one device of a host, changed and read the one way every
// backend answers SetChannelsEnabled and GetChannelsEnabled. Host thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

class EnabledChannels {
  public:
    // Whether the backend can stream channel `index` of its device.
    using Usable = std::function<bool(int32_t index)>;

    // `log` outlives this; events name `device`.
    EnabledChannels(HostEventLog* log, int32_t device) : mLog(log), mDevice(device) {}

    // SetChannelsEnabled: enables or disables `indices`. Those `usable` refuses stay as they were
    // and are returned, as the client is answered.
    std::vector<int32_t> set(const std::vector<int32_t>& indices, bool enable,
                             const Usable& usable);
    // GetChannelsEnabled: one flag per index.
    std::vector<bool> get(const std::vector<int32_t>& indices) const;

    const std::set<int32_t>& indices() const { return mEnabled; }
    bool empty() const { return mEnabled.empty(); }

  private:
    HostEventLog* const mLog;
    const int32_t mDevice;
    std::set<int32_t> mEnabled;
};

}  // namespace kelvane::host::common
