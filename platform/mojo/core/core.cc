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

class HandleTable {
  public:
    MojoHandle Add(std::shared_ptr<PipeEndpoint> endpoint) {
        std::lock_guard<std::mutex> lock(mMutex);
        MojoHandle handle = mNext++;
        if (mNext == MOJO_HANDLE_INVALID) mNext = 1;
        mEndpoints.emplace(handle, std::move(endpoint));
        return handle;
    }
    std::shared_ptr<PipeEndpoint> Get(MojoHandle handle) {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mEndpoints.find(handle);
        return it == mEndpoints.end() ? nullptr : it->second;
    }
    std::shared_ptr<PipeEndpoint> Remove(MojoHandle handle) {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mEndpoints.find(handle);
        if (it == mEndpoints.end()) return nullptr;
        std::shared_ptr<PipeEndpoint> endpoint = std::move(it->second);
        mEndpoints.erase(it);
        return endpoint;
    }

  private:
    std::mutex mMutex;
    MojoHandle mNext = 1;                                                      // guarded by mMutex
    std::unordered_map<MojoHandle, std::shared_ptr<PipeEndpoint>> mEndpoints;  // guarded by mMutex
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

void PipeEndpoint::Attach(scoped_refptr<base::SequencedTaskRunner> runner, EndpointClient* client) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRunner = std::move(runner);
    mClient = client;
    ++mGeneration;
    mDrainScheduled = false;
    if (!mQueue.empty()) ScheduleDrainLocked();
}

void PipeEndpoint::Detach() {
    std::lock_guard<std::mutex> lock(mMutex);
    mClient = nullptr;
    mRunner = nullptr;
    ++mGeneration;
    mDrainScheduled = false;
}

bool PipeEndpoint::WriteToPeer(Message message) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mClosed || mPeerClosed) return false;
    }
    std::shared_ptr<PipeEndpoint> peer = mPeer.lock();
    if (!peer) return false;
    Item item;
    item.message = std::move(message);
    return peer->Enqueue(std::move(item));
}

bool PipeEndpoint::Enqueue(Item item) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mClosed) {
        lock.unlock();
        return false;  // `item` (and any handle it carries) is destroyed outside the lock
    }
    if (item.peerClosed) mPeerClosed = true;
    mQueue.push_back(std::move(item));
    if (mRunner && !mDrainScheduled) ScheduleDrainLocked();
    return true;
}

void PipeEndpoint::ScheduleDrainLocked() {
    mDrainScheduled = true;
    mRunner->PostTask(FROM_HERE,
                      base::BindOnce(&PipeEndpoint::Drain, shared_from_this(), mGeneration));
}

void PipeEndpoint::Drain(uint64_t generation) {
    for (int i = 0; i < kMaxMessagesPerDrain; ++i) {
        Item item;
        EndpointClient* client;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            // A detach or re-attach since this drain was posted makes it stale.
            if (generation != mGeneration || !mClient) return;
            if (mQueue.empty()) {
                mDrainScheduled = false;
                return;
            }
            item = std::move(mQueue.front());
            mQueue.pop_front();
            client = mClient;
        }
        // The client may destroy itself (and detach) while handling the item.
        if (item.peerClosed) {
            client->OnPeerClosed(item.reason, item.description);
        } else {
            client->OnMessage(std::move(item.message));
        }
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (generation == mGeneration && mClient) ScheduleDrainLocked();
}

void PipeEndpoint::Close(uint32_t reason, const std::string& description) {
    std::deque<Item> dropped;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mClosed) return;
        mClosed = true;
        mClient = nullptr;
        mRunner = nullptr;
        ++mGeneration;
        dropped.swap(mQueue);
    }
    if (std::shared_ptr<PipeEndpoint> peer = mPeer.lock()) {
        Item item;
        item.peerClosed = true;
        item.reason = reason;
        item.description = description;
        peer->Enqueue(std::move(item));
    }
    // `dropped` goes here, outside every lock: handles inside messages close their own pipes.
}

bool PipeEndpoint::PeerClosed() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mPeerClosed;
}

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
