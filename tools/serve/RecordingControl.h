// Recording from a page: start, stop, and the recording as a host description to download,
// which `--host` replays. The session's recorder sits between the library and the host from the
// start, paused; starting forgets what an earlier recording kept and counts times from then.
// Every change goes to every page as a "recording" message.
//
// Threads: the server's threads; mMutex guards the state and orders the messages.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "Session.h"
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
    // any.
    Reply download() const;
    void sendStateTo(EventStream::Subscriber& subscriber) const;

  private:
    std::string stateJsonLocked() const;

    Session& mSession;
    EventStream& mStream;
    const int64_t mOriginNs;
    mutable std::mutex mMutex;
    bool mRecording = false;          // guarded by mMutex
    std::optional<double> mStartedS;  // guarded by mMutex: since the origin
    std::optional<size_t> mSamples;   // guarded by mMutex: of the last stopped recording
};

}  // namespace kelvane::tools::serve
