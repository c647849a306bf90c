// Process exit with the library busy: each scenario of teardown_child runs in its own process,
// which inherits this build's sanitizers, and must end promptly with status 0 and no sanitizer
// report. Also the tool's stream command stopped by SIGINT: it must deactivate what it enabled
// and exit 0.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace kelvane::teardown {
namespace {

// Generous: a sanitizer build on a busy machine is slow, and a hang is what this catches.
constexpr auto kProcessLimit = std::chrono::seconds(90);

struct Outcome {
    bool finished = false;  // false: killed at the limit
    int status = 0;
    std::string out;
    std::string err;
};

// Runs `argv` with `extraEnv` added to this environment, collecting its output. `onOutput` sees
// the output so far each time more arrives and may signal the process.
Outcome run(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {},
            const std::function<void(pid_t, const Outcome&)>& onOutput = {}) {
    Outcome outcome;
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) return outcome;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<std::string> envStrings(extraEnv);
    for (char** e = environ; *e != nullptr; ++e) envStrings.push_back(*e);
    std::vector<char*> env;
    for (const std::string& e : envStrings) env.push_back(const_cast<char*>(e.c_str()));
    env.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (spawned != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        return outcome;
    }

    const auto deadline = std::chrono::steady_clock::now() + kProcessLimit;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&outcome.out, &outcome.err};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        if (poll(fds, 2, static_cast<int>(left.count())) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buf[4096];
            const ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
                if (onOutput) onOutput(pid, outcome);
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    if (open > 0) {
        kill(pid, SIGKILL);
        for (pollfd& f : fds) {
            if (f.fd >= 0) close(f.fd);
        }
    } else {
        outcome.finished = true;
    }
    waitpid(pid, &outcome.status, 0);
    return outcome;
}

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

void expectCleanExit(const Outcome& o) {
    ASSERT_TRUE(o.finished) << "still running after the limit; output:\n" << o.err;
    EXPECT_TRUE(WIFEXITED(o.status) && WEXITSTATUS(o.status) == 0)
        << "status " << o.status << "; output:\n"
        << o.err;
    EXPECT_EQ(sanitizerReport(o.err), "") << o.err;
}

class TeardownTest : public ::testing::TestWithParam<const char*> {};

TEST_P(TeardownTest, ExitsCleanlyWhileBusy) {
    expectCleanExit(run({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, GetParam()}));
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
        return run({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, "exit-mojo-blocked"});
    });
    const Outcome stuck = run({TEARDOWN_CHILD_PATH, SUBHAL_LIBRARY_PATH, "exit-mojo-stuck"});
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
    Outcome o =
        run({IIO_SUBHAL_PATH, "stream", "--duration", "60", "--library", RECORDING_SUBHAL_PATH},
            {std::string("REAL_SUBHAL_LIBRARY=") + SUBHAL_LIBRARY_PATH},
            [&](pid_t pid, const Outcome& so_far) {
                // Mid-stream: events of several sensors are being printed.
                if (!interrupted && std::count(so_far.out.begin(), so_far.out.end(), '\n') >= 50) {
                    interrupted = true;
                    kill(pid, SIGINT);
                }
            });
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
