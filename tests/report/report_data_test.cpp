// What a report computes from a recording: thinned-out points that keep peaks and gaps, the
// interval histogram, gaps and marks from the whole recording, and text that cannot break out of
// the page.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "check/MarkupText.h"
#include "report/HtmlPage.h"
#include "report/RecordingReport.h"

namespace {

using namespace kelvane::tools::report;
namespace description = kelvane::host::description;

TEST(ReportDataTest, DecimationKeepsPeaksAndBreaksAtGaps) {
    // 10,000 samples at 1 ms, one spike at 5.000 s, nothing from 7 s to 8 s.
    std::vector<double> t;
    std::vector<double> v;
    for (int i = 0; i < 10000; ++i) {
        if (i >= 7000 && i < 8000) continue;
        t.push_back(i / 1000.0);
        v.push_back(i == 5000 ? 100.0 : std::sin(i / 100.0));
    }
    const Decimated d = decimate(t, {v}, 100, 0.0018);
    EXPECT_LE(d.t.size(), 200u);
    double peak = 0;
    size_t breaks = 0;
    for (const auto& value : d.columns[0]) {
        if (value) peak = std::max(peak, *value);
        breaks += value ? 0 : 1;
    }
    EXPECT_EQ(peak, 100.0);
    EXPECT_EQ(breaks, 1u) << "one break for the ten empty slices of the second without samples";
    for (size_t i = 1; i < d.t.size(); ++i) EXPECT_GE(d.t[i], d.t[i - 1]);

    // Few samples: all kept, a break where the send times leave a gap, NaN as null.
    const Decimated all = decimate(
        {0.0, 0.01, 0.02, 0.5}, {{1, std::numeric_limits<double>::quiet_NaN(), 3, 4}}, 100, 0.018);
    ASSERT_EQ(all.t.size(), 5u);
    EXPECT_FALSE(all.columns[0][1]);
    EXPECT_FALSE(all.columns[0][3]) << "the break";
    EXPECT_EQ(all.columns[0][4], 4.0);
}

TEST(ReportDataTest, HistogramAndMedian) {
    const Histogram h = intervalHistogram({10, 10, 10, 11, 9, 25, 31, -1}, 10, 30);
    EXPECT_EQ(h.binMs, 1.0);
    EXPECT_EQ(h.counts[10], 3u);
    EXPECT_EQ(h.counts[11], 1u);
    EXPECT_EQ(h.counts[9], 1u);
    EXPECT_EQ(h.counts[25], 1u);
    EXPECT_EQ(h.counts[0], 1u) << "a timestamp that went back";
    EXPECT_EQ(h.over, 1u);
}

// A recorded accelerometer: scaled values, gaps from its timestamps, its timeline entries and
// restarts as marks, and a host-wide entry apart.
TEST(ReportDataTest, ARecordedDeviceInItsUnitsWithGapsAndMarks) {
    auto samples = std::make_shared<description::TimedSamples>();
    samples->channels = {0, 3};
    for (int i = 0; i < 50; ++i) {
        const int64_t timestampNs = 1'000'000'000 + i * 10'000'000 + (i >= 30 ? 50'000'000 : 0);
        samples->atUs.push_back(i * 10'000);
        samples->values.insert(samples->values.end(), {i * 2, timestampNs});
        samples->present.insert(samples->present.end(), {true, true});
    }
    samples->restarts = {40};
    description::HostConfig config;
    description::VirtualDevice device;
    device.id = 7;
    device.types = {4, 1};
    device.channels = {"accel_x", "accel_y", "accel_z", "timestamp"};
    device.attributes = {{"name", "bmi<script>"}, {"location", "lid"}, {"scale", "0.5"}};
    device.timedSamples = samples;
    config.devices.push_back(device);
    description::TimelineEvent error;
    error.at = std::chrono::microseconds(200'000);
    error.action = description::TimelineAction::kObserverError;
    error.device = 7;
    error.error = 5;
    description::TimelineEvent closed;
    closed.at = std::chrono::microseconds(300'000);
    closed.action = description::TimelineAction::kCloseService;
    closed.reason = 7;
    closed.description = "bye";
    config.timeline = {error, closed};

    const nlohmann::json report = recordingReport(config, "r.json");
    ASSERT_EQ(report["devices"].size(), 1u);
    const nlohmann::json& d = report["devices"][0];
    EXPECT_EQ(d["label"], "Accelerometer (lid)") << "the name the sub-HAL publishes";
    EXPECT_EQ(d["type"], "accelerometer");
    EXPECT_EQ(d["unit"], "m/s²");
    EXPECT_EQ(d["series"].size(), 1u) << "the timestamp is no series";
    EXPECT_EQ(d["series"][0]["name"], "accel_x");
    EXPECT_EQ(d["series"][0]["v"][3], 3.0);
    EXPECT_EQ(d["intervalsFrom"], "the timestamp channel");
    EXPECT_DOUBLE_EQ(d["medianIntervalMs"].get<double>(), 10.0);
    EXPECT_EQ(d["gapCount"], 1u);
    EXPECT_DOUBLE_EQ(d["gaps"][0]["ms"].get<double>(), 60.0);
    EXPECT_DOUBLE_EQ(d["gaps"][0]["atS"].get<double>(), 0.3);
    ASSERT_EQ(d["marks"].size(), 2u);
    EXPECT_EQ(d["marks"][0]["what"], "restart: a new reader");
    EXPECT_EQ(d["marks"][1]["what"], "observer error 5");
    EXPECT_EQ(report["marks"][0]["what"], "service closed (reason 7: bye)");

    // Asked for 100 Hz, its timestamps 1 s ahead of the recorded boot-time send times: flagged
    // next to the device with the rule check would FAIL; a device asked that sent nothing too.
    config.startBootTimeNs = 0;
    config.devices[0].frequencyAnswers = {{100.0, 100.0}};
    description::VirtualDevice silent = config.devices[0];
    silent.id = 8;
    silent.types = {2};
    silent.timedSamples = std::make_shared<description::TimedSamples>();
    config.devices.push_back(silent);
    const nlohmann::json flagged = recordingReport(config, "r.json");
    std::set<std::string> rules;
    for (const auto& flag : flagged["devices"][0]["flags"]) rules.insert(flag["rule"]);
    // Its x channel is a ramp up to 24.5 m/s^2: no device at rest.
    EXPECT_EQ(rules,
              (std::set<std::string>{"cts.timestamp-future", "cts.magnitude", "cts.std-dev"}));
    ASSERT_EQ(flagged["silent"].size(), 1u);
    EXPECT_EQ(flagged["silent"][0]["label"], "Gyroscope (lid)");
    config.devices.pop_back();

    // A scale that is no number: raw values, said so.
    config.devices[0].attributes["scale"] = "abc";
    const nlohmann::json raw = recordingReport(config, "r.json")["devices"][0];
    EXPECT_EQ(raw["unit"], "raw");
    EXPECT_TRUE(raw["scaleUnreadable"]);
    EXPECT_EQ(raw["series"][0]["v"][3], 6.0);
}

TEST(ReportDataTest, HostTextCannotBreakOutOfThePage) {
    EXPECT_EQ(kelvane::tools::check::markupEscaped("<a href=\"x\">'&'</a>"),
              "&lt;a href=&quot;x&quot;&gt;&apos;&amp;&apos;&lt;/a&gt;");
    const std::string json = scriptSafeJson({{"name", "</script><script>alert(1)</script>&"}});
    EXPECT_EQ(json.find('<'), std::string::npos);
    EXPECT_EQ(json.find('>'), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(json)["name"], "</script><script>alert(1)</script>&");
    EXPECT_EQ(nlohmann::json::parse(scriptSafeJson({{"bad", std::string("a\xff"
                                                                        "b")}}))["bad"],
              "a\xef\xbf\xbd"
              "b");
    const std::string page = selfContainedPage("<t>", {"p{}"}, {{"x", "</script>"}}, {"run()"});
    EXPECT_NE(page.find("<title>&lt;t&gt;</title>"), std::string::npos);
    EXPECT_EQ(page.find("</script>\"", 0), std::string::npos);
}

}  // namespace
