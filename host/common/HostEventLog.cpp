#include "host/common/HostEventLog.h"

#include <algorithm>
#include <utility>

namespace kelvane::host::common {

void HostEventLog::add(HostEvent event) {
    event.time = base::TimeTicks::Now();
    base::AutoLock lock(mLock);
    Device& device = mDevices[event.device];
    if (const SampleCount* sent = event.as<SampleCount>()) {
        device.samples += sent->count;
        const size_t last = device.lastSamplesEvent;
        if (last != SIZE_MAX && (mLastOther == SIZE_MAX || mLastOther < last)) {
            std::get<SampleCount>(mEvents[last].payload).count += sent->count;
            mEvents[last].time = event.time;
            ++mVersion;
            mChanged.Broadcast();
            return;
        }
        device.lastSamplesEvent = mEvents.size();
    } else {
        mLastOther = mEvents.size();
    }
    const Rate* rate = event.as<Rate>();
    if (event.kind == HostEventKind::kFrequencyAnswered && rate != nullptr) {
        device.frequency = rate->hz;
    }
    if (event.kind == HostEventKind::kStreamStarted) ++device.streams;
    if (event.kind == HostEventKind::kStreamStopped) {
        device.streams = std::max(0, device.streams - 1);
    }
    mEvents.push_back(std::move(event));
    ++mVersion;
    mChanged.Broadcast();
}

std::vector<HostEvent> HostEventLog::events(size_t from) const {
    base::AutoLock lock(mLock);
    if (from >= mEvents.size()) return {};
    return std::vector<HostEvent>(mEvents.begin() + static_cast<std::ptrdiff_t>(from),
                                  mEvents.end());
}

size_t HostEventLog::count(const HostEventPattern& pattern) const {
    base::AutoLock lock(mLock);
    return static_cast<size_t>(std::count_if(
        mEvents.begin(), mEvents.end(), [&](const HostEvent& e) { return pattern.matches(e); }));
}

std::vector<std::string> HostEventLog::lines() const {
    base::AutoLock lock(mLock);
    std::vector<std::string> out;
    out.reserve(mEvents.size());
    for (const HostEvent& e : mEvents) out.push_back(toText(e));
    return out;
}

size_t HostEventLog::samplesSent(int32_t device) const {
    base::AutoLock lock(mLock);
    auto it = mDevices.find(device);
    return it == mDevices.end() ? 0 : it->second.samples;
}

double HostEventLog::frequency(int32_t device) const {
    base::AutoLock lock(mLock);
    auto it = mDevices.find(device);
    return it == mDevices.end() ? 0.0 : it->second.frequency;
}

bool HostEventLog::streaming(int32_t device) const {
    base::AutoLock lock(mLock);
    auto it = mDevices.find(device);
    return it != mDevices.end() && it->second.streams > 0;
}

bool HostEventLog::waitFor(const Predicate& pred, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    base::AutoLock lock(mLock);
    for (;;) {
        std::vector<HostEvent> snapshot = mEvents;
        const uint64_t seen = mVersion;
        bool holds;
        {
            base::AutoUnlock unlocked(mLock);
            holds = pred(snapshot);
        }
        if (holds) return true;
        while (mVersion == seen) {
            if (!mChanged.WaitUntil(deadline) && mVersion == seen) return false;
        }
    }
}

}  // namespace kelvane::host::common
