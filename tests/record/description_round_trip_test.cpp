// The description format's one writer against its reader: any description written and read back
// is equal, for generated descriptions that reach every field and the edges of every number, and
// for every description file kept with the tests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"

namespace kelvane::host::description {
namespace {

// Draws descriptions the reader could have produced: every field used, strings that need escaping,
// numbers at their limits.
class Generator {
  public:
    explicit Generator(uint32_t seed) : mRandom(seed) {}

    HostConfig host() {
        HostConfig config;
        config.bridgeVersion = pick<uint32_t>({0, 54, std::numeric_limits<uint32_t>::max()});
        if (chance()) {
            config.clientTypes.clear();
            for (int i = below(4); i > 0; --i) config.clientTypes.push_back(pick<int32_t>({1, 9}));
        }
        if (chance()) config.startBootTimeNs = pick<int64_t>({0, 1}) & 0x7fffffffffffffff;
        std::set<int32_t> ids;
        const int devices = below(5);
        for (int i = 0; i < devices; ++i) {
            VirtualDevice d = device();
            if (ids.insert(d.id).second) config.devices.push_back(std::move(d));
        }
        const int events = below(6);
        for (int i = 0; i < events; ++i) config.timeline.push_back(event(ids));
        return config;
    }

  private:
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(mRandom); }
    bool chance() { return below(2) == 0; }

    template <typename T>
    T pick(std::initializer_list<T> edges) {
        if (below(3) == 0) return edges.begin()[below(static_cast<int>(edges.size()))];
        return std::uniform_int_distribution<T>(std::numeric_limits<T>::min(),
                                                std::numeric_limits<T>::max())(mRandom);
    }

    int64_t raw() {
        return pick<int64_t>(
            {0, -1, 1, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()});
    }

    // Any finite double, from its bits: subnormals, huge and tiny exponents, negative zero.
    double number() {
        if (below(4) == 0) return pick<int32_t>({0, 1, -1, 400});
        double value = NAN;
        while (!std::isfinite(value)) {
            const uint64_t bits = std::uniform_int_distribution<uint64_t>()(mRandom);
            std::memcpy(&value, &bits, sizeof(value));
        }
        return value;
    }

    std::string text() {
        static const char* const kPieces[] = {"accel_x", "\"", "\\", "/", "~1", "\n", "\t", "\x01",
                                              "\x7f",    "é",  "€",  "😀", " ",  "0",  "lid"};
        std::string out;
        const int pieces = below(4);
        for (int i = 0; i < pieces; ++i) out += kPieces[below(std::size(kPieces))];
        return out;
    }

    VirtualDevice device() {
        VirtualDevice d;
        d.id = pick<int32_t>({0, -1, std::numeric_limits<int32_t>::max()});
        for (int i = below(4); i > 0; --i) d.types.push_back(pick<int32_t>({1, 2, 3, 5, 11}));
        for (int i = below(5); i > 0; --i) d.channels.push_back(text());
        for (int i = below(4); i > 0; --i) d.attributes[text()] = text();
        // Samples name channels by index, so they only come with channels to name.
        const int channelCount = static_cast<int>(d.channels.size());
        if (channelCount > 0 && chance()) {
            for (int i = below(4); i > 0; --i) {
                std::map<int32_t, int64_t> sample;
                for (int j = below(4); j > 0; --j) sample[below(channelCount)] = raw();
                d.samples.push_back(std::move(sample));
            }
        } else if (channelCount > 0 && chance()) {
            d.timedSamples = timedSamples(channelCount);
        }
        for (int i = below(3); i > 0; --i) d.frequencyAnswers.emplace_back(number(), number());
        if (chance()) d.maxFrequency = std::abs(number()) + 1e-300;
        for (int i = below(3); i > 0; --i) d.failChannels.push_back(pick<int32_t>({0, -1}));
        d.stall = static_cast<Stall>(below(4));
        d.closeAt = static_cast<CloseAt>(below(5));
        d.replyDelay = std::chrono::milliseconds(pick<int32_t>({0, 1}) & 0x7fffffff);
        if (chance()) d.faults = faults();
        return d;
    }

