// Runs a program in a child process and collects what it writes, within a time limit: the one
// way the tests start the tool and the other built programs. Blocking; call from any one thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kelvane::testing {

struct ProcessRun {
    bool started = false;   // false: it could not be started (`err` says why)
    bool finished = false;  // false: killed at the limit
    int exitCode = -1;      // its exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;  // empty when merged into `out`
};

struct ProcessOptions {
    std::vector<std::string> extraEnv;  // "NAME=value", ahead of this process's environment
    std::string stdinPath;              // empty: /dev/null
    std::string stdoutPath;             // a file to write instead; `out` stays empty
    std::string cwd;                    // empty: this process's
    bool mergeStderr = false;           // stderr into `out`, so that the order of lines is kept
    // A generous bound: a sanitizer build on a busy machine is slow, and a hang is a failure.
    std::chrono::seconds limit{90};
    // Sees the output so far each time more arrives; may signal the process.
    std::function<void(pid_t, const ProcessRun&)> onOutput;
    // While this answers true (asked each time output arrives), stdout is not read: a reader that
    // fell behind. Stderr is read meanwhile.
    std::function<bool(const ProcessRun&)> holdStdout;
};

// `argv[0]` is the program's path.
ProcessRun runProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

}  // namespace kelvane::testing
