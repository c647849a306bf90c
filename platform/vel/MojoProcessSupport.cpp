#include "vel/MojoProcessSupport.h"

namespace vel {

MojoThread::MojoThread() : mThread("MojoThread") { mThread.Start(); }

MojoThread::~MojoThread() { mThread.Stop(); }

scoped_refptr<base::SingleThreadTaskRunner> MojoThread::getTaskRunner() const {
    return mThread.task_runner();
}

namespace {

// How long process exit waits for the Mojo thread's current task.
constexpr base::TimeDelta kExitStopLimit = base::TimeDelta::FromSeconds(2);

}  // namespace

struct MojoProcessSupportHolder {
    ~MojoProcessSupportHolder() {
        if (support->getThread()->stopWithin(kExitStopLimit)) delete support;
    }
    MojoProcessSupport* const support = new MojoProcessSupport();
};

MojoProcessSupport* MojoProcessSupport::GetInstance() {
    static MojoProcessSupportHolder holder;
    return holder.support;
}

}  // namespace vel
