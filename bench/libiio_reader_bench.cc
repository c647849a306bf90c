// The libiio host's reader on a buffered accelerometer streaming at 1 kHz (a umockdev testbed
// plays one scan a millisecond; run under umockdev-wrapper): CPU time of the reader thread per
// sample, and reads against samples, which shows one read per refill rather than per sample.
#include <iio.h>
#include <time.h>
#include <umockdev.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "host/libiio/SampleReader.h"

namespace {

using kelvane::host::iio::Sample;
using kelvane::host::iio::SampleReader;

constexpr int kScans = 3000;
constexpr size_t kScansPerRead = 20;  // what the host picks at 1 kHz

const char kDevice[] =
    "P: /devices/platform/bench/iio:device0\nN: iio:device0\nE: SUBSYSTEM=iio\n"
    "E: DEVNAME=/dev/iio:device0\nA: name=bench\\n\nA: in_accel_x_raw=0\\n\n"
    "A: in_accel_y_raw=0\\n\nA: in_accel_z_raw=0\\n\n"
    "A: scan_elements/in_accel_x_en=0\\n\nA: scan_elements/in_accel_x_index=0\\n\n"
    "A: scan_elements/in_accel_x_type=le:s16/16>>0\\n\n"
    "A: scan_elements/in_accel_y_en=0\\n\nA: scan_elements/in_accel_y_index=1\\n\n"
    "A: scan_elements/in_accel_y_type=le:s16/16>>0\\n\n"
    "A: scan_elements/in_accel_z_en=0\\n\nA: scan_elements/in_accel_z_index=2\\n\n"
    "A: scan_elements/in_accel_z_type=le:s16/16>>0\\n\n"
    "A: scan_elements/in_timestamp_en=0\\n\nA: scan_elements/in_timestamp_index=3\\n\n"
    "A: scan_elements/in_timestamp_type=le:s64/64>>0\\n\nA: buffer/enable=0\\n\n"
    "A: buffer/length=0\\n\n";

std::string escape(const unsigned char* bytes, size_t n) {
    std::string out;
    for (size_t i = 0; i < n; ++i) {
        if (bytes[i] < 32) {
            out += '^';
            out += static_cast<char>(bytes[i] + 64);
        } else if (bytes[i] == '^') {
            out += "^`";
        } else {
            out += static_cast<char>(bytes[i]);
        }
    }
    return out;
}

}  // namespace

int main() {
    UMockdevTestbed* testbed = umockdev_testbed_new();
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed, kDevice, &error)) {
        std::fprintf(stderr, "testbed: %s (run under umockdev-wrapper)\n", error->message);
        return 1;
    }
    const std::string script = "/tmp/libiio-reader-bench.script";
    {
        std::ofstream out(script, std::ios::binary);
        for (int i = 0; i < kScans; ++i) {
            unsigned char scan[16] = {};
            scan[0] = static_cast<unsigned char>(i);
            scan[8] = static_cast<unsigned char>(i);
            out << "r 1 " << escape(scan, sizeof(scan)) << "\n";  // one scan a millisecond
        }
    }
    if (!umockdev_testbed_load_script(testbed, "/dev/iio:device0", script.c_str(), &error)) {
        std::fprintf(stderr, "script: %s\n", error->message);
        return 1;
    }
    iio_context* context = iio_create_local_context();
    iio_device* device = iio_context_find_device(context, "iio:device0");
    std::vector<SampleReader::Channel> channels;
    for (int i = 0; i < 4; ++i) channels.push_back({i, iio_device_get_channel(device, i)});

    std::mutex mutex;
    std::condition_variable done;
    size_t received = 0;
    double cpuNs = 0;
    const auto start = std::chrono::steady_clock::now();
    int failure = 0;
    auto reader = SampleReader::startBuffered(
        device, channels, kScansPerRead,
        [&](std::vector<Sample> samples) {
            timespec cpu{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
            std::lock_guard<std::mutex> lock(mutex);
            received += samples.size();
            cpuNs = cpu.tv_sec * 1e9 + cpu.tv_nsec;
            done.notify_all();
        },
        [&](int e) {
            std::lock_guard<std::mutex> lock(mutex);
            failure = e;
            done.notify_all();
        },
        &failure);
    if (!reader) {
        std::fprintf(stderr, "no buffer: errno %d\n", failure);
        return 1;
    }
    const size_t wanted = kScans - kScans % kScansPerRead;
    {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait_for(lock, std::chrono::seconds(60),
                      [&] { return received >= wanted || failure != 0; });
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const uint64_t reads = reader->reads(), samples = reader->samples();
    reader.reset();
    std::printf("samples %llu in %.2f s (%.0f Hz), reads %llu (%.1f samples per read)\n",
                static_cast<unsigned long long>(samples), seconds, samples / seconds,
                static_cast<unsigned long long>(reads), reads ? double(samples) / reads : 0.0);
    std::printf("reader thread CPU: %.0f ns per sample\n", samples ? cpuNs / samples : 0.0);
    iio_context_destroy(context);
    g_object_unref(testbed);
    std::remove(script.c_str());
    return samples >= wanted ? 0 : 1;
}
