// compare: two recordings of the same board (before and after a kernel or firmware change, say),
// device by device, differences that matter first; text on stdout, and with -o a self-contained
// HTML page with each channel of A and B overlaid.
#include <CLI/CLI.hpp>

#include "Asset.h"
#include "Command.h"
#include "Diagnostics.h"
#include "Output.h"
#include "OutputFile.h"
#include "Stdout.h"
#include "compare/Comparison.h"
#include "host/description/DescriptionReader.h"
#include "report/HtmlPage.h"

namespace kelvane::tools::web {
const Asset* comparePageAsset(std::string_view name);
}  // namespace kelvane::tools::web

namespace kelvane::tools {

namespace {

std::string_view asset(const web::Asset* found) { return found ? found->body : ""; }

class CompareCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_option("a", mA, "the recording before")->type_name("A.json")->required();
        app.add_option("b", mB, "the recording after")->type_name("B.json")->required();
        app.add_option("-o,--output", mOutput, "also write an HTML page with overlaid charts")
            ->type_name("FILE");
    }
    bool hasJson() const override { return false; }
    bool opensSession() const override { return false; }
    std::vector<FileArgument> outputFiles() const override {
        if (mOutput.empty()) return {};
        return {{"--output", mOutput, "comparison"}};
    }
    std::vector<FileArgument> inputFiles() const override {
        return {{"recording A", mA, ""}, {"recording B", mB, ""}};
    }

    int run(Session&) override {
        std::string error;
        std::unique_ptr<OutputFile> output;
        if (!mOutput.empty()) {
            output =
                OutputFile::create(mOutput, OutputFile::Role{"--output", "comparison"}, &error);
            if (!output) return usageError(error);
        }
        host::description::HostConfig a;
        host::description::HostConfig b;
        if (!host::description::loadHostDescription(mA, &a, &error) ||
            !host::description::loadHostDescription(mB, &b, &error)) {
            return usageError(error);
        }
        const compare::Comparison comparison = compare::compareRecordings(
            mA, compare::recordingFigures(a), mB, compare::recordingFigures(b));
        writeStdout(compare::comparisonText(comparison));
        flushStdout();
        if (output && !output->commit(page(comparison), &error)) {
            printError(printable(error));
            return kExitFailure;
        }
        return comparison.worse() ? kExitFailure : kExitOk;
    }

  private:
    static int usageError(const std::string& error) {
        printError(printable(error));
        return kExitUsage;
    }

    static std::string page(const compare::Comparison& comparison) {
        return report::selfContainedPage(
            "iio-subhal compare — " + comparison.nameA + " and " + comparison.nameB,
            {asset(web::chartAsset("uPlot.min.css")), asset(web::comparePageAsset("compare.css"))},
            compare::comparisonJson(comparison),
            {asset(web::chartAsset("uPlot.iife.min.js")), asset(web::chartAsset("dom.js")),
             asset(web::comparePageAsset("compare.js"))});
    }

    std::string mA;
    std::string mB;
    std::string mOutput;
};

}  // namespace

std::unique_ptr<Command> makeCompareCommand() { return std::make_unique<CompareCommand>(); }

}  // namespace kelvane::tools
