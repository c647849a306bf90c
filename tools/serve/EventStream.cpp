#include "serve/EventStream.h"

#include <algorithm>

namespace kelvane::tools::serve {

std::string sseFrame(const std::string& event, const std::string& data) {
    return "event: " + event + "\ndata: " + data + "\n\n";
}

std::optional<std::string> EventStream::Subscriber::next(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mMutex);
    mWake.wait_for(lock, timeout, [this] { return !mQueued.empty() || mClosed; });
    if (mQueued.empty() && mClosed) return std::nullopt;
    std::string frames;
    if (mDropped != mDroppedToldAt) {
        frames = sseFrame("dropped", "{\"frames\":" + std::to_string(mDropped) + "}");
        mDroppedToldAt = mDropped;
    }
    frames += mQueued;
    mQueued.clear();
    return frames;
}

uint64_t EventStream::Subscriber::dropped() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDropped;
}

void EventStream::Subscriber::send(const std::string& frame) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mClosed) return;
        if (mQueued.size() + frame.size() > mCapBytes) {
            ++mDropped;
        } else {
            mQueued += frame;
        }
    }
    mWake.notify_one();
}

void EventStream::Subscriber::close() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mClosed = true;
    }
    mWake.notify_all();
}

EventStream::EventStream(size_t maxSubscribers, size_t capBytes)
    : mMaxSubscribers(maxSubscribers), mCapBytes(capBytes) {}

std::shared_ptr<EventStream::Subscriber> EventStream::subscribe() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSubscribers.erase(std::remove_if(mSubscribers.begin(), mSubscribers.end(),
                                      [](const auto& s) { return s.expired(); }),
                       mSubscribers.end());
    if (mClosed || mSubscribers.size() >= mMaxSubscribers) return nullptr;
    std::shared_ptr<Subscriber> subscriber(new Subscriber(mCapBytes));
    mSubscribers.push_back(subscriber);
    return subscriber;
}

void EventStream::publish(const std::string& frame) {
    std::vector<std::shared_ptr<Subscriber>> live;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        for (const auto& weak : mSubscribers) {
            if (auto subscriber = weak.lock()) live.push_back(std::move(subscriber));
        }
    }
    for (const auto& subscriber : live) subscriber->send(frame);
}

void EventStream::close() {
    std::vector<std::shared_ptr<Subscriber>> live;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mClosed = true;
        for (const auto& weak : mSubscribers) {
            if (auto subscriber = weak.lock()) live.push_back(std::move(subscriber));
        }
    }
    for (const auto& subscriber : live) subscriber->close();
}

size_t EventStream::subscribers() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count_if(mSubscribers.begin(), mSubscribers.end(),
                                             [](const auto& s) { return !s.expired(); }));
}

}  // namespace kelvane::tools::serve
