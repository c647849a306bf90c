// Timing benchmarks of the sample path and the command path. After the usual table it prints a
// summary: each sample path next to the floor (one event straight into the proxy callback).
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "IioSensorDevice.h"
#include "bench/bench_env.h"

namespace kelvane::bench {
namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V2_1::SensorType;

constexpr size_t kBurst = 10000;  // samples per end-to-end iteration

std::unique_ptr<System>& systemOwner() {
    static std::unique_ptr<System> owner;
    return owner;
}

System& sharedSystem() {
    if (!systemOwner()) systemOwner() = std::make_unique<System>();
    return *systemOwner();
}

// The least a sample can cost: one event built and handed to the proxy with a wake lock.
void BM_Floor(benchmark::State& state) {
    android::sp<CountingProxyCallback> proxy = new CountingProxyCallback();
    std::vector<Event> events(1);
    int64_t t = 0;
    for (auto _ : state) {
        Event& event = events[0];
        std::memset(&event.u, 0, sizeof(event.u));
        event.timestamp = ++t;
        event.sensorHandle = 1;
        event.sensorType = SensorType::ACCELEROMETER;
        event.u.vec3.x = 1.0f;
        proxy->postEvents(events, proxy->createScopedWakelock(false));
    }
    benchmark::DoNotOptimize(proxy->events());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Floor);

// One sample through IioSensorDevice::OnSampleUpdated and the sub-HAL into the proxy callback.
void devicePath(benchmark::State& state, SensorType type) {
    System& sys = sharedSystem();
    const bool light = type == SensorType::LIGHT;
    const uint64_t before = sys.proxy().events();
    // On the Mojo thread, where devices are made, run and destroyed (they check it).
    runOnMojoThread([&] {
        IioSensorDevice device(light ? kLight : kAccel, 100,
                               *sensors::kindOfAndroidType(static_cast<int32_t>(type)),
                               {light ? 3 : 1}, &sys.subHal());
        if (light) {
            device.onChannelIds({"illuminance", "timestamp"});
        } else {
            device.onChannelIds({"accel_x", "accel_y", "accel_z", "timestamp"});
        }
        device.onAttributes({std::string("bench"), std::string("0.01"), std::string("lid")});
        device.activate(true);  // unconnected: only marks it active
        base::flat_map<int32_t, int64_t> sample;
        if (light) {
            sample = {{0, 500}, {1, 0}};
        } else {
            sample = {{0, 12}, {1, -7}, {2, 981}, {3, 0}};
        }
        const int32_t tsIndex = light ? 1 : 3;
        int64_t t = 0;
        for (auto _ : state) {
            sample.find(tsIndex)->second = ++t;
            device.OnSampleUpdated(sample);
        }
    });
    if (sys.proxy().events() - before != static_cast<uint64_t>(state.iterations())) {
        state.SkipWithError("events lost on the device path");
    }
    state.SetItemsProcessed(state.iterations());
}
void BM_DevicePath_ThreeAxis(benchmark::State& state) {
    devicePath(state, SensorType::ACCELEROMETER);
}
void BM_DevicePath_Light(benchmark::State& state) { devicePath(state, SensorType::LIGHT); }
BENCHMARK(BM_DevicePath_ThreeAxis);
BENCHMARK(BM_DevicePath_Light);

// The host emitting as fast as it can, through the in-process Mojo and the Mojo thread, the
// device and the sub-HAL, to the proxy callback. Items per second is samples per second.
void BM_EndToEnd(benchmark::State& state) {
    System& sys = sharedSystem();
    static bool active = sys.activate(kAccel);
    if (!active) {
        state.SkipWithError("accelerometer did not start");
        return;
    }
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    for (auto _ : state) {
        if (!sys.burst(kAccel, kBurst)) {
            state.SkipWithError("burst did not arrive");
            break;
        }
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const double samples = static_cast<double>(state.iterations()) * kBurst;
    // Every thread's waits that gave up the core: a wake-up per message would show here.
    state.counters["switches_per_sample"] =
        static_cast<double>(after.ru_nvcsw - before.ru_nvcsw) / samples;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBurst));
}
BENCHMARK(BM_EndToEnd)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Per-call latency of a command on the caller's thread: median and 99th percentile as counters.
template <typename Call>
void commandLatency(benchmark::State& state, Call call, bool stallMojoThread) {
    System& sys = sharedSystem();
    std::vector<double> nanos;
    nanos.reserve(static_cast<size_t>(state.max_iterations));
    std::unique_ptr<MojoThreadStall> stall;
    if (stallMojoThread) stall = std::make_unique<MojoThreadStall>();
    int64_t i = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const bool ok = call(sys, i++);
        const auto end = std::chrono::steady_clock::now();
        const double ns = std::chrono::duration<double, std::nano>(end - start).count();
        nanos.push_back(ns);
        state.SetIterationTime(ns * 1e-9);
        if (!ok) {
            state.SkipWithError("command refused");
            break;
        }
        // Let the Mojo thread and the host catch up now and then, outside the measurement.
        if (!stallMojoThread && i % 256 == 0) flushMojoThread();
    }
    stall.reset();
    flushMojoThread();
    if (nanos.empty()) return;
    std::sort(nanos.begin(), nanos.end());
    state.counters["median_ns"] = nanos[nanos.size() / 2];
    state.counters["p99_ns"] = nanos[nanos.size() * 99 / 100];
    state.counters["max_ns"] = nanos.back();
}

