#include "vel/VelBridgeSupport.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/bind.h"
#include "base/location.h"
#include "base/synchronization/lock.h"
#include "vel/VelHostRegistry.h"

namespace vel {

struct VelBridgeSupport::State {
    mojom::VelBridgeHostPtr host;  // Mojo thread only
};

namespace {

struct Request {
    std::weak_ptr<VelBridgeSupport::State> state;
    android::wp<VelService> service;
    uint32_t version;
};

// Mojo thread: answers one request from a host of `hostVersion`.
void serve(const Request& request, uint32_t hostVersion,
           const VelHostRegistry::Connector& connect) {
    std::shared_ptr<VelBridgeSupport::State> state = request.state.lock();
    if (!state) return;
    android::sp<VelService> service = request.service.promote();
    if (!service) return;
    if (hostVersion < request.version) {
        service->versionMismatch(hostVersion);
        return;
    }
    connect.Run(mojo::MakeRequest(&state->host));
    service->ready(&state->host);
}

class Registry {
  public:
    static Registry& get() {
        static Registry* registry = new Registry();  // outlives every static destructor
        return *registry;
    }

    // Mojo thread.
    void submit(Request request) EXCLUDES(mLock) {
        uint32_t version;
        VelHostRegistry::Connector connect;
        {
            base::AutoLock hold(mLock);
            if (!mConnect) {
                // Requests whose bridge went away while no host was there are dropped, so that
                // a process that keeps creating bridges without a host does not grow this list.
                mWaiting.erase(std::remove_if(mWaiting.begin(), mWaiting.end(),
                                              [](const Request& r) { return r.state.expired(); }),
                               mWaiting.end());
                mWaiting.push_back(std::move(request));
                return;
            }
            version = mVersion;
            connect = mConnect;
        }
        serve(request, version, connect);
    }

    void registerHost(uint32_t version, VelHostRegistry::Connector connect) EXCLUDES(mLock) {
        std::vector<Request> waiting;
        {
            base::AutoLock hold(mLock);
            mVersion = version;
            mConnect = connect;
            waiting.swap(mWaiting);
        }
        if (waiting.empty()) return;
        MojoProcessSupport::GetInstance()->getThread()->getTaskRunner()->PostTask(
            FROM_HERE, base::BindOnce(
                           [](std::vector<Request> requests, uint32_t version,
                              VelHostRegistry::Connector connect) {
                               for (const Request& r : requests) serve(r, version, connect);
                           },
                           std::move(waiting), version, std::move(connect)));
    }

    void unregisterHost() EXCLUDES(mLock) {
        base::AutoLock hold(mLock);
        mConnect.Reset();
    }

  private:
    base::Lock mLock;
    uint32_t mVersion GUARDED_BY(mLock) = 0;
    VelHostRegistry::Connector mConnect GUARDED_BY(mLock);  // null while no host is registered
    std::vector<Request> mWaiting GUARDED_BY(mLock);
};

}  // namespace

void VelHostRegistry::registerHost(uint32_t version, Connector connect) {
    Registry::get().registerHost(version, std::move(connect));
}

void VelHostRegistry::unregisterHost() { Registry::get().unregisterHost(); }

VelBridgeSupport::VelBridgeSupport(MojoProcessSupport* support)
    : mSupport(support), mState(std::make_shared<State>()) {}

VelBridgeSupport::~VelBridgeSupport() {
    scoped_refptr<base::SingleThreadTaskRunner> runner = mSupport->getThread()->getTaskRunner();
    if (runner->RunsTasksInCurrentSequence()) return;  // mState goes here, on the Mojo thread
    // Otherwise the host pointer is released on the Mojo thread (or here if it has stopped).
    runner->PostTask(FROM_HERE, base::BindOnce([](std::shared_ptr<State>) {}, std::move(mState)));
}

void VelBridgeSupport::requestVelBridgeProxyAsync(android::wp<VelService> service,
                                                  uint32_t version) {
    Request request{mState, std::move(service), version};
    mSupport->getThread()->getTaskRunner()->PostTask(
        FROM_HERE, base::BindOnce([](Request r) { Registry::get().submit(std::move(r)); },
                                  std::move(request)));
}

}  // namespace vel
