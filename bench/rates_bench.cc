// What streaming at the rates devices really run costs: CPU time and wake-ups per event, and how
// late an event reaches the proxy, for five sensors streaming from the host's timer.
//
// Each load is measured three ways in one process, side by side:
//  - floor: a timer thread wakes on the same schedule as the host and hands each sample to a
//    second thread, which posts it to the proxy callback: one timer wake-up and one cross-thread
//    hand-off per sample, nothing else;
//  - sub-HAL: the emulated host streams through the in-process Mojo into IioSensorSubHal and a
//    counting proxy callback;
//  - tool (optional): iio-subhal streaming the same load as a child process, its stdout (text,
//    then JSON) read by this process.
//
//   iio_rates_bench [--seconds S] [--runs N] [--tool PATH | --no-tool]
//
// Figures are medians over the runs. Latency is from the sample's timestamp, taken by the host
// just before it sends the sample, to postEvents (for the tool: to this process reading the line).
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "base/bind.h"
#include "base/location.h"
#include "base/threading/thread.h"
#include "base/time/time.h"
#include "bench/bench_env.h"
#include "bench/thread_usage.h"

extern char** environ;

namespace kelvane::bench {
namespace {

using android::hardware::sensors::V2_1::SensorType;
using Clock = std::chrono::steady_clock;

// Let timers and queues settle after sensors start before measuring.
constexpr auto kWarmUp = std::chrono::milliseconds(500);

struct Stream {
    int32_t device;  // host device id; the sub-HAL handle is the same number
    double hz;
};

struct Load {
    std::string name;
    std::vector<Stream> streams;
    bool withTool;
    double eventsPerSecond() const {
        double total = 0;
        for (const Stream& s : streams) total += s.hz;
        return total;
    }
};

// Latencies of the events posted while recording is on, in nanoseconds. Storage is made once,
// so recording allocates nothing on the path it measures.
class LatencyLog {
  public:
    LatencyLog() : mValues(1 << 21) {}
    void start() {
        mCount.store(0, std::memory_order_relaxed);
        mOn.store(true, std::memory_order_release);
    }
    // Returns once no add() is still writing.
    void stop() {
        mOn.store(false, std::memory_order_seq_cst);
        while (mWriters.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    }
    // Any one thread at a time.
    void add(int64_t ns) {
        mWriters.fetch_add(1, std::memory_order_seq_cst);
        if (mOn.load(std::memory_order_seq_cst)) {
            const size_t i = mCount.fetch_add(1, std::memory_order_relaxed);
            if (i < mValues.size()) mValues[i] = ns;
        }
        mWriters.fetch_sub(1, std::memory_order_release);
    }
    // After stop(): the recorded values, sorted.
    std::vector<int64_t> sorted() const {
        const size_t n = std::min(mCount.load(std::memory_order_acquire), mValues.size());
        std::vector<int64_t> values(mValues.begin(), mValues.begin() + static_cast<ptrdiff_t>(n));
        std::sort(values.begin(), values.end());
        return values;
    }

  private:
    std::vector<int64_t> mValues;
    std::atomic<size_t> mCount{0};
    std::atomic<bool> mOn{false};
    std::atomic<int> mWriters{0};
};

class RecordingProxyCallback : public CountingProxyCallback {
  public:
    explicit RecordingProxyCallback(LatencyLog* log) : mLog(log) {}
    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override {
        const int64_t now = android::elapsedRealtimeNano();
        for (const Event& event : events) mLog->add(now - event.timestamp);
        CountingProxyCallback::postEvents(events, std::move(wakelock));
    }

