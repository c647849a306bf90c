// iio-subhal: loads the IIO sensors sub-HAL the way the multi-HAL proxy does, against an emulated
// Chrome OS host, and shows what it publishes and streams.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Command.h"
#include "CommandLine.h"
#include "Output.h"
#include "OutputFile.h"
#include "Session.h"
#include "Stdout.h"
#include "StopSignals.h"

using namespace kelvane::tools;

namespace {

// One line here and one file per subcommand.
const CommandEntry kCommands[] = {
    {"list", "print the published sensors", makeListCommand},
    {"stream", "enable sensors and print their events", makeStreamCommand},
    {"flush", "flush a sensor and print the flush-complete event", makeFlushCommand},
    {"dump", "print the sub-HAL's debug report", makeDumpCommand},
    {"check", "run the Android conformance rules against the sub-HAL and its host",
     makeCheckCommand},
    {"serve", "a local web page: live charts, controls, dump, check and recording",
     makeServeCommand},
    {"report", "a recording as one self-contained HTML file", makeReportCommand},
    {"compare", "two recordings device by device, differences that matter first",
     makeCompareCommand},
};

// The common options that take a value.
const std::vector<std::string> kValueOptions = {"--host", "--iio", "--library", "--speed",
                                                "--record"};

struct Subcommand {
    CLI::App* app;
    std::unique_ptr<Command> command;
};

// The command line as the tool knows it.
struct Tool {
    CLI::App app{
        "Loads the IIO sensors sub-HAL like the multi-HAL proxy does, against an emulated "
        "Chrome OS host, and shows what it publishes and streams.",
        "iio-subhal"};
    CommonOptions common;
    CLI::Option* speedOption = nullptr;
    std::vector<Subcommand> subcommands;
    CLI::App* help = nullptr;
    std::string subcommandNames;  // "list, stream, ..., report or help"
    std::string helpTopic;        // never parsed: helpWords() reads it first
};

int usageError(const std::string& message) {
    printError(message);
    return kExitUsage;
}

// A descriptor 0, 1 or 2 the tool was started without would be the next file it opens (a
// recording, a socket): what it prints there would land in that file. /dev/null takes the place.
void openClosedStandardDescriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        const int opened = open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
        if (opened > fd) close(opened);  // the lower ones were open: not ours to replace
    }
}

void addCommonOptions(Tool& tool) {
    CLI::App& app = tool.app;
    CommonOptions& common = tool.common;
    CLI::Option* hostOption =
        app.add_option("--host", common.hostFile,
                       "JSON description of the emulated host; - reads it from standard input "
                       "(default: the built-in host)")
            ->type_name("FILE");
    app.add_option("--iio", common.iioUri,
                   "serve real IIO devices through libiio instead: local: (this machine), "
                   "ip:HOST (a board running iiod) or any libiio context URI")
        ->type_name("URI")
        ->excludes(hostOption);
    app.add_option("--library", common.library,
                   "sub-HAL library to load; a bare name is a file in the current directory "
                   "(default: ../lib/iio-subhal/libiio-sensors-subhal.so beside this program)")
        ->type_name("PATH");
    app.add_flag("--json", common.json, "print JSON instead of text");
    app.add_flag("--log", common.log, "show the library's log lines on stderr");
    tool.speedOption =
        app.add_option("--speed", common.speed,
                       "host time runs this many times faster: recorded samples and the timeline "
                       "(default 1; 0: no waiting)")
            ->type_name("X")
            ->check(CLI::Validator(
                [](std::string& text) {
                    double speed = 0;
                    return parseSpeed(text, &speed);
                },
                ""));  // a description would show in the help as "X:..."
}

void addSubcommands(Tool& tool) {
    CLI::App& app = tool.app;
    for (const CommandEntry& entry : kCommands) {
        CLI::App* sub = app.add_subcommand(entry.name, entry.summary);
        sub->allow_extras();
        std::unique_ptr<Command> command = entry.make();
        command->addOptions(*sub);
        tool.subcommands.push_back({sub, std::move(command)});
        tool.subcommandNames += std::string(entry.name) + ", ";
    }
    tool.subcommandNames.resize(tool.subcommandNames.size() - 2);
    tool.subcommandNames += " or help";
    tool.help = app.add_subcommand("help", "print the help of a subcommand");
    tool.help
        ->add_option("subcommand", tool.helpTopic,
                     tool.subcommandNames + " (default: the tool's own help)")
        ->type_name("SUBCOMMAND");
    app.add_option("--record", tool.common.recordFile,
                   "write what the host served as a host description that replays it")
        ->type_name("FILE");
    const std::string commonHelp = commonOptionsHelp(app);
    for (Subcommand& s : tool.subcommands) {
        s.app->footer("\n" + commonHelp + "\n" + s.command->onInterrupt() + "\n\n" +
                      exitCodesHelp());
    }
    app.footer("Run `iio-subhal help SUBCOMMAND` for a subcommand's options.\n\n" +
               exitCodesHelp());
}

// Help goes to stdout like any result: a write that fails there is an error too.
int printHelp(const std::string& text) {
    writeStdout(text);
    return finishStdout(kExitOk);
}

int helpOf(Tool& tool, const std::vector<std::string>& words) {
    if (words.size() > 1) {
        return usageError("help takes one subcommand, got " + std::to_string(words.size()) +
                          " (iio-subhal help)");
    }
    if (words.empty()) {
        return printHelp(tool.app.get_formatter()->make_help(&tool.app, "iio-subhal",
                                                             CLI::AppFormatMode::Normal));
    }
    if (words[0] == "help") return printHelp(tool.help->help("iio-subhal"));
    for (const Subcommand& s : tool.subcommands) {
        if (s.app->get_name() == words[0]) return printHelp(s.app->help("iio-subhal"));
    }
    return usageError(unexpectedArguments(words, tool.app, nullptr));
}

