#include "bench/thread_usage.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace kelvane::bench {
namespace {

bool readThread(const std::string& dir, ThreadUsage* usage) {
    std::ifstream comm(dir + "/comm");
    std::ifstream schedstat(dir + "/schedstat");
    std::ifstream status(dir + "/status");
    if (!comm || !schedstat || !status) return false;
    std::getline(comm, usage->name);
    if (!(schedstat >> usage->cpuNs)) return false;
    std::string line;
    while (std::getline(status, line)) {
        static const char kKey[] = "voluntary_ctxt_switches:";
        if (line.compare(0, sizeof(kKey) - 1, kKey) == 0) {
            usage->voluntarySwitches = std::strtoull(line.c_str() + sizeof(kKey) - 1, nullptr, 10);
            return true;
        }
    }
    return false;
}

}  // namespace

std::map<pid_t, ThreadUsage> threadUsage(pid_t pid) {
    std::map<pid_t, ThreadUsage> threads;
    const std::string root = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(root.c_str());
    if (dir == nullptr) return threads;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        ThreadUsage usage;
        // A thread that ended while this ran is left out.
        if (readThread(root + "/" + entry->d_name, &usage)) {
            threads[static_cast<pid_t>(std::atoi(entry->d_name))] = usage;
        }
    }
    closedir(dir);
    return threads;
}

UsageDelta usageBetween(const std::map<pid_t, ThreadUsage>& before,
                        const std::map<pid_t, ThreadUsage>& after, const std::string& prefix) {
    UsageDelta delta;
    for (const auto& [tid, now] : after) {
        if (now.name.compare(0, prefix.size(), prefix) != 0) continue;
        auto then = before.find(tid);
        const ThreadUsage start = then == before.end() ? ThreadUsage{} : then->second;
        delta.cpuNs += now.cpuNs - start.cpuNs;
        delta.voluntarySwitches += now.voluntarySwitches - start.voluntarySwitches;
    }
    return delta;
}

}  // namespace kelvane::bench
