// Heap use: allocations per sample on each path, the allocation balance over ten million samples,
// and the resident size of a process with five sensors streaming. Global operator new and delete
// are replaced in this program, so every allocation of the process is counted, in every library.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "IioSensorDevice.h"
#include "bench/bench_env.h"

namespace {

std::atomic<uint64_t> gAllocations{0};
std::atomic<uint64_t> gFrees{0};
std::atomic<int64_t> gLiveBytes{0};

void* countedAlloc(size_t size, size_t alignment) {
    if (size == 0) size = 1;
    void* p = alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, size)
                                                    : std::malloc(size);
    if (p == nullptr) return nullptr;
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    gLiveBytes.fetch_add(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
    return p;
}

void countedFree(void* p) {
    if (p == nullptr) return;
    gFrees.fetch_add(1, std::memory_order_relaxed);
    gLiveBytes.fetch_sub(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
    std::free(p);
}

void* throwingAlloc(size_t size, size_t alignment) {
    void* p = countedAlloc(size, alignment);
    if (p == nullptr) std::abort();  // nothing here handles exhaustion
    return p;
}

struct Snapshot {
    uint64_t allocations = gAllocations.load();
    uint64_t frees = gFrees.load();
    int64_t liveBytes = gLiveBytes.load();
};

}  // namespace

void* operator new(size_t size) { return throwingAlloc(size, 0); }
void* operator new[](size_t size) { return throwingAlloc(size, 0); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size, 0); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size, 0); }
void* operator new(size_t size, std::align_val_t a) {
    return throwingAlloc(size, static_cast<size_t>(a));
}
void* operator new[](size_t size, std::align_val_t a) {
    return throwingAlloc(size, static_cast<size_t>(a));
}
void operator delete(void* p) noexcept { countedFree(p); }
void operator delete[](void* p) noexcept { countedFree(p); }
void operator delete(void* p, size_t) noexcept { countedFree(p); }
void operator delete[](void* p, size_t) noexcept { countedFree(p); }
void operator delete(void* p, std::align_val_t) noexcept { countedFree(p); }
void operator delete[](void* p, std::align_val_t) noexcept { countedFree(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { countedFree(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { countedFree(p); }

namespace kelvane::bench {
namespace {

using android::hardware::sensors::V2_1::SensorType;

constexpr size_t kBurst = 10000;
constexpr uint64_t kSoakSamples = 10000000;
// Growth of the live heap over the soak beyond which it counts as a leak: a few stray buffers
// (a deque block, a grown log) are fine, anything per sample is not.
constexpr int64_t kSoakGrowthLimitBytes = 256 * 1024;

std::unique_ptr<System>& systemOwner() {
    static std::unique_ptr<System> owner;
    return owner;
}

System& sharedSystem() {
    if (!systemOwner()) {
        systemOwner() = std::make_unique<System>();
        if (!systemOwner()->activate(kAccel)) std::abort();
        systemOwner()->burst(kAccel, kBurst);  // warm: queues and buffers at their working size
    }
    return *systemOwner();
}

// Resident size of a process serving five sensors streaming at 1 kHz each. Runs first, on a
// host of its own that streams by timer.
void BM_ResidentFiveStreaming(benchmark::State& state) {
    for (auto _ : state) {
        QuietLogs quiet;
        const size_t rssStart = residentKiB();
        const Snapshot start;
        auto host = std::make_unique<host::emulated::EmulatedHost>(fiveDevices(true));
        host->registerWithBridge();
        const size_t rssHost = residentKiB();
        const Snapshot withHost;

        android::sp<IioSensorSubHal> subHal = new IioSensorSubHal();
        android::sp<CountingProxyCallback> proxy = new CountingProxyCallback();
        subHal->initialize(proxy);
        size_t published = 0;
        subHal->getSensorsList_2_1(
            [&](const android::hardware::hidl_vec<SensorInfo>& list) { published = list.size(); });
        for (int32_t id : kDeviceIds) {
            subHal->batch(System::handleOf(id), 1000000, 0);  // 1 kHz
            subHal->activate(System::handleOf(id), true);
        }
        const bool streaming =
            host->waitFor([&](const std::vector<kelvane::host::common::HostEvent>&) {
                for (int32_t id : kDeviceIds) {
                    if (!host->streaming(id)) return false;
                }
                return true;
            });
        const uint64_t eventsBefore = proxy->events();
        std::this_thread::sleep_for(std::chrono::seconds(3));
        const uint64_t streamed = proxy->events() - eventsBefore;
        const size_t rssStreaming = residentKiB();
        const Snapshot whileStreaming;

        subHal.clear();
        host.reset();
        if (published != 5 || !streaming) state.SkipWithError("five sensors did not stream");
        state.counters["sensors"] = static_cast<double>(published);
        state.counters["events_per_s"] = static_cast<double>(streamed) / 3.0;
        state.counters["rss_process_kib"] = static_cast<double>(rssStreaming);
        state.counters["rss_host_kib"] = static_cast<double>(rssHost) - rssStart;
        state.counters["rss_subhal_kib"] = static_cast<double>(rssStreaming) - rssHost;
        state.counters["heap_host_kib"] = (withHost.liveBytes - start.liveBytes) / 1024.0;
        state.counters["heap_subhal_kib"] =
            (whileStreaming.liveBytes - withHost.liveBytes) / 1024.0;
    }
}
BENCHMARK(BM_ResidentFiveStreaming)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_AllocsPerSample_Floor(benchmark::State& state) {
    android::sp<CountingProxyCallback> proxy = new CountingProxyCallback();
    std::vector<Event> events(1);
    const Snapshot before;
    for (auto _ : state) {
        events[0].timestamp = static_cast<int64_t>(state.iterations());
        proxy->postEvents(events, proxy->createScopedWakelock(false));
    }
    const Snapshot after;
    state.counters["allocs_per_sample"] =
        static_cast<double>(after.allocations - before.allocations) / state.iterations();
}
BENCHMARK(BM_AllocsPerSample_Floor);

void BM_AllocsPerSample_DevicePath(benchmark::State& state) {
    System& sys = sharedSystem();
    IioSensorDevice device(
        kAccel, 100, *sensors::kindOfAndroidType(static_cast<int32_t>(SensorType::ACCELEROMETER)),
        {1}, &sys.subHal());
    device.onChannelIds({"accel_x", "accel_y", "accel_z", "timestamp"});
    device.onAttributes({std::string("bench"), std::string("0.01"), std::string("lid")});
    device.activate(true);
    base::flat_map<int32_t, int64_t> sample = {{0, 12}, {1, -7}, {2, 981}, {3, 0}};
    device.OnSampleUpdated(sample);  // warm
    const Snapshot before;
    for (auto _ : state) device.OnSampleUpdated(sample);
    const Snapshot after;
    state.counters["allocs_per_sample"] =
        static_cast<double>(after.allocations - before.allocations) / state.iterations();
}
BENCHMARK(BM_AllocsPerSample_DevicePath);

// Host, Mojo, device, sub-HAL: every allocation of the process while samples flow, over the
// samples that arrived.
void BM_AllocsPerSample_EndToEnd(benchmark::State& state) {
    System& sys = sharedSystem();
    uint64_t samples = 0;
    const Snapshot before;
    for (auto _ : state) {
        if (!sys.burst(kAccel, kBurst)) {
            state.SkipWithError("burst did not arrive");
            break;
        }
        samples += kBurst;
    }
    const Snapshot after;
    state.counters["allocs_per_sample"] =
        static_cast<double>(after.allocations - before.allocations) / samples;
    state.SetItemsProcessed(static_cast<int64_t>(samples));
}
BENCHMARK(BM_AllocsPerSample_EndToEnd)->UseRealTime()->Unit(benchmark::kMillisecond);

// Ten million samples end to end: the live heap and the resident size must not grow.
void BM_Soak10MSamples(benchmark::State& state) {
    System& sys = sharedSystem();
    for (auto _ : state) {
        const Snapshot before;
        const size_t rssBefore = residentKiB();
        for (uint64_t sent = 0; sent < kSoakSamples; sent += kBurst) {
            if (!sys.burst(kAccel, kBurst)) {
                state.SkipWithError("burst did not arrive");
                return;
            }
        }
        const Snapshot after;
        const size_t rssAfter = residentKiB();
        const int64_t growth = after.liveBytes - before.liveBytes;
        state.counters["samples"] = static_cast<double>(kSoakSamples);
        state.counters["live_heap_growth_bytes"] = static_cast<double>(growth);
        state.counters["live_allocs_growth"] =
            static_cast<double>(static_cast<int64_t>(after.allocations - after.frees) -
                                static_cast<int64_t>(before.allocations - before.frees));
        state.counters["rss_growth_kib"] = static_cast<double>(rssAfter) - rssBefore;
        if (growth > kSoakGrowthLimitBytes) state.SkipWithError("the live heap grew");
    }
    state.SetItemsProcessed(static_cast<int64_t>(kSoakSamples));
}
BENCHMARK(BM_Soak10MSamples)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace kelvane::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    kelvane::bench::systemOwner().reset();
    benchmark::Shutdown();
    return 0;
}
