#include "host/common/EnabledChannels.h"

namespace kelvane::host::common {

std::vector<int32_t> EnabledChannels::set(const std::vector<int32_t>& indices, bool enable,
                                          const Usable& usable) {
    mLog->add(HostEvent(HostEventKind::kChannelsEnabled, mDevice)
                  .with(ChannelsSwitched{indices, enable}));
    std::vector<int32_t> failed;
    for (int32_t index : indices) {
        if (!usable(index)) {
            failed.push_back(index);
        } else if (enable) {
            mEnabled.insert(index);
        } else {
            mEnabled.erase(index);
        }
    }
    if (!failed.empty()) {
        mLog->add(HostEvent(HostEventKind::kChannelsFailed, mDevice).with(Channels{failed}));
    }
    return failed;
}

std::vector<bool> EnabledChannels::get(const std::vector<int32_t>& indices) const {
    mLog->add(HostEvent(HostEventKind::kChannelsEnabledAsked, mDevice).with(Channels{indices}));
    std::vector<bool> enabled;
    for (int32_t index : indices) enabled.push_back(mEnabled.count(index) != 0);
    return enabled;
}

}  // namespace kelvane::host::common
