// A fixed number of samples end to end, for instruction counting: `iio-e2e-fixed N` sets up the
// system, warms it, sends N accelerometer samples through it and exits. Run it twice with
// different N under callgrind; the difference in instructions over the difference in samples is
// the cost of one sample, with setup and teardown cancelled out.
#include <cstdio>
#include <cstdlib>

#include "bench/bench_env.h"

int main(int argc, char** argv) {
    using namespace kelvane::bench;
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s SAMPLES\n", argv[0]);
        return 2;
    }
    const unsigned long long samples = std::strtoull(argv[1], nullptr, 10);
    constexpr unsigned long long kBurst = 10000;
    System sys;
    if (!sys.activate(kAccel) || !sys.burst(kAccel, 1000)) return 1;
    for (unsigned long long sent = 0; sent < samples; sent += kBurst) {
        const unsigned long long n = samples - sent < kBurst ? samples - sent : kBurst;
        if (!sys.burst(kAccel, n)) return 1;
    }
    std::printf("%llu samples\n", samples);
    return 0;
}
