// serve: a local web server and its page, to look at the sensors rather than read them: the
// published list, live charts per axis with the observed rate, jitter and latency, on/off, rate
// and flush per sensor, the debug dump, a check run and a recording to download.
#include <arpa/inet.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <ctime>

#include "Command.h"
#include "Diagnostics.h"
#include "Output.h"
#include "Stdout.h"
#include "StopSignals.h"
#include "serve/CheckJob.h"
#include "serve/Controller.h"
#include "serve/EventPump.h"
#include "serve/EventStream.h"
#include "serve/HttpServer.h"
#include "serve/RecordingControl.h"
#include "serve/RequestGuard.h"
#include "serve/SensorControls.h"
#include "serve/ServeApi.h"

namespace kelvane::tools {

namespace {

// Pages that may follow the live stream at once, and how far each may fall behind.
constexpr size_t kMaxPages = 4;
constexpr size_t kPageBacklogBytes = 32 << 20;
constexpr int kDefaultPort = 8642;

bool isLoopback(const std::string& address) {
    unsigned char bytes[16];
    if (inet_pton(AF_INET, address.c_str(), bytes) == 1) return bytes[0] == 127;
    return address == "::1";
}

// A new file in the current directory for a recording that a stop ended:
// serve-recording-20260125-134502.json, or ...-2.json and on if that exists.
std::string newRecordingPath() {
    char stamp[32];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &local);
    std::string path = std::string("serve-recording-") + stamp + ".json";
    for (int n = 2; access(path.c_str(), F_OK) == 0; ++n) {
        path = std::string("serve-recording-") + stamp + "-" + std::to_string(n) + ".json";
    }
    return path;
}

class ServeCommand : public Command {
  public:
    void addOptions(CLI::App& app) override {
        app.add_option("--port", mPortText,
                       "TCP port to listen on (default " + std::to_string(kDefaultPort) +
                           "; 0: a free one)")
            ->type_name("PORT");
        app.add_option("--bind", mBind,
                       "address to listen on (default 127.0.0.1, this machine only)")
            ->type_name("ADDR");
    }

    std::string checkOptions() override {
        if (!mPortText.empty()) {
            char* end = nullptr;
            errno = 0;
            const long port = std::strtol(mPortText.c_str(), &end, 10);
            if (*end != '\0' || errno != 0 || port < 0 || port > 65535 || mPortText[0] == '-' ||
                mPortText[0] == '+' || mPortText[0] == ' ') {
                return "--port: expected a port from 0 to 65535 (0: a free one), got \"" +
                       printable(mPortText) + "\"";
            }
            mPort = static_cast<int>(port);
        }
        unsigned char bytes[16];
        if (inet_pton(AF_INET, mBind.c_str(), bytes) != 1 &&
            inet_pton(AF_INET6, mBind.c_str(), bytes) != 1) {
            return "--bind: expected an IP address (127.0.0.1, 0.0.0.0, ::1), got \"" +
                   printable(mBind) + "\"";
        }
        return {};
    }

    bool hasJson() const override { return false; }
    bool recordsOnDemand() const override { return true; }
    bool endsOnStopSignal() const override { return true; }
    std::string onInterrupt() const override {
        return "Ctrl-C (or SIGTERM, or SIGHUP) stops the server within a second: open pages lose "
               "their stream, a running check is abandoned, every sensor is switched off, and a "
               "recording started from the page is written to serve-recording-<time>.json.";
    }

    int run(Session& session) override;

  private:
    // Prints the URL (stdout) and what is served (stderr).
    void announce(Session& session, int port, const std::string& token) const;

    std::string mPortText;
    int mPort = kDefaultPort;
    std::string mBind = "127.0.0.1";
};

int ServeCommand::run(Session& session) {
    using namespace serve;
    if (stopSignal() != 0) return kExitOk;  // stopped while the library enumerated
    const int64_t originNs = android::elapsedRealtimeNano();
    EventStream stream(kMaxPages, kPageBacklogBytes);
    Controller controller;
    SensorControls controls(session, stream, controller);
    // A replay's events carry the recording's clock: its times count from the recording's start.
    const int64_t eventOriginNs =
        session.replays() ? session.recordingStartBootTimeNs().value_or(originNs) : originNs;
    EventPump pump(session, stream, controls, eventOriginNs);
    CheckJob check(session, stream, controls, pump);
    RecordingControl recording(session, stream, originNs);
    std::unique_ptr<ServeApi> api;
    HttpServer server([&api](const HttpRequest& request, HttpServer::Respond respond) {
        api->handle(request, std::move(respond));
    });

    std::string error;
    if (!server.bind(mBind, mPort, &error)) {
        printError(error + (mPort != 0 ? " (--port 0 picks a free port)" : ""));
        return kExitFailure;
    }
    const std::string token = newToken();
    api = std::make_unique<ServeApi>(
        ServeParts{session, stream, controller, controls, check, recording},
        RequestGuard(mBind, server.port(), token));
    announce(session, server.port(), token);
    server.start();

    waitForStopSignal();

    // The pages' streams and every connection end first; then nothing calls the library but
    // what switches the sensors off.
    stream.close();
    server.stop();
    check.cancel();
    pump.stop();
    controls.switchAllOff();
    controller.stop();
    const std::string saved = recording.finish(newRecordingPath());
    if (!saved.empty()) std::fprintf(stderr, "iio-subhal: %s\n", saved.c_str());
    std::fprintf(stderr, "iio-subhal: stopped by %s\n", stopSignalName(stopSignal()));
    return kExitOk;
}

void ServeCommand::announce(Session& session, int port, const std::string& token) const {
    if (!isLoopback(mBind)) {
        printWarning("serving on " + mBind +
                     ": anyone who can reach this address and has the URL's token can control "
                     "the sensors");
    }
    const std::string shownAddress =
        mBind == "0.0.0.0" || mBind == "::"
            ? "127.0.0.1"
            : (mBind.find(':') != std::string::npos ? "[" + mBind + "]" : mBind);
    const std::string url =
        "http://" + shownAddress + ":" + std::to_string(port) + "/?token=" + token;
    writeStdout(url + "\n");
    flushStdout();
    std::fprintf(stderr, "iio-subhal: serving %zu sensors at %s (Ctrl-C stops)\n",
                 session.sensors().size(), url.c_str());
}

}  // namespace

std::unique_ptr<Command> makeServeCommand() { return std::make_unique<ServeCommand>(); }

}  // namespace kelvane::tools