bool activateCall(System& sys, int64_t i) {
    return sys.subHal().activate(System::handleOf(kGyro), i % 2 == 0) ==
           IioSensorSubHal::Result::OK;
}
bool batchCall(System& sys, int64_t i) {
    return sys.subHal().batch(System::handleOf(kMagn), i % 2 == 0 ? 20000000 : 10000000, 0) ==
           IioSensorSubHal::Result::OK;
}

void BM_Activate(benchmark::State& state) { commandLatency(state, activateCall, false); }
void BM_Batch(benchmark::State& state) { commandLatency(state, batchCall, false); }
// The Mojo thread blocked throughout: the commands still return at once.
void BM_Activate_MojoThreadStalled(benchmark::State& state) {
    commandLatency(state, activateCall, true);
}
void BM_Batch_MojoThreadStalled(benchmark::State& state) { commandLatency(state, batchCall, true); }
BENCHMARK(BM_Activate)->UseManualTime()->Iterations(20000);
BENCHMARK(BM_Batch)->UseManualTime()->Iterations(20000);
BENCHMARK(BM_Activate_MojoThreadStalled)->UseManualTime()->Iterations(2000);
BENCHMARK(BM_Batch_MojoThreadStalled)->UseManualTime()->Iterations(2000);

// The published list of five sensors, handed out again.
void BM_GetSensorsList(benchmark::State& state) {
    System& sys = sharedSystem();
    size_t count = 0;
    for (auto _ : state) {
        sys.subHal().getSensorsList_2_1(
            [&count](const hidl_vec<SensorInfo>& list) { count = list.size(); });
    }
    if (count != 5) state.SkipWithError("expected five sensors");
    state.counters["sensors"] = static_cast<double>(count);
}
BENCHMARK(BM_GetSensorsList);

// Prints the usual table, then the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            // With repetitions, the median stands for the benchmark.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            Result& r = mResults[median ? run.run_name.str() : run.benchmark_name()];
            r.realNs = run.GetAdjustedRealTime() * scaleToNs(run.time_unit);
            for (const auto& [name, counter] : run.counters) r.counters[name] = counter.value;
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        auto& out = GetOutputStream();
        if (mResults.empty()) return;
        const double floor = nsPerItem("BM_Floor");
        char line[160];
        out << "\nSummary\n";
        auto path = [&](const char* label, const std::string& name) {
            const double ns = nsPerItem(name);
            if (ns <= 0) return;
            if (floor > 0) {
                std::snprintf(line, sizeof(line), "  %-34s %10.1f ns/sample  %8.2fx floor\n", label,
                              ns, ns / floor);
            } else {
                std::snprintf(line, sizeof(line), "  %-34s %10.1f ns/sample\n", label, ns);
            }
            out << line;
        };
        path("floor (event -> proxy)", "BM_Floor");
        path("device path, three-axis", "BM_DevicePath_ThreeAxis");
        path("device path, light", "BM_DevicePath_Light");
        const std::string e2e = findPrefix("BM_EndToEnd");
        path("end to end", e2e);
        if (nsPerItem(e2e) > 0) {
            std::snprintf(line, sizeof(line), "  %-34s %10.0f samples/s\n", "end-to-end throughput",
                          1e9 / nsPerItem(e2e));
            out << line;
        }
        for (const char* name : {"BM_Activate", "BM_Batch", "BM_Activate_MojoThreadStalled",
                                 "BM_Batch_MojoThreadStalled"}) {
            const std::string key = findPrefix(name);
            if (key.empty()) continue;
            const Result& r = mResults[key];
            std::snprintf(line, sizeof(line), "  %-34s median %7.0f ns  p99 %7.0f ns\n", name,
                          counter(r, "median_ns"), counter(r, "p99_ns"));
            out << line;
        }
        const std::string list = findPrefix("BM_GetSensorsList");
        if (!list.empty()) {
            std::snprintf(line, sizeof(line), "  %-34s %10.0f ns/call\n",
                          "getSensorsList_2_1 (published)", mResults[list].realNs);
            out << line;
        }
    }

  private:
    struct Result {
        double realNs = 0;
        std::map<std::string, double> counters;
    };

    static double scaleToNs(benchmark::TimeUnit unit) {
        switch (unit) {
            case benchmark::kSecond:
                return 1e9;
            case benchmark::kMillisecond:
                return 1e6;
            case benchmark::kMicrosecond:
                return 1e3;
            default:
                return 1.0;
        }
    }
    static double counter(const Result& r, const char* name) {
        auto it = r.counters.find(name);
        return it == r.counters.end() ? 0.0 : it->second;
    }
    // Benchmark names carry suffixes such as "/min_time:2.000/real_time".
    std::string findPrefix(const std::string& prefix) const {
        for (const auto& [name, result] : mResults) {
            if (name == prefix || name.rfind(prefix + "/", 0) == 0) return name;
        }
        return "";
    }
    // Real time per item: end to end processes kBurst samples per iteration.
    double nsPerItem(const std::string& name) const {
        auto it = mResults.find(name);
        if (it == mResults.end()) return 0;
        const double perIteration = it->second.realNs;
        return name.rfind("BM_EndToEnd", 0) == 0 ? perIteration / kBurst : perIteration;
    }

    std::map<std::string, Result> mResults;
};

}  // namespace
}  // namespace kelvane::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    kelvane::bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    kelvane::bench::systemOwner().reset();
    benchmark::Shutdown();
    return 0;
}
