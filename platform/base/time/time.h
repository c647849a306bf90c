#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <ostream>

namespace base {

namespace time_internal {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

// Arithmetic saturates instead of overflowing: sensor periods arrive as arbitrary int64
// nanosecond counts and must never wrap into negative delays.
constexpr int64_t SaturatedAdd(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_add_overflow(a, b, &r)) return b > 0 ? kMax : kMin;
    return r;
}

constexpr int64_t SaturatedSub(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_sub_overflow(a, b, &r)) return b < 0 ? kMax : kMin;
    return r;
}

constexpr int64_t SaturatedMul(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_mul_overflow(a, b, &r)) return (a < 0) != (b < 0) ? kMin : kMax;
    return r;
}

}  // namespace time_internal

// A signed span of time with microsecond resolution.
class TimeDelta {
  public:
    constexpr TimeDelta() = default;

    // Truncates toward zero.
    static constexpr TimeDelta FromNanoseconds(int64_t ns) { return TimeDelta(ns / 1000); }
    static constexpr TimeDelta FromMicroseconds(int64_t us) { return TimeDelta(us); }
    static constexpr TimeDelta FromMilliseconds(int64_t ms) {
        return TimeDelta(time_internal::SaturatedMul(ms, 1000));
    }
    static constexpr TimeDelta FromSeconds(int64_t s) {
        return TimeDelta(time_internal::SaturatedMul(s, 1000000));
    }
    // Truncates toward zero; NaN gives zero, out-of-range values saturate.
    static constexpr TimeDelta FromSecondsD(double s) {
        double us = s * 1e6;
        if (!(us == us)) return TimeDelta();
        if (us >= 9223372036854775807.0) return Max();
        if (us <= -9223372036854775808.0) return Min();
        return TimeDelta(static_cast<int64_t>(us));
    }
    static constexpr TimeDelta Max() { return TimeDelta(time_internal::kMax); }
    static constexpr TimeDelta Min() { return TimeDelta(time_internal::kMin); }

    constexpr int64_t InNanoseconds() const { return time_internal::SaturatedMul(mUs, 1000); }
    constexpr int64_t InMicroseconds() const { return mUs; }
    constexpr int64_t InMilliseconds() const { return mUs / 1000; }
    constexpr int64_t InSeconds() const { return mUs / 1000000; }
    constexpr double InMillisecondsF() const { return static_cast<double>(mUs) / 1e3; }
    constexpr double InSecondsF() const { return static_cast<double>(mUs) / 1e6; }

    constexpr bool is_zero() const { return mUs == 0; }
    constexpr bool is_positive() const { return mUs > 0; }
    constexpr bool is_negative() const { return mUs < 0; }
    constexpr bool is_max() const { return mUs == time_internal::kMax; }

    constexpr TimeDelta operator+(TimeDelta o) const {
        return TimeDelta(time_internal::SaturatedAdd(mUs, o.mUs));
    }
    constexpr TimeDelta operator-(TimeDelta o) const {
        return TimeDelta(time_internal::SaturatedSub(mUs, o.mUs));
    }
    constexpr TimeDelta operator-() const { return TimeDelta(time_internal::SaturatedSub(0, mUs)); }
    constexpr TimeDelta operator*(int64_t k) const {
        return TimeDelta(time_internal::SaturatedMul(mUs, k));
    }
    // `k` must not be zero.
    constexpr TimeDelta operator/(int64_t k) const { return k == -1 ? -*this : TimeDelta(mUs / k); }
    constexpr TimeDelta& operator+=(TimeDelta o) { return *this = *this + o; }
    constexpr TimeDelta& operator-=(TimeDelta o) { return *this = *this - o; }

    constexpr bool operator==(TimeDelta o) const { return mUs == o.mUs; }
    constexpr bool operator!=(TimeDelta o) const { return mUs != o.mUs; }
    constexpr bool operator<(TimeDelta o) const { return mUs < o.mUs; }
    constexpr bool operator<=(TimeDelta o) const { return mUs <= o.mUs; }
    constexpr bool operator>(TimeDelta o) const { return mUs > o.mUs; }
    constexpr bool operator>=(TimeDelta o) const { return mUs >= o.mUs; }

  private:
    constexpr explicit TimeDelta(int64_t us) : mUs(us) {}

    int64_t mUs = 0;
};

constexpr TimeDelta operator*(int64_t k, TimeDelta d) { return d * k; }

// Logs as seconds, e.g. "0.0025 s".
inline std::ostream& operator<<(std::ostream& os, TimeDelta d) {
    return os << d.InSecondsF() << " s";
}

// A point on the monotonic clock (CLOCK_MONOTONIC). The default value is the clock's origin and
// reads as null.
class TimeTicks {
  public:
    constexpr TimeTicks() = default;

    // The monotonic clock, or the virtual clock while a test has one (base/test/virtual_clock.h).
    static TimeTicks Now();
    // The monotonic clock, whatever a test has installed.
    static TimeTicks RealNow() {
        auto since = std::chrono::steady_clock::now().time_since_epoch();
        return TimeTicks(std::chrono::duration_cast<std::chrono::microseconds>(since).count());
    }

    constexpr bool is_null() const { return mUs == 0; }
    constexpr TimeDelta since_origin() const { return TimeDelta::FromMicroseconds(mUs); }

    constexpr TimeTicks operator+(TimeDelta d) const {
        return TimeTicks(time_internal::SaturatedAdd(mUs, d.InMicroseconds()));
    }
    constexpr TimeTicks operator-(TimeDelta d) const {
        return TimeTicks(time_internal::SaturatedSub(mUs, d.InMicroseconds()));
    }
    constexpr TimeDelta operator-(TimeTicks o) const {
        return TimeDelta::FromMicroseconds(time_internal::SaturatedSub(mUs, o.mUs));
    }
    constexpr TimeTicks& operator+=(TimeDelta d) { return *this = *this + d; }
    constexpr TimeTicks& operator-=(TimeDelta d) { return *this = *this - d; }

    constexpr bool operator==(TimeTicks o) const { return mUs == o.mUs; }
    constexpr bool operator!=(TimeTicks o) const { return mUs != o.mUs; }
    constexpr bool operator<(TimeTicks o) const { return mUs < o.mUs; }
    constexpr bool operator<=(TimeTicks o) const { return mUs <= o.mUs; }
    constexpr bool operator>(TimeTicks o) const { return mUs > o.mUs; }
    constexpr bool operator>=(TimeTicks o) const { return mUs >= o.mUs; }

  private:
    constexpr explicit TimeTicks(int64_t us) : mUs(us) {}

    int64_t mUs = 0;
};

}  // namespace base
