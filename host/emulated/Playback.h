// Plays recorded samples: each device's timed samples go out once, at their times after the
// host's first SetUpChannel divided by the replay speed, to every endpoint of that device that is
// reading. A sample that falls due while nobody reads the device waits for the next reader, so a
// replay whose client starts a little later than the recorded one still gets every sample.
//
// At speed 0 there is no waiting: time jumps to the next sample of a device being read or to the
// next timeline entry, whichever comes first, so timeline entries keep their place among the
// samples of the devices being read. While samples remain but no device with samples is read,
// time stands still.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "base/memory/weak_ptr.h"
#include "base/single_thread_task_runner.h"
#include "base/time/time.h"
#include "host/description/HostConfig.h"

namespace kelvane::host::emulated {

class EmulatedSensorDevice;

// Called on the host's runner only; stop() there before destruction, which may happen on another
// thread: steps still queued on the runner then find the playback gone and do nothing.
class Playback {
  public:
    // Calls `fn` on every endpoint of `device` that is reading samples now.
    using ForEachReader =
        std::function<void(int32_t device, const std::function<void(EmulatedSensorDevice&)>& fn)>;
    using RunTimeline = std::function<void(const description::TimelineEvent&)>;

    // `config` belongs to the host and outlives this. At speed 0 the timeline is run from here
    // through `runTimeline`; otherwise the host schedules it itself. `playedOut` is called once,
    // when every device that was read has sent its last recorded sample and no device with
    // samples left is being read.
    Playback(const description::HostConfig* config,
             scoped_refptr<base::SingleThreadTaskRunner> runner, ForEachReader forEachReader,
             RunTimeline runTimeline, std::function<void()> playedOut = {});

    // Whether there are recorded samples to play at all.
    bool hasSamples() const { return !mTracks.empty(); }
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    // The first SetUpChannel: recorded times count from now. Later calls change nothing.
    void start();
    // A device started reading: sends what is due for it and plans the next step.
    void wake();
    // The host closed `device`: the samples it still held for the endpoint that is gone are
    // dropped, up to its next restart (the recorded client opened it again), or all of them.
    void deviceClosed(int32_t device);
    // Nothing is sent any more.
    void stop();

  private:
    struct Track {
        int32_t device;
        std::shared_ptr<const description::TimedSamples> samples;
        size_t next = 0;         // the first sample not sent yet
        size_t nextRestart = 0;  // the first entry of samples->restarts not reached yet
        // Who took the last sample, to tell a new reading session from the same one.
        const EmulatedSensorDevice* lastReader = nullptr;
        uint64_t lastSession = 0;
        bool done() const { return next >= samples->size(); }
        int64_t nextAt() const { return samples->atUs[next]; }
    };

    void post(base::TimeDelta delay);
    void step();
    // The endpoints that may take the track's next sample now, into mReaders.
    void collectReaders(Track& track);
    // Sends the samples due at `now` to the devices being read, at most a batch. Returns false if
    // the batch ran out before everything due was sent.
    bool sendDue(int64_t now);
    // Speed 0: moves time to the next thing to do and does it. False if there is nothing to do
    // until a device starts reading.
    bool advanceVirtualTime();
    int64_t nowUs() const;  // recorded time that has passed
    // Every device that was ever read has sent all it holds, and at least one has: what a
    // subset of the devices asked for is played (the others wait for a reader that may come).
    bool playedForItsReaders() const;

    const description::HostConfig* const mConfig;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    const ForEachReader mForEachReader;
    const RunTimeline mRunTimeline;
    std::function<void()> mPlayedOut;  // emptied once called
    std::vector<Track> mTracks;
    std::vector<EmulatedSensorDevice*> mReaders;  // scratch, reused
    bool mStarted = false;
    bool mStopped = false;
    base::TimeTicks mOrigin;
    int64_t mVirtualUs = 0;    // speed 0: the recorded time reached
    size_t mNextTimeline = 0;  // speed 0: the first timeline entry not run yet
    // Last. The planned step holds it; each new plan and stop() invalidate it.
    base::WeakPtrFactory<Playback> mWeak{this};
};

}  // namespace kelvane::host::emulated
