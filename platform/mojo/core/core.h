// The in-process message pipe underneath the bindings. Each end queues what its peer sends and,
// once attached to a task runner, dispatches it there one message at a time, in order.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/synchronization/lock.h"
#include "base/task_runner.h"
#include "mojo/public/c/system/message_pipe.h"
#include "mojo/public/cpp/bindings/message.h"

namespace mojo {
namespace core {

// Receives what arrives at an attached end, on the end's task runner.
class EndpointClient {
  public:
    virtual ~EndpointClient() = default;
    virtual void OnMessage(Message message) = 0;
    // Runs once, after every message the peer sent before it closed.
    virtual void OnPeerClosed(uint32_t reason, const std::string& description) = 0;
};

class PipeEndpoint : public std::enable_shared_from_this<PipeEndpoint> {
  public:
    PipeEndpoint() = default;
    PipeEndpoint(const PipeEndpoint&) = delete;
    PipeEndpoint& operator=(const PipeEndpoint&) = delete;

    // Dispatches to `client` on `runner` from now on, starting with anything already queued.
    void Attach(scoped_refptr<base::SequencedTaskRunner> runner, EndpointClient* client);
    // Called on the attached runner: `client` receives nothing more. Queued messages stay.
    void Detach();
    // Any thread. False (and the message destroyed) if either end is closed.
    bool WriteToPeer(Message message);
    // Any thread. Drops what is queued here and tells the peer, with a reason.
    void Close(uint32_t reason, const std::string& description);
    bool PeerClosed() const;

  private:
    friend void ConnectPipe(const std::shared_ptr<PipeEndpoint>&,
                            const std::shared_ptr<PipeEndpoint>&);
    // What a closing peer leaves behind it.
    struct CloseNote {
        uint32_t reason = 0;
        std::string description;
    };
    // A message, or the peer's close when `closed` is set.
    struct Item {
        Message message;
        std::unique_ptr<CloseNote> closed;
    };
    // First in, first out, over a vector that keeps its storage: a steady stream of messages
    // allocates nothing here.
    class ItemQueue {
      public:
        bool empty() const { return mHead == mItems.size(); }
        void push(Item item) { mItems.push_back(std::move(item)); }
        Item pop();
        void swap(ItemQueue& other) {
            mItems.swap(other.mItems);
            std::swap(mHead, other.mHead);
        }
        // Hands over every item (in order) and leaves this empty.
        std::vector<Item> take();

      private:
        std::vector<Item> mItems;
        size_t mHead = 0;  // items before it were popped
    };

    // A drain to post. It is taken under mLock and posted after mLock is released: a thread
    // woken by the post would otherwise find the lock still held by the poster and sleep again.
    // Posted late, it may find the end detached or attached elsewhere; the drain checks that.
    struct DrainPost {
        scoped_refptr<base::SequencedTaskRunner> runner;  // null: nothing to post
        base::RepeatingClosure task;
        void Post();
    };

    // Queues an item from the peer. False if this end is closed.
    bool Enqueue(Item item) EXCLUDES(mLock);
    // Marks a drain scheduled and returns the post to make once mLock is released.
    DrainPost ScheduleDrainLocked() REQUIRES(mLock);
    // The next item to dispatch and the client to hand it to; false when the drain ends here.
    bool NextItem(Item* item, EndpointClient** client) EXCLUDES(mLock, mPendingLock);
    // Dispatches up to 64 items, taking what arrives meanwhile too. So a message that reaches a
    // pipe whose drain is running can be dispatched before one sent earlier on another pipe of the
    // same thread, whose drain waits behind: only the order on each pipe is kept.
    void Drain();
    // Whether a drain running now on the calling thread is the current one. Needs either lock.
    bool DrainIsCurrent() const { return mClient && mRunner->RunsTasksInCurrentSequence(); }

    std::weak_ptr<PipeEndpoint> mPeer;  // set once at creation

    // Senders and the drain meet only on mLock, and the drain takes it once per batch: it moves
    // everything that arrived into mPending, then dispatches from there under mPendingLock,
    // which no sender takes. The queue is mPending followed by mIncoming.
    mutable base::Lock mLock ACQUIRED_BEFORE(mPendingLock);
    base::Lock mPendingLock;
    ItemQueue mIncoming GUARDED_BY(mLock);
    ItemQueue mPending GUARDED_BY(mPendingLock);
    // Written under both locks, read under either (which the analysis cannot say).
    scoped_refptr<base::SequencedTaskRunner> mRunner;
    EndpointClient* mClient = nullptr;
    // Posted for every drain; it holds this end weakly, so posting allocates nothing. Shared
    // ownership: the end may be closed and dropped on any thread.
    base::RepeatingClosure mDrainTask GUARDED_BY(mLock);  // made on first use
    bool mDrainScheduled GUARDED_BY(mLock) = false;
    // Written under mLock; read without it by senders, who only need a recent value.
    std::atomic<bool> mClosed{false};
    std::atomic<bool> mPeerClosed{false};
};

// The endpoint behind a handle, or null for an invalid or closed handle.
std::shared_ptr<PipeEndpoint> GetEndpoint(MojoHandle handle);
// Closes a handle and hands `reason` and `description` to the peer.
MojoResult CloseWithReason(MojoHandle handle, uint32_t reason, const std::string& description);

}  // namespace core
}  // namespace mojo
