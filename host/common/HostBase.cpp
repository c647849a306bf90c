#include "host/common/HostBase.h"

#include <future>
#include <utility>

#include "base/bind.h"
#include "base/location.h"

namespace kelvane::host::common {

HostBase::HostBase(const char* threadName, uint32_t bridgeVersion, bool autoSetUpChannel,
                   scoped_refptr<base::SingleThreadTaskRunner> runner)
    : mThread(threadName),
      mRunner(runner ? std::move(runner) : mThread.task_runner()),
      mConnection(
          bridgeVersion, &mLog, mRunner,
          [this](chromeos::sensors::mojom::SensorServiceRequest request) {
              bindService(std::move(request));
          },
          autoSetUpChannel) {
    if (mRunner == mThread.task_runner()) mThread.Start();
}

HostBase::~HostBase() { stop(); }

void HostBase::registerWithBridge() { mConnection.registerWithBridge(); }

void HostBase::setServiceInterposer(HostConnection::ServiceInterposer interposer) {
    mConnection.setServiceInterposer(std::move(interposer));
}

void HostBase::stop() {
    if (mStopped) return;
    mStopped = true;
    mConnection.unregister();
    if (mRunner->BelongsToCurrentThread()) {
        teardown();
    } else {
        std::promise<void> done;
        std::future<void> tornDown = done.get_future();
        const bool posted =
            mRunner->PostTask(FROM_HERE, base::BindOnce(
                                             [](HostBase* host, std::promise<void>* d) {
                                                 host->teardown();
                                                 d->set_value();
                                             },
                                             this, &done));
        if (posted) tornDown.wait();
    }
    mThread.Stop();
}

void HostBase::teardown() {
    // The connection first: what goes through a recorder is closed before the devices, so
    // closing them is not recorded as the host's doing.
    mConnection.shutDown();
    closeDevices();
}

}  // namespace kelvane::host::common
