// `iio-subhal serve` through the real tool and real HTTP: what a page on another site could send
// is refused, bad requests get one line, pages share one state, a recording made from the page
// replays, and Ctrl-C ends it all cleanly.
#include <gtest/gtest.h>
#include <httplib.h>
#include <arpa/inet.h>
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
#include "tests/support/subprocess.h"

namespace {

using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

struct Server {
    int port = 0;
    std::string token;

    httplib::Headers headers(const std::string& host = "") const {
        httplib::Headers h = {{"X-Token", token}};
        if (!host.empty()) h.emplace("Host", host);
        return h;
    }
    std::unique_ptr<httplib::Client> client() const {
        auto c = std::make_unique<httplib::Client>("127.0.0.1", port);
        c->set_read_timeout(60);
        return c;
    }
};

// Runs `serve` with `args`; once it printed its URL, runs `body`, then sends SIGINT and waits.
ProcessRun runServe(const std::vector<std::string>& args, const std::function<void(Server&)>& body) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH, "serve", "--port", "0"};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    bool done = false;
    options.onOutput = [&](pid_t pid, const ProcessRun& run) {
        std::smatch match;
        static const std::regex url(R"(http://127\.0\.0\.1:(\d+)/\?token=([0-9a-f]{32})\n)");
        if (done || !std::regex_search(run.out, match, url)) return;
        done = true;
        Server server{std::stoi(match[1]), match[2]};
        body(server);
        kill(pid, SIGINT);
    };
    ProcessRun run = kelvane::testing::runProcess(argv, options);
    EXPECT_TRUE(run.finished) << run.err;
    EXPECT_TRUE(done) << "no URL printed; stderr:\n" << run.err;
    return run;
}

// Follows the live stream on a thread of its own until told to stop, keeping every frame.
class Follower {
  public:
    explicit Follower(const Server& server) : mClient(server.client()) {
        mThread = std::thread([this, token = server.token] {
            mClient->Get("/api/events?token=" + token,
                         [this](const char* data, size_t size) {
                             std::lock_guard<std::mutex> lock(mMutex);
                             mText.append(data, size);
                             return !mStop;
                         });
            mEnded = true;
        });
    }
    ~Follower() { stop(); }
    void stop() {
        mStop = true;
        if (mThread.joinable()) mThread.join();
    }
    // Waits (60 s at most) until the text received holds a match of `pattern`.
    bool waitFor(const std::string& pattern) {
        const std::regex re(pattern);
        for (auto limit = Clock::now() + std::chrono::seconds(60); Clock::now() < limit;) {
            {
                std::lock_guard<std::mutex> lock(mMutex);
                if (std::regex_search(mText, re)) return true;
            }
            if (mEnded) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));  // polling a condition
        }
        return false;
    }
    bool ended() const { return mEnded; }

  private:
    std::unique_ptr<httplib::Client> mClient;
    std::mutex mMutex;
    std::string mText;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mEnded{false};
    std::thread mThread;
};

const char kSensorOneOn[] = R"("handle":1,"lastFlushMs":[^,]*,"on":true)";

