// `iio-subhal serve` as a test drives it: the tool started with the URL it prints, an HTTP
// client with its token, and a follower of the live stream that keeps every frame. Blocking;
// a follower reads on a thread of its own.
#pragma once

#include <httplib.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/subprocess.h"

namespace kelvane::testing {

struct ServeUrl {
    int port = 0;
    std::string token;
    pid_t pid = 0;  // the tool's

    // The token, and a Host header when one is given.
    httplib::Headers headers(const std::string& host = "") const;
    std::unique_ptr<httplib::Client> client() const;
    // POSTs the JSON `body` to `path` with the token; the answer's status, or -1 for none.
    int post(const std::string& path, const std::string& body) const;
};

// Runs `tool` with `args` (serve and its options, --port 0 among them); once it printed its URL,
// runs `body`, then sends SIGINT and waits for the tool to end. `options` (its onOutput aside)
// say how the tool runs.
ProcessRun runServe(const std::string& tool, const std::vector<std::string>& args,
                    const std::function<void(ServeUrl&)>& body, ProcessOptions options = {});

// Follows the live stream until stopped or the stream ends, keeping the text received.
class Follower {
  public:
    explicit Follower(const ServeUrl& url);
    ~Follower();  // stop()
    void stop();
    // Waits (at most the generous limit of the tests) until the text holds a match of the
    // regular expression `pattern`; false if it never does or the stream ended without it.
    bool waitFor(const std::string& pattern);
    bool ended() const { return mEnded; }

  private:
    std::unique_ptr<httplib::Client> mClient;
    std::mutex mMutex;
    std::string mText;  // guarded by mMutex
    std::atomic<bool> mStop{false};
    std::atomic<bool> mEnded{false};
    std::thread mThread;
};

}  // namespace kelvane::testing
