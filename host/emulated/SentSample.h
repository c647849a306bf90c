// When the emulated host's timer sent a sample, for whoever measures the path behind the host
// (the rates benchmark): a typed record per sample, so nothing has to be read back from text.
#pragma once

#include <cstdint>
#include <functional>

namespace kelvane::host::emulated {

struct SentSample {
    int32_t device = -1;      // the host's device id
    int64_t timestampNs = 0;  // the sample's timestamp: when it was due, on the boot-time clock
    int64_t sentNs = 0;       // just before it went to the observer, on the same clock
};

// Runs on the host thread for every sample the timer sends, before it goes out: it must be quick
// and must not call into the host.
using SentSampleProbe = std::function<void(const SentSample&)>;

}  // namespace kelvane::host::emulated
