// A process that loads the sub-HAL the way the multi-HAL proxy does, gets it busy and then leaves
// without cleaning up: returning from main or calling exit() while sensors stream, commands wait
// on the Mojo thread, the enumeration check is pending, the host owes replies or the Mojo thread
// is busy for longer than the library waits for it.
//
//   teardown_child <library> <scenario>
//
// Exits 0 when the scenario ran as planned; 2 for a bad command line, 3 when the library did not
// get where the scenario needed it. Whether the exit itself is clean (no hang, no crash, no
// sanitizer report) is for the caller to judge.
#include <HalProxyCallbackBase.h>
#include <V2_1/SubHal.h>
#include <dlfcn.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/bind.h"
#include "base/location.h"
#include "host/description/BuiltInHost.h"
#include "host/emulated/EmulatedHost.h"
#include "vel/MojoProcessSupport.h"

namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase;
using android::hardware::sensors::V2_0::implementation::IScopedWakelockRefCounter;
using android::hardware::sensors::V2_0::implementation::ScopedWakelock;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;
using android::hardware::sensors::V2_1::implementation::ISensorsSubHal;
using kelvane::host::description::HostConfig;
using kelvane::host::emulated::EmulatedHost;

constexpr auto kWaitLimit = std::chrono::seconds(10);
constexpr int64_t kPeriodNs = 1000000;  // 1 kHz
constexpr int kCommandThreads = 4;
constexpr int kCommandsPerThread = 2000;

[[noreturn]] void giveUp(const std::string& why) {
    std::fprintf(stderr, "teardown_child: %s\n", why.c_str());
    std::fflush(stderr);
    std::_Exit(3);
}

ISensorsSubHal* load(const char* path) {
    void* library = dlopen(path, RTLD_NOW);
    if (library == nullptr) giveUp(dlerror());
    auto* entry =
        reinterpret_cast<SensorsHalGetSubHalV2_1Func*>(dlsym(library, "sensorsHalGetSubHal_2_1"));
    if (entry == nullptr) giveUp("no entry point");
    uint32_t version = 0;
    ISensorsSubHal* subHal = entry(&version);
    if (subHal == nullptr ||
        version != android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION) {
        giveUp("not a 2.1 sub-HAL");
    }
    return subHal;
}

// The proxy's side: counts sample events per sensor.
class ProxyCallback : public HalProxyCallbackBase {
  public:
    ProxyCallback() : mCounter(new Counter()) {}

    void postEvents(const std::vector<Event>& events, ScopedWakelock) override {
        std::lock_guard<std::mutex> lock(mMutex);
        for (const Event& e : events) {
            if (e.sensorType != SensorType::META_DATA) ++mEvents[e.sensorHandle];
        }
        mChanged.notify_all();
    }
    ScopedWakelock createScopedWakelock(bool lock) override {
        return makeScopedWakelock(mCounter.get(), lock);
    }

    // Waits until each of `handles` has sent `n` events.
    bool waitForEvents(const std::vector<int32_t>& handles, size_t n) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kWaitLimit, [&] {
            for (int32_t h : handles) {
                if (mEvents[h] < n) return false;
            }
            return true;
        });
    }

  private:
    class Counter : public IScopedWakelockRefCounter {
      public:
        bool incrementRefCountAndMaybeAcquireWakelock(size_t, int64_t*) override { return true; }
        void decrementRefCountAndMaybeReleaseWakelock(size_t, int64_t) override {}
    };

    android::sp<Counter> mCounter;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::map<int32_t, size_t> mEvents;  // guarded by mMutex
};

std::vector<int32_t> publishedHandles(ISensorsSubHal* subHal) {
    std::vector<int32_t> handles;
    subHal->getSensorsList_2_1([&](const hidl_vec<SensorInfo>& list) {
        for (const SensorInfo& info : list) handles.push_back(info.sensorHandle);
    });
    if (handles.empty()) giveUp("no sensors published");
    return handles;
}

// Every sensor at 1 kHz, until each has delivered some events.
void stream(ISensorsSubHal* subHal, ProxyCallback* callback) {
    const std::vector<int32_t> handles = publishedHandles(subHal);
    for (int32_t h : handles) {
        subHal->batch(h, kPeriodNs, 0);
        subHal->activate(h, true);
    }
    if (!callback->waitForEvents(handles, 20)) giveUp("the sensors did not stream");
}

