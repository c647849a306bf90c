#include "host/common/HostCore.h"

#include <future>
#include <utility>

#include "base/bind.h"
#include "base/location.h"

namespace kelvane::host::common {

HostCore::HostCore(const char* threadName, uint32_t bridgeVersion, bool autoSetUpChannel,
                   Devices& devices, scoped_refptr<base::SingleThreadTaskRunner> runner)
    : mDevices(devices),
      mThread(threadName),
      mRunner(runner ? std::move(runner) : mThread.task_runner()),
      mConnection(
          bridgeVersion, &mLog, mRunner,
          [this](chromeos::sensors::mojom::SensorServiceRequest request) {
              mDevices.bindService(std::move(request));
          },
          autoSetUpChannel) {
    if (mRunner == mThread.task_runner()) mThread.Start();
}

HostCore::~HostCore() {
    mConnection.unregister();
    if (mRunner->BelongsToCurrentThread()) {
        teardown();
    } else {
        std::promise<void> done;
        std::future<void> tornDown = done.get_future();
        const bool posted =
            mRunner->PostTask(FROM_HERE, base::BindOnce(
                                             [](HostCore* core, std::promise<void>* d) {
                                                 core->teardown();
                                                 d->set_value();
                                             },
                                             this, &done));
        if (posted) tornDown.wait();
    }
    mThread.Stop();
}

void HostCore::setServiceInterposer(HostConnection::ServiceInterposer interposer) {
    mConnection.setServiceInterposer(std::move(interposer));
}

void HostCore::teardown() {
    // The connection first: what goes through a recorder is closed before the devices, so
    // closing them is not recorded as the host's doing.
    mConnection.shutDown();
    mDevices.closeDevices();
}

}  // namespace kelvane::host::common
