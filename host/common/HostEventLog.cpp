#include "host/common/HostEventLog.h"

#include <algorithm>
#include <utility>

namespace kelvane::host::common {

void HostEventLog::add(HostEvent event) {
    event.time = base::TimeTicks::Now();
    std::lock_guard<std::mutex> lock(mMutex);
    Device& device = mDevices[event.device];
    if (const SampleCount* sent = event.as<SampleCount>()) {
        device.samples += sent->count;
        const size_t last = device.lastSamplesEvent;
        if (last != SIZE_MAX && (mLastOther == SIZE_MAX || mLastOther < last)) {
            std::get<SampleCount>(mEvents[last].payload).count += sent->count;
            mEvents[last].time = event.time;
            ++mVersion;
            mChanged.notify_all();
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
    mChanged.notify_all();
}

std::vector<HostEvent> HostEventLog::events(size_t from) const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (from >= mEvents.size()) return {};
    return std::vector<HostEvent>(mEvents.begin() + static_cast<std::ptrdiff_t>(from),
                                  mEvents.end());
}

size_t HostEventLog::count(const HostEventPattern& pattern) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count_if(
        mEvents.begin(), mEvents.end(), [&](const HostEvent& e) { return pattern.matches(e); }));
}

std::vector<std::string> HostEventLog::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> out;
    out.reserve(mEvents.size());
    for (const HostEvent& e : mEvents) out.push_back(toText(e));
    return out;
}

size_t HostEventLog::samplesSent(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mDevices.find(device);
    return it == mDevices.end() ? 0 : it->second.samples;
}

double HostEventLog::frequency(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mDevices.find(device);
    return it == mDevices.end() ? 0.0 : it->second.frequency;
}

bool HostEventLog::streaming(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mDevices.find(device);
    return it != mDevices.end() && it->second.streams > 0;
}

bool HostEventLog::waitFor(const Predicate& pred, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        std::vector<HostEvent> snapshot = mEvents;
        const uint64_t seen = mVersion;
        lock.unlock();
        const bool holds = pred(snapshot);
        lock.lock();
        if (holds) return true;
        if (!mChanged.wait_until(lock, deadline, [&] { return mVersion != seen; })) return false;
    }
}

}  // namespace kelvane::host::common
