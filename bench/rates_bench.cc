// What streaming at the rates devices really run costs and how late it delivers: CPU time and
// wake-ups per event, and three latencies per sample, for five sensors streaming from a timer.
//
// Each load is measured up to four ways in one process, side by side:
//  - floor: a timer thread wakes when each sample is due, stamps it with that time and hands it
//    to a second thread, which posts it to the proxy callback: one timer wake-up and one
//    cross-thread hand-off per sample, nothing else (see timer_floor.h);
//  - sub-HAL: the emulated host streams through the in-process Mojo into IioSensorSubHal and a
//    recording proxy callback;
//  - tool text / tool json (optional): iio-subhal streaming the same load as a child process, its
//    stdout read by this process.
//
//   iio_rates_bench [--seconds S] [--runs N] [--tool PATH | --no-tool]
//
// CPU and wake-ups are the median run's (3 runs unless --runs says otherwise); the latencies are
// taken over every sample of every run, the floor's and the sub-HAL's runs alternating. The
// latencies of a sample, on the boot-time clock: the host's lateness (sent - due: the host sends
// it, the floor's timer thread hands it off), the hand-off (received by the proxy callback - sent)
// and the total (received - its timestamp, which is when it was due). For the tool only the total
// is known: to this process reading the line.
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
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_env.h"
#include "bench/sample_times.h"
#include "bench/thread_usage.h"
#include "bench/timer_floor.h"
#include "host/description/DescriptionWriter.h"

extern char** environ;

namespace kelvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Let timers and queues settle after sensors start before measuring.
constexpr auto kWarmUp = std::chrono::milliseconds(500);

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

// Where each way of delivering notes its times: `sent` by the host thread (floor: the timer
// thread), `received` by the proxy callback (tool: the thread reading its output).
struct TimeLogs {
    explicit TimeLogs(size_t capacity) : sent(capacity), received(capacity) {}
    SampleTimeLog sent;
    SampleTimeLog received;
};

class RecordingProxyCallback : public CountingProxyCallback {
  public:
    explicit RecordingProxyCallback(SampleTimeLog* received) : mReceived(received) {}
    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override {
        const int64_t now = android::elapsedRealtimeNano();
        for (const Event& e : events) mReceived->add(e.sensorHandle, e.timestamp, now);
        CountingProxyCallback::postEvents(events, std::move(wakelock));
    }

  private:
    SampleTimeLog* const mReceived;
};

// One run of one way of delivering a load. Latencies are in microseconds, not-a-number where
// unknown.
struct Figures {
    double events = 0;
    double cpuUs = 0;        // per event, whole process
    double timerCpuUs = 0;   // per event: the host thread (floor: the timer thread)
    double recvCpuUs = 0;    // per event: the Mojo thread (floor: the hand-off thread)
    double restCpuUs = 0;    // per event: every other thread
    double wakeups = 0;      // voluntary switches per event, whole process
    double recvWakeups = 0;  // the same, Mojo thread (floor: hand-off thread)
    double lateP50 = 0, lateP99 = 0, lateMax = 0;           // sent - due
    double handOffP50 = 0, handOffP99 = 0, handOffMax = 0;  // received - sent
    double totalP50 = 0, totalP99 = 0, totalMax = 0;        // received - timestamp
};

// What each run measures for itself; the latencies come from the runs' samples pooled.
constexpr double Figures::*kPerRunFields[] = {
    &Figures::events,    &Figures::cpuUs,   &Figures::timerCpuUs,  &Figures::recvCpuUs,
    &Figures::restCpuUs, &Figures::wakeups, &Figures::recvWakeups,
};

// One run of one way of delivering a load: its figures (latencies not yet filled in) and its
// latencies, sample by sample, which the runs pool.
struct Run {
    Figures figures;
    LatencySamples latencies;
};

Run runOf(const std::map<pid_t, ThreadUsage>& before, const std::map<pid_t, ThreadUsage>& after,
          const char* timerThread, const char* recvThread, double events, const TimeLogs& logs) {
    Run run;
    run.latencies = latencySamplesOf(logs.sent.entries(), logs.received.entries());
    Figures& f = run.figures;
    f.events = events;
    if (events <= 0) return run;
    const UsageDelta all = usageBetween(before, after, "");
    const UsageDelta timer = usageBetween(before, after, timerThread);
    const UsageDelta recv = usageBetween(before, after, recvThread);
    f.cpuUs = static_cast<double>(all.cpuNs) / 1e3 / events;
    f.timerCpuUs = static_cast<double>(timer.cpuNs) / 1e3 / events;
    f.recvCpuUs = static_cast<double>(recv.cpuNs) / 1e3 / events;
    f.restCpuUs = f.cpuUs - f.timerCpuUs - f.recvCpuUs;
    f.wakeups = static_cast<double>(all.voluntarySwitches) / events;
    f.recvWakeups = static_cast<double>(recv.voluntarySwitches) / events;
    return run;
}

