#include "EventQueue.h"

namespace kelvane::tools {

void EventQueue::push(const std::vector<Event>& events) {
    if (events.empty()) return;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.insert(mEvents.end(), events.begin(), events.end());
    }
    mCv.notify_all();
}

std::vector<EventQueue::Event> EventQueue::takeUntil(
    std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mMutex);
    mCv.wait_until(lock, deadline, [this] { return !mEvents.empty(); });
    std::vector<Event> taken(mEvents.begin(), mEvents.end());
    mEvents.clear();
    return taken;
}

}  // namespace kelvane::tools
