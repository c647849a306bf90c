// compare on two recordings of one board that differ by one planted fault: it names that fault,
// on that device, first, and nothing else; the same recording twice differs in nothing.
#include <gtest/gtest.h>

#include <memory>

#include "compare/Comparison.h"

namespace kelvane::tools::compare {
namespace {

namespace description = host::description;

// 20 s at 50 Hz of a still sensor, x/y/z in LSB around `restZ`, +-1 LSB of noise; each sample sent
// 1 ms after its timestamp. Every `dropEvery`th sample is missing (0: none).
description::VirtualDevice still(int32_t id, int32_t type, const char* prefix, int64_t restZ,
                                 const char* scale, int dropEvery = 0) {
    auto samples = std::make_shared<description::TimedSamples>();
    samples->channels = {0, 1, 2, 3};
    for (int64_t i = 0; i < 1000; ++i) {
        if (dropEvery != 0 && i % dropEvery == dropEvery / 2) continue;
        const int64_t noise = i % 3 - 1;
        samples->atUs.push_back(i * 20'000 + 1'000);
        samples->values.insert(samples->values.end(),
                               {noise, -noise, restZ + noise, 1'000'000'000 + i * 20'000'000});
        samples->present.insert(samples->present.end(), {true, true, true, true});
    }
    description::VirtualDevice device;
    device.id = id;
    device.types = {type};
    const std::string p = prefix;
    device.channels = {p + "_x", p + "_y", p + "_z", "timestamp"};
    device.attributes = {{"location", "lid"}, {"scale", scale}};
    device.frequencyAnswers = {{50.0, 50.0}};
    device.timedSamples = samples;
    return device;
}

description::HostConfig board(int accelDropEvery) {
    description::HostConfig config;
    config.startBootTimeNs = 1'000'000'000;
    config.devices = {still(0, 1, "accel", 4098, "0.0023928226", accelDropEvery),
                      still(1, 2, "anglvel", 0, "0.0010652")};
    return config;
}

TEST(CompareTest, NamesExactlyThePlantedFault) {
    const Comparison same = compareRecordings("a.json", recordingFigures(board(0)), "b.json",
                                              recordingFigures(board(0)));
    EXPECT_TRUE(same.differences.empty()) << comparisonText(same);
    EXPECT_FALSE(same.worse());

    // Every 20th accelerometer sample dropped: gaps the suite fails, the rate 5 % down.
    const Comparison c = compareRecordings("a.json", recordingFigures(board(0)), "b.json",
                                           recordingFigures(board(20)));
    ASSERT_FALSE(c.differences.empty());
    EXPECT_TRUE(c.worse());
    EXPECT_EQ(c.differences[0].what.rfind("cts.gaps PASS -> FAIL", 0), 0u) << comparisonText(c);
    size_t worse = 0;
    for (const Difference& d : c.differences) {
        EXPECT_EQ(d.device, "Accelerometer (lid)") << d.what;
        worse += d.worse ? 1 : 0;
    }
    EXPECT_EQ(worse, 1u) << comparisonText(c);
    const std::string text = comparisonText(c);
    EXPECT_NE(text.find("WORSE Accelerometer (lid): cts.gaps PASS -> FAIL"), std::string::npos)
        << text;
    // The page's data holds both recordings' charts of every device.
    const nlohmann::json page = comparisonJson(c, 100);
    ASSERT_EQ(page["devices"].size(), 2u);
    EXPECT_EQ(page["devices"][0]["charts"]["b"]["series"].size(), 3u);
    EXPECT_TRUE(page["worse"].get<bool>());
}

}  // namespace
}  // namespace kelvane::tools::compare