// Measures `seconds` of whatever is already running in process `pid`.
template <typename CountFn>
Run measure(pid_t pid, double seconds, const char* timerThread, const char* recvThread,
            TimeLogs* logs, CountFn count) {
    std::this_thread::sleep_for(kWarmUp);
    const auto before = threadUsage(pid);
    const uint64_t first = count();
    logs->sent.start();
    logs->received.start();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    logs->received.stop();
    logs->sent.stop();
    const uint64_t last = count();
    const auto after = threadUsage(pid);
    return runOf(before, after, timerThread, recvThread, static_cast<double>(last - first), *logs);
}

Run runFloor(const Load& load, double seconds, TimeLogs* logs) {
    android::sp<RecordingProxyCallback> proxy = new RecordingProxyCallback(&logs->received);
    TimerFloor floor(load.streams, fiveDevices(true).devices, proxy.get(), &logs->sent);
    return measure(getpid(), seconds, "floor-timer", "floor-handoff", logs,
                   [&] { return proxy->events(); });
}

Run runSubHal(System& sys, const Load& load, double seconds, TimeLogs* logs) {
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
    Run run = measure(getpid(), seconds, "emulated-host", "MojoThread", logs,
                      [&] { return sys.proxy().events(); });
    for (const Stream& s : load.streams) sys.subHal().activate(System::handleOf(s.device), false);
    for (const Stream& s : load.streams) {
        sys.host().waitFor([&](const std::vector<host::common::HostEvent>&) {
            return !sys.host().streaming(s.device);
        });
    }
    flushMojoThread();
    return run;
}

