#include "serve/RecordingControl.h"

#include <utils/SystemClock.h>

#include <nlohmann/json.hpp>

#include "OutputFile.h"
#include "host/common/Recorder.h"
#include "host/description/DescriptionWriter.h"

namespace kelvane::tools::serve {

RecordingControl::RecordingControl(Session& session, EventStream& stream, int64_t originNs)
    : mSession(session), mStream(stream), mOriginNs(originNs) {
    base::AutoLock lock(mMutex);
    publishLocked();
}

Reply RecordingControl::start() {
    base::AutoLock lock(mMutex);
    if (mRecording) return refusal(409, "a recording is already running");
    mSession.recorder()->startOver();
    mRecording = true;
    mStartedS = (android::elapsedRealtimeNano() - mOriginNs) / 1e9;
    mSamples.reset();
    publishLocked();
    return {};
}

Reply RecordingControl::stop() {
    base::AutoLock lock(mMutex);
    if (!mRecording) return refusal(409, "no recording is running");
    stopLocked();
    publishLocked();
    return {};
}

size_t RecordingControl::stopLocked() {
    mSession.recorder()->pause();
    mRecording = false;
    size_t samples = 0;
    for (const auto& device : mSession.recorder()->description().devices) {
        if (device.timedSamples) samples += device.timedSamples->size();
    }
    mSamples = samples;
    return samples;
}

Reply RecordingControl::download() const {
    {
        base::AutoLock lock(mMutex);
        if (!mStartedS) return refusal(404, "nothing was recorded yet");
    }
    return {200,
            host::description::hostDescriptionText(mSession.recorder()->description()),
            "application/json",
            {{"Content-Disposition", "attachment; filename=\"recording.json\""}}};
}

std::string RecordingControl::finish(const std::string& path) {
    base::AutoLock lock(mMutex);
    if (!mRecording) return {};
    const size_t samples = stopLocked();
    std::string error;
    auto file = OutputFile::create(path, {"serve", "recording"}, &error);
    if (file &&
        file->commit(host::description::hostDescriptionText(mSession.recorder()->description()),
                     &error)) {
        return "the recording started from the page is in " + path + " (" +
               std::to_string(samples) + " samples)";
    }
    return "the recording started from the page could not be written: " + error;
}

void RecordingControl::publishLocked() {
    nlohmann::json state = {{"recording", mRecording}, {"startedS", nullptr}, {"samples", nullptr}};
    if (mStartedS) state["startedS"] = *mStartedS;
    if (mSamples) state["samples"] = *mSamples;
    mStream.publishState("recording", state.dump());
}

}  // namespace kelvane::tools::serve
