#include "bench/sample_times.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>
#include <tuple>

namespace kelvane::bench {

void SampleTimeLog::start() {
    mCount.store(0, std::memory_order_relaxed);
    mOn.store(true, std::memory_order_release);
}

void SampleTimeLog::stop() {
    mOn.store(false, std::memory_order_seq_cst);
    while (mWriters.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
}

void SampleTimeLog::add(int32_t handle, int64_t timestampNs, int64_t atNs) {
    mWriters.fetch_add(1, std::memory_order_seq_cst);
    if (mOn.load(std::memory_order_seq_cst)) {
        const size_t i = mCount.fetch_add(1, std::memory_order_relaxed);
        if (i < mEntries.size()) mEntries[i] = Entry{handle, timestampNs, atNs};
    }
    mWriters.fetch_sub(1, std::memory_order_release);
}

std::vector<SampleTimeLog::Entry> SampleTimeLog::entries() const {
    const size_t n = std::min(mCount.load(std::memory_order_acquire), mEntries.size());
    return std::vector<Entry>(mEntries.begin(), mEntries.begin() + static_cast<ptrdiff_t>(n));
}

namespace {

Spread spreadOf(std::vector<int64_t> ns) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    if (ns.empty()) return Spread{none, none, none};
    std::sort(ns.begin(), ns.end());
    auto at = [&](double q) {
        const size_t i = static_cast<size_t>(std::ceil(q * static_cast<double>(ns.size())));
        return static_cast<double>(ns[std::min(ns.size() - 1, i > 0 ? i - 1 : 0)]) / 1e3;
    };
    return Spread{at(0.50), at(0.99), static_cast<double>(ns.back()) / 1e3};
}

bool bySample(const SampleTimeLog::Entry& a, const SampleTimeLog::Entry& b) {
    return std::tie(a.handle, a.timestampNs) < std::tie(b.handle, b.timestampNs);
}

}  // namespace

LatencySamples latencySamplesOf(const std::vector<SampleTimeLog::Entry>& sent,
                                const std::vector<SampleTimeLog::Entry>& received) {
    std::vector<SampleTimeLog::Entry> sentBySample = sent;
    std::sort(sentBySample.begin(), sentBySample.end(), bySample);
    LatencySamples out;
    for (const SampleTimeLog::Entry& r : received) {
        out.total.push_back(r.atNs - r.timestampNs);
        auto s = std::lower_bound(sentBySample.begin(), sentBySample.end(), r, bySample);
        if (s == sentBySample.end() || bySample(r, *s)) continue;
        out.lateness.push_back(s->atNs - s->timestampNs);
        out.handOff.push_back(r.atNs - s->atNs);
    }
    return out;
}

void LatencySamples::append(const LatencySamples& more) {
    lateness.insert(lateness.end(), more.lateness.begin(), more.lateness.end());
    handOff.insert(handOff.end(), more.handOff.begin(), more.handOff.end());
    total.insert(total.end(), more.total.begin(), more.total.end());
}

Latencies LatencySamples::spread() const {
    return Latencies{spreadOf(lateness), spreadOf(handOff), spreadOf(total)};
}

}  // namespace kelvane::bench
