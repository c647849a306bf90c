// dump: the sub-HAL's debug report, as the proxy's dumpsys would get it.
#include "Command.h"
#include "DebugReport.h"
#include "Diagnostics.h"
#include "Stdout.h"
#include "StopSignals.h"

namespace kelvane::tools {

namespace {

class DumpCommand : public Command {
  public:
    void addOptions(CLI::App&) override {}
    bool hasJson() const override { return false; }

    std::string onInterrupt() const override { return endsKeepingTheRecording(); }
    bool endsOnStopSignal() const override { return true; }

    int run(Session& session) override {
        if (stopSignal() != 0) return stoppedBeforeDone();
        std::string report;
        std::string error;
        if (!debugReport(*session.subHal(), &report, &error)) {
            printError(error);
            return kExitFailure;
        }
        writeStdout(report);
        return kExitOk;
    }
};

}  // namespace

std::unique_ptr<Command> makeDumpCommand() { return std::make_unique<DumpCommand>(); }

}  // namespace kelvane::tools
