#include "serve/RecordingControl.h"

#include <utils/SystemClock.h>

#include <nlohmann/json.hpp>

#include "host/common/Recorder.h"
#include "host/description/DescriptionWriter.h"

namespace kelvane::tools::serve {

RecordingControl::RecordingControl(Session& session, EventStream& stream, int64_t originNs)
    : mSession(session), mStream(stream), mOriginNs(originNs) {}

Reply RecordingControl::start() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mRecording) return refusal(409, "a recording is already running");
    mSession.recorder()->startOver();
    mRecording = true;
    mStartedS = (android::elapsedRealtimeNano() - mOriginNs) / 1e9;
    mSamples.reset();
    mStream.publish(sseFrame("recording", stateJsonLocked()));
    return {};
}

Reply RecordingControl::stop() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mRecording) return refusal(409, "no recording is running");
    mSession.recorder()->pause();
    mRecording = false;
    size_t samples = 0;
    for (const auto& device : mSession.recorder()->description().devices) {
        if (device.timedSamples) samples += device.timedSamples->size();
    }
    mSamples = samples;
    mStream.publish(sseFrame("recording", stateJsonLocked()));
    return {};
}

Reply RecordingControl::download() const {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mStartedS) return refusal(404, "nothing was recorded yet");
    }
    return {200, host::description::hostDescriptionText(mSession.recorder()->description()),
            "application/json"};
}

std::string RecordingControl::stateJsonLocked() const {
    nlohmann::json state = {{"recording", mRecording}, {"startedS", nullptr}, {"samples", nullptr}};
    if (mStartedS) state["startedS"] = *mStartedS;
    if (mSamples) state["samples"] = *mSamples;
    return state.dump();
}

void RecordingControl::sendStateTo(EventStream::Subscriber& subscriber) const {
    std::lock_guard<std::mutex> lock(mMutex);
    subscriber.send(sseFrame("recording", stateJsonLocked()));
}

}  // namespace kelvane::tools::serve