    StreamFaults faults() {
        StreamFaults f;
        auto upTo = [this](int64_t min, int64_t max) {
            return std::uniform_int_distribution<int64_t>(min, max)(mRandom);
        };
        if (chance()) f.jitter = std::chrono::microseconds(upTo(0, 1'000'000'000));
        if (chance()) f.dropEvery = static_cast<uint32_t>(upTo(1, 0x7fffffff));
        if (chance()) {
            f.dropFrom = std::chrono::microseconds(upTo(0, 1'000'000'000'000'000));
            f.dropFor = std::chrono::microseconds(upTo(0, 1'000'000'000'000'000));
        }
        if (chance()) f.rateFactor = std::abs(number()) + 1e-300;
        f.clock = static_cast<TimestampClock>(below(3));
        if (chance()) {
            f.timestampOffset =
                std::chrono::microseconds(upTo(-1'000'000'000'000'000, 1'000'000'000'000'000));
        }
        for (int i = below(3); i > 0; --i) f.stuck[text()] = number();
        for (int i = below(3); i > 0; --i) f.noise[text()] = std::abs(number());
        return f;
    }

    std::shared_ptr<const TimedSamples> timedSamples(int channelCount) {
        auto t = std::make_shared<TimedSamples>();
        std::set<int32_t> channels;
        for (int i = below(5); i > 0; --i) {
            const int32_t channel = below(channelCount);
            if (channels.insert(channel).second) t->channels.push_back(channel);
        }
        int64_t at = 0;
        const int rows = 1 + below(20);
        for (int row = 0; row < rows; ++row) {
            at +=
                below(3) == 0 ? 0 : std::uniform_int_distribution<int64_t>(1, 10'000'000)(mRandom);
            t->atUs.push_back(at);
            for (size_t c = 0; c < t->channels.size(); ++c) {
                const bool present = below(5) != 0;
                t->values.push_back(present ? raw() : 0);  // a null reads as 0
                t->present.push_back(present);
            }
            if (row > 0 && below(6) == 0) t->restarts.push_back(static_cast<size_t>(row));
        }
        return t;
    }

    TimelineEvent event(const std::set<int32_t>& ids) {
        TimelineEvent e;
        // Whole milliseconds or any microsecond, up to about ten years.
        const int64_t us = std::uniform_int_distribution<int64_t>(0, int64_t{1} << 48)(mRandom);
        e.at = std::chrono::microseconds(chance() ? us / 1000 * 1000 : us);
        e.action = static_cast<TimelineAction>(below(4));
        const bool needsDevice =
            e.action == TimelineAction::kObserverError || e.action == TimelineAction::kCloseDevice;
        if (needsDevice && ids.empty()) e.action = TimelineAction::kTabletMode;
        switch (e.action) {
            case TimelineAction::kObserverError:
                e.error = pick<int32_t>({0, 5});
                [[fallthrough]];
            case TimelineAction::kCloseDevice:
                e.device = *std::next(ids.begin(), below(static_cast<int>(ids.size())));
                break;
            case TimelineAction::kCloseService:
                e.reason = pick<uint32_t>({0, std::numeric_limits<uint32_t>::max()});
                e.description = text();
                break;
            case TimelineAction::kTabletMode:
                e.on = chance();
                break;
        }
        return e;
    }

    std::mt19937 mRandom;
};

HostConfig readBack(const std::string& text) {
    HostConfig config;
    std::string error;
    EXPECT_TRUE(parseHostDescription(text, &config, &error)) << error << "\n" << text;
    return config;
}

TEST(DescriptionRoundTripTest, AnyDescriptionWrittenReadsBackEqual) {
    for (uint32_t seed = 0; seed < 400; ++seed) {
        const HostConfig written = Generator(seed).host();
        const std::string text = hostDescriptionText(written);
        const HostConfig read = readBack(text);
        ASSERT_TRUE(read == written) << "seed " << seed << "\n" << text;
        ASSERT_EQ(hostDescriptionText(read), text) << "seed " << seed;
    }
}

TEST(DescriptionRoundTripTest, EveryDescriptionFileOfTheTestsReadsBackEqual) {
    size_t files = 0;
    for (auto it = std::filesystem::recursive_directory_iterator(TESTS_DIR);
         it != std::filesystem::recursive_directory_iterator(); ++it) {
        const std::filesystem::directory_entry& entry = *it;
        // npm's files beside the browser tests are no host descriptions.
        if (entry.path().filename() == "node_modules") {
            it.disable_recursion_pending();
            continue;
        }
        if (entry.path().extension() != ".json" ||
            entry.path().filename().string().rfind("package", 0) == 0) {
            continue;
        }
        SCOPED_TRACE(entry.path().string());
        HostConfig first;
        std::string error;
        ASSERT_TRUE(loadHostDescription(entry.path().string(), &first, &error)) << error;
        EXPECT_TRUE(readBack(hostDescriptionText(first)) == first);
        ++files;
    }
    EXPECT_GE(files, 5u);
}

TEST(DescriptionRoundTripTest, WhatJsonCannotHoldIsWrittenReadably) {
    HostConfig config;
    VirtualDevice d;
    d.types = {1};
    d.attributes = {{"name", std::string("bmi\xff\xfe")}, {"label", std::nullopt}};
    d.frequencyAnswers = {{NAN, 5.0}, {10.0, INFINITY}, {20.0, 20.0}};
    config.devices = {d};
    const HostConfig read = readBack(hostDescriptionText(config));
    ASSERT_EQ(read.devices.size(), 1u);
    // Bad bytes become U+FFFD; an attribute answered absent stays absent.
    EXPECT_EQ(read.devices[0].attributes,
              (std::map<std::string, std::optional<std::string>>{{"name", "bmi\uFFFD\uFFFD"}}));
    EXPECT_EQ(read.devices[0].frequencyAnswers,
              (std::vector<std::pair<double, double>>{{20.0, 20.0}}));
}

TEST(DescriptionRoundTripTest, SaveNamesThePathItCannotWrite) {
    std::string error;
    EXPECT_FALSE(saveHostDescription(HostConfig(), "/nonexistent-dir/out.json", &error));
    EXPECT_EQ(error, "/nonexistent-dir/out.json: cannot write: No such file or directory");
    EXPECT_FALSE(saveHostDescription(HostConfig(), "/dev/full", &error));
    EXPECT_EQ(error, "/dev/full: cannot write: No space left on device");
}

}  // namespace
}  // namespace kelvane::host::description
