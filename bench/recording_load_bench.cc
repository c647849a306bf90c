// Loading a long recording: five three-axis sensors with timestamps at 400 Hz for ten minutes
// (1.2 million samples), written in the recorder's format, then read with the description reader
// as `--host FILE` reads it. Reports the load time and the file's bytes per sample.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>

#include "host/emulated/HostDescription.h"

namespace {

constexpr int kDevices = 5;
constexpr int kRateHz = 400;
constexpr int kSeconds = 600;
constexpr int kSamplesPerDevice = kRateHz * kSeconds;

// The text the recorder writes for such a run: send times jitter around 2500 us, raw values of a
// 12-bit accelerometer at rest, boot-time timestamps of a board up for a while.
std::string recordingText() {
    std::mt19937 random(42);
    std::uniform_int_distribution<int> jitter(-150, 150);
    std::uniform_int_distribution<int> noise(-40, 40);
    std::string out = "{\n  \"devices\": [\n";
    for (int d = 0; d < kDevices; ++d) {
        out += std::string(d ? ",\n" : "") + "    {\"id\": " + std::to_string(d) +
               ", \"types\": [1],\n     \"channels\": [\"accel_x\", \"accel_y\", \"accel_z\", "
               "\"timestamp\"],\n     \"attributes\": {\"location\": \"lid\", \"name\": "
               "\"cros-ec-accel\", \"scale\": \"0.0023928226\"},\n     \"frequencyAnswers\": "
               "[[400.0, 400.0]],\n     \"timedSamples\": {\"channels\": [0, 1, 2, 3], "
               "\"samples\": [\n";
        int64_t timestamp = 2583233498094 + d * 1000;
        for (int i = 0; i < kSamplesPerDevice; ++i) {
            const int delta = i == 0 ? 2000000 : 2500 + jitter(random);
            timestamp += delta * 1000LL;
            out += "      [" + std::to_string(delta) + "," + std::to_string(-84 + noise(random)) +
                   "," + std::to_string(-18 + noise(random)) + "," +
                   std::to_string(4156 + noise(random)) + "," + std::to_string(timestamp) +
                   (i + 1 < kSamplesPerDevice ? "],\n" : "]\n");
        }
        out += "     ]}}";
    }
    out += "\n  ],\n  \"timeline\": []\n}\n";
    return out;
}

class RecordingFile {
  public:
    RecordingFile() {
        const std::string text = recordingText();
        char name[] = "/tmp/recording-bench-XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            std::perror("recording bench");
        }
        close(fd);
        path = name;
        bytes = text.size();
    }
    ~RecordingFile() { std::remove(path.c_str()); }

    std::string path;
    size_t bytes = 0;
};

void BM_LoadRecording(benchmark::State& state) {
    static RecordingFile file;
    for (auto _ : state) {
        kelvane::host::HostConfig config;
        std::string error;
        if (!kelvane::host::loadHostDescription(file.path, &config, &error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        benchmark::DoNotOptimize(config);
    }
    const double samples = static_cast<double>(kDevices) * kSamplesPerDevice;
    state.counters["samples"] = samples;
    state.counters["bytes/sample"] = static_cast<double>(file.bytes) / samples;
    state.counters["MB"] = static_cast<double>(file.bytes) / 1e6;
}
BENCHMARK(BM_LoadRecording)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
