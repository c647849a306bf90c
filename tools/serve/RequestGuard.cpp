#include "serve/RequestGuard.h"

#include <arpa/inet.h>

#include <cstring>
#include <random>

namespace kelvane::tools::serve {

namespace {

// An IPv4 or IPv6 address in its binary form, or "" if `text` is none.
std::string addressBytes(const std::string& text) {
    unsigned char bytes[16];
    if (inet_pton(AF_INET, text.c_str(), bytes) == 1) return std::string(bytes, bytes + 4);
    if (inet_pton(AF_INET6, text.c_str(), bytes) == 1) return std::string(bytes, bytes + 16);
    return {};
}

bool isWildcard(const std::string& bytes) {
    return !bytes.empty() && bytes.find_first_not_of('\0') == std::string::npos;
}

bool isLoopback(const std::string& bytes) {
    if (bytes.size() == 4) return static_cast<unsigned char>(bytes[0]) == 127;
    return bytes == std::string(15, '\0') + '\1';
}

// Splits "name:port" or "[v6]:port"; a missing port is HTTP's 80. False if malformed.
bool splitHostPort(const std::string& text, std::string* host, int* port) {
    std::string rest;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos) return false;
        *host = text.substr(1, close - 1);
        rest = text.substr(close + 1);
    } else {
        const size_t colon = text.find(':');
        *host = text.substr(0, colon);
        rest = colon == std::string::npos ? "" : text.substr(colon);
    }
    if (rest.empty()) {
        *port = 80;
        return !host->empty();
    }
    if (rest[0] != ':' || rest.size() < 2 || rest.size() > 6) return false;
    *port = 0;
    for (size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] < '0' || rest[i] > '9') return false;
        *port = *port * 10 + (rest[i] - '0');
    }
    return !host->empty();
}

}  // namespace

std::string newToken() {
    std::random_device device;  // the system's generator (getrandom / /dev/urandom)
    static const char kHex[] = "0123456789abcdef";
    std::string token;
    for (int i = 0; i < 4; ++i) {
        uint32_t word = device();
        for (int j = 0; j < 8; ++j, word >>= 4) token += kHex[word & 0xf];
    }
    return token;
}

RequestGuard::RequestGuard(std::string bindAddress, int port, std::string token)
    : mBindAddress(std::move(bindAddress)), mPort(port), mToken(std::move(token)) {}

bool RequestGuard::namesThisServer(const std::string& hostAndPort) const {
    std::string host;
    int port = 0;
    if (!splitHostPort(hostAndPort, &host, &port) || port != mPort) return false;
    const std::string bound = addressBytes(mBindAddress);
    if (host == "localhost") return isWildcard(bound) || isLoopback(bound);
    const std::string named = addressBytes(host);
    if (named.empty()) return false;  // a name: the one thing DNS rebinding can point here
    return isWildcard(bound) || named == bound;
}

std::string RequestGuard::checkHost(const std::string& host) const {
    if (host.empty()) return "the request has no Host header";
    if (!namesThisServer(host)) return "the Host header does not name this server";
    return {};
}

std::string RequestGuard::checkOrigin(const std::string& origin) const {
    if (origin.empty()) return {};
    const std::string scheme = "http://";
    if (origin.compare(0, scheme.size(), scheme) != 0 ||
        !namesThisServer(origin.substr(scheme.size()))) {
        return "requests from other origins are refused";
    }
    return {};
}

bool RequestGuard::tokenMatches(const std::string& token) const {
    if (token.size() != mToken.size()) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < token.size(); ++i) {
        difference |= static_cast<unsigned char>(token[i] ^ mToken[i]);
    }
    return difference == 0;
}

}  // namespace kelvane::tools::serve
