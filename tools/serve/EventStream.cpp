#include "serve/EventStream.h"

#include <algorithm>
#include <utility>

namespace kelvane::tools::serve {

std::string sseFrame(const std::string& event, const std::string& data) {
    return "event: " + event + "\ndata: " + data + "\n\n";
}

std::optional<std::string> EventStream::Subscriber::take() {
    base::AutoLock lock(mMutex);
    if (mClosed && mStates.empty() && mSamples.empty()) return std::nullopt;
    std::string frames;
    if (mDropped != mDroppedToldAt) {
        frames = sseFrame("dropped", "{\"frames\":" + std::to_string(mDropped) + "}");
        mDroppedToldAt = mDropped;
    }
    for (const auto& [kind, frame] : mStates) frames += frame;
    mStates.clear();
    frames += mSamples;
    mSamples.clear();
    return frames;
}

void EventStream::Subscriber::notifyWhenReady(std::function<void()> ready) {
    std::function<void()> due;
    {
        base::AutoLock lock(mMutex);
        mReady = std::move(ready);
        due = dueLocked();
    }
    if (due) due();
}

std::function<void()> EventStream::Subscriber::dueLocked() {
    const bool hasSomething = mClosed || !mStates.empty() || !mSamples.empty();
    if (!hasSomething || !mReady) return nullptr;
    return std::exchange(mReady, nullptr);
}

uint64_t EventStream::Subscriber::dropped() const {
    base::AutoLock lock(mMutex);
    return mDropped;
}

void EventStream::Subscriber::send(const std::string& frame) {
    std::function<void()> due;
    {
        base::AutoLock lock(mMutex);
        if (mClosed) return;
        if (mSamples.size() + frame.size() > mCapBytes) {
            ++mDropped;
        } else {
            mSamples += frame;
        }
        due = dueLocked();
    }
    if (due) due();
}

void EventStream::Subscriber::setState(const std::string& kind, const std::string& frame) {
    std::function<void()> due;
    {
        base::AutoLock lock(mMutex);
        if (mClosed) return;
        mStates[kind] = frame;
        due = dueLocked();
    }
    if (due) due();
}

void EventStream::Subscriber::close() {
    std::function<void()> due;
    {
        base::AutoLock lock(mMutex);
        mClosed = true;
        due = dueLocked();
    }
    if (due) due();
}

EventStream::EventStream(size_t maxSubscribers, size_t capBytes)
    : mMaxSubscribers(maxSubscribers), mCapBytes(capBytes) {}

std::vector<std::shared_ptr<EventStream::Subscriber>> EventStream::liveLocked() {
    std::vector<std::shared_ptr<Subscriber>> live;
    for (const auto& weak : mSubscribers) {
        if (auto subscriber = weak.lock()) live.push_back(std::move(subscriber));
    }
    return live;
}

std::shared_ptr<EventStream::Subscriber> EventStream::subscribe() {
    base::AutoLock lock(mMutex);
    mSubscribers.erase(std::remove_if(mSubscribers.begin(), mSubscribers.end(),
                                      [](const auto& s) { return s.expired(); }),
                       mSubscribers.end());
    if (mClosed || mSubscribers.size() >= mMaxSubscribers) return nullptr;
    std::shared_ptr<Subscriber> subscriber(new Subscriber(mCapBytes));
    for (const auto& [kind, frame] : mLatest) subscriber->setState(kind, frame);
    mSubscribers.push_back(subscriber);
    return subscriber;
}

void EventStream::publish(const std::string& frame) {
    std::vector<std::shared_ptr<Subscriber>> live;
    {
        base::AutoLock lock(mMutex);
        live = liveLocked();
    }
    for (const auto& subscriber : live) subscriber->send(frame);
}

void EventStream::publishState(const std::string& kind, const std::string& data) {
    const std::string frame = sseFrame(kind, data);
    // Under the stream's mutex, so that a page subscribing meanwhile cannot end up with an
    // older state than the others: the subscriber's ready callback must not publish.
    base::AutoLock lock(mMutex);
    if (mClosed) return;
    mLatest[kind] = frame;
    for (const auto& subscriber : liveLocked()) subscriber->setState(kind, frame);
}

void EventStream::close() {
    std::vector<std::shared_ptr<Subscriber>> live;
    {
        base::AutoLock lock(mMutex);
        mClosed = true;
        live = liveLocked();
    }
    for (const auto& subscriber : live) subscriber->close();
}

size_t EventStream::subscribers() const {
    base::AutoLock lock(mMutex);
    return static_cast<size_t>(std::count_if(mSubscribers.begin(), mSubscribers.end(),
                                             [](const auto& s) { return !s.expired(); }));
}

bool EventStream::closed() const {
    base::AutoLock lock(mMutex);
    return mClosed;
}

}  // namespace kelvane::tools::serve
