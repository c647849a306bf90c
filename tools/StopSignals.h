// The signals that end a stream early: SIGINT (Ctrl-C), SIGTERM and SIGHUP (a closed terminal or
// a dropped SSH session). They only raise a flag that the main thread polls, so the run still
// deactivates its sensors, prints its summary and writes its recording.
//
// A signal the tool was started with ignored (a script's background job, nohup) stays ignored.
#pragma once

namespace kelvane::tools {

// Installs the handlers. Main thread; idempotent.
void installStopHandlers();
// The stop signal that arrived first, or 0. Any thread.
int stopSignal();
// How many stop signals arrived so far: a second one gives up what the first left to finish.
int stopSignalCount();
// "Ctrl-C", "SIGTERM", "SIGHUP": for "stopped by ...".
const char* stopSignalName(int signal);

}  // namespace kelvane::tools
