// What a host object hands to the tasks it posts, so that a task that runs after the object went
// or stopped does nothing. A host may share its runner with others (the fuzzer gives it the Mojo
// thread), so its queued and delayed tasks can outlive it there.
//
// end() and guard() on the owner's thread; the tokens of watch() may be copied on any thread and
// are tested where the guarded task runs, the owner's thread.
#pragma once

#include <memory>
#include <utility>

#include "base/bind.h"
#include "base/callback.h"

namespace kelvane::host::common {

using LifetimeToken = std::weak_ptr<const void>;

// `task`, to run only if `token`'s lifetime has not ended by then.
inline base::OnceClosure whileAlive(LifetimeToken token, base::OnceClosure task) {
    return base::BindOnce(
        [](const LifetimeToken& alive, base::OnceClosure t) {
            if (!alive.expired()) std::move(t).Run();
        },
        std::move(token), std::move(task));
}

class Lifetime {
  public:
    LifetimeToken watch() const { return mAlive; }
    base::OnceClosure guard(base::OnceClosure task) const {
        return whileAlive(watch(), std::move(task));
    }
    // Guarded tasks that run from now on do nothing.
    void end() { mAlive.reset(); }

  private:
    std::shared_ptr<const void> mAlive = std::make_shared<char>();
};

}  // namespace kelvane::host::common
