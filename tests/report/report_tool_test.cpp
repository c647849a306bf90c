// `report` and `check --html` through the real tool: what they refuse, and that a report holds its
// data inlined, with nothing to fetch.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "host/description/DescriptionReader.h"
#include "report/RecordingReport.h"
#include "tests/check/cts_faults.h"
#include "tests/support/subprocess.h"

namespace {

using kelvane::testing::ProcessRun;

ProcessRun runTool(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return kelvane::testing::runProcess(argv);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ReportToolTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mkdtemp(mDir), nullptr); }
    void TearDown() override { std::system(("rm -rf " + std::string(mDir)).c_str()); }
    std::string path(const std::string& name) const { return std::string(mDir) + "/" + name; }
    char mDir[32] = "/tmp/report-test-XXXXXX";
};

TEST_F(ReportToolTest, RefusesWhatItCannotReport) {
    std::ofstream(path("none.json")) << R"({"devices": [{"id": 1, "types": [1]}]})";
    std::ofstream(path("bad.json")) << R"({"devices": [{"id": 1, "colour": 2}]})";
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string err;
    };
    const std::vector<Case> cases = {
        {{"report", path("none.json"), "-o", path("a.html")},
         2,
         "iio-subhal: " + path("none.json") +
             ": no recorded samples (timedSamples) to report on; record some with stream "
             "--record\n"},
        {{"report", path("bad.json"), "-o", path("a.html")},
         2,
         "iio-subhal: " + path("bad.json") + ": /devices/0: unknown key \"colour\"\n"},
        {{"report", path("missing.json"), "-o", path("a.html")},
         2,
         "iio-subhal: " + path("missing.json") + ": cannot read: No such file or directory\n"},
        {{"report", path("none.json"), "-o", path("no/such/dir.html")},
         2,
         "iio-subhal: --output " + path("no/such/dir.html") + ": cannot create a file in " +
             path("no/such/") + ": No such file or directory\n"},
        {{"report", path("none.json"), "-o", path("none.json")},
         2,
         "iio-subhal: --output " + path("none.json") +
             ": is the recording; write the report to another file\n"},
        {{"report", path("none.json")},
         2,
         "iio-subhal: report: --output is required (iio-subhal help report)\n"},
        {{"--iio", "local:", "report", path("none.json"), "-o", path("a.html")},
         2,
         "iio-subhal: report loads no library and runs no host; drop --iio (iio-subhal help "
         "report)\n"},
        {{"check", "--html", path("no/such/dir.html")},
         2,
         "iio-subhal: --html " + path("no/such/dir.html") + ": cannot create a file in " +
             path("no/such/") + ": No such file or directory\n"},
    };
    for (const Case& c : cases) {
        const ProcessRun run = runTool(c.args);
        EXPECT_EQ(run.exitCode, c.code) << c.args[0] << " " << c.args[1];
        // check says how enumeration went before it gets to its report.
        ASSERT_NE(run.err.rfind("iio-subhal: "), std::string::npos) << run.err;
        EXPECT_EQ(run.err.substr(run.err.rfind("iio-subhal: ")), c.err);
        EXPECT_NE(access(path("a.html").c_str(), F_OK), 0) << "nothing written";
    }
}

TEST_F(ReportToolTest, AReportHoldsEverythingItShows) {
    ProcessRun run = runTool(
        {"stream", "--sensor", "accelerometer", "--count", "40", "--record", path("rec.json")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = runTool({"report", path("rec.json"), "-o", path("rec.html")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string html = readFile(path("rec.html"));
    EXPECT_NE(html.find("<script type=\"application/json\" id=\"data\">{"), std::string::npos);
    EXPECT_NE(html.find("\"kind\":\"recording\""), std::string::npos);
    EXPECT_NE(html.find("var uPlot"), std::string::npos) << "the charting library inlined";
    EXPECT_EQ(html.find("src="), std::string::npos) << "nothing to fetch";

    // Replacing a report replaces it whole (the second is written in another second, perhaps:
    // both are dated alike).
    setenv("SOURCE_DATE_EPOCH", "1790000000", 1);
    run = runTool({"report", path("rec.json"), "-o", path("rec.html")});
    ASSERT_EQ(run.exitCode, 0);
    const std::string dated = readFile(path("rec.html"));
    run = runTool({"report", path("rec.json"), "-o", path("rec.html")});
    EXPECT_EQ(run.exitCode, 0);
    unsetenv("SOURCE_DATE_EPOCH");
    EXPECT_EQ(readFile(path("rec.html")), dated);
}

// Recorded from the host of planted stream faults, each device is flagged with the rule check
// FAILs it on from the recording (jitter only with --hifi, which a report does not assume), and
// the still one with none: a stream that stops, a wrong or frozen clock and values out of bounds
// included.
TEST_F(ReportToolTest, ARecordingOfPlantedFaultsIsFlaggedWithEachFaultsRule) {
    const ProcessRun recorded =
        runTool({"--host", std::string(CHECK_HOSTS_DIR) + "/cts-faulty-streams.json", "stream",
                 "--rate", "100", "--duration", "6", "--record", path("faulty.json")});
    // The sensor that stops stalls the stream, which ends with 1, recorded still.
    ASSERT_EQ(recorded.exitCode, 1) << recorded.err;
    kelvane::host::description::HostConfig config;
    std::string error;
    ASSERT_TRUE(
        kelvane::host::description::loadHostDescription(path("faulty.json"), &config, &error))
        << error;
    const nlohmann::json report = kelvane::tools::report::recordingReport(config, "faulty.json");
    std::map<std::string, std::set<std::string>> flagged;
    for (const auto& device : report["devices"]) {
        std::set<std::string>& rules = flagged[device["label"]];
        for (const auto& flag : device["flags"]) rules.insert(flag["rule"]);
    }
    std::map<std::string, std::set<std::string>> expected = kelvane::testing::ctsFaults();
    for (auto& [name, rules] : expected) rules.erase("cts.jitter");
    EXPECT_EQ(flagged, expected) << report["devices"].dump().substr(0, 2000);
}

}  // namespace
