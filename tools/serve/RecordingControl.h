// Recording from a page: start, stop, and the recording as a host description to download,
// which `--host` replays. The session's recorder sits between the library and the host from the
// start, paused; starting forgets what an earlier recording kept and counts times from then.
// Every change goes to every page as the "recording" state message. A recording still running
// when the server stops is written to a file of its own (finish()).
//
// Threads: the server's and the controller's; mMutex guards the state and orders the messages.
#pragma once

#include <optional>
#include <string>

#include "Session.h"
#include "base/synchronization/lock.h"
#include "serve/EventStream.h"
#include "serve/Reply.h"

namespace kelvane::tools::serve {

class RecordingControl {
  public:
    // `originNs`: the boot-time clock reading that page times count from.
    RecordingControl(Session& session, EventStream& stream, int64_t originNs);

    Reply start();
    Reply stop();
    // The recording so far (while it runs) or the last one, as a host description; 404 before
    // any. Takes as long as writing the description does.
    Reply download() const;
    // At the end of the run: stops a recording that runs and writes it to `path` (a new file);
    // returns the line that says where, or why not; "" when none ran.
    std::string finish(const std::string& path);

  private:
    size_t stopLocked() REQUIRES(mMutex);  // the samples recorded
    void publishLocked() REQUIRES(mMutex);

    Session& mSession;
    EventStream& mStream;
    const int64_t mOriginNs;
    mutable base::Lock mMutex;
    bool mRecording GUARDED_BY(mMutex) = false;
    std::optional<double> mStartedS GUARDED_BY(mMutex);  // since the origin
    std::optional<size_t> mSamples GUARDED_BY(mMutex);   // of the last stopped recording
};

}  // namespace kelvane::tools::serve
