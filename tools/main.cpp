// iio-subhal: loads the IIO sensors sub-HAL the way the multi-HAL proxy does, against an emulated
// Chrome OS host, and shows what it publishes and streams.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "Commands.h"
#include "Session.h"
#include "check/CheckCommand.h"

using namespace kelvane::tools;

int main(int argc, char** argv) {
    CLI::App app{
        "Loads the IIO sensors sub-HAL like the multi-HAL proxy does, against an emulated "
        "Chrome OS host, and shows what it publishes and streams.",
        "iio-subhal"};
    // Common options are accepted after the subcommand too.
    app.fallthrough();
    app.require_subcommand(1);

    CommonOptions common;
    CLI::Option* hostOption =
        app.add_option("--host", common.hostFile,
                       "JSON description of the emulated host (default: the built-in host)")
            ->type_name("FILE");
    app.add_option("--iio", common.iioUri,
                   "serve real IIO devices through libiio instead: local: (this machine), "
                   "ip:HOST (a board running iiod) or any libiio context URI")
        ->type_name("URI")
        ->excludes(hostOption);
    app.add_option("--library", common.library,
                   "sub-HAL library to load (default: ../lib/libiio-sensors-subhal.so beside "
                   "this program)")
        ->type_name("PATH");
    app.add_flag("--json", common.json, "print JSON instead of text");
    app.add_flag("--log", common.log, "show the library's log lines on stderr");
    app.add_option("--speed", common.speed,
                   "host time runs this many times faster: recorded samples and the timeline "
                   "(default 1; 0: no waiting)")
        ->type_name("X")
        ->check(CLI::Range(0.0, 1e6));

    CLI::App* list = app.add_subcommand("list", "print the published sensors");

    StreamOptions streamOptions;
    CLI::App* stream = app.add_subcommand("stream", "enable sensors and print their events");
    stream
        ->add_option("--sensor", streamOptions.sensors,
                     "handle, type (accelerometer), sensor name or all; repeatable "
                     "(default: all)")
        ->type_name("SENSOR")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    double rate = 0;
    int64_t period = 0;
    CLI::Option* rateOption = stream->add_option("--rate", rate, "sampling rate in Hz")
                                  ->type_name("HZ")
                                  ->check(CLI::PositiveNumber);
    CLI::Option* periodOption =
        stream->add_option("--period-ns", period, "sampling period in nanoseconds")
            ->type_name("NS")
            ->check(CLI::PositiveNumber);
    rateOption->excludes(periodOption);
    stream
        ->add_option("--record", common.recordFile,
                     "write what the host served as a host description that replays it")
        ->type_name("FILE");
    stream
        ->add_option("--duration", streamOptions.durationSeconds,
                     "stop after this many seconds (default 3)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    uint64_t count = 0;
    CLI::Option* countOption =
        stream->add_option("--count", count, "stop after this many events in total")
            ->type_name("N")
            ->check(CLI::PositiveNumber);

    int32_t flushHandle = 0;
    CLI::App* flush =
        app.add_subcommand("flush", "flush a sensor and print the flush-complete event");
    flush->add_option("handle", flushHandle, "sensor handle")->type_name("HANDLE")->required();

    CLI::App* dump = app.add_subcommand("dump", "print the sub-HAL's debug report");

    check::CheckOptions checkOptions;
    CLI::App* checkCommand = check::addCheckCommand(app, &checkOptions);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? kExitOk : kExitUsage;
    }
    if (*rateOption) streamOptions.rateHz = rate;
    if (*periodOption) streamOptions.periodNs = period;
    if (*countOption) streamOptions.count = count;

    int result = kExitOk;
    {
        Session session;
        result = session.open(common);
        if (result == kExitOk) {
            if (*list) {
                result = runList(session);
            } else if (*stream) {
                result = runStream(session, streamOptions);
            } else if (*flush) {
                result = runFlush(session, flushHandle);
            } else if (*dump) {
                result = runDump(session);
            } else if (*checkCommand) {
                result = check::runCheck(session, checkOptions, common.json);
            }
        }
        const int closed = session.close();  // the emulated host goes here, before main returns
        if (result == kExitOk) result = closed;
    }
    return result;
}
