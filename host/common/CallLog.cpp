#include "host/common/CallLog.h"

#include <algorithm>

namespace kelvane::host {

void CallLog::record(std::string call) {
    std::lock_guard<std::mutex> lock(mMutex);
    mCalls.push_back(std::move(call));
    changedLocked();
}

void CallLog::addSamples(int32_t device, size_t count) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSamples[device] += count;
    changedLocked();
}

void CallLog::setFrequency(int32_t device, double hz) {
    std::lock_guard<std::mutex> lock(mMutex);
    mFrequency[device] = hz;
    changedLocked();
}

void CallLog::streamingChanged(int32_t device, bool started) {
    std::lock_guard<std::mutex> lock(mMutex);
    int& sessions = mStreaming[device];
    sessions += started ? 1 : -1;
    if (sessions < 0) sessions = 0;
    changedLocked();
}

std::vector<std::string> CallLog::calls() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls;
}

size_t CallLog::count(const std::string& call) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count(mCalls.begin(), mCalls.end(), call));
}

size_t CallLog::samplesSent(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mSamples.find(device);
    return it == mSamples.end() ? 0 : it->second;
}

double CallLog::frequency(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mFrequency.find(device);
    return it == mFrequency.end() ? 0.0 : it->second;
}

bool CallLog::streaming(int32_t device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mStreaming.find(device);
    return it != mStreaming.end() && it->second > 0;
}

bool CallLog::waitFor(const Predicate& pred, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        std::vector<std::string> snapshot = mCalls;
        const uint64_t seen = mVersion;
        lock.unlock();
        const bool holds = pred(snapshot);
        lock.lock();
        if (holds) return true;
        if (!mChanged.wait_until(lock, deadline, [&] { return mVersion != seen; })) return false;
    }
}

void CallLog::changedLocked() {
    ++mVersion;
    mChanged.notify_all();
}

}  // namespace kelvane::host
