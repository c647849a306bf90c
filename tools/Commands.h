// The subcommands. Each runs on an open session and returns the process's exit code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Session.h"

namespace kelvane::tools {

struct StreamOptions {
    std::vector<std::string> sensors;  // handles, type names, sensor names or "all"; empty: all
    std::optional<double> rateHz;
    std::optional<int64_t> periodNs;
    double durationSeconds = 3.0;
    std::optional<uint64_t> count;  // stop after this many sensor events
};

int runList(Session& session);
int runStream(Session& session, const StreamOptions& options);
int runFlush(Session& session, int32_t handle);
int runDump(Session& session);

}  // namespace kelvane::tools