// The five devices of the in-process system, each capped to its rate in `streams` (1 Hz when it
// has none), as a host description file for the tool. Returns its path.
std::string writeHostFile(const std::vector<Stream>& streams) {
    host::description::HostConfig config = fiveDevices(true);
    for (host::description::VirtualDevice& d : config.devices) {
        double hz = 0;
        for (const Stream& s : streams) hz = s.device == d.id ? s.hz : hz;
        d.maxFrequency = hz > 0 ? hz : 1.0;
    }
    char path[] = "/tmp/iio-rates-host-XXXXXX";
    const int fd = mkstemp(path);
    if (fd >= 0) close(fd);
    std::string error = "cannot make a file";
    if (fd < 0 || !host::description::saveHostDescription(config, path, &error)) {
        std::fprintf(stderr, "rates bench: %s: %s\n", path, error.c_str());
        std::exit(1);
    }
    return path;
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

// Starts `args` (args[0] the program, null-terminated) with its stdout into the returned pipe end
// and its stderr to /dev/null.
pid_t spawnWithStdout(const std::vector<const char*>& args, int* stdoutFd) {
    int out[2];
    if (pipe(out) != 0) std::exit(1);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, out[1]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int spawned = posix_spawn(&child, args[0], &actions, nullptr,
                                    const_cast<char* const*>(args.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        std::fprintf(stderr, "rates bench: cannot run %s: %s\n", args[0], std::strerror(spawned));
        std::exit(1);
    }
    *stdoutFd = out[0];
    return child;
}

// The tool streaming `load` (every sensor at the load's highest rate, each capped to its own by
// the description) with its output read here, line by line.
Run runTool(const std::string& tool, const Load& load, bool json, double seconds, TimeLogs* logs) {
    const std::string hostPath = writeHostFile(load.streams);
    double rate = 0;
    for (const Stream& s : load.streams) rate = std::max(rate, s.hz);
    // Long enough for the host's enumeration, the warm-up and the measurement.
    const std::string duration = std::to_string(static_cast<int>(seconds) + 6);
    const std::string rateText = std::to_string(rate);
    std::vector<const char*> args = {tool.c_str(), "--host",        hostPath.c_str(),
                                     "stream",     "--rate",        rateText.c_str(),
                                     "--duration", duration.c_str()};
    if (json) args.push_back("--json");
    args.push_back(nullptr);
    int out = -1;
    const pid_t child = spawnWithStdout(args, &out);

    std::atomic<uint64_t> lines{0};
    std::thread reader([&] {
        FILE* in = fdopen(out, "r");
        char line[512];
        while (std::fgets(line, sizeof(line), in) != nullptr) {
            int64_t ts = 0;
            if (!lineTimestamp(line, json, &ts)) continue;
            logs->received.add(0, ts, android::elapsedRealtimeNano());
            lines.fetch_add(1, std::memory_order_release);
        }
        std::fclose(in);
    });
    // The first event ends the host's enumeration.
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (lines.load(std::memory_order_acquire) == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Run run = measure(child, seconds, "emulated-host", "MojoThread", logs,
                      [&] { return lines.load(std::memory_order_acquire); });
    int status = 0;
    waitpid(child, &status, 0);
    reader.join();
    unlink(hostPath.c_str());
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "rates bench: %s failed (status %d)\n", tool.c_str(), status);
    }
    return run;
}

double median(std::vector<double> v) {
    v.erase(std::remove_if(v.begin(), v.end(), [](double x) { return std::isnan(x); }), v.end());
    std::sort(v.begin(), v.end());
    return v.empty() ? std::nan("") : v[v.size() / 2];
}

// One column of the table: CPU and wake-ups are the median of the runs; the latencies are spread
// over every sample of every run.
Figures columnOf(const std::vector<Run>& runs) {
    Figures f;
    LatencySamples pooled;
    for (double Figures::*field : kPerRunFields) {
        std::vector<double> values;
        for (const Run& run : runs) values.push_back(run.figures.*field);
        f.*field = median(values);
    }
    for (const Run& run : runs) pooled.append(run.latencies);
    const Latencies l = pooled.spread();
    auto copy = [](const Spread& from, double* p50, double* p99, double* max) {
        *p50 = from.p50Us;
        *p99 = from.p99Us;
        *max = from.maxUs;
    };
    copy(l.lateness, &f.lateP50, &f.lateP99, &f.lateMax);
    copy(l.handOff, &f.handOffP50, &f.handOffP99, &f.handOffMax);
    copy(l.total, &f.totalP50, &f.totalP99, &f.totalMax);
    return f;
}

void printTable(const std::vector<std::string>& names, const std::vector<Figures>& columns) {
    std::printf("  %-44s", "");
    for (const std::string& n : names) std::printf("%12s", n.c_str());
    std::printf("\n");
    auto row = [&](const char* label, double Figures::*field, const char* format) {
        std::printf("  %-44s", label);
        for (const Figures& f : columns) {
            if (std::isnan(f.*field)) {
                std::printf("%12s", "-");
            } else {
                std::printf(format, f.*field);
            }
        }
        std::printf("\n");
    };
    row("events measured", &Figures::events, "%12.0f");
    row("CPU per event, whole process (us)", &Figures::cpuUs, "%12.2f");
    row("  host thread / floor timer thread (us)", &Figures::timerCpuUs, "%12.2f");
    row("  Mojo thread / floor hand-off thread (us)", &Figures::recvCpuUs, "%12.2f");
    row("  every other thread (us)", &Figures::restCpuUs, "%12.2f");
    row("wake-ups per event, whole process", &Figures::wakeups, "%12.3f");
    row("  Mojo thread / floor hand-off thread", &Figures::recvWakeups, "%12.3f");
    row("host lateness, sent - due: p50 (us)", &Figures::lateP50, "%12.1f");
    row("  p99 (us)", &Figures::lateP99, "%12.1f");
    row("  max (us)", &Figures::lateMax, "%12.1f");
    row("hand-off, received - sent: p50 (us)", &Figures::handOffP50, "%12.1f");
    row("  p99 (us)", &Figures::handOffP99, "%12.1f");
    row("  max (us)", &Figures::handOffMax, "%12.1f");
    row("total, received - timestamp: p50 (us)", &Figures::totalP50, "%12.1f");
    row("  p99 (us)", &Figures::totalP99, "%12.1f");
    row("  max (us)", &Figures::totalMax, "%12.1f");
}

void printGoals(const Figures& floor, const Figures& subHal) {
    auto verdict = [](bool met) { return met ? "met" : "MISSED"; };
    std::printf("  goal: hand-off p99 under 100 us: %.1f us  %s\n", subHal.handOffP99,
                verdict(subHal.handOffP99 < 100.0));
    const double handOff = subHal.handOffP99 / floor.handOffP99;
    std::printf("  goal: hand-off p99 within 1.5x the floor's (%.1f us): %.2fx  %s\n",
                floor.handOffP99, handOff, verdict(handOff <= 1.5));
    // Whole process against whole process: the host thread also makes the samples up, which a
    // real host does in its own process, so the ratio overstates the library and Mojo.
    const double cpu = subHal.cpuUs / floor.cpuUs;
    std::printf("  goal: CPU per event within 1.2x the floor's (%.2f us): %.2fx  %s\n", floor.cpuUs,
                cpu, verdict(cpu <= 1.2));
    std::printf("  goal: at most one Mojo-thread wake-up per sample: %.3f  %s\n",
                subHal.recvWakeups, verdict(subHal.recvWakeups <= 1.0));
}

std::string defaultTool() {
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) return "";
    std::string path(self, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/') + 1) + "iio-subhal";
}

struct Options {
    double seconds = 10;
    int runs = 3;
    std::string tool = defaultTool();  // empty: no tool columns
};

// False on a bad command line.
bool parse(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--seconds" && i + 1 < argc) {
            o->seconds = std::atof(argv[++i]);
        } else if (arg == "--runs" && i + 1 < argc) {
            o->runs = std::atoi(argv[++i]);
        } else if (arg == "--tool" && i + 1 < argc) {
            o->tool = argv[++i];
        } else if (arg == "--no-tool") {
            o->tool.clear();
        } else {
            return false;
        }
    }
    if (!(o->seconds > 0) || o->runs < 1) return false;
    if (!o->tool.empty() && access(o->tool.c_str(), X_OK) != 0) {
        std::fprintf(stderr, "rates bench: no tool at %s; its columns are left out\n",
                     o->tool.c_str());
        o->tool.clear();
    }
    return true;
}