// Parses the command line; returns the exit code when it already answered (help, an error).
std::optional<int> parse(Tool& tool, std::vector<std::string> args) {
    if (std::string word = dropEndOfOptions(&args); !word.empty()) {
        return usageError("\"" + printable(word) +
                          "\" comes after --, where options are not read (iio-subhal --help)");
    }
    // "help flush" is answered here: CLI11 would parse it as the flush subcommand, missing its
    // handle.
    if (auto words = helpWords(args, kValueOptions)) return helpOf(tool, *words);
    if (std::string problem = misreadValue(args, tool.app); !problem.empty()) {
        return usageError(problem);
    }
    try {
        std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 pops from the back
        tool.app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return printHelp(tool.app.help());  // the subcommand's, if one was given
    } catch (const CLI::CallForVersion& e) {
        return printHelp(std::string(e.what()) + "\n");
    } catch (const CLI::ParseError& e) {
        const CLI::App* chosen =
            tool.app.get_subcommands().empty() ? nullptr : tool.app.get_subcommands()[0];
        return usageError(parseErrorLine(e, tool.app, chosen, args));
    }
    return std::nullopt;
}

// The subcommand chosen, once the words and values that need no library are found sound.
Subcommand* choose(Tool& tool, int* exitCode) {
    const std::vector<CLI::App*> chosen = tool.app.get_subcommands();
    const CLI::App* sub = chosen.empty() ? nullptr : chosen[0];
    const std::vector<std::string> leftover = tool.app.remaining(true);
    *exitCode = kExitUsage;
    if (!leftover.empty()) {
        printError(unexpectedArguments(leftover, tool.app, sub));
        return nullptr;
    }
    if (sub == nullptr) {
        printError("no subcommand given: " + tool.subcommandNames + " (iio-subhal --help)");
        return nullptr;
    }
    // An empty value would mean the default (`--iio ""` the built-in emulated host), which is
    // never what an unset variable in a script meant.
    for (const char* name : {"--host", "--iio", "--library", "--record"}) {
        const CLI::Option* option = tool.app.get_option(name);
        if (option->count() != 0 && option->as<std::string>().empty()) {
            printError(std::string(name) + " is empty; give a " + option->get_type_name() +
                       " or leave the option out (iio-subhal --help)");
            return nullptr;
        }
    }
    for (Subcommand& s : tool.subcommands) {
        if (s.app == sub) return &s;
    }
    return nullptr;
}

// What the chosen command refuses of the common options, and outputs that would destroy an
// input or each other; "" when all is well.
std::string commandProblem(const Tool& tool, const Subcommand& chosen) {
    const std::string name = chosen.app->get_name();
    const std::string hint = " (iio-subhal help " + name + ")";
    Command& command = *chosen.command;
    if (tool.common.json && !command.hasJson()) return name + " prints text only; drop --json";
    if (std::string problem = command.checkOptions(); !problem.empty()) {
        return name + ": " + problem + hint;
    }
    if (!command.opensSession()) {
        for (const std::string& option : kValueOptions) {
            if (tool.app.get_option(option)->count() != 0) {
                return name + " loads no library and runs no host; drop " + option + hint;
            }
        }
    }
    if (command.recordsOnDemand() && !tool.common.recordFile.empty()) {
        return name + " records from its page; drop --record" + hint;
    }
    std::vector<FileArgument> outputs = command.outputFiles();
    if (!tool.common.recordFile.empty()) {
        outputs.push_back({"--record", tool.common.recordFile, "recording"});
    }
    std::vector<FileArgument> inputs = command.inputFiles();
    inputs.push_back({"the --host input", tool.common.hostFile, ""});
    inputs.push_back({"the --library", tool.common.library, ""});
    return outputClash(outputs, inputs, command.printsOnStdout());
}

int run(Tool& tool, Command& command) {
    tool.common.recordOnDemand = command.recordsOnDemand();
    tool.common.speedGiven = tool.speedOption->count() != 0;
    // A reader that went away is a write error (EPIPE) to report, never a silent death, and so
    // is a host connection that went away.
    signal(SIGPIPE, SIG_IGN);
    if (command.endsOnStopSignal()) installStopHandlers();

    Session session;
    int result = command.opensSession() ? session.open(tool.common) : kExitOk;
    if (result == kExitOk) result = command.run(session);
    const int closed = session.close();  // the host goes here, before main returns
    if (result == kExitOk) result = closed;
    return finishStdout(result);
}

}  // namespace

int main(int argc, char** argv) {
    openClosedStandardDescriptors();
    Tool tool;
    // Common options are accepted after the subcommand too; unknown words are reported here,
    // with a suggestion, rather than by CLI11.
    tool.app.fallthrough();
    tool.app.allow_extras();
    tool.app.formatter(std::make_shared<HelpFormatter>());  // subcommands made later take it too
    tool.app.set_version_flag("--version",
                              "iio-subhal " IIO_SUBHAL_VERSION " (loads sub-HALs of version 2.1)");
    addCommonOptions(tool);
    addSubcommands(tool);

    if (std::optional<int> answered =
            parse(tool, std::vector<std::string>(argv + 1, argv + argc))) {
        return *answered;
    }
    int exitCode = kExitOk;
    Subcommand* chosen = choose(tool, &exitCode);
    if (chosen == nullptr) return exitCode;
    if (std::string problem = commandProblem(tool, *chosen); !problem.empty()) {
        return usageError(problem);
    }
    return run(tool, *chosen->command);
}
