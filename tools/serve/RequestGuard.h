// Who may use the `serve` server. A page on another site in the same browser must not drive the
// sensors: every API request carries the per-run secret token that the printed URL holds, and a
// request whose Host header (or Origin, when sent) does not name this server is refused, since
// that is how DNS rebinding reaches a server on 127.0.0.1. A Host that is an IP address cannot be
// rebound, so a server bound to every address accepts any; names other than localhost are
// refused. Immutable after construction; any thread.
#pragma once

#include <string>

namespace kelvane::tools::serve {

// 128 random bits from the system's generator, as 32 hexadecimal digits.
std::string newToken();

class RequestGuard {
  public:
    // The address the server is bound to ("127.0.0.1", "0.0.0.0", "::1", ...) and its port.
    RequestGuard(std::string bindAddress, int port, std::string token);

    // "" when the Host header names this server; otherwise the one-line reason to refuse.
    std::string checkHost(const std::string& host) const;
    // "" when the Origin header is absent or names this server; otherwise the reason.
    std::string checkOrigin(const std::string& origin) const;
    // Compares in constant time.
    bool tokenMatches(const std::string& token) const;

    const std::string& token() const { return mToken; }

  private:
    bool namesThisServer(const std::string& hostAndPort) const;

    const std::string mBindAddress;
    const int mPort;
    const std::string mToken;
};

}  // namespace kelvane::tools::serve