// The host notes the send time of every sample its timer sends in `sent`, from its own thread.
void recordSendTimes(System& sys, SampleTimeLog* sent) {
    sys.host().setSentSampleProbe([sent](const host::emulated::SentSample& s) {
        sent->add(s.device, s.timestampNs, s.sentNs);
    });
}

void runLoad(System& sys, const Load& load, const Options& o, TimeLogs* logs) {
    const bool tools = load.withTool && !o.tool.empty();
    std::vector<Run> floorRuns, subHalRuns, textRuns, jsonRuns;
    for (int r = 0; r < o.runs; ++r) {
        floorRuns.push_back(runFloor(load, o.seconds, logs));
        subHalRuns.push_back(runSubHal(sys, load, o.seconds, logs));
        if (tools) {
            textRuns.push_back(runTool(o.tool, load, false, o.seconds, logs));
            jsonRuns.push_back(runTool(o.tool, load, true, o.seconds, logs));
        }
    }
    std::printf(
        "=== %s: %.0f events/s, %d x %.0f s (CPU: the median run; latencies: every sample)\n",
        load.name.c_str(), load.eventsPerSecond(), o.runs, o.seconds);
    std::vector<std::string> names = {"floor", "sub-HAL"};
    std::vector<Figures> columns = {columnOf(floorRuns), columnOf(subHalRuns)};
    if (tools) {
        names.insert(names.end(), {"tool text", "tool json"});
        columns.push_back(columnOf(textRuns));
        columns.push_back(columnOf(jsonRuns));
    }
    printTable(names, columns);
    printGoals(columns[0], columns[1]);
    std::printf("\n");
    std::fflush(stdout);
}

}  // namespace
}  // namespace kelvane::bench

int main(int argc, char** argv) {
    using namespace kelvane::bench;
    Options options;
    if (!parse(argc, argv, &options)) {
        std::fprintf(stderr, "usage: %s [--seconds S] [--runs N] [--tool PATH | --no-tool]\n",
                     argv[0]);
        return 2;
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
    double fastest = 0;
    for (const Load& load : loads) fastest = std::max(fastest, load.eventsPerSecond());
    // Room for every sample of the longest window, with some to spare.
    TimeLogs logs(static_cast<size_t>(fastest * options.seconds * 1.25) + 4096);
    System sys(true, new RecordingProxyCallback(&logs.received));
    recordSendTimes(sys, &logs.sent);
    for (const Load& load : loads) runLoad(sys, load, options, &logs);
    return 0;
}
