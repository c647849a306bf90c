// iio-subhal: loads the IIO sensors sub-HAL the way the multi-HAL proxy does, against an emulated
// Chrome OS host, and shows what it publishes and streams.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Command.h"
#include "CommandLine.h"
#include "Output.h"
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
};

struct Subcommand {
    CLI::App* app;
    std::unique_ptr<Command> command;
};

int usageError(const std::string& message) {
    printError(message);
    return kExitUsage;
}

int helpOf(CLI::App& app, const std::vector<Subcommand>& subcommands, const CLI::App* help,
           const std::vector<std::string>& words) {
    if (words.size() > 1) {
        return usageError("help takes one subcommand, got " + std::to_string(words.size()) +
                          " (iio-subhal help)");
    }
    if (words.empty()) {
        writeStdout(app.get_formatter()->make_help(&app, "iio-subhal", CLI::AppFormatMode::Normal));
        return finishStdout(kExitOk);
    }
    if (words[0] == "help") {
        writeStdout(help->help("iio-subhal"));
        return finishStdout(kExitOk);
    }
    for (const Subcommand& s : subcommands) {
        if (s.app->get_name() == words[0]) {
            writeStdout(s.app->help("iio-subhal"));
            return finishStdout(kExitOk);
        }
    }
    return usageError(unexpectedArguments(words, app, nullptr));
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Loads the IIO sensors sub-HAL like the multi-HAL proxy does, against an emulated "
        "Chrome OS host, and shows what it publishes and streams.",
        "iio-subhal"};
    // Common options are accepted after the subcommand too; unknown words are reported here,
    // with a suggestion, rather than by CLI11.
    app.fallthrough();
    app.allow_extras();
    app.formatter(std::make_shared<HelpFormatter>());  // subcommands made later take it too
    app.set_version_flag("--version",
                         "iio-subhal " IIO_SUBHAL_VERSION " (loads sub-HALs of version 2.1)");

    CommonOptions common;
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
                   "(default: ../lib/libiio-sensors-subhal.so beside this program)")
        ->type_name("PATH");
    app.add_flag("--json", common.json, "print JSON instead of text");
    app.add_flag("--log", common.log, "show the library's log lines on stderr");
    CLI::Option* speedOption =
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

    std::vector<Subcommand> subcommands;
    for (const CommandEntry& entry : kCommands) {
        CLI::App* sub = app.add_subcommand(entry.name, entry.summary);
        sub->allow_extras();
        std::unique_ptr<Command> command = entry.make();
        command->addOptions(*sub);
        subcommands.push_back({sub, std::move(command)});
    }
    // "list, stream, ..., report or help"
    std::string subcommandNames;
    for (const CommandEntry& entry : kCommands) subcommandNames += std::string(entry.name) + ", ";
    subcommandNames = subcommandNames.substr(0, subcommandNames.size() - 2) + " or help";
    CLI::App* help = app.add_subcommand("help", "print the help of a subcommand");
    std::string helpTopic;  // read by helpWords() below, before CLI11 parses
    help->add_option("subcommand", helpTopic, subcommandNames + " (default: the tool's own help)")
        ->type_name("SUBCOMMAND");

    app.add_option("--record", common.recordFile,
                   "write what the host served as a host description that replays it")
        ->type_name("FILE");
    const std::string common_help = commonOptionsHelp(app);
    for (Subcommand& s : subcommands) {
        s.app->footer("\n" + common_help + "\n" + s.command->onInterrupt() + "\n\n" +
                      exitCodesHelp());
    }
    app.footer("Run `iio-subhal help SUBCOMMAND` for a subcommand's options.\n\n" +
               exitCodesHelp());

    std::vector<std::string> args(argv + 1, argv + argc);
    if (std::string word = dropEndOfOptions(&args); !word.empty()) {
        return usageError("\"" + printable(word) +
                          "\" comes after --, where options are not read (iio-subhal --help)");
    }
    // "help flush" is answered here: CLI11 would parse it as the flush subcommand, missing its
    // handle.
    if (auto words = helpWords(args, {"--host", "--iio", "--library", "--speed", "--record"})) {
        return helpOf(app, subcommands, help, *words);
    }
    try {
        std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 pops from the back
        app.parse(reversed);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
        const CLI::App* chosen = app.get_subcommands().empty() ? nullptr : app.get_subcommands()[0];
        return usageError(parseErrorLine(e, app, chosen, args));
    }

    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App* sub = chosen.empty() ? nullptr : chosen[0];
    std::vector<std::string> leftover = app.remaining(true);
    if (!leftover.empty()) return usageError(unexpectedArguments(leftover, app, sub));
    if (sub == nullptr) {
        return usageError("no subcommand given: " + subcommandNames + " (iio-subhal --help)");
    }
    // An empty value would mean the default (`--iio ""` the built-in emulated host), which is
    // never what an unset variable in a script meant.
    for (const char* name : {"--host", "--iio", "--library", "--record"}) {
        const CLI::Option* option = app.get_option(name);
        if (option->count() != 0 && option->as<std::string>().empty()) {
            return usageError(std::string(name) + " is empty; give a " + option->get_type_name() +
                              " or leave the option out (iio-subhal --help)");
        }
    }

    Command* command = nullptr;
    for (Subcommand& s : subcommands) {
        if (s.app == sub) command = s.command.get();
    }
    if (common.json && !command->hasJson()) {
        return usageError(sub->get_name() + " prints text only; drop --json");
    }
    if (std::string problem = command->checkOptions(); !problem.empty()) {
        return usageError(sub->get_name() + ": " + problem + " (iio-subhal help " +
                          sub->get_name() + ")");
    }

    if (!command->opensSession()) {
        for (const char* name : {"--host", "--iio", "--library", "--record", "--speed"}) {
            if (app.get_option(name)->count() != 0) {
                return usageError(sub->get_name() + " loads no library and runs no host; drop " +
                                  name + " (iio-subhal help " + sub->get_name() + ")");
            }
        }
    }

    if (command->recordsOnDemand() && !common.recordFile.empty()) {
        return usageError(sub->get_name() +
                          " records from its page; drop --record (iio-subhal help " +
                          sub->get_name() + ")");
    }
    common.recordOnDemand = command->recordsOnDemand();

    common.speedGiven = speedOption->count() != 0;
    // A reader that went away is a write error (EPIPE) to report, never a silent death, and so
    // is a host connection that went away.
    signal(SIGPIPE, SIG_IGN);
    if (command->endsOnStopSignal()) installStopHandlers();

    Session session;
    int result = command->opensSession() ? session.open(common) : kExitOk;
    if (result == kExitOk) result = command->run(session);
    const int closed = session.close();  // the host goes here, before main returns
    if (result == kExitOk) result = closed;
    return finishStdout(result);
}
