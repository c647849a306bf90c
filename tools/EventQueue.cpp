#include "EventQueue.h"

#include <utils/SystemClock.h>

namespace kelvane::tools {

void EventQueue::push(const std::vector<Event>& events) {
    if (events.empty()) return;
    const int64_t now = android::elapsedRealtimeNano();
    {
        base::AutoLock lock(mLock);
        mEvents.insert(mEvents.end(), events.begin(), events.end());
        mReceivedNs.insert(mReceivedNs.end(), events.size(), now);
    }
    mCv.Broadcast();
}

std::vector<EventQueue::Event> EventQueue::takeUntil(std::chrono::steady_clock::time_point deadline,
                                                     std::vector<int64_t>* receivedNs) {
    base::AutoLock lock(mLock);
    while (mEvents.empty()) {
        if (!mCv.WaitUntil(deadline)) break;
    }
    std::vector<Event> taken(mEvents.begin(), mEvents.end());
    if (receivedNs != nullptr) {
        receivedNs->insert(receivedNs->end(), mReceivedNs.begin(), mReceivedNs.end());
    }
    mEvents.clear();
    mReceivedNs.clear();
    return taken;
}

}  // namespace kelvane::tools
