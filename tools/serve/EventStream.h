// The live messages of `serve`, fanned out to every page that follows them as Server-Sent
// Events. A message is either a state (one per kind: "sensors", "check", "recording", "host",
// "stats") or a batch of samples. Each page keeps the latest state of every kind in a slot of
// its own, so a state is never lost, only replaced by a newer one; a new page starts from the
// latest of each. Samples queue per page, bounded in bytes: a page that falls that far behind
// loses batches, counted and told to it in the next frames it takes, and never holds up the
// others or the sensors.
//
// Threads: any thread publishes; each subscriber is taken from by the one connection that serves
// it. One mutex per subscriber guards its queue; the stream's own guards the list and the slots.
// A subscriber's ready callback runs on the publishing thread, perhaps under the stream's
// mutex: it must only hand the work on (post it to the connection), never publish.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/synchronization/lock.h"

namespace kelvane::tools::serve {

// One Server-Sent Events frame: "event: <event>\ndata: <data>\n\n". `data` holds no newline.
std::string sseFrame(const std::string& event, const std::string& data);

class EventStream {
  public:
    class Subscriber {
      public:
        // Every frame waiting, states first, as one string ("" when none); nullopt once the
        // stream is closed and everything was taken.
        std::optional<std::string> take();
        // Calls `ready` once, as soon as take() has something to answer (at once if it has).
        void notifyWhenReady(std::function<void()> ready);
        // Sample batches this subscriber lost by falling behind, so far.
        uint64_t dropped() const;

      private:
        friend class EventStream;
        explicit Subscriber(size_t capBytes) : mCapBytes(capBytes) {}
        void send(const std::string& frame);
        void setState(const std::string& kind, const std::string& frame);
        void close();
        // The callback to run now, if it is due; disarms it.
        std::function<void()> dueLocked() REQUIRES(mMutex);

        const size_t mCapBytes;
        mutable base::Lock mMutex;
        std::map<std::string, std::string> mStates GUARDED_BY(mMutex);  // by kind, not taken yet
        std::string mSamples GUARDED_BY(mMutex);
        uint64_t mDropped GUARDED_BY(mMutex) = 0;
        uint64_t mDroppedToldAt GUARDED_BY(mMutex) = 0;  // mDropped when last told
        bool mClosed GUARDED_BY(mMutex) = false;
        std::function<void()> mReady GUARDED_BY(mMutex);  // armed by notifyWhenReady()
    };

    // At most `maxSubscribers` pages at once, each sample queue at most `capBytes`.
    EventStream(size_t maxSubscribers, size_t capBytes);

    // A new subscriber holding the latest state of every kind, or null when there are
    // `maxSubscribers` already or the stream is closed. It stays subscribed while held.
    std::shared_ptr<Subscriber> subscribe();
    // Queues a batch of samples (a whole frame) for every subscriber.
    void publish(const std::string& frame);
    // Replaces the state of `kind` for every subscriber and for those to come.
    void publishState(const std::string& kind, const std::string& data);
    // Ends every subscriber's stream; later subscribe() calls answer null. Idempotent.
    void close();
    size_t subscribers() const;
    bool closed() const;

  private:
    std::vector<std::shared_ptr<Subscriber>> liveLocked() REQUIRES(mMutex);

    const size_t mMaxSubscribers;
    const size_t mCapBytes;
    mutable base::Lock mMutex;
    std::vector<std::weak_ptr<Subscriber>> mSubscribers GUARDED_BY(mMutex);
    std::map<std::string, std::string> mLatest GUARDED_BY(mMutex);  // frame by kind
    bool mClosed GUARDED_BY(mMutex) = false;
};

}  // namespace kelvane::tools::serve
