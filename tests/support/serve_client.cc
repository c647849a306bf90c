#include "tests/support/serve_client.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <regex>

namespace kelvane::testing {

using Clock = std::chrono::steady_clock;

// Generous: a sanitizer build on a busy machine is slow, and a hang is a failure anyway.
constexpr std::chrono::seconds kFollowLimit{60};

httplib::Headers ServeUrl::headers(const std::string& host) const {
    httplib::Headers h = {{"X-Token", token}};
    if (!host.empty()) h.emplace("Host", host);
    return h;
}

std::unique_ptr<httplib::Client> ServeUrl::client() const {
    auto c = std::make_unique<httplib::Client>("127.0.0.1", port);
    c->set_read_timeout(60);
    return c;
}

int ServeUrl::post(const std::string& path, const std::string& body) const {
    const httplib::Result r = client()->Post(path, headers(), body, "application/json");
    return r ? r->status : -1;
}

ProcessRun runServe(const std::string& tool, const std::vector<std::string>& args,
                    const std::function<void(ServeUrl&)>& body, ProcessOptions options) {
    std::vector<std::string> argv = {tool};
    argv.insert(argv.end(), args.begin(), args.end());
    bool done = false;
    options.onOutput = [&](pid_t pid, const ProcessRun& run) {
        std::smatch match;
        static const std::regex url(R"(http://[0-9.]+:(\d+)/\?token=([0-9a-f]{32})\n)");
        if (done || !std::regex_search(run.out, match, url)) return;
        done = true;
        ServeUrl server{std::stoi(match[1]), match[2], pid};
        // A first request from this thread builds the HTTP library's function-local statics
        // before the body starts threads of its own; the race checker cannot see the library
        // order them itself.
        server.client()->Get("/");
        body(server);
        kill(pid, SIGINT);
    };
    ProcessRun run = runProcess(argv, options);
    EXPECT_TRUE(run.finished) << run.err;
    EXPECT_TRUE(done) << "no URL printed; stderr:\n" << run.err;
    return run;
}

Follower::Follower(const ServeUrl& url) : mClient(url.client()) {
    mThread = std::thread([this, token = url.token] {
        mClient->Get("/api/events?token=" + token, [this](const char* data, size_t size) {
            std::lock_guard<std::mutex> lock(mMutex);
            mText.append(data, size);
            return !mStop;
        });
        mEnded = true;
    });
}

Follower::~Follower() { stop(); }

void Follower::stop() {
    mStop = true;  // seen when the next frame or keep-alive comes, within a second
    if (mThread.joinable()) mThread.join();
}

bool Follower::waitFor(const std::string& pattern) {
    const std::regex re(pattern);
    for (auto limit = Clock::now() + kFollowLimit; Clock::now() < limit;) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (std::regex_search(mText, re)) return true;
        }
        if (mEnded) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // polls a condition
    }
    return false;
}

}  // namespace kelvane::testing
