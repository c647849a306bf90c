// The signals that end a stream early: SIGINT (Ctrl-C), SIGTERM and SIGHUP (a closed terminal or
// a dropped SSH session). They only raise a flag that the main thread polls or waits for, so the
// run still deactivates its sensors, prints its summary and writes its recording.
//
// A signal the tool was started with ignored (a script's background job, nohup) stays ignored.
#pragma once

#include <string>

namespace kelvane::tools {

// Installs the handlers. Main thread; idempotent.
void installStopHandlers();
// The stop signal that arrived first, or 0. Any thread.
int stopSignal();
// Blocks until a stop signal has arrived (at once if one has). After installStopHandlers(); one
// thread at a time.
void waitForStopSignal();
// How many stop signals arrived so far: a second one gives up what the first left to finish.
int stopSignalCount();
// "Ctrl-C", "SIGTERM", "SIGHUP": for "stopped by ...".
const char* stopSignalName(int signal);
// For a run a stop signal ended before its work was done: says "stopped by Ctrl-C" (and `while`,
// if given: "while reading <stdin>") on stderr and returns the exit code, 128 + the signal, as
// the shell reports a process the signal ended.
int stoppedBeforeDone(const std::string& during = "");

}  // namespace kelvane::tools