// Floods the Mojo thread with routing tasks from several binder threads and returns without
// waiting for them to run.
void queueCommands(ISensorsSubHal* subHal) {
    const std::vector<int32_t> handles = publishedHandles(subHal);
    std::vector<std::thread> threads;
    for (int t = 0; t < kCommandThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCommandsPerThread; ++i) {
                const int32_t h = handles[static_cast<size_t>(i + t) % handles.size()];
                if (i % 3 == 2) {
                    subHal->batch(h, kPeriodNs * (1 + i % 4), 0);
                } else {
                    subHal->activate(h, i % 3 == 0);
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
}

// Devices that leave replies outstanding: one never opens, one never answers its attributes.
HostConfig stallingHost() {
    HostConfig config = kelvane::host::description::builtInHost();
    if (config.devices.size() < 2) giveUp("the built-in host is too small");
    config.devices[0].stall = kelvane::host::description::Stall::kDevice;
    config.devices[1].stall = kelvane::host::description::Stall::kAttributes;
    return config;
}

// Waits until the host has seen the library open every device, so that the enumeration check
// is pending and the stalled replies are owed.
void awaitSetup(EmulatedHost* host, const HostConfig& config) {
    for (const auto& d : config.devices) {
        using kelvane::host::common::HostStep;
        const HostStep step = d.stall == kelvane::host::description::Stall::kDevice
                                  ? HostStep::kGetDevice
                                  : HostStep::kGetAttributes;
        const auto asked = kelvane::host::common::HostEventPattern(
                               kelvane::host::common::HostEventKind::kStepAsked, d.id)
                               .withStep(step);
        if (!host->waitForEvent(asked)) {
            giveUp("the host never saw device " + std::to_string(d.id) + " asked for its setup");
        }
    }
}

// Occupies the Mojo thread for `how_long` and returns once it is occupied.
void blockMojoThread(std::chrono::seconds how_long) {
    auto started = std::make_shared<std::promise<void>>();
    std::future<void> running = started->get_future();
    vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner()->PostTask(
        FROM_HERE, base::BindOnce(
                       [](std::shared_ptr<std::promise<void>> s, std::chrono::seconds d) {
                           s->set_value();
                           std::this_thread::sleep_for(d);  // the busy task under test
                       },
                       started, how_long));
    if (running.wait_for(kWaitLimit) != std::future_status::ready) giveUp("Mojo thread busy");
}

// Stands in for a real host, which outlives this process: never destroyed.
EmulatedHost* gHost = nullptr;

EmulatedHost* startHost(HostConfig config) {
    gHost = new EmulatedHost(std::move(config));
    gHost->registerWithBridge();
    return gHost;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: teardown_child <library> <scenario>\n");
        return 2;
    }
    const std::string scenario = argv[2];

    if (scenario == "return-streaming" || scenario == "exit-streaming" ||
        scenario == "exit-from-binder-thread") {
        // In the first the host goes with main's locals, before the library's statics; in the
        // others it is still serving while they are destroyed.
        std::unique_ptr<EmulatedHost> local;
        EmulatedHost* host = startHost(kelvane::host::description::builtInHost());
        if (scenario == "return-streaming") local.reset(host);
        ISensorsSubHal* subHal = load(argv[1]);
        android::sp<ProxyCallback> callback = new ProxyCallback();
        subHal->initialize(callback);
        stream(subHal, callback.get());
        queueCommands(subHal);
        if (scenario == "exit-streaming") std::exit(0);
        if (scenario == "exit-from-binder-thread") {
            std::thread([] { std::exit(0); }).detach();
            std::mutex mutex;
            std::condition_variable never;
            std::unique_lock<std::mutex> lock(mutex);
            for (;;) never.wait(lock);  // the exit ends this thread too
        }
        return 0;
    }
    if (scenario == "return-pending" || scenario == "exit-pending") {
        const HostConfig config = stallingHost();
        std::unique_ptr<EmulatedHost> local(startHost(config));
        ISensorsSubHal* subHal = load(argv[1]);
        android::sp<ProxyCallback> callback = new ProxyCallback();
        subHal->initialize(callback);
        awaitSetup(local.get(), config);
        if (scenario == "exit-pending") {
            local.release();  // still serving during exit
            std::exit(0);
        }
        return 0;
    }
    if (scenario == "exit-mojo-blocked" || scenario == "exit-mojo-stuck") {
        // The Mojo thread is busy past the library's 10 s wait at exit, with samples and
        // commands queued behind it: for 11 s (it comes back while the process is exiting and
        // releases the bridge then), or for good.
        EmulatedHost* host = startHost(kelvane::host::description::builtInHost());
        (void)host;
        ISensorsSubHal* subHal = load(argv[1]);
        android::sp<ProxyCallback> callback = new ProxyCallback();
        subHal->initialize(callback);
        stream(subHal, callback.get());
        blockMojoThread(scenario == "exit-mojo-blocked" ? std::chrono::seconds(11)
                                                        : std::chrono::hours(24));
        queueCommands(subHal);
        std::exit(0);
    }
    if (scenario == "exit-without-host") {
        ISensorsSubHal* subHal = load(argv[1]);
        android::sp<ProxyCallback> callback = new ProxyCallback();
        subHal->initialize(callback);
        subHal->activate(1, true);  // nothing is published: refused
        std::exit(0);
    }
    std::fprintf(stderr, "unknown scenario %s\n", scenario.c_str());
    return 2;
}