TEST(ServeTest, RefusesWhatAPageOnAnotherSiteCouldSend) {
    runServe({}, [](Server& s) {
        auto c = s.client();
        auto r = c->Get("/api/info");
        ASSERT_TRUE(r);
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(r->body, "this request needs the token of the URL the tool printed\n");
        r = c->Get("/api/info", {{"X-Token", std::string(32, '0')}});
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(c->Get("/api/info?token=" + s.token)->status, 200);
        EXPECT_EQ(c->Get("/api/info", s.headers())->status, 200);
        // DNS rebinding: a name that is not this server's, even with the token.
        r = c->Get("/api/info", s.headers("attacker.example:" + std::to_string(s.port)));
        EXPECT_EQ(r->status, 403);
        EXPECT_EQ(r->body, "the Host header does not name this server\n");
        EXPECT_EQ(c->Get("/", {{"Host", "attacker.example"}})->status, 403);
        EXPECT_EQ(c->Get("/api/info", s.headers("localhost:" + std::to_string(s.port)))->status, 200);
        EXPECT_EQ(c->Get("/api/info", s.headers("127.0.0.1:1"))->status, 403);
        // A page elsewhere that learned the token still may not post.
        httplib::Headers cross = s.headers();
        cross.emplace("Origin", "http://attacker.example");
        r = c->Post("/api/sensors/1/active", cross, R"({"on":true})", "application/json");
        EXPECT_EQ(r->status, 403);
        cross = s.headers();
        cross.emplace("Origin", "http://127.0.0.1:" + std::to_string(s.port));
        EXPECT_EQ(c->Post("/api/sensors/1/active", cross, R"({"on":false})", "application/json")
                      ->status,
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
            EXPECT_EQ(r->body, body + "\n");
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
        for (const char* hz : {"0", "1e10", "\"50\"", "-1", "null"}) {
            expect(post("/api/sensors/1/rate", std::string(R"({"hz":)") + hz + "}"), 400,
                   R"(expected {"hz": N}, a rate from 0.001 to 1e9 Hz)");
        }
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
        ASSERT_EQ(c->Post("/api/sensors/1/rate", s.headers(), R"({"hz":100})", "application/json")
                      ->status,
                  200);
        ASSERT_EQ(c->Post("/api/sensors/1/active", s.headers(), R"({"on":true})",
                          "application/json")
                      ->status,
                  200);
        EXPECT_TRUE(first.waitFor(kSensorOneOn));
        EXPECT_TRUE(second.waitFor(kSensorOneOn));
        EXPECT_TRUE(second.waitFor(R"("rateHz":100)"));
        first.stop();  // a page closes
        EXPECT_TRUE(second.waitFor(R"(event: samples\ndata: \{"sensors":\[\{"handle":1,"total":[0-9]{3})"));
        // A third page starts from the same state.
        Follower third(s);
        EXPECT_TRUE(third.waitFor(kSensorOneOn));
        // A flush is answered and shown to every page.
        ASSERT_EQ(c->Post("/api/sensors/1/flush", s.headers(), "{}", "application/json")->status, 200);
        EXPECT_TRUE(third.waitFor(R"("flushes":1,"handle":1)"));
    });
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST(ServeTest, RecordsFromThePageADescriptionThatReplays) {
    runServe({}, [](Server& s) {
        Follower page(s);
        auto c = s.client();
        ASSERT_EQ(c->Post("/api/recording/start", s.headers(), "{}", "application/json")->status, 200);
        EXPECT_EQ(c->Post("/api/recording/start", s.headers(), "{}", "application/json")->status, 409);
        ASSERT_EQ(c->Post("/api/sensors/4/active", s.headers(), R"({"on":true})",
                          "application/json")
                      ->status,
                  200);
        ASSERT_TRUE(page.waitFor(R"("handle":4,"total":[0-9]{2})"));
        ASSERT_EQ(c->Post("/api/recording/stop", s.headers(), "{}", "application/json")->status, 200);
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
        EXPECT_GT(samples, 10u);
        EXPECT_EQ(config.devices.size(), 5u);
    });
}

TEST(ServeTest, CtrlCEndsEveryStreamAndTheTool) {
    std::unique_ptr<Follower> page;
    const ProcessRun run = runServe({}, [&](Server& s) {
        s.client()->Post("/api/sensors/1/active", s.headers(), R"({"on":true})", "application/json");
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
        EXPECT_EQ(c->Get("/api/info", s.headers("10.1.2.3:" + std::to_string(s.port)))->status, 200);
        EXPECT_EQ(c->Get("/api/info", s.headers("board.example:" + std::to_string(s.port)))->status,
                  403);
    });
    EXPECT_NE(run.err.find("iio-subhal: warning: serving on 0.0.0.0: anyone who can reach this "
                           "address and has the URL's token can control the sensors\n"),
              std::string::npos)
        << run.err;
}

}  // namespace
