#include "mojo/core/core.h"

#include <unordered_map>
#include <utility>
#include <vector>

#include "base/bind.h"
#include "base/location.h"

namespace mojo {
namespace core {
namespace {

// Messages dispatched per task before the drain yields to other tasks on the thread.
constexpr int kMaxMessagesPerDrain = 64;
// Queue storage (in items) kept across bursts; beyond it an emptied queue frees its storage.
constexpr size_t kKeptCapacity = 1024;

class HandleTable {
  public:
    MojoHandle Add(std::shared_ptr<PipeEndpoint> endpoint) {
        base::AutoLock hold(mLock);
        MojoHandle handle = mNext++;
        if (mNext == MOJO_HANDLE_INVALID) mNext = 1;
        mEndpoints.emplace(handle, std::move(endpoint));
        return handle;
    }
    std::shared_ptr<PipeEndpoint> Get(MojoHandle handle) {
        base::AutoLock hold(mLock);
        auto it = mEndpoints.find(handle);
        return it == mEndpoints.end() ? nullptr : it->second;
    }
    std::shared_ptr<PipeEndpoint> Remove(MojoHandle handle) {
        base::AutoLock hold(mLock);
        auto it = mEndpoints.find(handle);
        if (it == mEndpoints.end()) return nullptr;
        std::shared_ptr<PipeEndpoint> endpoint = std::move(it->second);
        mEndpoints.erase(it);
        return endpoint;
    }