  private:
    LatencyLog* const mLog;
};

// One run of one way of delivering a load.
struct Figures {
    double events = 0;
    double cpuUs = 0;        // per event, whole process
    double timerCpuUs = 0;   // per event: the host thread (floor: the timer thread)
    double recvCpuUs = 0;    // per event: the Mojo thread (floor: the hand-off thread)
    double restCpuUs = 0;    // per event: every other thread
    double wakeups = 0;      // voluntary switches per event, whole process
    double recvWakeups = 0;  // the same, Mojo thread (floor: hand-off thread)
    double p50Us = 0;
    double p99Us = 0;
    double maxUs = 0;
};

Figures figuresOf(const std::map<pid_t, ThreadUsage>& before,
                  const std::map<pid_t, ThreadUsage>& after, const char* timerThread,
                  const char* recvThread, double events, const LatencyLog& latencies) {
    Figures f;
    f.events = events;
    if (events <= 0) return f;
    const UsageDelta all = usageBetween(before, after, "");
    const UsageDelta timer = usageBetween(before, after, timerThread);
    const UsageDelta recv = usageBetween(before, after, recvThread);
    f.cpuUs = static_cast<double>(all.cpuNs) / 1e3 / events;
    f.timerCpuUs = static_cast<double>(timer.cpuNs) / 1e3 / events;
    f.recvCpuUs = static_cast<double>(recv.cpuNs) / 1e3 / events;
    f.restCpuUs = f.cpuUs - f.timerCpuUs - f.recvCpuUs;
    f.wakeups = static_cast<double>(all.voluntarySwitches) / events;
    f.recvWakeups = static_cast<double>(recv.voluntarySwitches) / events;
    const std::vector<int64_t> lat = latencies.sorted();
    if (!lat.empty()) {
        auto at = [&](double q) {
            const size_t i = static_cast<size_t>(std::ceil(q * static_cast<double>(lat.size())));
            return static_cast<double>(lat[std::min(lat.size() - 1, i > 0 ? i - 1 : 0)]) / 1e3;
        };
        f.p50Us = at(0.50);
        f.p99Us = at(0.99);
        f.maxUs = static_cast<double>(lat.back()) / 1e3;
    }
    return f;
}

// Measures `seconds` of whatever is already running in process `pid`.
template <typename CountFn>
Figures measure(pid_t pid, double seconds, const char* timerThread, const char* recvThread,
                LatencyLog* latencies, CountFn count) {
    std::this_thread::sleep_for(kWarmUp);
    const auto before = threadUsage(pid);
    const uint64_t first = count();
    latencies->start();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    latencies->stop();
    const uint64_t last = count();
    const auto after = threadUsage(pid);
    return figuresOf(before, after, timerThread, recvThread, static_cast<double>(last - first),
                     *latencies);
}

// The floor: a timer thread on the host's schedule (due times start + k / rate) that hands each
// sample to a second thread, which builds the event and posts it. Both threads run the same task
// loop as the Mojo thread.
class Floor {
  public:
    Floor(const std::vector<Stream>& streams, CountingProxyCallback* proxy)
        : mProxy(proxy), mTimer("floor-timer"), mHandOff("floor-handoff") {
        mTimer.Start();
        mHandOff.Start();
        // Streams start a fraction of the fastest period apart, so that no two ticks coincide
        // and every sample costs its own wake-ups, as samples of separate devices do.
        double fastest = 0;
        for (const Stream& s : streams) fastest = std::max(fastest, s.hz);
        const base::TimeTicks now = base::TimeTicks::Now();
        for (size_t i = 0; i < streams.size(); ++i) {
            const double offset = static_cast<double>(i) / (fastest * streams.size());
            mTickers.push_back(
                Ticker{this, streams[i], now + base::TimeDelta::FromSecondsD(offset), 0});
        }
        for (Ticker& t : mTickers) {
            mTimer.task_runner()->PostTask(FROM_HERE, base::BindOnce(&Floor::schedule, &t));
        }
    }
    ~Floor() {
        mTimer.Stop();  // its pending ticks are dropped
        mHandOff.Stop();
    }

  private:
    struct Sample {
        int32_t handle;
        int64_t timestamp;
        float value;
    };
    struct Ticker {
        Floor* floor;
        Stream stream;
        base::TimeTicks start;  // of the first tick
        uint64_t next;          // timer thread only
    };

