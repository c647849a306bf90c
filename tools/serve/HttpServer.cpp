#include "serve/HttpServer.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/status.hpp>
#include <list>
#include <thread>

#include "serve/RequestReader.h"

namespace kelvane::tools::serve {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

// A client that does not take its answer within this long is dropped.
constexpr std::chrono::seconds kWriteDeadline{10};
// After the answer, what the client still sends is read and dropped for at most this long, so
// that closing does not reset the connection before it read the answer.
constexpr std::chrono::seconds kLingerDeadline{1};

const char kCommonHeaders[] =
    "X-Content-Type-Options: nosniff\r\nX-Frame-Options: DENY\r\nReferrer-Policy: no-referrer\r\n"
    "Cache-Control: no-store\r\nConnection: close\r\n";

// The status line and headers of `reply`, ending with the blank line.
std::string responseHead(const Reply& reply, bool stream) {
    const auto status = static_cast<http::status>(reply.status);
    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " +
                       std::string(http::obsolete_reason(status)) + "\r\n" + kCommonHeaders +
                       "Content-Type: " + reply.contentType + "\r\n";
    if (!stream) head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
    return head + "\r\n";
}

}  // namespace

class Connection;

class HttpServer::Impl : public std::enable_shared_from_this<HttpServer::Impl> {
  public:
    explicit Impl(Handler handler) : mHandler(std::move(handler)) {}

    void accept();
    void closeAll();

    asio::io_context mIo{1};
    tcp::acceptor mAcceptor{mIo};
    const Handler mHandler;
    std::thread mThread;
    std::list<std::weak_ptr<Connection>> mConnections;  // the server's thread only
    asio::steady_timer mRetry{mIo};                     // after a failed accept
};

// One connection: its request, then its answer or live stream. Lives while an operation of
// its own is pending on the server's thread; what other threads hold of it is weak.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(tcp::socket socket, std::weak_ptr<HttpServer::Impl> server)
        : mStream(std::move(socket)), mServer(std::move(server)) {}

    void start();
    void close();

  private:
    void onRequest(const beast::error_code& error);
    // Runs `work` on the server's thread if the server is still there.
    void post(std::function<void(Connection&)> work);
    void answer(Answer answer);
    void write(std::string bytes, std::function<void()> then);
    void takeFrames();
    void lingerAndClose();
    void drain();  // until the client closes or the linger deadline passes

    beast::tcp_stream mStream;
    const std::weak_ptr<HttpServer::Impl> mServer;
    beast::flat_buffer mBuffer{kMaxHeaderBytes + kMaxBodyBytes};
    RequestReader mReader;
    std::string mOut;  // what is being written
    std::shared_ptr<EventStream::Subscriber> mSubscriber;
    char mDrain[4096];
    std::chrono::steady_clock::time_point mLingerUntil;
};

void Connection::start() {
    mStream.expires_after(kRequestDeadline);
    http::async_read(mStream, mBuffer, mReader,
                     [self = shared_from_this()](const beast::error_code& error, std::size_t) {
                         self->onRequest(error);
                     });
}

void Connection::close() {
    beast::error_code ignored;
    mStream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    mStream.close();
    mSubscriber.reset();
}

void Connection::onRequest(const beast::error_code& error) {
    if (error) {
        const std::optional<Reply> refused = RequestReader::refusalFor(error);
        if (refused) return answer({*refused, nullptr});
        return close();  // gone, too slow, or not HTTP
    }
    mStream.expires_never();
    auto server = mServer.lock();
    if (!server) return close();
    // The answer holds the connection: it lives until answered, or until nothing can answer.
    server->mHandler(mReader.request(), [self = shared_from_this()](Answer answer) {
        self->post([answer = std::move(answer)](Connection& c) { c.answer(answer); });
    });
}

void Connection::post(std::function<void(Connection&)> work) {
    auto server = mServer.lock();
    if (!server) return;
    asio::post(server->mIo, [self = shared_from_this(), work = std::move(work)] { work(*self); });
}

void Connection::answer(Answer answer) {
    if (!answer.stream) {
        write(responseHead(answer.reply, false) + answer.reply.body, [this] { lingerAndClose(); });
        return;
    }
    mSubscriber = std::move(answer.stream);
    answer.reply.contentType = "text/event-stream";
    write(responseHead(answer.reply, true), [this] { takeFrames(); });
    // The page says nothing more: anything it sends, or its leaving, ends the stream.
    mStream.async_read_some(
        asio::buffer(mDrain),
        [self = shared_from_this()](const beast::error_code&, std::size_t) { self->close(); });
}

