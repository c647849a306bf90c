// The events of one host, written by its threads and read by any: what the tool and the tests
// know of a host. Besides the events it keeps what they add up to per device (samples sent, the
// rate last answered, live streams). One lock guards everything; every change wakes the waiters.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"
#include "host/common/HostEvent.h"

namespace kelvane::host::common {

class HostEventLog {
  public:
    using Predicate = std::function<bool(const std::vector<HostEvent>&)>;

    // Any thread: stamps the event with the time and appends it. Samples sent to a device are
    // added to its last kSamplesSent event while no other event came after it, so a stream
    // costs a few events, not one per sample.
    void add(HostEvent event);

    // The events from index `from` on, in the order they were added.
    std::vector<HostEvent> events(size_t from = 0) const;
    size_t count(const HostEventPattern& pattern) const;
    // Every event as a line of text (toText), for people to read.
    std::vector<std::string> lines() const;

    size_t samplesSent(int32_t device) const;
    double frequency(int32_t device) const;  // the rate last answered, 0 if none
    bool streaming(int32_t device) const;    // a stream of the device is live

    // Waits up to `limit` for `pred` to hold. `pred` runs without the lock held, on a snapshot
    // of the events, so it may query this log again.
    bool waitFor(const Predicate& pred, std::chrono::milliseconds limit) const;

  private:
    struct Device {
        size_t samples = 0;
        double frequency = 0.0;
        int streams = 0;                     // live streams: a device may be opened more than once
        size_t lastSamplesEvent = SIZE_MAX;  // index of its last kSamplesSent event
    };

    mutable base::Lock mLock;
    mutable base::ConditionVariable mChanged{&mLock};
    std::vector<HostEvent> mEvents GUARDED_BY(mLock);
    std::map<int32_t, Device> mDevices GUARDED_BY(mLock);
    size_t mLastOther GUARDED_BY(mLock) = SIZE_MAX;  // index of the last non-sample event
    uint64_t mVersion GUARDED_BY(mLock) = 0;         // bumped on every change
};

}  // namespace kelvane::host::common
