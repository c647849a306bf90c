// The HTTP side of `serve`: the page and its assets, the JSON API that drives the sensors, and
// the live stream (Server-Sent Events). Every request must name this server in its Host header;
// every API request must also carry the run's token (the X-Token header, or ?token= where a
// browser cannot set headers: the live stream, a download) and come from no other origin
// (RequestGuard). Unknown paths are 404, bad parameters 400, each with one line saying why. No
// cross-origin access is ever granted.
//
// Threads: construct, bind(), start() and stop() on one thread; requests run on the HTTP
// library's own threads, each reaching the parts below, which are thread-safe.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "Session.h"
#include "serve/CheckJob.h"
#include "serve/EventPump.h"
#include "serve/EventStream.h"
#include "serve/RecordingControl.h"
#include "serve/RequestGuard.h"
#include "serve/SensorControls.h"

namespace httplib {
class Server;
}  // namespace httplib

namespace kelvane::tools::serve {

// What the server drives; everything outlives it.
struct ServeParts {
    Session& session;
    EventStream& stream;
    SensorControls& controls;
    EventPump& pump;
    CheckJob& check;
    RecordingControl& recording;
    std::string hostName;  // what the page calls the host ("the built-in emulated host")
};

class WebServer {
  public:
    explicit WebServer(ServeParts parts);
    ~WebServer();  // stop()
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // Listens on `address` (an IP address) and `port` (0: a free one) with `token`. On failure
    // returns false and sets *error to one line.
    bool bind(const std::string& address, int port, const std::string& token, std::string* error);
    int port() const { return mPort; }
    // Serves on a thread of its own until stop(); returns once the server accepts, so that a
    // stop() right after it is never lost.
    void start();
    // Stops accepting, waits for every request to end (the live streams end once the stream is
    // closed) and for the thread. Idempotent.
    void stop();

  private:
    void addRoutes();

    ServeParts mParts;
    std::unique_ptr<httplib::Server> mServer;
    std::unique_ptr<RequestGuard> mGuard;  // set by bind()
    int mPort = 0;
    std::thread mThread;
};

}  // namespace kelvane::tools::serve
