// Which Host and Origin headers name the server, for each kind of address it is bound to.
#include <gtest/gtest.h>

#include <set>

#include "serve/RequestGuard.h"

namespace {

using kelvane::tools::serve::newToken;
using kelvane::tools::serve::RequestGuard;

bool accepted(const RequestGuard& guard, const std::string& host) {
    return guard.checkHost(host).empty();
}

TEST(RequestGuardTest, HostHeadersByBoundAddress) {
    const RequestGuard loopback("127.0.0.1", 8642, "t");
    EXPECT_TRUE(accepted(loopback, "127.0.0.1:8642"));
    EXPECT_TRUE(accepted(loopback, "localhost:8642"));
    EXPECT_FALSE(accepted(loopback, "127.0.0.1:8643"));
    EXPECT_FALSE(accepted(loopback, "127.0.0.1"));  // port 80
    EXPECT_FALSE(accepted(loopback, "10.0.0.1:8642"));
    EXPECT_FALSE(accepted(loopback, "rebound.example:8642"));
    EXPECT_FALSE(accepted(loopback, "localhost.example:8642"));
    EXPECT_FALSE(accepted(loopback, ""));
    EXPECT_FALSE(accepted(loopback, "127.0.0.1:08642x"));

    const RequestGuard v6("::1", 80, "t");
    EXPECT_TRUE(accepted(v6, "[::1]"));
    EXPECT_TRUE(accepted(v6, "[0:0::1]:80"));
    EXPECT_FALSE(accepted(v6, "[::1"));

    const RequestGuard everywhere("0.0.0.0", 8642, "t");
    EXPECT_TRUE(accepted(everywhere, "192.168.1.20:8642"));
    EXPECT_TRUE(accepted(everywhere, "localhost:8642"));
    EXPECT_FALSE(accepted(everywhere, "board.local:8642"));

    const RequestGuard one("192.168.1.20", 8642, "t");
    EXPECT_TRUE(accepted(one, "192.168.1.20:8642"));
    EXPECT_FALSE(accepted(one, "localhost:8642"));
}

TEST(RequestGuardTest, OriginsAndTokens) {
    const RequestGuard guard("127.0.0.1", 8642, newToken());
    EXPECT_TRUE(guard.checkOrigin("").empty());
    EXPECT_TRUE(guard.checkOrigin("http://127.0.0.1:8642").empty());
    EXPECT_FALSE(guard.checkOrigin("null").empty());
    EXPECT_FALSE(guard.checkOrigin("https://127.0.0.1:8642").empty());
    EXPECT_FALSE(guard.checkOrigin("http://evil.example").empty());

    EXPECT_TRUE(guard.tokenMatches(guard.token()));
    EXPECT_FALSE(guard.tokenMatches(""));
    EXPECT_FALSE(guard.tokenMatches(guard.token().substr(1)));
    std::set<std::string> tokens;
    for (int i = 0; i < 100; ++i) tokens.insert(newToken());
    EXPECT_EQ(tokens.size(), 100u);
    EXPECT_EQ(guard.token().find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(guard.token().size(), 32u);
}

}  // namespace