    static void schedule(Ticker* t) {
        const base::TimeTicks due =
            t->start + base::TimeDelta::FromSecondsD(static_cast<double>(t->next) / t->stream.hz);
        t->floor->mTimer.task_runner()->PostDelayedTask(FROM_HERE, base::BindOnce(&Floor::tick, t),
                                                        due - base::TimeTicks::Now());
    }
    static void tick(Ticker* t) {
        const double elapsed = (base::TimeTicks::Now() - t->start).InSecondsF();
        const uint64_t due = static_cast<uint64_t>(std::max(0.0, elapsed * t->stream.hz)) + 1;
        for (; t->next < due; ++t->next) {
            Sample s{t->stream.device, android::elapsedRealtimeNano(), static_cast<float>(t->next)};
            t->floor->mHandOff.task_runner()->PostTask(
                FROM_HERE, base::BindOnce(&Floor::deliver, base::Unretained(t->floor), s));
        }
        schedule(t);
    }
    // Hand-off thread.
    void deliver(Sample s) {
        mEvents.resize(1);
        Event& event = mEvents[0];
        std::memset(&event.u, 0, sizeof(event.u));
        event.timestamp = s.timestamp;
        event.sensorHandle = s.handle;
        event.sensorType = SensorType::ACCELEROMETER;
        event.u.vec3.x = s.value;
        mProxy->postEvents(mEvents, mProxy->createScopedWakelock(false));
    }