  private:
    base::Lock mLock;
    MojoHandle mNext GUARDED_BY(mLock) = 1;
    std::unordered_map<MojoHandle, std::shared_ptr<PipeEndpoint>> mEndpoints GUARDED_BY(mLock);
};

// Lives for the whole process: handles may be closed from static destructors.
HandleTable& Handles() {
    static HandleTable* table = new HandleTable();
    return *table;
}

}  // namespace

void ConnectPipe(const std::shared_ptr<PipeEndpoint>& a, const std::shared_ptr<PipeEndpoint>& b) {
    a->mPeer = b;
    b->mPeer = a;
}

PipeEndpoint::Item PipeEndpoint::ItemQueue::pop() {
    Item item = std::move(mItems[mHead++]);
    if (mHead == mItems.size()) {
        // Empty: start again at the front, giving back what a large burst made it grow to.
        mHead = 0;
        if (mItems.capacity() > kKeptCapacity) {
            std::vector<Item>().swap(mItems);
        } else {
            mItems.clear();
        }
    } else if (mHead >= kKeptCapacity && mHead * 2 >= mItems.size()) {
        // A queue that never runs empty still sheds what was popped.
        mItems.erase(mItems.begin(), mItems.begin() + static_cast<std::ptrdiff_t>(mHead));
        mHead = 0;
    }
    return item;
}

std::vector<PipeEndpoint::Item> PipeEndpoint::ItemQueue::take() {
    std::vector<Item> items;
    items.swap(mItems);  // the popped ones at its front are empty shells
    mHead = 0;
    return items;
}

void PipeEndpoint::Attach(scoped_refptr<base::SequencedTaskRunner> runner, EndpointClient* client) {
    DrainPost drain;
    {
        base::AutoLock lock(mLock);
        base::AutoLock pending(mPendingLock);
        mRunner = std::move(runner);
        mClient = client;
        mDrainScheduled = false;
        if (!mPending.empty() || !mIncoming.empty()) drain = ScheduleDrainLocked();
    }
    drain.Post();
}

void PipeEndpoint::Detach() {
    base::AutoLock lock(mLock);
    base::AutoLock pending(mPendingLock);
    mClient = nullptr;
    mRunner = nullptr;
    mDrainScheduled = false;
}

bool PipeEndpoint::WriteToPeer(Message message) {
    if (mClosed.load(std::memory_order_acquire) || mPeerClosed.load(std::memory_order_acquire)) {
        return false;
    }
    std::shared_ptr<PipeEndpoint> peer = mPeer.lock();
    if (!peer) return false;
    Item item;
    item.message = std::move(message);
    return peer->Enqueue(std::move(item));
}

bool PipeEndpoint::Enqueue(Item item) {
    DrainPost drain;
    {
        base::AutoLock lock(mLock);
        // Closed: `item` (and any handle it carries) is destroyed by the caller, outside the lock.
        if (mClosed.load(std::memory_order_relaxed)) return false;
        if (item.closed) mPeerClosed.store(true, std::memory_order_release);
        mIncoming.push(std::move(item));
        if (mRunner && !mDrainScheduled) drain = ScheduleDrainLocked();
    }
    drain.Post();
    return true;
}

void PipeEndpoint::DrainPost::Post() {
    if (runner) runner->PostTask(FROM_HERE, std::move(task));
}

PipeEndpoint::DrainPost PipeEndpoint::ScheduleDrainLocked() {
    if (mDrainTask.is_null()) {
        mDrainTask = base::BindRepeating(
            [](const std::weak_ptr<PipeEndpoint>& weak) {
                // Gone means closed and unowned: nothing is left to dispatch.
                if (std::shared_ptr<PipeEndpoint> self = weak.lock()) self->Drain();
            },
            weak_from_this());
    }
    mDrainScheduled = true;
    return DrainPost{mRunner, mDrainTask};
}

bool PipeEndpoint::NextItem(Item* item, EndpointClient** client) {
    {
        base::AutoLock pending(mPendingLock);
        // Detached, or attached elsewhere since this drain was posted: the current attachment,
        // if any, has a drain of its own on its own runner.
        if (!DrainIsCurrent()) return false;
        if (!mPending.empty()) {
            *item = mPending.pop();
            *client = mClient;
            return true;
        }
    }
    // Take the whole batch that arrived meanwhile. Only this drain fills mPending, so it is
    // still empty.
    base::AutoLock lock(mLock);
    base::AutoLock pending(mPendingLock);
    if (!DrainIsCurrent()) return false;
    if (mIncoming.empty()) {
        mDrainScheduled = false;
        return false;
    }
    mPending.swap(mIncoming);
    *item = mPending.pop();
    *client = mClient;
    return true;
}

void PipeEndpoint::Drain() {
    for (int i = 0; i < kMaxMessagesPerDrain; ++i) {
        Item item;
        EndpointClient* client;
        if (!NextItem(&item, &client)) return;
        // The client may destroy itself (and detach) while handling the item.
        if (item.closed) {
            client->OnPeerClosed(item.closed->reason, item.closed->description);
        } else {
            client->OnMessage(std::move(item.message));
        }
    }
    DrainPost drain;
    {
        base::AutoLock lock(mLock);
        if (DrainIsCurrent()) drain = ScheduleDrainLocked();
    }
    drain.Post();
}

void PipeEndpoint::Close(uint32_t reason, const std::string& description) {
    std::vector<Item> droppedPending;
    std::vector<Item> droppedIncoming;
    {
        base::AutoLock lock(mLock);
        base::AutoLock pending(mPendingLock);
        if (mClosed.load(std::memory_order_relaxed)) return;
        mClosed.store(true, std::memory_order_release);
        mClient = nullptr;
        mRunner = nullptr;
        droppedPending = mPending.take();
        droppedIncoming = mIncoming.take();
    }
    if (std::shared_ptr<PipeEndpoint> peer = mPeer.lock()) {
        Item item;
        item.closed = std::make_unique<CloseNote>();
        item.closed->reason = reason;
        item.closed->description = description;
        peer->Enqueue(std::move(item));
    }
    // What was dropped goes here, outside every lock: handles inside messages close their own
    // pipes.
}

bool PipeEndpoint::PeerClosed() const { return mPeerClosed.load(std::memory_order_acquire); }

std::shared_ptr<PipeEndpoint> GetEndpoint(MojoHandle handle) { return Handles().Get(handle); }

MojoResult CloseWithReason(MojoHandle handle, uint32_t reason, const std::string& description) {
    std::shared_ptr<PipeEndpoint> endpoint = Handles().Remove(handle);
    if (!endpoint) return MOJO_RESULT_INVALID_ARGUMENT;
    endpoint->Close(reason, description);
    return MOJO_RESULT_OK;
}

}  // namespace core
}  // namespace mojo

extern "C" {

MojoResult MojoCreateMessagePipe(const struct MojoCreateMessagePipeOptions*, MojoHandle* handle0,
                                 MojoHandle* handle1) {
    if (!handle0 || !handle1) return MOJO_RESULT_INVALID_ARGUMENT;
    auto a = std::make_shared<mojo::core::PipeEndpoint>();
    auto b = std::make_shared<mojo::core::PipeEndpoint>();
    mojo::core::ConnectPipe(a, b);
    *handle0 = mojo::core::Handles().Add(std::move(a));
    *handle1 = mojo::core::Handles().Add(std::move(b));
    return MOJO_RESULT_OK;
}

MojoResult MojoClose(MojoHandle handle) { return mojo::core::CloseWithReason(handle, 0, ""); }
}
