#include "serve/CheckJob.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "check/CheckReport.h"
#include "check/RunRules.h"

namespace kelvane::tools::serve {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

CheckJob::CheckJob(Session& session, EventStream& stream, SensorControls& controls, EventPump& pump)
    : mSession(session), mStream(stream), mControls(controls), mPump(pump) {
    base::AutoLock lock(mMutex);
    publishLocked();
}

CheckJob::~CheckJob() { cancel(); }

Reply CheckJob::start(bool quick) {
    base::AutoLock lock(mMutex);
    if (mRunning) return refusal(409, "a check is already running");
    if (mCancelled) return refusal(409, "the server is stopping");
    if (mThread.joinable()) mThread.join();  // the last run's thread, already done
    mRunning = true;
    mQuick = quick;
    mProgress.clear();
    mResults.clear();
    publishLocked();
    mThread = std::thread([this, quick] { run(quick); });
    return {};
}

void CheckJob::cancel() {
    mCancelled = true;
    std::thread thread;
    {
        base::AutoLock lock(mMutex);
        thread = std::move(mThread);
    }
    if (thread.joinable()) thread.join();
}

// What the sensors posted before they went off would look like stale events to the rules.
void CheckJob::discardQueuedEvents() {
    const auto limit = Clock::now() + std::chrono::seconds(2);
    while (Clock::now() < limit && !mSession.callback()
                                        .queue()
                                        .takeUntil(Clock::now() + std::chrono::milliseconds(150))
                                        .empty()) {
    }
}

void CheckJob::run(bool quick) {
    const auto start = Clock::now();
    mControls.suspend("a check is running; the controls return when it ends");
    mPump.pause();
    discardQueuedEvents();

    check::CheckOptions options;
    options.quick = quick;
    options.onProgress = [this](const std::string& line) {
        base::AutoLock lock(mMutex);
        mProgress.push_back(line);
        publishLocked();
    };
    options.cancelled = [this] { return mCancelled.load(); };
    std::vector<check::CheckResult> results = check::runRules(mSession, options);

    // The rules may leave the sub-HAL posting to a callback of theirs.
    mSession.subHal()->initialize(&mSession.callback());
    discardQueuedEvents();
    mPump.resume();
    if (!mCancelled) mControls.resume();

    base::AutoLock lock(mMutex);
    mRunning = false;
    if (!mCancelled) mResults = check::worstFirst(results);
    mSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    publishLocked();
}

std::string CheckJob::stateJsonLocked() const {
    nlohmann::json results = nlohmann::json::array();
    for (const check::CheckResult& r : mResults) {
        results.push_back(check::toJson(r));
    }
    nlohmann::json state = {{"running", mRunning},
                            {"quick", mQuick},
                            {"progress", mProgress},
                            {"results", std::move(results)},
                            {"summary", mResults.empty() ? "" : check::summaryLine(mResults)},
                            {"seconds", mSeconds}};
    return state.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void CheckJob::publishLocked() { mStream.publishState("check", stateJsonLocked()); }

}  // namespace kelvane::tools::serve