    CountingProxyCallback* const mProxy;
    std::vector<Event> mEvents;    // hand-off thread only
    std::vector<Ticker> mTickers;  // filled before the timer starts ticking; never resized after
    base::Thread mTimer;
    base::Thread mHandOff;
};

Figures runFloor(const Load& load, double seconds, LatencyLog* latencies) {
    android::sp<RecordingProxyCallback> proxy = new RecordingProxyCallback(latencies);
    Floor floor(load.streams, proxy.get());
    return measure(getpid(), seconds, "floor-timer", "floor-handoff", latencies,
                   [&] { return proxy->events(); });
}

Figures runSubHal(System& sys, const Load& load, double seconds, LatencyLog* latencies) {
    // Each device's stream starts when its activation reaches the host: spacing the activations
    // keeps them from all ticking together, as separate devices do not.
    double fastest = 0;
    for (const Stream& s : load.streams) fastest = std::max(fastest, s.hz);
    const auto spacing = std::chrono::duration<double>(1.0 / (fastest * load.streams.size()));
    for (const Stream& s : load.streams) {
        if (!sys.activate(s.device, std::llround(1e9 / s.hz))) {
            std::fprintf(stderr, "rates bench: device %d did not start\n", s.device);
            std::exit(1);
        }
        std::this_thread::sleep_for(spacing);
    }
    Figures f = measure(getpid(), seconds, "emulated-host", "MojoThread", latencies,
                        [&] { return sys.proxy().events(); });
    for (const Stream& s : load.streams) sys.subHal().activate(System::handleOf(s.device), false);
    for (const Stream& s : load.streams) {
        sys.host().waitFor([&](const std::vector<host::common::HostEvent>&) {
            return !sys.host().streaming(s.device);
        });
    }
    flushMojoThread();
    return f;
}

// The five devices of the in-process system, as a host description for the tool.
std::string hostDescription(const std::vector<Stream>& streams) {
    nlohmann::json devices = nlohmann::json::array();
    for (const host::description::VirtualDevice& d : fiveDevices(true).devices) {
        nlohmann::json attributes = nlohmann::json::object();
        for (const auto& [key, value] : d.attributes) attributes[key] = *value;
        double hz = 0;
        for (const Stream& s : streams) hz = s.device == d.id ? s.hz : hz;
        devices.push_back({{"id", d.id},
                           {"types", d.types},
                           {"channels", d.channels},
                           {"attributes", attributes},
                           {"maxFrequency", hz > 0 ? hz : 1.0}});
    }
    return nlohmann::json{{"devices", devices}}.dump(2);
}

// Timestamp at the start of a text line ("<timestamp> [handle] ...") or in a JSON line.
bool lineTimestamp(const char* line, bool json, int64_t* ts) {
    const char* p = line;
    if (json) {
        p = std::strstr(line, "\"timestamp\": ");
        if (p == nullptr || std::strstr(line, "\"meta\"") != nullptr) return false;
        p += std::strlen("\"timestamp\": ");
    }
    char* end = nullptr;
    *ts = std::strtoll(p, &end, 10);
    return end != p;
}

// The tool streaming `load` (every sensor at the load's highest rate, each capped to its own by
// the description) with its output read here, line by line.
Figures runTool(const std::string& tool, const Load& load, bool json, double seconds,
                LatencyLog* latencies) {
    char hostPath[] = "/tmp/iio-rates-host-XXXXXX";
    const int hostFd = mkstemp(hostPath);
    const std::string description = hostDescription(load.streams);
    if (hostFd < 0 || write(hostFd, description.data(), description.size()) !=
                          static_cast<ssize_t>(description.size())) {
        std::fprintf(stderr, "rates bench: cannot write %s\n", hostPath);
        std::exit(1);
    }
    close(hostFd);
    double rate = 0;
    for (const Stream& s : load.streams) rate = std::max(rate, s.hz);
    // Long enough for the host's enumeration, the warm-up and the measurement.
    const std::string duration = std::to_string(static_cast<int>(seconds) + 6);
    const std::string rateText = std::to_string(rate);
    std::vector<const char*> args = {tool.c_str(), "--host",        hostPath,
                                     "stream",     "--rate",        rateText.c_str(),
                                     "--duration", duration.c_str()};
    if (json) args.push_back("--json");
    args.push_back(nullptr);

    int out[2];
    if (pipe(out) != 0) std::exit(1);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, out[1]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int spawned = posix_spawn(&child, tool.c_str(), &actions, nullptr,
                                    const_cast<char* const*>(args.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        std::fprintf(stderr, "rates bench: cannot run %s: %s\n", tool.c_str(),
                     std::strerror(spawned));
        std::exit(1);
    }

    std::atomic<uint64_t> lines{0};
    std::thread reader([&] {
        FILE* in = fdopen(out[0], "r");
        char line[512];
        while (std::fgets(line, sizeof(line), in) != nullptr) {
            int64_t ts = 0;
            if (!lineTimestamp(line, json, &ts)) continue;
            latencies->add(android::elapsedRealtimeNano() - ts);
            lines.fetch_add(1, std::memory_order_release);
        }
        std::fclose(in);
    });
    // The first event ends the host's enumeration.
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (lines.load(std::memory_order_acquire) == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Figures f = measure(child, seconds, "emulated-host", "MojoThread", latencies,
                        [&] { return lines.load(std::memory_order_acquire); });
    int status = 0;
    waitpid(child, &status, 0);
    reader.join();
    unlink(hostPath);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "rates bench: %s failed (status %d)\n", tool.c_str(), status);
    }
    return f;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0.0 : v[v.size() / 2];
}

Figures medianOf(const std::vector<Figures>& runs) {
    auto m = [&](double Figures::*field) {
        std::vector<double> values;
        for (const Figures& f : runs) values.push_back(f.*field);
        return median(values);
    };
    Figures f;
    for (double Figures::*field :
         {&Figures::events, &Figures::cpuUs, &Figures::timerCpuUs, &Figures::recvCpuUs,
          &Figures::restCpuUs, &Figures::wakeups, &Figures::recvWakeups, &Figures::p50Us,
          &Figures::p99Us, &Figures::maxUs}) {
        f.*field = m(field);
    }
    return f;
}

void printTable(const std::vector<std::string>& names, const std::vector<Figures>& columns) {
    std::printf("  %-44s", "");
    for (const std::string& n : names) std::printf("%12s", n.c_str());
    std::printf("\n");
    auto row = [&](const char* label, double Figures::*field, const char* format) {
        std::printf("  %-44s", label);
        for (const Figures& f : columns) std::printf(format, f.*field);
        std::printf("\n");
    };
    row("events measured", &Figures::events, "%12.0f");
    row("CPU per event, whole process (us)", &Figures::cpuUs, "%12.2f");
    row("  host thread / floor timer thread (us)", &Figures::timerCpuUs, "%12.2f");
    row("  Mojo thread / floor hand-off thread (us)", &Figures::recvCpuUs, "%12.2f");
    row("  every other thread (us)", &Figures::restCpuUs, "%12.2f");
    row("wake-ups per event, whole process", &Figures::wakeups, "%12.3f");
    row("  Mojo thread / floor hand-off thread", &Figures::recvWakeups, "%12.3f");
    row("latency p50 (us)", &Figures::p50Us, "%12.1f");
    row("latency p99 (us)", &Figures::p99Us, "%12.1f");
    row("latency max (us)", &Figures::maxUs, "%12.1f");
}

void printGoals(const Figures& floor, const Figures& subHal) {
    // The host thread also makes the samples up, which a real host does in its own process: the
    // whole-process ratio overstates the library and Mojo, never understates them.
    const double ratio = floor.cpuUs > 0 ? subHal.cpuUs / floor.cpuUs : 0;
    std::printf("  goal: CPU per event within 3x the floor: %.2fx (whole process)  %s\n", ratio,
                ratio <= 3.0 ? "met" : "MISSED");
    std::printf("  goal: p99 latency under 100 us: %.1f us  %s\n", subHal.p99Us,
                subHal.p99Us < 100.0 ? "met" : "MISSED");
    std::printf("  goal: at most one Mojo-thread wake-up per sample: %.3f  %s\n",
                subHal.recvWakeups, subHal.recvWakeups <= 1.0 ? "met" : "MISSED");
}

std::string defaultTool() {
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) return "";
    std::string path(self, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/') + 1) + "iio-subhal";
}

int usage(const char* self) {
    std::fprintf(stderr, "usage: %s [--seconds S] [--runs N] [--tool PATH | --no-tool]\n", self);
    return 2;
}

}  // namespace
}  // namespace kelvane::bench

int main(int argc, char** argv) {
    using namespace kelvane::bench;
    double seconds = 10;
    int runs = 1;
    std::string tool = defaultTool();
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--seconds" && i + 1 < argc) {
            seconds = std::atof(argv[++i]);
        } else if (arg == "--runs" && i + 1 < argc) {
            runs = std::atoi(argv[++i]);
        } else if (arg == "--tool" && i + 1 < argc) {
            tool = argv[++i];
        } else if (arg == "--no-tool") {
            tool.clear();
        } else {
            return usage(argv[0]);
        }
    }
    if (!(seconds > 0) || runs < 1) return usage(argv[0]);
    if (!tool.empty() && access(tool.c_str(), X_OK) != 0) {
        std::fprintf(stderr, "rates bench: no tool at %s; its columns are left out\n",
                     tool.c_str());
        tool.clear();
    }

    const std::vector<Load> loads = {
        {"4 x 400 Hz + light at 20 Hz",
         {{kAccel, 400}, {kGyro, 400}, {kMagn, 400}, {kGravity, 400}, {kLight, 20}},
         false},
        {"5 x 50 Hz (the default rate)",
         {{kAccel, 50}, {kGyro, 50}, {kMagn, 50}, {kGravity, 50}, {kLight, 50}},
         false},
        {"5 x 400 Hz, with the tool",
         {{kAccel, 400}, {kGyro, 400}, {kMagn, 400}, {kGravity, 400}, {kLight, 400}},
         true},
    };

    LatencyLog latencies;
    System sys(true, new RecordingProxyCallback(&latencies));
    for (const Load& load : loads) {
        const bool tools = load.withTool && !tool.empty();
        std::vector<Figures> floorRuns, subHalRuns, textRuns, jsonRuns;
        for (int r = 0; r < runs; ++r) {
            floorRuns.push_back(runFloor(load, seconds, &latencies));
            subHalRuns.push_back(runSubHal(sys, load, seconds, &latencies));
            if (tools) {
                textRuns.push_back(runTool(tool, load, false, seconds, &latencies));
                jsonRuns.push_back(runTool(tool, load, true, seconds, &latencies));
            }
        }
        std::printf("=== %s: %.0f events/s, %.0f s, median of %d run%s\n", load.name.c_str(),
                    load.eventsPerSecond(), seconds, runs, runs == 1 ? "" : "s");
        std::vector<std::string> names = {"floor", "sub-HAL"};
        std::vector<Figures> columns = {medianOf(floorRuns), medianOf(subHalRuns)};
        if (tools) {
            names.insert(names.end(), {"tool text", "tool json"});
            columns.push_back(medianOf(textRuns));
            columns.push_back(medianOf(jsonRuns));
        }
        printTable(names, columns);
        printGoals(columns[0], columns[1]);
        std::printf("\n");
        std::fflush(stdout);
    }
    return 0;
}
