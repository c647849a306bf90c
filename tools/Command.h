// A subcommand of iio-subhal: its options, the checks on their values that need no library, and
// the run against an open session. Adding a subcommand is one file and one line in main.cpp.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OutputFile.h"
#include "Session.h"

// The command-line library is costly to compile; only the commands that add options include it.
namespace CLI {
class App;
}  // namespace CLI

namespace kelvane::tools {

class Command {
  public:
    virtual ~Command() = default;

    // Adds the subcommand's own options and arguments to `app`. Values land in the command.
    virtual void addOptions(CLI::App& app) = 0;
    // After parsing, before anything is loaded: a one-line usage error, or "" when all is well.
    virtual std::string checkOptions() { return {}; }
    // The files the command writes and reads besides --record, --host and --library, so that
    // none replaces another before anything runs (outputClash()).
    virtual std::vector<FileArgument> outputFiles() const { return {}; }
    virtual std::vector<FileArgument> inputFiles() const { return {}; }
    // Whether the command prints its results on stdout, where an output "-" would mix in.
    virtual bool printsOnStdout() const { return true; }
    // Whether --json changes what the subcommand prints; if not, --json is refused.
    virtual bool hasJson() const { return true; }
    // What Ctrl-C does to this subcommand, for its help.
    virtual std::string onInterrupt() const {
        return "Ctrl-C ends the tool at once (the shell sees 130).";
    }
    // The onInterrupt() of a command that ends on a stop signal with nothing of its own to
    // finish: only the recording.
    static std::string endsKeepingTheRecording() {
        return "Ctrl-C (or SIGTERM, or SIGHUP) ends the run (the shell sees 128 + the signal: 130 "
               "for Ctrl-C), once the library has enumerated if it was enumerating; with "
               "--record, what the host served so far is written, as on any ending.";
    }
    // Whether SIGINT, SIGTERM and SIGHUP only ask the run to end (StopSignals.h) rather than
    // end the tool; if so they do from before the session opens.
    virtual bool endsOnStopSignal() const { return false; }
    // Whether the command records on demand (Session::recorder()) rather than with --record,
    // which it then refuses.
    virtual bool recordsOnDemand() const { return false; }
    // Whether run() needs the library loaded against a host. A command that only reads and
    // writes files (a report of a recording) answers false: it runs on a session never opened,
    // and the common options that choose a host or a library are refused.
    virtual bool opensSession() const { return true; }
    // Runs on an open session (see opensSession()); returns the exit code. Stdout goes through
    // Stdout.h.
    virtual int run(Session& session) = 0;
};

struct CommandEntry {
    const char* name;
    const char* summary;
    std::unique_ptr<Command> (*make)();
};

std::unique_ptr<Command> makeListCommand();
std::unique_ptr<Command> makeStreamCommand();
std::unique_ptr<Command> makeFlushCommand();
std::unique_ptr<Command> makeDumpCommand();
std::unique_ptr<Command> makeCheckCommand();
std::unique_ptr<Command> makeServeCommand();
std::unique_ptr<Command> makeReportCommand();
std::unique_ptr<Command> makeCompareCommand();

}  // namespace kelvane::tools
