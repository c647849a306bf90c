#include "host/emulated/Playback.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "host/common/TaskDelay.h"
#include "host/emulated/EmulatedSensorDevice.h"

namespace kelvane::host::emulated {

namespace {

// Samples sent per task: a long backlog goes out in slices so that the host thread keeps
// answering the client in between.
constexpr size_t kBatch = 256;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

}  // namespace

Playback::Playback(const description::HostConfig* config,
                   scoped_refptr<base::SingleThreadTaskRunner> runner, ForEachReader forEachReader,
                   RunTimeline runTimeline, std::function<void()> playedOut)
    : mConfig(config),
      mRunner(std::move(runner)),
      mForEachReader(std::move(forEachReader)),
      mRunTimeline(std::move(runTimeline)),
      mPlayedOut(std::move(playedOut)) {
    for (const description::VirtualDevice& device : mConfig->devices) {
        if (device.timedSamples && device.timedSamples->size() > 0) {
            mTracks.push_back(Track{device.id, device.timedSamples});
        }
    }
}

void Playback::start() {
    if (mStarted || mStopped) return;
    mStarted = true;
    mOrigin = base::TimeTicks::Now();
    post(base::TimeDelta());
}

void Playback::wake() {
    if (mStarted && !mStopped) post(base::TimeDelta());
}

void Playback::deviceClosed(int32_t device) {
    for (Track& track : mTracks) {
        if (track.device != device || track.done()) continue;
        const std::vector<size_t>& restarts = track.samples->restarts;
        const auto next = std::upper_bound(restarts.begin(), restarts.end(), track.next);
        track.next = next == restarts.end() ? track.samples->size() : *next;
    }
    wake();
}

void Playback::stop() {
    mStopped = true;
    mWeak.InvalidateWeakPtrs();  // the planned step, if any, does nothing
}

void Playback::post(base::TimeDelta delay) {
    mWeak.InvalidateWeakPtrs();  // only the latest planned step runs
    mRunner->PostDelayedTask(FROM_HERE, base::BindOnce(&Playback::step, mWeak.GetWeakPtr()),
                             common::boundedDelay(delay));
}

int64_t Playback::nowUs() const {
    if (mConfig->speed <= 0.0) return mVirtualUs;
    const double elapsed = static_cast<double>((base::TimeTicks::Now() - mOrigin).InMicroseconds());
    return static_cast<int64_t>(std::min(elapsed * mConfig->speed, 9.0e18));
}

void Playback::collectReaders(Track& track) {
    mReaders.clear();
    const std::vector<size_t>& restarts = track.samples->restarts;
    while (track.nextRestart < restarts.size() && restarts[track.nextRestart] < track.next) {
        ++track.nextRestart;
    }
    // A sample that went to a new observer waits for a reading session newer than the last.
    const bool restart =
        track.nextRestart < restarts.size() && restarts[track.nextRestart] == track.next;
    mForEachReader(track.device, [this, &track, restart](EmulatedSensorDevice& device) {
        if (restart && &device == track.lastReader &&
            device.readingSession() == track.lastSession) {
            return;
        }
        mReaders.push_back(&device);
    });
}

bool Playback::sendDue(int64_t now) {
    size_t sent = 0;
    for (Track& track : mTracks) {
        while (!track.done() && track.nextAt() <= now) {
            collectReaders(track);
            if (mReaders.empty()) break;  // held for the next reader
            if (sent == kBatch) return false;
            for (EmulatedSensorDevice* reader : mReaders) {
                reader->sendRecorded(*track.samples, track.next);
            }
            track.lastReader = mReaders.front();
            track.lastSession = mReaders.front()->readingSession();
            ++track.next;
            ++sent;
        }
    }
    return true;
}

bool Playback::advanceVirtualTime() {
    int64_t nextSample = kNever;  // the next sample a reader can take now
    int64_t held = kNever;        // the next sample waiting for its reader to restart
    bool remaining = false;       // samples left on any device, read or not
    bool reading = false;         // a device with samples is being read
    for (Track& track : mTracks) {
        bool read = false;
        mForEachReader(track.device, [&read](EmulatedSensorDevice&) { read = true; });
        reading = reading || read;
        if (track.done()) continue;
        remaining = true;
        collectReaders(track);
        if (!mReaders.empty()) {
            nextSample = std::min(nextSample, track.nextAt());
        } else if (read) {
            // What makes the reader restart (an observer error, say) may be on the timeline
            // before it; what comes after it waits for the restart.
            held = std::min(held, track.nextAt());
        }
    }
    const std::vector<description::TimelineEvent>& timeline = mConfig->timeline;
    if (mNextTimeline < timeline.size()) {
        const int64_t at = timeline[mNextTimeline].at.count();
        if (at <= nextSample && at <= held && (reading || !remaining)) {
            mVirtualUs = std::max(mVirtualUs, at);
            mRunTimeline(timeline[mNextTimeline++]);
            return true;
        }
    }
    if (nextSample == kNever) return false;
    mVirtualUs = std::max(mVirtualUs, nextSample);
    return true;
}

bool Playback::playedForItsReaders() const {
    bool anyDone = false;
    for (const Track& track : mTracks) {
        if (track.done()) {
            anyDone = true;
            continue;
        }
        bool read = track.lastReader != nullptr;
        mForEachReader(track.device, [&read](EmulatedSensorDevice&) { read = true; });
        if (read) return false;
    }
    return anyDone;
}

void Playback::step() {
    if (!sendDue(nowUs())) {
        post(base::TimeDelta());
        return;
    }
    if (mPlayedOut && playedForItsReaders()) std::exchange(mPlayedOut, nullptr)();
    if (mConfig->speed <= 0.0) {
        if (advanceVirtualTime()) post(base::TimeDelta());
        return;
    }
    // The next sample of a device being read; the others wait for wake().
    int64_t next = kNever;
    for (Track& track : mTracks) {
        if (track.done()) continue;
        collectReaders(track);
        if (!mReaders.empty()) next = std::min(next, track.nextAt());
    }
    if (next == kNever) return;
    // Rounded up, so that the step finds the sample due rather than a microsecond early.
    const double dueUs = std::ceil(static_cast<double>(next) / mConfig->speed) + 1.0;
    const base::TimeTicks due =
        mOrigin + base::TimeDelta::FromMicroseconds(static_cast<int64_t>(std::min(dueUs, 9.0e18)));
    post(due - base::TimeTicks::Now());
}

}  // namespace kelvane::host::emulated
