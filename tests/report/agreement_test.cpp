// The page, the report and check read one recording alike: over a recorded accelerometer, the
// live page's rate, mean interval and jitter (LiveStats), the report's, compare's and the figures
// in check's cts.frequency and cts.jitter details are the same numbers, all from the one
// statistics module.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "compare/RecordingFigures.h"
#include "host/description/DescriptionReader.h"
#include "report/RecordingReport.h"
#include "serve/LiveStats.h"
#include "tests/support/subprocess.h"

namespace {

using kelvane::testing::ProcessRun;
namespace description = kelvane::host::description;

ProcessRun runTool(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return kelvane::testing::runProcess(argv);
}

std::string g4(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", value);
    return text;
}

TEST(FiguresAgreeTest, PageReportCompareAndCheckGiveOneRecordingTheSameFigures) {
    char dir[] = "/tmp/agreement-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string recording = std::string(dir) + "/rec.json";
    const ProcessRun recorded = runTool({"stream", "--sensor", "accelerometer", "--rate", "50",
                                         "--duration", "3", "--record", recording});
    ASSERT_EQ(recorded.exitCode, 0) << recorded.err;
    description::HostConfig config;
    std::string error;
    ASSERT_TRUE(description::loadHostDescription(recording, &config, &error)) << error;

    const nlohmann::json report = kelvane::tools::report::recordingReport(config, "rec.json");
    const std::vector<kelvane::tools::compare::DeviceFigures> figures =
        kelvane::tools::compare::recordingFigures(config);
    std::stringstream lines(runTool({"--host", recording, "--speed", "0", "check", "--json",
                                     "--rule", "cts.frequency", "--rule", "cts.jitter"})
                                .out);
    std::map<std::string, std::string> details;  // "rule subject" -> detail
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json r = nlohmann::json::parse(line);
        details[r["rule"].get<std::string>() + " " + r["subject"].get<std::string>()] = r["detail"];
    }
    size_t judged = 0;
    for (const auto& figure : figures) {
        if (figure.samples < 100) continue;
        ++judged;
        const description::VirtualDevice* device = nullptr;
        for (const auto& d : config.devices) device = d.id == figure.id ? &d : device;
        ASSERT_NE(device, nullptr);
        kelvane::tools::serve::LiveStats page(int64_t{1} << 62);
        const auto& s = *device->timedSamples;
        const size_t width = s.channels.size();
        size_t stamp = width;
        for (size_t c = 0; c < width; ++c) {
            if (device->channels[s.channels[c]] == "timestamp") stamp = c;
        }
        ASSERT_LT(stamp, width) << "recorded with its timestamp channel";
        for (size_t i = 0; i < s.size(); ++i) page.add(s.values[i * width + stamp], 0);
        const kelvane::tools::serve::LiveFigures live = page.figures();
        ASSERT_TRUE(live.rateHz && live.jitterMs);

        nlohmann::json shown;
        for (const auto& d : report["devices"]) shown = d["id"] == figure.id ? d : shown;
        EXPECT_DOUBLE_EQ(shown["rateHz"].get<double>(), *live.rateHz);
        EXPECT_DOUBLE_EQ(shown["meanIntervalMs"].get<double>(), *live.intervalMs);
        EXPECT_DOUBLE_EQ(shown["jitterMs"].get<double>(), *live.jitterMs);
        EXPECT_DOUBLE_EQ(figure.intervals.rateHz, *live.rateHz);
        EXPECT_DOUBLE_EQ(figure.intervals.jitterNs / 1e6, *live.jitterMs);

        const std::string subject = figure.name + " @ 50 Hz";
        EXPECT_EQ(
            details["cts.frequency " + subject].rfind("frequency " + g4(*live.rateHz) + " Hz", 0),
            0u)
            << details["cts.frequency " + subject];
        EXPECT_EQ(details["cts.jitter " + subject].rfind(
                      "intervals spread " + g4(*live.jitterMs) + " ms", 0),
                  0u)
            << details["cts.jitter " + subject];
    }
    EXPECT_GE(judged, 1u);
    std::system(("rm -rf " + std::string(dir)).c_str());
}

}  // namespace
