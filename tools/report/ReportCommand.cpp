// report: a recording (a host description with recorded samples, as `stream --record` or the
// page of `serve` writes it) as one self-contained HTML file to look at.
#include <CLI/CLI.hpp>

#include "Command.h"
#include "Diagnostics.h"
#include "Output.h"
#include "OutputFile.h"
#include "host/description/DescriptionReader.h"
#include "report/ReportPages.h"

namespace kelvane::tools {

namespace {

class ReportCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_option("recording", mInput, "the recording to report on; - reads standard input")
            ->type_name("FILE")
            ->required();
        app.add_option("-o,--output", mOutput, "the HTML file to write")
            ->type_name("FILE")
            ->required();
    }
    bool hasJson() const override { return false; }
    bool opensSession() const override { return false; }
    std::vector<FileArgument> outputFiles() const override {
        return {{"--output", mOutput, "report"}};
    }
    std::vector<FileArgument> inputFiles() const override {
        return {{"the recording", mInput, ""}};
    }
    bool printsOnStdout() const override { return false; }

    int run(Session&) override {
        const std::string name = mInput == "-" ? "<stdin>" : mInput;
        std::string error;
        // Before the input is read, so that a path that cannot be written costs no wait.
        std::unique_ptr<OutputFile> output =
            OutputFile::create(mOutput, OutputFile::Role{"--output", "report"}, &error);
        if (!output) {
            printError(printable(error));
            return kExitUsage;
        }
        host::description::HostConfig recording;
        if (!host::description::loadHostDescription(mInput, &recording, &error)) {
            printError(printable(error));
            return kExitUsage;
        }
        size_t samples = 0;
        for (const auto& device : recording.devices) {
            if (device.timedSamples) samples += device.timedSamples->size();
        }
        if (samples == 0) {
            printError(printable(name) +
                       ": no recorded samples (timedSamples) to report on; record some with "
                       "stream --record");
            return kExitUsage;
        }
        if (!output->commit(
                report::recordingReportPage(recording, name, {"the recording " + name, "", ""}),
                &error)) {
            printError(printable(error));
            return kExitFailure;
        }
        std::fprintf(stderr, "iio-subhal: wrote the report of %zu samples of %s to %s\n", samples,
                     printable(name).c_str(), printable(mOutput).c_str());
        return kExitOk;
    }

  private:
    std::string mInput;
    std::string mOutput;
};

}  // namespace

std::unique_ptr<Command> makeReportCommand() { return std::make_unique<ReportCommand>(); }

}  // namespace kelvane::tools