void Connection::write(std::string bytes, std::function<void()> then) {
    mOut = std::move(bytes);
    if (!mSubscriber) mStream.expires_after(kWriteDeadline);
    asio::async_write(mStream, asio::buffer(mOut),
                      [self = shared_from_this(), then = std::move(then)](
                          const beast::error_code& error, std::size_t) {
                          if (error) return self->close();
                          then();
                      });
}

void Connection::takeFrames() {
    if (!mSubscriber) return;  // closed meanwhile
    std::optional<std::string> frames = mSubscriber->take();
    if (!frames) return close();  // the stream ended
    if (!frames->empty()) return write(std::move(*frames), [this] { takeFrames(); });
    mSubscriber->notifyWhenReady([weak = weak_from_this()] {
        if (auto self = weak.lock()) self->post([](Connection& c) { c.takeFrames(); });
    });
}

void Connection::lingerAndClose() {
    beast::error_code ignored;
    mStream.socket().shutdown(tcp::socket::shutdown_send, ignored);
    mSubscriber.reset();
    mLingerUntil = std::chrono::steady_clock::now() + kLingerDeadline;
    mStream.expires_at(mLingerUntil);
    drain();
}

void Connection::drain() {
    mStream.async_read_some(asio::buffer(mDrain), [self = shared_from_this()](
                                                      const beast::error_code& error, std::size_t) {
        // A read that always finds data wins every race with the stream's timer: look too.
        if (error || std::chrono::steady_clock::now() >= self->mLingerUntil) return self->close();
        self->drain();
    });
}

void HttpServer::Impl::accept() {
    mAcceptor.async_accept(
        [weak = weak_from_this()](const beast::error_code& error, tcp::socket socket) {
            auto self = weak.lock();
            if (!self || error == asio::error::operation_aborted || !self->mAcceptor.is_open())
                return;
            if (error) {  // out of descriptors, say: try again shortly
                self->mRetry.expires_after(std::chrono::milliseconds(100));
                self->mRetry.async_wait([weak](const beast::error_code& e) {
                    if (auto again = weak.lock(); again && !e) again->accept();
                });
                return;
            }
            self->mConnections.remove_if([](const auto& c) { return c.expired(); });
            auto connection = std::make_shared<Connection>(std::move(socket), self);
            self->mConnections.push_back(connection);
            connection->start();
            self->accept();
        });
}

void HttpServer::Impl::closeAll() {
    beast::error_code ignored;
    mAcceptor.close(ignored);
    mRetry.cancel();
    for (const auto& weak : mConnections) {
        if (auto connection = weak.lock()) connection->close();
    }
    mConnections.clear();
}

HttpServer::HttpServer(Handler handler) : mImpl(std::make_shared<Impl>(std::move(handler))) {}

HttpServer::~HttpServer() { stop(); }

bool HttpServer::bind(const std::string& address, int port, std::string* error) {
    beast::error_code ec;
    const tcp::endpoint endpoint(asio::ip::make_address(address, ec),
                                 static_cast<unsigned short>(port));
    tcp::acceptor& acceptor = mImpl->mAcceptor;
    if (!ec) acceptor.open(endpoint.protocol(), ec);
    // SO_REUSEADDR only: a port in TIME_WAIT is taken again, one that another server holds is not.
    if (!ec) acceptor.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec) acceptor.bind(endpoint, ec);
    if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (!ec) return true;
    const std::string host = address.find(':') != std::string::npos ? "[" + address + "]" : address;
    *error = "cannot listen on " + host + ":" + std::to_string(port) + ": " + ec.message();
    beast::error_code ignored;
    acceptor.close(ignored);
    return false;
}

int HttpServer::port() const {
    beast::error_code ignored;
    return mImpl->mAcceptor.local_endpoint(ignored).port();
}

void HttpServer::start() {
    mImpl->accept();
    mImpl->mThread = std::thread([impl = mImpl.get()] { impl->mIo.run(); });
}

void HttpServer::stop() {
    if (!mImpl->mThread.joinable()) {
        mImpl->closeAll();
        return;
    }
    asio::post(mImpl->mIo, [impl = mImpl.get()] {
        impl->closeAll();
        impl->mIo.stop();
    });
    mImpl->mThread.join();
}

}  // namespace kelvane::tools::serve
