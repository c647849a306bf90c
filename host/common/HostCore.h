// What every host backend is made of: its thread and task runner, its event log, the connection
// with the container (with the service interposer a recorder uses) and a teardown that cannot
// hang. A backend owns one HostCore and adds only its devices: it binds the services the
// connection hands the client and closes what it opened when the host stops.
#pragma once

#include <cstdint>

#include "base/single_thread_task_runner.h"
#include "base/threading/thread.h"
#include "hardware/sensors/mojom/sensor.mojom.h"
#include "host/common/HostConnection.h"
#include "host/common/HostEventLog.h"

namespace kelvane::host::common {

class HostCore {
  public:
    // What the backend does for the core, on the host thread only.
    class Devices {
      public:
        // Binds a new SensorService of the backend on `request`.
        virtual void bindService(chromeos::sensors::mojom::SensorServiceRequest request) = 0;
        // Once, after the connection closed its endpoints: closes and drops everything the
        // backend opened.
        virtual void closeDevices() = 0;

      protected:
        ~Devices() = default;
    };

    // Starts the host thread `threadName`, or runs on `runner` when one is given: that runner must
    // run tasks until the core is destroyed, on a thread other than the one that destroys it.
    // Does not register yet. `devices` is the backend that owns this core: it declares the core
    // as its last member, so that the core is destroyed, and the host stopped, while everything
    // the backend's devices use still lives.
    HostCore(const char* threadName, uint32_t bridgeVersion, bool autoSetUpChannel,
             Devices& devices, scoped_refptr<base::SingleThreadTaskRunner> runner = nullptr);
    // Unregisters, runs the teardown (the connection, then Devices::closeDevices()) on the host
    // thread and waits for it, then stops the host thread. Run on the host thread itself, the
    // teardown runs at once rather than wait for a task that would never run; a runner that no
    // longer takes tasks has nothing left to tear down.
    ~HostCore();
    HostCore(const HostCore&) = delete;
    HostCore& operator=(const HostCore&) = delete;

    // Offers the host to the process's container bridge. Any thread.
    void registerWithBridge() { mConnection.registerWithBridge(); }
    // Before registerWithBridge(): see HostConnection::ServiceInterposer.
    void setServiceInterposer(HostConnection::ServiceInterposer interposer);

    // Written on the host thread(s), read anywhere.
    HostEventLog& log() { return mLog; }
    const HostEventLog& log() const { return mLog; }
    // Runs the host's tasks until the core is destroyed.
    const scoped_refptr<base::SingleThreadTaskRunner>& runner() const { return mRunner; }
    // Host thread only.
    HostConnection& connection() { return mConnection; }

  private:
    void teardown();

    Devices& mDevices;
    HostEventLog mLog;
    base::Thread mThread;
    const scoped_refptr<base::SingleThreadTaskRunner> mRunner;
    HostConnection mConnection;  // host thread
};

}  // namespace kelvane::host::common
