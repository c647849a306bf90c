#include "tests/support/recording_proxy_callback.h"

#include <atomic>

namespace kelvane::testing {

class RecordingProxyCallback::Counter
    : public android::hardware::sensors::V2_0::implementation::IScopedWakelockRefCounter {
  public:
    bool incrementRefCountAndMaybeAcquireWakelock(size_t delta, int64_t*) override {
        held += static_cast<int>(delta);
        return true;
    }
    void decrementRefCountAndMaybeReleaseWakelock(size_t delta, int64_t) override {
        held -= static_cast<int>(delta);
    }
    std::atomic<int> held{0};
};

RecordingProxyCallback::RecordingProxyCallback() : mCounter(new Counter()) {}
RecordingProxyCallback::~RecordingProxyCallback() = default;

void RecordingProxyCallback::postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) {
    bool held = wakelock.isLocked();
    mSignal.Notify([&] {
        mPosts.push_back(Post{events, held});
        mEventCount += events.size();
    });
}

RecordingProxyCallback::ScopedWakelock RecordingProxyCallback::createScopedWakelock(bool lock) {
    mSignal.Notify([&] { mWakelockRequests.push_back(lock); });
    return makeScopedWakelock(mCounter.get(), lock);
}

std::vector<RecordingProxyCallback::Post> RecordingProxyCallback::posts() const {
    std::lock_guard<std::mutex> lock(mSignal.mutex());
    return mPosts;
}

std::vector<RecordingProxyCallback::Event> RecordingProxyCallback::events() const {
    std::vector<Event> all;
    for (const Post& p : posts()) all.insert(all.end(), p.events.begin(), p.events.end());
    return all;
}

std::vector<bool> RecordingProxyCallback::wakelockRequests() const {
    std::lock_guard<std::mutex> lock(mSignal.mutex());
    return mWakelockRequests;
}

size_t RecordingProxyCallback::eventCount() const {
    std::lock_guard<std::mutex> lock(mSignal.mutex());
    return mEventCount;
}

bool RecordingProxyCallback::waitForEvents(size_t n) {
    return mSignal.WaitUntil([&] { return mEventCount >= n; });
}

std::vector<RecordingProxyCallback::Event> RecordingProxyCallback::eventsFor(int32_t handle) const {
    std::vector<Event> mine;
    for (const Event& e : events()) {
        if (e.sensorHandle == handle) mine.push_back(e);
    }
    return mine;
}

}  // namespace kelvane::testing
