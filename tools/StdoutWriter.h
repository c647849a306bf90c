// Writes a stream's lines to stdout on a thread of its own, so that a slow reader of stdout never
// holds up the stream: lines wait in memory, up to a cap, and beyond it are counted as dropped
// (the caller says so). The cap counts every byte not yet written, the block being written
// included, and lines are kept in blocks of kBlockBytes: what the queue costs in memory is the
// cap plus one block. Writes report EPIPE rather than raising SIGPIPE: main() ignores it.
//
// Threads: every public method runs on the owner's thread (the main thread); the writer thread
// only takes what is queued and writes it. One mutex guards the queue and the counters.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kelvane::tools {

class StdoutWriter {
  public:
    // What the stream keeps for a slow reader, and the memory (RSS) that costs: about two
    // million events of JSON.
    static constexpr size_t kDefaultCapBytes = size_t{256} << 20;
    static constexpr size_t kBlockBytes = size_t{64} << 10;

    // Writes to `fd`, which outlives this writer; flush what went to it through stdio first.
    explicit StdoutWriter(int fd, size_t capBytes = kDefaultCapBytes);
    // Gives up on what is still queued (see drain()) and stops the thread.
    ~StdoutWriter();
    StdoutWriter(const StdoutWriter&) = delete;
    StdoutWriter& operator=(const StdoutWriter&) = delete;

    // Queues one line, newline included. Returns false if it was not queued: writing failed
    // (failed() tells), or the queue holds the cap already, in which case it counts as dropped.
    bool append(const std::string& line);

    enum class Drained { kAll, kWriteFailed, kGaveUp };
    // Waits until every queued line is written or a write fails. Every 100 ms it asks `giveUp`;
    // when that answers true the rest is abandoned. `slow` is called once, with the lines still
    // queued, when the wait has lasted a second.
    Drained drain(const std::function<bool()>& giveUp, const std::function<void(size_t)>& slow);

    // errno of the first failed write, or 0.
    int failed() const;
    uint64_t dropped() const;
    // Lines queued or being written, not known to be written yet.
    size_t unwritten() const;

  private:
    void run();
    // Writes all of `text` unless writing fails or the writer is abandoned; returns the bytes
    // written and sets *error on failure.
    size_t writeOut(const std::string& text, int* error);

    const int mFd;
    const size_t mCapBytes;
    const size_t mChunkBytes;  // a pipe takes this much without blocking once poll says so

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<std::string> mQueued;      // guarded by mMutex: blocks of whole lines
    size_t mUnwrittenBytes = 0;           // guarded by mMutex: queued and in flight
    size_t mQueuedLines = 0;              // guarded by mMutex
    size_t mInFlightLines = 0;            // guarded by mMutex: taken by the thread, not written yet
    bool mClosing = false;                // guarded by mMutex: no more lines come
    int mError = 0;                       // guarded by mMutex
    uint64_t mDropped = 0;                // guarded by mMutex
    std::atomic<bool> mAbandoned{false};  // the thread stops at its next chunk
    std::thread mThread;                  // last: starts once everything above exists
};

}  // namespace kelvane::tools
