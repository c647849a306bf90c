// The live messages of `serve`, fanned out to every page that follows them as Server-Sent
// Events. Each subscriber (one open page) has its own queue, bounded in bytes: a page that falls
// that far behind loses messages, counted and told to it in the next one it gets, and never
// holds up the others or the sensors.
//
// Threads: any thread publishes; each subscriber is read by the one thread that serves its
// connection. One mutex per subscriber guards its queue; the list of subscribers has its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::tools::serve {

// One Server-Sent Events frame: "event: <event>\ndata: <data>\n\n". `data` holds no newline.
std::string sseFrame(const std::string& event, const std::string& data);

class EventStream {
  public:
    class Subscriber {
      public:
        // Waits up to `timeout` for frames and takes every one queued, as one string ("" when
        // the wait timed out); nullopt once the stream is closed and the queue read out.
        std::optional<std::string> next(std::chrono::milliseconds timeout);
        // Frames this subscriber lost by falling behind, so far.
        uint64_t dropped() const;
        // Queues `frame` for this subscriber alone (its first state, say).
        void send(const std::string& frame);

      private:
        friend class EventStream;
        explicit Subscriber(size_t capBytes) : mCapBytes(capBytes) {}
        void close();

        const size_t mCapBytes;
        mutable std::mutex mMutex;
        std::condition_variable mWake;
        std::string mQueued;          // guarded by mMutex
        uint64_t mDropped = 0;        // guarded by mMutex
        uint64_t mDroppedToldAt = 0;  // guarded by mMutex: mDropped when last told
        bool mClosed = false;         // guarded by mMutex
    };

    // At most `maxSubscribers` pages at once, each queue at most `capBytes`.
    EventStream(size_t maxSubscribers, size_t capBytes);

    // A new subscriber, or null when there are `maxSubscribers` already or the stream is closed.
    // It stays subscribed while the caller holds it.
    std::shared_ptr<Subscriber> subscribe();
    // Queues the frame for every subscriber.
    void publish(const std::string& frame);
    // Ends every subscriber's stream; later subscribe() calls answer null. Idempotent.
    void close();
    size_t subscribers() const;

  private:
    const size_t mMaxSubscribers;
    const size_t mCapBytes;
    mutable std::mutex mMutex;
    std::vector<std::weak_ptr<Subscriber>> mSubscribers;  // guarded by mMutex
    bool mClosed = false;                                 // guarded by mMutex
};

}  // namespace kelvane::tools::serve
