// The HTTP transport of `serve`: one thread runs every connection asynchronously (Boost.Beast),
// so neither a slow client nor a page following the live stream ever holds a thread. Each
// connection carries one request and is closed after its answer. A request must arrive whole,
// headers and body, within kRequestDeadline of the connection, however slowly it trickles in; its
// size is bounded as it is read (RequestReader). An answer is either a reply or a live stream of
// Server-Sent Events fed by an EventStream subscriber, written as frames arrive.
//
// The port is bound without SO_REUSEPORT, so a port that another server holds is refused.
//
// Threads: construct, bind(), start() and stop() on one thread. The handler runs on the
// server's thread and must not block; it answers through `respond`, from any thread, once.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "serve/ApiRequest.h"
#include "serve/EventStream.h"
#include "serve/Reply.h"

namespace kelvane::tools::serve {

constexpr std::chrono::seconds kRequestDeadline{5};

// What a request is answered with: a reply, or (when `stream` is set) the live stream.
struct Answer {
    Reply reply;
    std::shared_ptr<EventStream::Subscriber> stream;
};

class HttpServer {
  public:
    using Respond = std::function<void(Answer)>;
    using Handler = std::function<void(const HttpRequest&, Respond)>;

    explicit HttpServer(Handler handler);
    ~HttpServer();  // stop()
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Listens on `address` (an IP address) and `port` (0: a free one). On failure returns false
    // and sets *error to one line.
    bool bind(const std::string& address, int port, std::string* error);
    int port() const;
    // Serves on a thread of its own until stop().
    void start();
    // Closes every connection, live streams included, and ends the thread at once, whatever
    // the clients do. Answers given later are dropped. Idempotent.
    void stop();

    class Impl;  // what the connections share with the server; defined in the source

  private:
    std::shared_ptr<Impl> mImpl;
};

}  // namespace kelvane::tools::serve
