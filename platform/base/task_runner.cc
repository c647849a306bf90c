#include "base/task_runner.h"

#include "base/threading/thread.h"

namespace base {

bool TaskRunner::PostTask(const Location& from_here, OnceClosure task) {
    return PostDelayedTask(from_here, std::move(task), TimeDelta());
}

}  // namespace base
