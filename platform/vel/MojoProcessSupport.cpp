#include "vel/MojoProcessSupport.h"

namespace vel {

MojoThread::MojoThread() : mThread("MojoThread") { mThread.Start(); }

MojoThread::~MojoThread() { mThread.Stop(); }

scoped_refptr<base::SingleThreadTaskRunner> MojoThread::getTaskRunner() const {
    return mThread.task_runner();
}

struct MojoProcessSupportHolder {
    MojoProcessSupport support;
};

MojoProcessSupport* MojoProcessSupport::GetInstance() {
    static MojoProcessSupportHolder holder;
    return &holder.support;
}

}  // namespace vel
