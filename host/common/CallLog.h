// What the emulated host saw and did, shared between the host thread (writer) and test threads
// (readers). One mutex guards everything; every change wakes the waiters.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane::host {

class CallLog {
  public:
    using Predicate = std::function<bool(const std::vector<std::string>&)>;

    void record(std::string call);
    void addSamples(int32_t device, size_t count);
    void setFrequency(int32_t device, double hz);
    // Counts reading sessions, since a device may be opened more than once.
    void streamingChanged(int32_t device, bool started);

    std::vector<std::string> calls() const;
    size_t count(const std::string& call) const;
    size_t samplesSent(int32_t device) const;
    double frequency(int32_t device) const;
    bool streaming(int32_t device) const;

    // `pred` runs without the lock held, on a snapshot, so it may query this log again.
    bool waitFor(const Predicate& pred, std::chrono::milliseconds limit) const;

  private:
    void changedLocked();

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<std::string> mCalls;       // guarded by mMutex
    std::map<int32_t, size_t> mSamples;    // guarded by mMutex
    std::map<int32_t, double> mFrequency;  // guarded by mMutex
    std::map<int32_t, int> mStreaming;     // guarded by mMutex: live reading sessions
    uint64_t mVersion = 0;                 // guarded by mMutex: bumped on every change
};

}  // namespace kelvane::host
