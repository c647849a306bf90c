// When each sample of a measurement was due, sent and received, and the three latencies they give:
// the host's lateness (sent - due), the hand-off (received - sent) and the total
// (received - timestamp). A sample's timestamp is the time it was due, so the three add up.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelvane::bench {

// One time per sample, recorded while the log is on. Storage is made once, so recording allocates
// nothing on the path it measures; what comes past the capacity is not kept.
class SampleTimeLog {
  public:
    struct Entry {
        int32_t handle;       // the host's device id; the sub-HAL's handle is the same number
        int64_t timestampNs;  // the sample's timestamp
        int64_t atNs;         // when it was sent or received, on the boot-time clock
    };

    explicit SampleTimeLog(size_t capacity) : mEntries(capacity) {}
    void start();
    // Returns once no add() is still writing.
    void stop();
    // Any one thread at a time.
    void add(int32_t handle, int64_t timestampNs, int64_t atNs);
    // After stop(): what was recorded, in order.
    std::vector<Entry> entries() const;

  private:
    std::vector<Entry> mEntries;
    std::atomic<size_t> mCount{0};
    std::atomic<bool> mOn{false};
    std::atomic<int> mWriters{0};
};

// p50, p99 and the largest of a set of latencies, in microseconds; not-a-number for an empty set.
struct Spread {
    double p50Us;
    double p99Us;
    double maxUs;
};

struct Latencies {
    Spread lateness;  // sent - due, of the samples both sent and received while recording
    Spread handOff;   // received - sent, of the same samples
    Spread total;     // received - timestamp, of every sample received while recording
};

// The same three latencies, one per sample, in nanoseconds: what runs pool before their spread
// is taken, so that a p99 stands on every sample of every run rather than on a median of a few
// runs' 99th percentiles (at 250 events/s, 10 s give a p99 of the 25 latest samples).
struct LatencySamples {
    std::vector<int64_t> lateness;
    std::vector<int64_t> handOff;
    std::vector<int64_t> total;

    void append(const LatencySamples& more);
    Latencies spread() const;
};

// `sent` may be empty (no send times known): then only the totals are there.
LatencySamples latencySamplesOf(const std::vector<SampleTimeLog::Entry>& sent,
                                const std::vector<SampleTimeLog::Entry>& received);

}  // namespace kelvane::bench
