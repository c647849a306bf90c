// list: the published sensors, as a table or as one JSON array on one line.
#include "Command.h"
#include "Output.h"
#include "Stdout.h"
#include "StopSignals.h"

namespace kelvane::tools {

namespace {

class ListCommand : public Command {
  public:
    void addOptions(CLI::App&) override {}

    std::string onInterrupt() const override { return endsKeepingTheRecording(); }
    bool endsOnStopSignal() const override { return true; }

    int run(Session& session) override {
        if (stopSignal() != 0) return stoppedBeforeDone();
        writeStdout(session.json() ? sensorsJson(session.sensors())
                                   : sensorTable(session.sensors()));
        return kExitOk;
    }
};

}  // namespace

std::unique_ptr<Command> makeListCommand() { return std::make_unique<ListCommand>(); }

}  // namespace kelvane::tools
