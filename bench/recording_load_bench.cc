// A long recording: five three-axis sensors with timestamps at 400 Hz for ten minutes (1.2 million
// samples). Times writing it with the description writer, as the recorder does at the end of a
// run, and reading it with the description reader, as `--host FILE` does. Reports the times and
// the file's bytes per sample.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>

#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"

namespace {

using kelvane::host::description::HostConfig;

constexpr int kDevices = 5;
constexpr int kRateHz = 400;
constexpr int kSeconds = 600;
constexpr int kSamplesPerDevice = kRateHz * kSeconds;

// What the recorder holds after such a run: send times jitter around 2500 us, raw values of a
// 12-bit accelerometer at rest, boot-time timestamps of a board up for a while.
const HostConfig& recording() {
    static const HostConfig config = [] {
        std::mt19937 random(42);
        std::uniform_int_distribution<int> jitter(-150, 150);
        std::uniform_int_distribution<int> noise(-40, 40);
        HostConfig out;
        for (int d = 0; d < kDevices; ++d) {
            kelvane::host::description::VirtualDevice device;
            device.id = d;
            device.types = {1};
            device.channels = {"accel_x", "accel_y", "accel_z", "timestamp"};
            device.attributes = {
                {"location", "lid"}, {"name", "cros-ec-accel"}, {"scale", "0.0023928226"}};
            device.frequencyAnswers = {{400.0, 400.0}};
            auto timed = std::make_shared<kelvane::host::description::TimedSamples>();
            timed->channels = {0, 1, 2, 3};
            int64_t at = 0;
            int64_t timestamp = 2583233498094 + d * 1000;
            for (int i = 0; i < kSamplesPerDevice; ++i) {
                const int delta = i == 0 ? 2000000 : 2500 + jitter(random);
                at += delta;
                timestamp += delta * 1000LL;
                timed->atUs.push_back(at);
                for (int64_t value : {int64_t{-84} + noise(random), int64_t{-18} + noise(random),
                                      int64_t{4156} + noise(random), timestamp}) {
                    timed->values.push_back(value);
                    timed->present.push_back(true);
                }
            }
            device.timedSamples = std::move(timed);
            out.devices.push_back(std::move(device));
        }
        return out;
    }();
    return config;
}

class TempPath {
  public:
    TempPath() {
        char name[] = "/tmp/recording-bench-XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0) std::perror("recording bench");
        close(fd);
        path = name;
    }
    ~TempPath() { std::remove(path.c_str()); }

    std::string path;
};

const TempPath& recordingFile() {
    static const TempPath file = [] {
        TempPath f;
        std::string error;
        if (!kelvane::host::description::saveHostDescription(recording(), f.path, &error)) {
            std::fprintf(stderr, "recording bench: %s\n", error.c_str());
        }
        return f;
    }();
    return file;
}

void counters(benchmark::State& state, const std::string& path) {
    const double samples = static_cast<double>(kDevices) * kSamplesPerDevice;
    std::FILE* file = std::fopen(path.c_str(), "r");
    double bytes = 0;
    if (file != nullptr && std::fseek(file, 0, SEEK_END) == 0) bytes = std::ftell(file);
    if (file != nullptr) std::fclose(file);
    state.counters["samples"] = samples;
    state.counters["bytes/sample"] = bytes / samples;
    state.counters["MB"] = bytes / 1e6;
}

void BM_WriteRecording(benchmark::State& state) {
    const HostConfig& config = recording();
    TempPath file;
    for (auto _ : state) {
        std::string error;
        if (!kelvane::host::description::saveHostDescription(config, file.path, &error)) {
            state.SkipWithError(error.c_str());
            return;
        }
    }
    counters(state, file.path);
}
BENCHMARK(BM_WriteRecording)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_LoadRecording(benchmark::State& state) {
    const std::string& path = recordingFile().path;
    for (auto _ : state) {
        HostConfig config;
        std::string error;
        if (!kelvane::host::description::loadHostDescription(path, &config, &error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        benchmark::DoNotOptimize(config);
    }
    counters(state, path);
}
BENCHMARK(BM_LoadRecording)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
