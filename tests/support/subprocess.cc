#include "tests/support/subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

namespace kelvane::testing {

namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

ProcessRun runProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
    ProcessRun run;
    int outPipe[2];
    int errPipe[2];
    if (argv.empty() || pipe2(outPipe, O_CLOEXEC) != 0) return run;
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return run;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(
        &actions, STDIN_FILENO, options.stdinPath.empty() ? "/dev/null" : options.stdinPath.c_str(),
        O_RDONLY, 0);
    if (options.stdoutPath.empty()) {
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, options.stdoutPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    posix_spawn_file_actions_adddup2(&actions, options.mergeStderr ? outPipe[1] : errPipe[1],
                                     STDERR_FILENO);
    if (!options.cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, options.cwd.c_str());

    std::vector<std::string> args = argv;
    std::vector<std::string> env = options.extraEnv;
    for (char** e = environ; *e != nullptr; ++e) env.push_back(*e);
    std::vector<char*> argp = pointers(args);
    std::vector<char*> envp = pointers(env);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, argp[0], &actions, nullptr, argp.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (spawned != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        run.err = "cannot start " + argv[0] + ": " + std::strerror(spawned);
        return run;
    }
    run.started = true;

    const auto deadline = std::chrono::steady_clock::now() + options.limit;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        const bool held = options.holdStdout && fds[0].fd >= 0 && options.holdStdout(run);
        // A negative descriptor is skipped by poll(): the held pipe is neither read nor watched.
        if (held) fds[0].fd = ~fds[0].fd;
        const int ready = poll(fds, 2, static_cast<int>(left.count()));
        if (held) fds[0].fd = ~fds[0].fd;
        if (ready <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0 || (i == 0 && held)) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
            if (n < 0 && errno == EINTR) continue;
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<size_t>(n));
                if (options.onOutput) options.onOutput(pid, run);
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
        run.finished = true;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

}  // namespace kelvane::testing
