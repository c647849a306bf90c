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
};

struct Subcommand {
    CLI::App* app;
    std::unique_ptr<Command> command;
};

int usageError(const std::string& message) {
    printError(message);
    return kExitUsage;
}

// CLI11's own errors, in the tool's one-line form.
int parseError(CLI::App& app, const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    const CLI::App* chosen = app.get_subcommands().empty() ? nullptr : app.get_subcommands()[0];
    const std::string hint = chosen != nullptr ? " (iio-subhal help " + chosen->get_name() + ")"
                                               : " (iio-subhal --help)";
    return usageError(e.what() + hint);
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
                "X"));

    std::vector<Subcommand> subcommands;
    for (const CommandEntry& entry : kCommands) {
        CLI::App* sub = app.add_subcommand(entry.name, entry.summary);
        sub->allow_extras();
        std::unique_ptr<Command> command = entry.make();
        command->addOptions(*sub);
        subcommands.push_back({sub, std::move(command)});
    }
    CLI::App* help = app.add_subcommand("help", "print the help of a subcommand");
    std::string helpTopic;
    help->add_option("subcommand", helpTopic)->type_name("SUBCOMMAND");

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

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return parseError(app, e);
    }

    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App* sub = chosen.empty() ? nullptr : chosen[0];
    std::vector<std::string> leftover = app.remaining(true);
    if (!leftover.empty()) return usageError(unexpectedArguments(leftover, app, sub));
    if (sub == nullptr) {
        return usageError(
            "no subcommand given: list, stream, flush, dump, check or help (iio-subhal --help)");
    }

    if (sub == help) {
        // "help stream" may reach CLI11 as the help subcommand followed by the stream one.
        const std::string topic = !helpTopic.empty()  ? helpTopic
                                  : chosen.size() > 1 ? chosen[1]->get_name()
                                                      : "";
        if (topic.empty()) {
            writeStdout(
                app.get_formatter()->make_help(&app, "iio-subhal", CLI::AppFormatMode::Normal));
            return finishStdout(kExitOk);
        }
        for (Subcommand& s : subcommands) {
            if (s.app->get_name() == topic) {
                writeStdout(s.app->help("iio-subhal"));
                return finishStdout(kExitOk);
            }
        }
        return usageError(unexpectedArguments({topic}, app, nullptr));
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

    common.speedGiven = speedOption->count() != 0;
    // A reader that went away is a write error (EPIPE) to report, never a silent death, and so
    // is a host connection that went away.
    signal(SIGPIPE, SIG_IGN);
    if (command->endsOnStopSignal()) installStopHandlers();

    Session session;
    int result = session.open(common);
    if (result == kExitOk) result = command->run(session);
    const int closed = session.close();  // the host goes here, before main returns
    if (result == kExitOk) result = closed;
    return finishStdout(result);
}
