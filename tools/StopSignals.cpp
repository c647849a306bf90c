#include "StopSignals.h"

#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <initializer_list>

namespace kelvane::tools {

namespace {

std::atomic<int> gStopSignal{0};
std::atomic<int> gStopCount{0};
static_assert(std::atomic<int>::is_always_lock_free, "touched from a signal handler");
// Posted once per stop signal (sem_post is async-signal-safe), for waitForStopSignal().
sem_t gStopPosted;

extern "C" void onStopSignal(int signal) {
    const int savedErrno = errno;
    int none = 0;
    gStopSignal.compare_exchange_strong(none, signal);
    gStopCount.fetch_add(1);
    sem_post(&gStopPosted);
    errno = savedErrno;
}

}  // namespace

void installStopHandlers() {
    [[maybe_unused]] static const int once = sem_init(&gStopPosted, 0, 0);  // 0 cannot be refused
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current = {};
        if (sigaction(signal, nullptr, &current) != 0 || current.sa_handler == SIG_IGN) continue;
        struct sigaction action = {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

int stopSignal() { return gStopSignal.load(); }

int stopSignalCount() { return gStopCount.load(); }

void waitForStopSignal() {
    // A wait cut short by any signal (EINTR) looks at the flag again.
    while (stopSignal() == 0) sem_wait(&gStopPosted);
}

const char* stopSignalName(int signal) {
    switch (signal) {
        case SIGINT:
            return "Ctrl-C";
        case SIGTERM:
            return "SIGTERM";
        case SIGHUP:
            return "SIGHUP";
        default:
            return "a signal";
    }
}

int stoppedBeforeDone(const std::string& during) {
    const int signal = stopSignal();
    std::fprintf(stderr, "iio-subhal: stopped by %s%s\n", stopSignalName(signal),
                 during.empty() ? "" : (" " + during).c_str());
    return 128 + signal;
}

}  // namespace kelvane::tools
