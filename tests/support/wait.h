// Waiting helpers for tests: block on a condition or on work posted to another thread, with a
// generous upper bound instead of sleeps.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <utility>

#include "base/bind.h"
#include "base/location.h"
#include "base/task_runner.h"

namespace kelvane::testing {

constexpr std::chrono::seconds kWaitLimit{10};

// Runs `fn` on `runner` and waits for it. Returns false if it did not run within the limit.
template <typename Runner>
bool RunAndWait(const Runner& runner, std::function<void()> fn) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> ran = done->get_future();
    runner->PostTask(FROM_HERE,
                     base::BindOnce(
                         [](std::function<void()> f, std::shared_ptr<std::promise<void>> d) {
                             f();
                             d->set_value();
                         },
                         std::move(fn), done));
    return ran.wait_for(kWaitLimit) == std::future_status::ready;
}

// Waits until everything already posted to `runner` has run.
template <typename Runner>
bool Flush(const Runner& runner) {
    return RunAndWait(runner, [] {});
}

// A condition that tests wait on: Set() or Notify() wake every WaitUntil().
class Signal {
  public:
    // Notifies under the lock, so a waiter cannot return and destroy the signal mid-notify.
    void Notify(const std::function<void()>& change = [] {}) {
        std::lock_guard<std::mutex> lock(mMutex);
        change();
        mCv.notify_all();
    }
    // Waits until `pred` (evaluated under the signal's lock) holds; false on timeout.
    bool WaitUntil(const std::function<bool()>& pred) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCv.wait_for(lock, kWaitLimit, pred);
    }
    std::mutex& mutex() { return mMutex; }

  private:
    std::mutex mMutex;
    std::condition_variable mCv;
};

}  // namespace kelvane::testing
