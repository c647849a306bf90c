// The in-process message pipe underneath the bindings. Each end queues what its peer sends and,
// once attached to a task runner, dispatches it there one message at a time, in order.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

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
    struct Item {
        Message message;
        bool peerClosed = false;
        uint32_t reason = 0;
        std::string description;
    };

    // Queues an item from the peer. False if this end is closed.
    bool Enqueue(Item item);
    void ScheduleDrainLocked();
    void Drain(uint64_t generation);

    std::weak_ptr<PipeEndpoint> mPeer;  // set once at creation

    mutable std::mutex mMutex;
    std::deque<Item> mQueue;                           // guarded by mMutex
    scoped_refptr<base::SequencedTaskRunner> mRunner;  // guarded by mMutex
    EndpointClient* mClient = nullptr;                 // guarded by mMutex
    uint64_t mGeneration = 0;                          // guarded by mMutex: bumped per attach
    bool mDrainScheduled = false;                      // guarded by mMutex
    bool mClosed = false;                              // guarded by mMutex
    bool mPeerClosed = false;                          // guarded by mMutex
};

// The endpoint behind a handle, or null for an invalid or closed handle.
std::shared_ptr<PipeEndpoint> GetEndpoint(MojoHandle handle);
// Closes a handle and hands `reason` and `description` to the peer.
MojoResult CloseWithReason(MojoHandle handle, uint32_t reason, const std::string& description);

}  // namespace core
}  // namespace mojo
