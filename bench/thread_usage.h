// CPU time and voluntary context switches of every thread of a process, read from /proc so that
// the same code measures this process and a child (the bench tool). The CPU time is the thread's
// CPU clock as the scheduler keeps it (the first field of schedstat, the value that
// CLOCK_THREAD_CPUTIME_ID reads), in nanoseconds. A voluntary switch is the thread going to sleep,
// so every one is followed by a wake-up.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

namespace kelvane::bench {

struct ThreadUsage {
    std::string name;  // comm: the name the thread gave itself, at most 15 characters
    uint64_t cpuNs = 0;
    uint64_t voluntarySwitches = 0;
};

// Every live thread of `pid`, by thread id. Threads that end between two snapshots are missing
// from the later one; the benchmarks start and stop no threads while they measure.
std::map<pid_t, ThreadUsage> threadUsage(pid_t pid);

// What threads whose name starts with `prefix` used between two snapshots. An empty prefix
// takes every thread.
struct UsageDelta {
    uint64_t cpuNs = 0;
    uint64_t voluntarySwitches = 0;
};
UsageDelta usageBetween(const std::map<pid_t, ThreadUsage>& before,
                        const std::map<pid_t, ThreadUsage>& after, const std::string& prefix);

}  // namespace kelvane::bench
