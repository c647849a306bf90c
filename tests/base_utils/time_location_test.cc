#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

#include "base/location.h"
#include "base/macros.h"
#include "base/optional.h"
#include "base/time/time.h"

namespace {

using base::TimeDelta;
using base::TimeTicks;

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

static_assert(TimeDelta::FromSeconds(3).InMilliseconds() == 3000, "usable in constant expressions");
static_assert(TimeDelta().is_zero(), "");

TEST(TimeDeltaTest, ConvertsBetweenUnits) {
    EXPECT_EQ(TimeDelta::FromSeconds(2).InMicroseconds(), 2000000);
    EXPECT_EQ(TimeDelta::FromMilliseconds(1500).InSecondsF(), 1.5);
    EXPECT_EQ(TimeDelta::FromMilliseconds(1500).InSeconds(), 1);
    EXPECT_EQ(TimeDelta::FromMicroseconds(2500).InMilliseconds(), 2);
    EXPECT_EQ(TimeDelta::FromMicroseconds(2500).InMillisecondsF(), 2.5);
    EXPECT_EQ(TimeDelta::FromNanoseconds(1999).InMicroseconds(), 1);
    EXPECT_EQ(TimeDelta::FromNanoseconds(20000000).InNanoseconds(), 20000000);
    EXPECT_EQ(TimeDelta::FromMicroseconds(-1500).InMilliseconds(), -1);
    EXPECT_EQ(TimeDelta::FromSecondsD(0.0025), TimeDelta::FromMicroseconds(2500));
    EXPECT_TRUE(TimeDelta::FromMilliseconds(0).is_zero());
    EXPECT_TRUE(TimeDelta::FromMicroseconds(-1).is_negative());
}

TEST(TimeDeltaTest, ArithmeticAndOrdering) {
    const TimeDelta a = TimeDelta::FromMilliseconds(20);
    const TimeDelta b = TimeDelta::FromMicroseconds(500);
    EXPECT_EQ((a - b).InMicroseconds(), 19500);
    EXPECT_EQ(a * 3 / 4, TimeDelta::FromMilliseconds(15));
    TimeDelta c = a;
    c += b;
    EXPECT_EQ(c - a, b);
    EXPECT_LT(-a, b);
}

// Android hands over periods as arbitrary int64 nanoseconds; none may wrap around.
TEST(TimeDeltaTest, SaturatesInsteadOfOverflowing) {
    EXPECT_TRUE(TimeDelta::FromSeconds(kInt64Max).is_max());
    EXPECT_TRUE(TimeDelta::FromMilliseconds(kInt64Max / 10).is_max());
    EXPECT_EQ(TimeDelta::FromMilliseconds(-kInt64Max), TimeDelta::Min());
    EXPECT_EQ(TimeDelta::FromNanoseconds(kInt64Max).InNanoseconds(), kInt64Max / 1000 * 1000);
    EXPECT_EQ(TimeDelta::Max().InNanoseconds(), kInt64Max);
    EXPECT_TRUE((TimeDelta::Max() + TimeDelta::FromSeconds(1)).is_max());
    EXPECT_EQ(TimeDelta::Min() - TimeDelta::FromSeconds(1), TimeDelta::Min());
    EXPECT_TRUE((-TimeDelta::Min()).is_max());
    EXPECT_TRUE((TimeDelta::Min() / -1).is_max());
    EXPECT_TRUE((TimeDelta::Max() * 2).is_max());
    EXPECT_TRUE(TimeDelta::FromSecondsD(1e300).is_max());
    EXPECT_TRUE(TimeDelta::FromSecondsD(std::numeric_limits<double>::quiet_NaN()).is_zero());
}

TEST(TimeDeltaTest, StreamsAsSeconds) {
    std::ostringstream out;
    out << TimeDelta::FromMicroseconds(2500);
    EXPECT_EQ(out.str(), "0.0025 s");
}

TEST(TimeTicksTest, MovesForwardAndDiffs) {
    EXPECT_TRUE(TimeTicks().is_null());
    const TimeTicks t0 = TimeTicks::Now();
    const TimeTicks t1 = TimeTicks::Now();
    EXPECT_FALSE(t0.is_null());
    EXPECT_LE(t0, t1);

    const TimeDelta d = TimeDelta::FromMilliseconds(250);
    const TimeTicks later = t0 + d;
    EXPECT_EQ(later - t0, d);
    EXPECT_EQ(later - d, t0);
    EXPECT_GT(later, t0);
    TimeTicks t = t0;
    t += d;
    EXPECT_EQ(t, later);
    EXPECT_EQ(later.since_origin() - t0.since_origin(), d);
}

TEST(LocationTest, FromHereRecordsTheCallSite) {
    const int line = __LINE__ + 1;
    const base::Location here = FROM_HERE;
    EXPECT_STREQ(here.function_name(), "TestBody");
    EXPECT_STREQ(here.file_name(), __FILE__);
    EXPECT_EQ(here.line_number(), line);
    EXPECT_EQ(here.ToString(), std::string("TestBody@") + __FILE__ + ":" + std::to_string(line));

    const base::Location unknown;
    EXPECT_FALSE(unknown.has_source_info());
    EXPECT_EQ(unknown.ToString(), "unknown");
    EXPECT_EQ(base::Location::CreateFromHere("a/b.cc").ToString(), "a/b.cc");
}

class NoCopy {
  public:
    NoCopy() = default;

  private:
    DISALLOW_COPY_AND_ASSIGN(NoCopy);
};

static_assert(!std::is_copy_constructible<NoCopy>::value, "");
static_assert(!std::is_copy_assignable<NoCopy>::value, "");
static_assert(std::is_same<base::Optional<int>, std::optional<int>>::value, "");

}  // namespace
