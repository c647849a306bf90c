// The figures beside a live chart, at worked numbers.
#include <gtest/gtest.h>

#include "serve/LiveStats.h"

namespace {

using kelvane::tools::serve::LiveStats;

TEST(LiveStatsTest, RateJitterAndLatencyOverTheWindow) {
    LiveStats stats(1'000'000'000);
    EXPECT_FALSE(stats.figures().rateHz);
    // 100 Hz for 3 s; every 10th interval 1 ms late and the next 1 ms early; received 2 ms after
    // its timestamp, every 50th 12 ms after.
    int64_t t = 0;
    for (int i = 0; i < 300; ++i) {
        const int64_t shift = i % 10 == 9 ? 1'000'000 : 0;
        stats.add(t + shift, t + shift + (i % 50 == 49 ? 12'000'000 : 2'000'000));
        t += 10'000'000;
    }
    const auto f = stats.figures();
    EXPECT_EQ(f.events, 101u) << "the last second only";
    EXPECT_NEAR(*f.rateHz, 100.0, 1e-9);
    EXPECT_NEAR(*f.intervalMs, 10.0, 1e-9);
    EXPECT_NEAR(*f.jitterMs, 2.0, 1e-9) << "11 ms - 9 ms";
    EXPECT_NEAR(*f.latencyP50Ms, 2.0, 1e-9);
    EXPECT_NEAR(*f.latencyP99Ms, 12.0, 1e-9);
}

TEST(LiveStatsTest, ATimestampThatGoesBackStartsOver) {
    LiveStats stats;
    stats.add(5'000'000'000, 5'000'000'000);
    stats.add(5'010'000'000, 5'010'000'000);
    stats.add(1'000'000'000, 5'020'000'000);  // a replay started over
    EXPECT_EQ(stats.figures().events, 1u);
    EXPECT_FALSE(stats.figures().rateHz);
    EXPECT_NEAR(*stats.figures().latencyP50Ms, 4020.0, 1e-9);
    stats.reset();
    EXPECT_EQ(stats.figures().events, 0u);
}

}  // namespace
