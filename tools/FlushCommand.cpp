// flush HANDLE: flush() and the flush-complete event it must bring.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>

#include "Arguments.h"
#include "Command.h"
#include "Output.h"
#include "Stdout.h"
#include "StopSignals.h"

namespace kelvane::tools {

namespace {

using android::hardware::sensors::V1_0::Result;

constexpr std::chrono::seconds kFlushWait{2};
constexpr std::chrono::milliseconds kStopPoll{100};  // how soon a stop signal ends the wait

class FlushCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_option("handle", mHandleText, "sensor handle, as `iio-subhal list` shows it")
            ->type_name("HANDLE")
            ->required();
    }

    std::string checkOptions() override {
        std::string error;
        if (parseHandle(mHandleText, &mHandle, &error)) return {};
        return (error.empty() ? "expected a sensor handle (a number such as 1), got \"" +
                                    printable(mHandleText) + "\""
                              : error);
    }

    std::string onInterrupt() const override { return endsKeepingTheRecording(); }
    bool endsOnStopSignal() const override { return true; }

    int run(Session& session) override {
        if (stopSignal() != 0) return stoppedBeforeDone();
        const auto* sensor = session.find(mHandle);
        if (sensor == nullptr) {
            printError("unknown sensor handle " + std::to_string(mHandle) +
                       " (see `iio-subhal list`)");
            return kExitFailure;
        }
        Result result = session.subHal()->flush(mHandle);
        if (result != Result::OK) {
            printError("flush(" + std::to_string(mHandle) + ") answered " +
                       std::to_string(static_cast<int>(result)));
            return kExitFailure;
        }
        const auto deadline = std::chrono::steady_clock::now() + kFlushWait;
        int completions = 0;
        while (completions == 0 && std::chrono::steady_clock::now() < deadline &&
               stopSignal() == 0) {
            const auto until = std::min(deadline, std::chrono::steady_clock::now() + kStopPoll);
            for (const Event& event : session.callback().queue().takeUntil(until)) {
                if (!isMeta(event) || event.sensorHandle != mHandle) continue;
                ++completions;
                writeStdout((session.json() ? eventJson(event) : eventText(event, sensor->name)) +
                            "\n");
            }
        }
        if (completions == 0 && stopSignal() != 0) return stoppedBeforeDone();
        if (completions == 0) {
            printError("no flush-complete event for sensor " + std::to_string(mHandle) +
                       " within 2 s");
            return kExitFailure;
        }
        return kExitOk;
    }

  private:
    std::string mHandleText;
    int32_t mHandle = 0;
};

}  // namespace

std::unique_ptr<Command> makeFlushCommand() { return std::make_unique<FlushCommand>(); }

}  // namespace kelvane::tools
