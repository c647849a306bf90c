// Process exit with the library busy: each scenario of teardown_child runs in its own process,
// which inherits this build's sanitizers, and must end promptly with status 0 and no sanitizer
// report. Also the tool's stream command stopped by SIGINT: it must deactivate what it enabled
// and exit 0.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <future>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/subprocess.h"

namespace kelvane::teardown {
namespace {

using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;
using kelvane::testing::runProcess;

// The first line of `text` that shows a sanitizer at work, or "".
std::string sanitizerReport(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        for (const char* mark : {"Sanitizer", "runtime error:", "==ERROR"}) {
            if (line.find(mark) != std::string::npos) return line;
        }
    }
    return "";
}

void expectCleanExit(const ProcessRun& o) {
    ASSERT_TRUE(o.started) << o.err;
    ASSERT_TRUE(o.finished) << "still running after the limit; output:\n" << o.err;
    EXPECT_EQ(o.exitCode, 0) << "output:\n" << o.err;
    EXPECT_EQ(sanitizerReport(o.err), "") << o.err;
}

class TeardownTest : public ::testing::TestWithParam<const char*> {};

TEST_P(TeardownTest, ExitsCleanlyWhileBusy) {
    expectCleanExit(runProcess({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, GetParam()}));
}

std::string scenarioName(const ::testing::TestParamInfo<const char*>& info) {
    std::string name;
    bool upper = true;
    for (const char* c = info.param; *c != '\0'; ++c) {
        if (*c == '-') {
            upper = true;
            continue;
        }
        name += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
        upper = false;
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, TeardownTest,
                         ::testing::Values("return-streaming", "exit-streaming",
                                           "exit-from-binder-thread", "return-pending",
                                           "exit-pending", "exit-without-host"),
                         scenarioName);

// The Mojo thread busy past the library's wait at exit: back 11 s later, while the process is
// exiting, or never. Either way the exit ends cleanly, soon after that wait; the two run side by
// side to keep the suite short.
TEST(TeardownBusyMojoThreadTest, ExitDoesNotWaitForeverNorAbort) {
    auto blocked = std::async(std::launch::async, [] {
        return runProcess({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, "exit-mojo-blocked"});
    });
    const ProcessRun stuck =
        runProcess({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, "exit-mojo-stuck"});
    {
        SCOPED_TRACE("exit-mojo-stuck");
        expectCleanExit(stuck);
    }
    SCOPED_TRACE("exit-mojo-blocked");
    expectCleanExit(blocked.get());
}

// `handle` -> whether its last activate() enabled it, from the wrapper's lines.
std::map<int, bool> lastActivation(const std::string& err) {
    std::map<int, bool> state;
    std::istringstream lines(err);
    std::string line;
    const std::string prefix = "recording_subhal: activate ";
    while (std::getline(lines, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0) continue;
        int handle = 0;
        int enabled = 0;
        if (std::sscanf(line.c_str() + prefix.size(), "%d %d", &handle, &enabled) == 2) {
            state[handle] = enabled != 0;
        }
    }
    return state;
}

TEST(ToolInterruptTest, StreamStoppedBySigintDeactivatesItsSensorsAndExitsZero) {
    bool interrupted = false;
    ProcessOptions options;
    options.extraEnv = {std::string("REAL_SUBHAL_LIBRARY=") + SUBHAL_LIBRARY_PATH};
    options.onOutput = [&](pid_t pid, const ProcessRun& soFar) {
        // Mid-stream: events of several sensors are being printed.
        if (!interrupted && std::count(soFar.out.begin(), soFar.out.end(), '\n') >= 50) {
            interrupted = true;
            kill(pid, SIGINT);
        }
    };
    const ProcessRun o = runProcess(
        {IIO_SUBHAL_PATH, "stream", "--duration", "60", "--library", RECORDING_SUBHAL_PATH},
        options);
    ASSERT_TRUE(interrupted) << "the stream never started; output:\n" << o.err;
    expectCleanExit(o);
    const std::map<int, bool> state = lastActivation(o.err);
    ASSERT_FALSE(state.empty()) << o.err;
    for (const auto& [handle, enabled] : state) {
        EXPECT_FALSE(enabled) << "sensor " << handle << " left enabled";
    }
}

}  // namespace
}  // namespace kelvane::teardown
