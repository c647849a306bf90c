// Reads one IIO device's samples on a thread of its own, so that blocking reads never hold up the
// host thread: buffered devices through a libiio buffer (one read per refill, however many scans
// it holds), unbuffered ones by polling their channels' "raw" (else "input") attribute at a rate.
#pragma once

#include <iio.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "base/containers/flat_map.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock.h"

namespace kelvane::host::iio {

using Sample = base::flat_map<int32_t, int64_t>;  // channel index to raw value

class SampleReader {
  public:
    // Both run on the reader thread. `deliver` gets the samples of one read, in order.
    // `fail` gets a positive errno: ETIMEDOUT when a read timed out (reading goes on, through a
    // new buffer where iiod serves the device), anything else when the device failed or went
    // away (the thread then ends; nothing else follows).
    using Deliver = std::function<void(std::vector<Sample>)>;
    using Fail = std::function<void(int error)>;

    struct Channel {
        int32_t index;  // the host's channel index, the key in samples
        iio_channel* channel;
    };

    // Enables exactly `channels` (scan elements) and starts streaming through a buffer of
    // `scansPerRead` scans. Null with `*error` set (positive errno) if the buffer cannot be made.
    static std::unique_ptr<SampleReader> startBuffered(iio_device* device,
                                                       const std::vector<Channel>& channels,
                                                       size_t scansPerRead, Deliver deliver,
                                                       Fail fail, int* error);
    // Polls `channels` at `hz`; a timestamp channel is filled from the boot-time clock.
    static std::unique_ptr<SampleReader> startPolled(const iio_device* device,
                                                     std::vector<Channel> channels, double hz,
                                                     Deliver deliver, Fail fail);

    // Stops reading and joins the thread; the buffer goes with it. Not from the reader thread.
    ~SampleReader();
    SampleReader(const SampleReader&) = delete;
    SampleReader& operator=(const SampleReader&) = delete;

    // Reads done and samples delivered so far; any thread.
    uint64_t reads() const { return mReads.load(std::memory_order_relaxed); }
    uint64_t samples() const { return mSamples.load(std::memory_order_relaxed); }

  private:
    SampleReader(const iio_device* device, std::vector<Channel> channels, Deliver deliver,
                 Fail fail);
    void readBuffer();
    void poll(double hz);
    bool deviceGone() const;
    // Replaces the buffer with a new one of the same scans; false with `*error` set (positive
    // errno) if none can be made. Reader thread.
    bool reopenBuffer(int* error);
    bool stopping() const { return mStop.load(std::memory_order_acquire); }

    const iio_device* const mDevice;
    const std::vector<Channel> mChannels;
    const Deliver mDeliver;
    const Fail mFail;
    // Set before the thread starts and destroyed after it ends; replaced by the thread under
    // mLock, where the destructor cancels it (so the thread reads it without the lock).
    iio_buffer* mBuffer = nullptr;
    size_t mScansPerRead = 0;
    bool mServedByIiod = false;  // the context reads through iiod, which closes a timed-out device

    std::atomic<bool> mStop{false};
    base::Lock mLock;  // with mWake: wakes a polling thread at stop
    base::ConditionVariable mWake{&mLock};
    std::atomic<uint64_t> mReads{0};
    std::atomic<uint64_t> mSamples{0};
    std::thread mThread;  // last: starts after everything above is set
};

}  // namespace kelvane::host::iio
