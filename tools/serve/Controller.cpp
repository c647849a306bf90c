#include "serve/Controller.h"

#include <future>
#include <memory>

namespace kelvane::tools::serve {

Controller::Controller() : mThread([this] { run(); }) {}

Controller::~Controller() { stop(); }

void Controller::post(std::function<void()> task) {
    {
        base::AutoLock lock(mMutex);
        if (mStopping) return;
        mTasks.push_back(std::move(task));
    }
    mWake.Signal();
}

namespace {

// Says whether its task ran when the task is destroyed: after running, or dropped unrun.
struct Outcome {
    std::promise<bool> promise;
    bool ran = false;
    ~Outcome() { promise.set_value(ran); }
};

}  // namespace

bool Controller::runAndWait(std::function<void()> task) {
    auto outcome = std::make_shared<Outcome>();
    std::future<bool> ran = outcome->promise.get_future();
    post([outcome, task = std::move(task)] {
        task();
        outcome->ran = true;
    });
    outcome.reset();  // the task alone holds it now
    return ran.get();
}

void Controller::stop() {
    {
        base::AutoLock lock(mMutex);
        mStopping = true;
        mTasks.clear();
    }
    mWake.Broadcast();
    if (mThread.joinable()) mThread.join();
}

void Controller::run() {
    for (;;) {
        std::function<void()> task;
        {
            base::AutoLock lock(mMutex);
            while (!mStopping && mTasks.empty()) mWake.Wait();
            if (mStopping) return;
            task = std::move(mTasks.front());
            mTasks.pop_front();
        }
        task();
    }
}

}  // namespace kelvane::tools::serve
