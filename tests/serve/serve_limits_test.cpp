// What slow or hostile clients cannot do to `iio-subhal serve`, through the real tool and raw
// sockets: headers sent a line at a time neither hold up the requests of others nor keep their
// connection past the request deadline; a flood of headers is refused before it costs memory; a
// second server cannot share a port; a stop ends promptly whatever clients do, and a recording
// started from the page is written rather than lost.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "host/description/DescriptionReader.h"
#include "tests/support/serve_client.h"

namespace {

using kelvane::testing::Follower;
using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;
using Server = kelvane::testing::ServeUrl;
using Clock = std::chrono::steady_clock;

ProcessRun runServe(const std::function<void(Server&)>& body, ProcessOptions options = {}) {
    return kelvane::testing::runServe(IIO_SUBHAL_PATH, {"serve", "--port", "0"}, body, options);
}

// A raw connection to the server: what a misbehaving client does, byte by byte.
class RawClient {
  public:
    explicit RawClient(int port) : mFd(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected = connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~RawClient() { close(mFd); }

    // False once the server closed the connection (or refused what was sent).
    bool send(const std::string& bytes) {
        for (size_t sent = 0; sent < bytes.size();) {
            const ssize_t n = ::send(mFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<size_t>(n);
        }
        return true;
    }
    // Waits up to `limit` for the server to say something or close; what it said ("" if closed
    // at once), or nullopt if the wait timed out.
    std::optional<std::string> waitForServer(std::chrono::milliseconds limit) {
        pollfd fd{mFd, POLLIN, 0};
        if (poll(&fd, 1, static_cast<int>(limit.count())) <= 0) return std::nullopt;
        std::string said;
        char buffer[4096];
        ssize_t n;
        while ((n = recv(mFd, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0) said.append(buffer, n);
        return said;
    }
    bool connected = false;

  private:
    const int mFd;
};

long kilobytesOf(pid_t pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) return std::stol(line.substr(field.size() + 1));
    }
    return -1;
}

TEST(ServeLimitsTest, SlowHeadersDelayNoOneAndEndAtTheRequestDeadline) {
    runServe([](Server& s) {
        // Eight clients that send one header line a second, for ever: a timeout per read would
        // never end them, and a server with a pool of threads would have none left.
        std::vector<std::unique_ptr<RawClient>> slow;
        for (int i = 0; i < 8; ++i) {
            slow.push_back(std::make_unique<RawClient>(s.port));
            ASSERT_TRUE(slow.back()->connected);
            ASSERT_TRUE(slow.back()->send("GET /api/info HTTP/1.1\r\nX-Slow: 0\r\n"));
        }
        auto answered = s.client()->Get("/api/info", s.headers());
        ASSERT_TRUE(answered);
        EXPECT_EQ(answered->status, 200);
        for (auto& client : slow) {
            EXPECT_EQ(client->waitForServer(std::chrono::milliseconds(0)), std::nullopt)
                << "a slow client was dropped before the tokened request was answered";
        }
        // Each is closed, still trickling, once its whole request took longer than allowed.
        const auto limit = Clock::now() + std::chrono::seconds(60);
        size_t closed = 0;
        for (int line = 1; closed < slow.size() && Clock::now() < limit; ++line) {
            closed = 0;
            for (auto& client : slow) {
                const auto said = client->waitForServer(std::chrono::milliseconds(125));
                if (said || !client->send("X-Slow: " + std::to_string(line) + "\r\n")) ++closed;
            }
        }
        EXPECT_EQ(closed, slow.size());
    });
}

TEST(ServeLimitsTest, AHeaderFloodIsRefusedBeforeItCostsMemory) {
    runServe([](Server& s) {
        const long before = kilobytesOf(s.pid, "VmRSS");
        const std::string field = "X-Fill: " + std::string(8 * 1024, 'f') + "\r\n";
        for (int i = 0; i < 4; ++i) {
            RawClient flood(s.port);
            ASSERT_TRUE(
                flood.send("GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(s.port) + "\r\n"));
            // 25,000 fields of 8 KiB: the server answers long before, and the client stops.
            std::optional<std::string> said;
            for (int n = 0; n < 25'000 && !said && flood.send(field); ++n) {
                said = flood.waitForServer(std::chrono::milliseconds(0));
            }
            if (!said) said = flood.waitForServer(std::chrono::seconds(30));
            ASSERT_TRUE(said);
            EXPECT_EQ(said->rfind("HTTP/1.1 431 ", 0), 0u) << *said;
        }
        RawClient many(s.port);
        std::string fields;
        for (int n = 0; n < 101; ++n) fields += "X-F" + std::to_string(n) + ": 1\r\n";
        ASSERT_TRUE(many.send("GET / HTTP/1.1\r\n" + fields + "\r\n"));
        const auto said = many.waitForServer(std::chrono::seconds(30));
        ASSERT_TRUE(said);
        EXPECT_EQ(said->rfind("HTTP/1.1 431 ", 0), 0u) << *said;
        // Not the 800 MB sent, nor a lasting share of it.
        EXPECT_LT(kilobytesOf(s.pid, "VmHWM") - before, 64 * 1024);
        EXPECT_EQ(s.client()->Get("/api/info", s.headers())->status, 200);
    });
}

TEST(ServeLimitsTest, ASecondServerCannotShareAPort) {
    runServe([](Server& s) {
        const ProcessRun second = kelvane::testing::runProcess(
            {IIO_SUBHAL_PATH, "serve", "--port", std::to_string(s.port)});
        EXPECT_EQ(second.exitCode, 1);
        const std::string line =
            "iio-subhal: cannot listen on 127.0.0.1:" + std::to_string(s.port) +
            ": Address already in use (--port 0 picks a free port)\n";
        ASSERT_GE(second.err.size(), line.size()) << second.err;
        EXPECT_EQ(second.err.substr(second.err.size() - line.size()), line);
        EXPECT_EQ(second.out, "");
        // The first still answers every request.
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(s.client()->Get("/api/info", s.headers())->status, 200);
    });
}

TEST(ServeLimitsTest, CtrlCEndsPromptlyWhateverClientsDo) {
    Clock::time_point interrupted;
    std::vector<std::unique_ptr<RawClient>> clients;
    const ProcessRun run = runServe([&](Server& s) {
        s.client()->Post("/api/sensors/1/active", s.headers(), R"({"on":true})",
                         "application/json");
        // One client sends half a header; another follows the live stream and never reads.
        clients.push_back(std::make_unique<RawClient>(s.port));
        ASSERT_TRUE(clients.back()->send("GET / HTTP/1.1\r\nX-Slow: 1\r\n"));
        clients.push_back(std::make_unique<RawClient>(s.port));
        ASSERT_TRUE(clients.back()->send("GET /api/events?token=" + s.token +
                                         " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(s.port) +
                                         "\r\n\r\n"));
        Follower page(s);
        ASSERT_TRUE(page.waitFor("event: samples"));
        interrupted = Clock::now();
    });
    const double seconds = std::chrono::duration<double>(Clock::now() - interrupted).count();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("iio-subhal: stopped by Ctrl-C\n"), std::string::npos) << run.err;
    // Well within a second on an idle machine; generous for a sanitizer build on a busy one.
    EXPECT_LT(seconds, 10.0);
    RecordProperty("stopSeconds", std::to_string(seconds));
}

TEST(ServeLimitsTest, CtrlCWritesTheRecordingStartedFromThePage) {
    char dir[] = "/tmp/serve-ctrlc-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    ProcessOptions options;
    options.cwd = dir;
    const ProcessRun run = runServe(
        [](Server& s) {
            Follower page(s);
            auto c = s.client();
            ASSERT_EQ(s.post("/api/recording/start", "{}"), 200);
            ASSERT_EQ(s.post("/api/sensors/4/active", R"({"on":true})"), 200);
            ASSERT_TRUE(page.waitFor(R"("handle":4,"total":[0-9]{2})"));
        },
        options);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::smatch match;
    const std::regex said(
        R"(iio-subhal: the recording started from the page is in (serve-recording-[0-9-]+\.json) \(([0-9]+) samples\)\n)");
    ASSERT_TRUE(std::regex_search(run.err, match, said)) << run.err;
    EXPECT_GE(std::stoi(match[2]), 10);
    const std::string path = std::string(dir) + "/" + match[1].str();
    std::ifstream file(path);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    kelvane::host::description::HostConfig config;
    std::string error;
    EXPECT_TRUE(kelvane::host::description::parseHostDescription(text, &config, &error)) << error;
    std::remove(path.c_str());
    rmdir(dir);
}

}  // namespace
