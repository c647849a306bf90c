// `iio-subhal serve` through the real tool and real HTTP: what a page on another site could send
// is refused, bad requests get one line, pages share one state, a recording made from the page
// replays, and Ctrl-C ends it all cleanly.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "host/description/DescriptionReader.h"
#include "tests/support/serve_client.h"

namespace {

using kelvane::testing::Follower;
using kelvane::testing::ProcessRun;
using Server = kelvane::testing::ServeUrl;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

ProcessRun runServe(const std::vector<std::string>& args,
                    const std::function<void(Server&)>& body) {
    std::vector<std::string> all = {"serve", "--port", "0"};
    all.insert(all.end(), args.begin(), args.end());
    return kelvane::testing::runServe(IIO_SUBHAL_PATH, all, body);
}

const char kSensorOneOn[] = R"("handle":1,"lastFlushMs":[^,]*,"on":true)";

// What every refusal's body is.
std::string error(const std::string& sentence) { return json{{"error", sentence}}.dump(); }

TEST(ServeTest, RefusesWhatAPageOnAnotherSiteCouldSend) {
    runServe({}, [](Server& s) {
        auto c = s.client();
        auto r = c->Get("/api/info");
        ASSERT_TRUE(r);
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(r->body, error("this request needs the token of the URL the tool printed"));
        EXPECT_EQ(r->get_header_value("Content-Type"), "application/json");
        r = c->Get("/api/info", {{"X-Token", std::string(32, '0')}});
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(c->Get("/api/info?token=" + s.token)->status, 200);
        EXPECT_EQ(c->Get("/api/info", s.headers())->status, 200);
        // DNS rebinding: a name that is not this server's, even with the token.
        r = c->Get("/api/info", s.headers("attacker.example:" + std::to_string(s.port)));
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(r->body, error("the Host header does not name this server"));
        EXPECT_EQ(c->Get("/", {{"Host", "attacker.example"}})->status, 403);
        EXPECT_EQ(c->Get("/api/info", s.headers("localhost:" + std::to_string(s.port)))->status,
                  200);
        EXPECT_EQ(c->Get("/api/info", s.headers("127.0.0.1:1"))->status, 403);
        // A page elsewhere that learned the token still may not post.
        httplib::Headers cross = s.headers();
        cross.emplace("Origin", "http://attacker.example");
        r = c->Post("/api/sensors/1/active", cross, R"({"on":true})", "application/json");
        EXPECT_EQ(r->status, 403);
        cross = s.headers();
        cross.emplace("Origin", "http://127.0.0.1:" + std::to_string(s.port));
        EXPECT_EQ(
            c->Post("/api/sensors/1/active", cross, R"({"on":false})", "application/json")->status,
            200);
        // No cross-origin access is ever granted, preflight included.
        r = c->Options("/api/sensors/1/active", {{"Origin", "http://attacker.example"},
                                                 {"Access-Control-Request-Method", "POST"}});
        EXPECT_FALSE(r->has_header("Access-Control-Allow-Origin"));
        EXPECT_GE(r->status, 400);
        EXPECT_FALSE(c->Get("/", s.headers())->has_header("Access-Control-Allow-Origin"));
        EXPECT_NE(c->Get("/")->get_header_value("Content-Security-Policy"), "");
    });
}

TEST(ServeTest, AnswersBadRequestsWithOneLine) {
    runServe({}, [](Server& s) {
        auto c = s.client();
        auto expect = [&](const httplib::Result& r, int status, const std::string& body) {
            ASSERT_TRUE(r);
            EXPECT_EQ(r->status, status) << r->body;
            EXPECT_EQ(r->body, error(body));
        };
        expect(c->Get("/nothing/here"), 404, "nothing at /nothing/here");
        expect(c->Get("/assets/secret.txt"), 404, "no asset named secret.txt");
        auto post = [&](const std::string& path, const std::string& body) {
            return c->Post(path, s.headers(), body, "application/json");
        };
        expect(post("/api/sensors/99/active", R"({"on":true})"), 404, "no sensor has handle 99");
        expect(post("/api/sensors/99999999999/flush", "{}"), 400,
               "bad sensor handle: no sensor handle is that large: \"99999999999\"");
        expect(post("/api/sensors/1/active", "{on"), 400, "the body is not a JSON object");
        expect(post("/api/sensors/1/active", R"({"on":1})"), 400,
               R"(expected {"on": true} or {"on": false})");
        for (const char* hz : {"0", "1e10", "\"50\"", "-1", "[]"}) {
            expect(post("/api/sensors/1/rate", std::string(R"({"hz":)") + hz + "}"), 400,
                   R"(expected {"hz": N}, a rate from 0.001 to 1e9 Hz, or {"hz": null} for )"
                   "the default");
        }
        expect(c->Get("/api/sensors/1/active", s.headers()), 405,
               "GET is not served at /api/sensors/1/active");
        expect(post("/api/check", R"({"quick":"yes"})"), 400,
               R"(expected {"quick": true} or {"quick": false})");
        expect(post("/api/recording/stop", "{}"), 409, "no recording is running");
        expect(c->Get("/api/recording", s.headers()), 404, "nothing was recorded yet");
        auto big = post("/api/sensors/1/active", std::string(64 * 1024, ' '));
        ASSERT_TRUE(big);
        EXPECT_EQ(big->status, 413);
    });
}

TEST(ServeTest, PagesShareOneStateAndNothingStopsWhenOneGoes) {
    const ProcessRun run = runServe({}, [](Server& s) {
        Follower first(s);
        Follower second(s);
        ASSERT_TRUE(first.waitFor("event: recording"));
        ASSERT_TRUE(second.waitFor("event: recording"));
        auto c = s.client();
        ASSERT_EQ(s.post("/api/sensors/1/rate", R"({"hz":100})"), 200);
        ASSERT_EQ(s.post("/api/sensors/1/active", R"({"on":true})"), 200);
        EXPECT_TRUE(first.waitFor(kSensorOneOn));
        EXPECT_TRUE(second.waitFor(kSensorOneOn));
        EXPECT_TRUE(second.waitFor(R"("askedHz":100(\.0)?,[^}]*"handle":1,[^}]*"rateHz":100)"));
        // An empty rate box: back to the default.
        ASSERT_EQ(s.post("/api/sensors/1/rate", R"({"hz":null})"), 200);
        EXPECT_TRUE(second.waitFor(R"("askedHz":null,[^}]*"handle":1,[^}]*"rateHz":null)"));
        first.stop();  // a page closes
        EXPECT_TRUE(
            second.waitFor(R"(event: samples\ndata: \{"sensors":\[\{"handle":1,"total":[0-9]{3})"));
        // A third page starts from the same state.
        Follower third(s);
        EXPECT_TRUE(third.waitFor(kSensorOneOn));
        // A flush is answered and shown to every page.
        ASSERT_EQ(s.post("/api/sensors/1/flush", "{}"), 200);
        EXPECT_TRUE(third.waitFor(R"("flushes":1,"handle":1)"));

        // While a check runs the controls are refused, with the reason.
        ASSERT_EQ(s.post("/api/check", R"({"quick":true})"), 200);
        ASSERT_TRUE(third.waitFor(R"("suspended":"a check is running)"));
        auto refused =
            c->Post("/api/sensors/1/active", s.headers(), R"({"on":false})", "application/json");
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->status, 409);
        EXPECT_EQ(refused->body, error("a check is running; the controls return when it ends"));
    });
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

// The built-in host's light sensor runs at 20 Hz at most: each page sees the rate asked beside the
// one the host answered, and a later answer replaces the shown one.
TEST(ServeTest, ShowsTheRateTheHostAnsweredBesideTheOneAsked) {
    const ProcessRun run = runServe({}, [](Server& s) {
        auto c = s.client();
        auto info = c->Get("/api/info", s.headers());
        ASSERT_TRUE(info);
        const json sensors = json::parse(info->body)["sensors"];
        std::string light;
        for (const json& sensor : sensors) {
            if (sensor["type"] == 5) light = std::to_string(sensor["sensorHandle"].get<int>());
        }
        ASSERT_FALSE(light.empty()) << info->body;
        const auto post = [&](const std::string& what, const std::string& body) {
            return s.post("/api/sensors/" + light + "/" + what, body);
        };
        Follower page(s);
        ASSERT_EQ(post("rate", R"({"hz":400})"), 200);
        ASSERT_EQ(post("active", R"({"on":true})"), 200);
        EXPECT_TRUE(
            page.waitFor(R"("answeredHz":20(\.0)?,"askedHz":400(\.0)?,[^}]*"handle":)" + light));
        // Asked what the host can do: the same number twice.
        ASSERT_EQ(post("rate", R"({"hz":10})"), 200);
        EXPECT_TRUE(
            page.waitFor(R"("answeredHz":10(\.0)?,"askedHz":10(\.0)?,[^}]*"handle":)" + light));
    });
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST(ServeTest, RecordsFromThePageADescriptionThatReplays) {
    runServe({}, [](Server& s) {
        Follower page(s);
        auto c = s.client();
        ASSERT_EQ(s.post("/api/recording/start", "{}"), 200);
        EXPECT_EQ(s.post("/api/recording/start", "{}"), 409);
        ASSERT_EQ(s.post("/api/sensors/4/active", R"({"on":true})"), 200);
        ASSERT_TRUE(page.waitFor(R"("handle":4,"total":[0-9]{2})"));
        ASSERT_EQ(s.post("/api/recording/stop", "{}"), 200);
        EXPECT_TRUE(page.waitFor(R"("recording":false,"samples":[1-9])"));
        auto r = c->Get("/api/recording?token=" + s.token);
        ASSERT_TRUE(r);
        ASSERT_EQ(r->status, 200);
        EXPECT_EQ(r->get_header_value("Content-Disposition"),
                  "attachment; filename=\"recording.json\"");
        kelvane::host::description::HostConfig config;
        std::string error;
        ASSERT_TRUE(kelvane::host::description::parseHostDescription(r->body, &config, &error))
            << error;
        size_t samples = 0;
        for (const auto& device : config.devices) {
            if (device.timedSamples) samples += device.timedSamples->size();
        }
        EXPECT_GE(samples, 10u);  // the page saw ten events of them
        EXPECT_EQ(config.devices.size(), 5u);
    });
}

// A recording served again: the page gets the recorded samples and is told when the replay is
// over.
TEST(ServeTest, ServesARecording) {
    char dir[] = "/tmp/serve-replay-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string recording = std::string(dir) + "/rec.json";
    const ProcessRun recorded = kelvane::testing::runProcess(
        {IIO_SUBHAL_PATH, "stream", "--sensor", "1", "--count", "50", "--record", recording});
    ASSERT_EQ(recorded.exitCode, 0) << recorded.err;
    const ProcessRun run = runServe({"--host", recording, "--speed", "0"}, [&](Server& s) {
        auto info = s.client()->Get("/api/info", s.headers());
        ASSERT_TRUE(info);
        EXPECT_EQ(json::parse(info->body)["host"], "the emulated host of " + recording);
        Follower page(s);
        // Subscribed before the sensor starts: at --speed 0 the replay is one batch of samples,
        // which a page that subscribes after it never sees.
        ASSERT_TRUE(page.waitFor("event: host"));
        s.client()->Post("/api/sensors/1/active", s.headers(), R"({"on":true})",
                         "application/json");
        EXPECT_TRUE(page.waitFor(R"("handle":1,"total":[1-9])"));
        EXPECT_TRUE(page.waitFor(R"("replayOver":true)"));
    });
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::remove(recording.c_str());
    rmdir(dir);
}

TEST(ServeTest, CtrlCEndsEveryStreamAndTheTool) {
    std::unique_ptr<Follower> page;
    const ProcessRun run = runServe({}, [&](Server& s) {
        s.client()->Post("/api/sensors/1/active", s.headers(), R"({"on":true})",
                         "application/json");
        page = std::make_unique<Follower>(s);
        ASSERT_TRUE(page->waitFor("event: samples"));
    });
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("iio-subhal: stopped by Ctrl-C\n"), std::string::npos) << run.err;
    ASSERT_TRUE(page);
    EXPECT_FALSE(page->waitFor("a frame that never comes"));  // answers once the stream ended
    EXPECT_TRUE(page->ended());
}

ProcessRun runTool(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return kelvane::testing::runProcess(argv);
}

TEST(ServeTest, OptionsAreCheckedAndAWideBindIsSaid) {
    ProcessRun run = runTool({"serve", "--port", "70000"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err,
              "iio-subhal: serve: --port: expected a port from 0 to 65535 (0: a free one), got "
              "\"70000\" (iio-subhal help serve)\n");
    run = runTool({"serve", "--bind", "localhost"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("--bind: expected an IP address"), std::string::npos) << run.err;
    EXPECT_EQ(runTool({"serve", "--record", "x.json"}).exitCode, 2);
    EXPECT_EQ(runTool({"serve", "--json"}).exitCode, 2);

    // A port already taken is one line and exit 1.
    const int taken = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(taken, 1), 0);
    ASSERT_EQ(getsockname(taken, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const int port = ntohs(address.sin_port);
    run = runTool({"serve", "--port", std::to_string(port)});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("iio-subhal: cannot listen on 127.0.0.1:" + std::to_string(port) +
                           ": Address already in use (--port 0 picks a free port)\n"),
              std::string::npos)
        << run.err;
    close(taken);

    run = runServe({"--bind", "0.0.0.0"}, [](Server& s) {
        // Bound to every address: an IP address in Host is fine, a name other than localhost not.
        auto c = s.client();
        EXPECT_EQ(c->Get("/api/info", s.headers("10.1.2.3:" + std::to_string(s.port)))->status,
                  200);
        EXPECT_EQ(c->Get("/api/info", s.headers("board.example:" + std::to_string(s.port)))->status,
                  403);
    });
    EXPECT_NE(run.err.find("iio-subhal: warning: serving on 0.0.0.0: anyone who can reach this "
                           "address and has the URL's token can control the sensors\n"),
              std::string::npos)
        << run.err;
}

}  // namespace
