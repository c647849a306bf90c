// What every host backend is made of: its thread and task runner, its event log, the connection
// with the container (with the service interposer a recorder uses) and a teardown that cannot
// hang. A backend adds only its devices: it binds the services the connection hands the client
// and closes what it opened when the host stops.
#pragma once

#include <cstdint>

#include "base/single_thread_task_runner.h"
#include "base/threading/thread.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/Host.h"
#include "host/common/HostConnection.h"
#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

class HostBase : public Host {
  public:
    // Stops the host if the backend did not (see stop()).
    ~HostBase() override;
    HostBase(const HostBase&) = delete;
    HostBase& operator=(const HostBase&) = delete;

    // Offers this host to the process's container bridge. Any thread.
    void registerWithBridge() override;
    void setServiceInterposer(HostConnection::ServiceInterposer interposer) override;
    const HostEventLog& log() const override { return mLog; }

  protected:
    // Starts the host thread `threadName`, or runs on `runner` when one is given: that runner must
    // run tasks until the host has stopped. Does not register yet.
    HostBase(const char* threadName, uint32_t bridgeVersion, bool autoSetUpChannel,
             scoped_refptr<base::SingleThreadTaskRunner> runner = nullptr);

    // Host thread: binds a new SensorService of the backend on `request`.
    virtual void bindService(chromeos::sensors::mojom::SensorServiceRequest request) = 0;
    // Host thread, once, after the connection closed its endpoints: closes and drops everything
    // the backend opened.
    virtual void closeDevices() = 0;

    // The backend's destructor calls this first, while its own members still live. Unregisters,
    // runs the teardown (the connection, then closeDevices()) on the host thread and waits for it,
    // then stops the host thread. Run on the host thread itself, the teardown runs at once rather
    // than wait for a task that would never run; a runner that no longer takes tasks has nothing
    // left to tear down. Idempotent; any thread but the one running a given runner's tasks.
    void stop();

    HostEventLog mLog;  // written on the host thread(s), read anywhere
    base::Thread mThread;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    HostConnection mConnection;  // used on the host thread

  private:
    void teardown();

    bool mStopped = false;  // the thread calling stop() only
};

}  // namespace kelvane::host::common
