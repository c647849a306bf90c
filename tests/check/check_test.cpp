// Runs `iio-subhal check` in a subprocess: against the built-in host every rule passes, skips or
// reports a deviation, and the JUnit report parses; and every rule FAILs, with its reason, against
// a host description or a misbehaving sub-HAL that breaks it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"
#include "tests/check/cts_faults.h"
#include "tests/support/subprocess.h"

namespace {

using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;
using nlohmann::json;

struct CheckRun {
    int exitCode = -1;
    std::vector<json> results;  // the --json lines
    std::string out;
    std::string err;
};

class TempFile {
  public:
    TempFile() {
        char name[] = "/tmp/check_test_XXXXXX";
        const int fd = mkstemp(name);
        if (fd >= 0) close(fd);
        mPath = name;
    }
    ~TempFile() { unlink(mPath.c_str()); }
    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

// Runs `program args` with `extraEnv` added to the environment; -1 if it had to be killed.
int runAndCollect(const std::string& program, const std::vector<std::string>& args,
                  const std::vector<std::string>& extraEnv, std::string* out, std::string* err) {
    std::vector<std::string> argv = {program};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    options.extraEnv = extraEnv;
    ProcessRun run = kelvane::testing::runProcess(argv, options);
    *out = std::move(run.out);
    *err = std::move(run.err);
    return run.finished ? run.exitCode : -1;
}

CheckRun runCheck(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
    std::vector<std::string> all = {"check", "--json"};
    all.insert(all.end(), args.begin(), args.end());
    CheckRun run;
    run.exitCode = runAndCollect(IIO_SUBHAL_PATH, all, env, &run.out, &run.err);
    std::stringstream lines(run.out);
    std::string line;
    while (std::getline(lines, line)) {
        json parsed = json::parse(line, nullptr, false);
        if (parsed.is_discarded()) {
            ADD_FAILURE() << "not a JSON line: " << line;
            continue;
        }
        run.results.push_back(parsed);
    }
    return run;
}

std::string host(const char* name) { return std::string(CHECK_HOSTS_DIR) + "/" + name; }

// The run with the real library behind the misbehaving one, with `faults` on.
CheckRun runFaulty(const std::string& faults, const std::vector<std::string>& args) {
    std::vector<std::string> all = {"--library", FAULTY_SUBHAL_PATH};
    all.insert(all.end(), args.begin(), args.end());
    return runCheck(all, {std::string("REAL_SUBHAL_LIBRARY=") + SUBHAL_LIBRARY_PATH,
                          "FAULTY_SUBHAL_FAULTS=" + faults});
}

std::string describe(const CheckRun& run) {
    return "exit " + std::to_string(run.exitCode) + "\nstdout:\n" + run.out + "stderr:\n" + run.err;
}

// Expects at least one FAIL of `rule` whose detail contains `reason`.
void expectFail(const CheckRun& run, const std::string& rule, const std::string& reason) {
    for (const json& r : run.results) {
        if (r["rule"] == rule && r["verdict"] == "FAIL" &&
            r["detail"].get<std::string>().find(reason) != std::string::npos) {
            return;
        }
    }
    ADD_FAILURE() << "no FAIL of " << rule << " with \"" << reason << "\"\n" << describe(run);
}

int xmllint(const std::vector<std::string>& args, std::string* out) {
    std::string err;
    const int code = runAndCollect(XMLLINT_PATH, args, {}, out, &err);
    *out += err;
    return code;
}

TEST(CheckTest, BuiltInHostPassesWithTheDesignsDeviationsAndAValidJUnitReport) {
    ASSERT_STRNE(XMLLINT_PATH, "") << "xmllint is missing (Debian package libxml2-utils)";
    TempFile junit;
    const CheckRun run = runCheck({"--quick", "--junit", junit.path()});
    ASSERT_EQ(run.exitCode, 0) << describe(run);

    std::map<std::string, std::map<std::string, int>> verdicts;  // rule -> verdict -> count
    for (const json& r : run.results) {
        verdicts[r["rule"]][r["verdict"]]++;
        EXPECT_NE(r["verdict"], "FAIL") << r.dump();
        if (r["verdict"] != "PASS") {
            EXPECT_FALSE(r["detail"].get<std::string>().empty()) << r.dump();
        }
    }
    EXPECT_EQ(verdicts.size(), 44u) << "every rule of the catalogue reports";
    // Every compatibility-suite rule is met somewhere; where it is not judged, it says why.
    for (const auto& [rule, counts] : verdicts) {
        if (rule.rfind("cts.", 0) == 0) {
            EXPECT_GT(counts.count("PASS") ? counts.at("PASS") : 0, 0) << rule;
        }
    }
    // The design's four deliberate differences, never hidden as passes.
    for (const char* rule : {"commands.flush-inactive", "commands.operation-mode",
                             "commands.initialize-cleanup", "commands.batch-clamp"}) {
        EXPECT_GT(verdicts[rule]["DEVIATION"], 0) << rule;
        EXPECT_EQ(verdicts[rule]["PASS"], 0) << rule;
    }
    EXPECT_EQ(verdicts["stream.count"]["PASS"], 6) << "three sensors at 200 and 20 ms";
    EXPECT_EQ(verdicts["stream.count"]["SKIP"], 3) << "5 ms is below every minDelay";
    EXPECT_NE(run.err.find("check: streaming at 200 ms for 1 s"), std::string::npos) << run.err;

    std::string output;
    ASSERT_EQ(xmllint({"--noout", junit.path()}, &output), 0) << output;
    auto count = [&junit](const std::string& xpath) {
        std::string text;
        xmllint({"--xpath", "count(" + xpath + ")", junit.path()}, &text);
        return std::atoi(text.c_str());
    };
    EXPECT_EQ(count("/testsuites/testsuite/testcase"), static_cast<int>(run.results.size()));
    EXPECT_EQ(count("//failure"), 0);
    EXPECT_EQ(count("//skipped"), count("//testcase[skipped]"));
    EXPECT_GT(count("//testcase[properties/property[@value='DEVIATION']]"), 0);
}

TEST(CheckTest, TableGroupsByRuleAndEndsWithASummary) {
    std::string table;
    std::string err;
    const int code =
        runAndCollect(IIO_SUBHAL_PATH, {"check", "--rule", "list.*"}, {}, &table, &err);
    EXPECT_EQ(code, 0) << table << err;
    EXPECT_EQ(table.rfind("RULE", 0), 0u) << table;
    EXPECT_NE(table.find("list.name  "), std::string::npos) << table;
    EXPECT_EQ(table.find("commands."), std::string::npos) << "--rule keeps other rules out";
    EXPECT_NE(table.find("results: 51 PASS, 0 FAIL, 0 SKIP, 0 DEVIATION"), std::string::npos)
        << table;
}

TEST(CheckTest, RulePatternThatMatchesNothingIsBadUsage) {
    const CheckRun run = runCheck({"--rule", "list.colour"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("iio-subhal: check: --rule \"list.colour\" matches no rule"),
              std::string::npos)
        << run.err;
}

// Host descriptions whose devices break a rule.
TEST(CheckTest, HostWithoutDevicesFailsThePublishedRule) {
    const CheckRun run = runCheck({"--host", host("no-devices.json"), "--rule", "list.*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "list.published", "empty list");
}

TEST(CheckTest, TwoDevicesOfOneTypeAndLocationFailNameUniqueness) {
    const CheckRun run =
        runCheck({"--host", host("two-accelerometers-in-the-lid.json"), "--rule", "list.*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "list.name-unique", "is also named \"Accelerometer (lid)\"");
}

TEST(CheckTest, DeviceThatDoesNotHonourTheRateFailsCountAndHotSwitch) {
    const CheckRun run = runCheck({"--host", host("slow-accelerometer.json"), "--quick", "--rule",
                                   "stream.count", "--rule", "stream.hot-switch"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "stream.count", "needs at least 25");
    expectFail(run, "stream.hot-switch", "off by more than 10 %");
}

TEST(CheckTest, AccelerometerWithAWeakReadingFailsTheNorm) {
    const CheckRun run =
        runCheck({"--host", host("tilted-accelerometer.json"), "--quick", "--rule", "stream.norm"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "stream.norm", "outside 9.8066 +- 1");
}

TEST(CheckTest, RepeatedTimestampFailsIncreaseAndStaleness) {
    const CheckRun run = runCheck({"--host", host("frozen-timestamp.json"), "--rule",
                                   "stream.timestamps", "--rule", "stream.no-stale"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "stream.timestamps", "1000000000 then 1000000000 did not increase");
    expectFail(run, "stream.no-stale", "first new event 0 ms after the last old one");
}

// The subjects' sensor names (the part before " @ ") whose results have verdict `verdict`, each
// with the rules that gave it.
std::map<std::string, std::set<std::string>> rulesBySensor(const CheckRun& run,
                                                           const std::string& verdict) {
    std::map<std::string, std::set<std::string>> out;
    for (const json& r : run.results) {
        const std::string subject = r["subject"];
        const std::string sensor = subject.substr(0, subject.find(" @ "));
        out[sensor];
        if (r["verdict"] == verdict) out[sensor].insert(r["rule"].get<std::string>());
    }
    return out;
}

// One device per fault, every other channel still, so that exactly its rule fails; with --hifi,
// so that jitter is enforced too.
TEST(CheckTest, EachStreamFaultFailsExactlyItsCompatibilityRule) {
    const CheckRun run = runCheck(
        {"--host", host("cts-faulty-streams.json"), "--quick", "--hifi", "--rule", "cts.*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    EXPECT_EQ(rulesBySensor(run, "FAIL"), kelvane::testing::ctsFaults()) << describe(run);
    expectFail(run, "cts.frequency", "frequency 40 Hz at 50 Hz requested, needs 45 < f < 110");
    expectFail(run, "cts.gaps", "gaps > 18 ms in");
    expectFail(run, "cts.jitter", "% of 10 ms) between the 2.5th and 97.5th percentile");
    expectFail(run, "cts.timestamp-future", "stamped after their arrival");
    expectFail(run, "cts.timestamp-age", "allows 1027.8 ms");
    expectFail(run, "cts.magnitude", "mean norm 0 m/s^2");
    expectFail(run, "cts.std-dev", "allows 0.07848");
    expectFail(run, "cts.initial-value", "0 events in the first 2 s");
    expectFail(run, "cts.event-count", "needs >= 320");
    expectFail(run, "cts.ordering", "is not after 1000000000 ns");
}

TEST(CheckTest, LibraryDescriptionsAndFlushFailTheStaticAndFlushCompatibilityRules) {
    const CheckRun run = runFaulty(
        "slow-min-delay,coarse-resolution,double-flush",
        {"--quick", "--rule", "cts.min-delay", "--rule", "cts.resolution", "--rule", "cts.flush"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "cts.min-delay", "minDelay 20000 us, needs <= 10000 us");
    expectFail(run, "cts.resolution", "resolution 0.78453 m/s^2, needs 9.357e-06 to 0.03833");
    expectFail(run, "cts.flush", "2 completions for 1 flush within 10 s, needs exactly 1");
}

// Records `args` (after "--host HOST stream", no --host when `hostFile` is empty) to `recording`.
void record(const std::string& hostFile, const std::vector<std::string>& args,
            const TempFile& recording) {
    std::vector<std::string> all;
    if (!hostFile.empty()) all = {"--host", hostFile};
    all.push_back("stream");
    all.insert(all.end(), args.begin(), args.end());
    all.insert(all.end(), {"--record", recording.path()});
    std::string out;
    std::string err;
    // A faulty board's stream ends with 1 (a sensor sent nothing, or stalled), recorded still.
    const int code = runAndCollect(IIO_SUBHAL_PATH, all, {}, &out, &err);
    ASSERT_TRUE(code == 0 || code == 1) << err;
    ASSERT_NE(err.find("iio-subhal: recorded "), std::string::npos) << err;
}

std::map<std::string, std::string> verdictsOf(const CheckRun& run) {
    std::map<std::string, std::string> verdicts;  // rule and subject -> verdict
    for (const json& r : run.results) {
        verdicts[r["rule"].get<std::string>() + " " + r["subject"].get<std::string>()] =
            r["verdict"];
    }
    return verdicts;
}

// As if `recording` had been made on a loaded machine: its streams began `seconds` after its host
// started (the host's start moves that much earlier; timestamps and send times stay), and its
// gravity sensor (device 4 of the built-in host) was switched on and off 80 ms after the others.
void asIfMadeUnderLoad(const TempFile& recording, int seconds) {
    constexpr int32_t kGravityDevice = 4;
    kelvane::host::description::HostConfig host;
    std::string error;
    ASSERT_TRUE(kelvane::host::description::loadHostDescription(recording.path(), &host, &error))
        << error;
    ASSERT_TRUE(host.startBootTimeNs.has_value());
    *host.startBootTimeNs -= seconds * int64_t{1000000000};
    for (auto& device : host.devices) {
        if (!device.timedSamples) continue;
        auto later =
            std::make_shared<kelvane::host::description::TimedSamples>(*device.timedSamples);
        const int64_t switchedOffLaterUs = device.id == kGravityDevice ? 80000 : 0;
        for (int64_t& at : later->atUs) at += seconds * int64_t{1000000} + switchedOffLaterUs;
        device.timedSamples = std::move(later);
    }
    for (auto& entry : host.timeline) entry.at += std::chrono::seconds(seconds);
    ASSERT_TRUE(kelvane::host::description::saveHostDescription(host, recording.path(), &error))
        << error;
}

// A recording is data: played once before any rule streams, every rule that judges samples
// judges what it sent, at the rate it was recorded at, on the timestamps and send times it holds,
// the same at any replay speed, however long after its host it began. A good one passes; rules
// that need a live sub-HAL say so.
TEST(CheckTest, AGoodRecordingPassesTheSameAtAnySpeed) {
    TempFile recording;
    record("", {"--rate", "50", "--duration", "2"}, recording);
    asIfMadeUnderLoad(recording, 5);
    std::map<std::string, std::string> verdicts[2];
    std::string ages[2];
    const char* speeds[] = {"1", "0"};
    for (int i = 0; i < 2; ++i) {
        const CheckRun run =
            runCheck({"--host", recording.path(), "--speed", speeds[i], "--quick"});
        EXPECT_EQ(run.exitCode, 0) << describe(run);
        verdicts[i] = verdictsOf(run);
        for (const json& r : run.results) {
            if (r["rule"] == "cts.timestamp-age" && r["subject"] == "Accelerometer (lid) @ 50 Hz") {
                ages[i] = r["detail"];
            }
            if (r["rule"] == "commands.initialize-twice") {
                EXPECT_EQ(r["verdict"], "SKIP");
                EXPECT_NE(r["detail"].get<std::string>().find("needs a live host"),
                          std::string::npos);
            }
        }
    }
    EXPECT_EQ(verdicts[0], verdicts[1]);
    EXPECT_EQ(ages[0], ages[1]) << "the age comes from the recorded send times";
    std::map<std::string, std::string>& v = verdicts[1];
    EXPECT_EQ(v["cts.frequency Accelerometer (lid) @ 50 Hz"], "PASS");
    EXPECT_EQ(v["cts.gaps Gyroscope (lid) @ 50 Hz"], "PASS");
    EXPECT_EQ(v["cts.timestamp-age Accelerometer (lid) @ 50 Hz"], "PASS");
    EXPECT_EQ(v["cts.timestamp-future Light (base)"], "PASS");
    EXPECT_EQ(v["cts.event-count Accelerometer (lid) @ 50 Hz, as recorded"], "PASS");
    EXPECT_EQ(v["stream.norm Accelerometer (lid) @ 20 ms, as recorded"], "PASS");
    EXPECT_EQ(v["stream.hot-switch Gyroscope (lid)"], "PASS");
    // No rows for what was never recorded, nor for rules that never judge a type.
    for (const char* phantom :
         {"cts.frequency Accelerometer (lid) @ FASTEST", "cts.magnitude Magnetometer (lid) @ 50 Hz",
          "cts.magnitude Gravity (lid) @ 50 Hz", "cts.std-dev Gravity (lid) @ 50 Hz"}) {
        EXPECT_EQ(v.count(phantom), 0u) << phantom;
    }
}

// Recorded from a live run, each fault FAILs the same rule as live, and only it.
TEST(CheckTest, EachStreamFaultFailsItsRuleFromARecordingAsLive) {
    TempFile recording;
    record(host("cts-faulty-streams.json"), {"--rate", "100", "--duration", "6"}, recording);
    const CheckRun run = runCheck(
        {"--host", recording.path(), "--speed", "0", "--quick", "--hifi", "--rule", "cts.*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    EXPECT_EQ(rulesBySensor(run, "FAIL"), kelvane::testing::ctsFaults()) << describe(run);
    expectFail(run, "cts.frequency", "frequency 80 Hz at 100 Hz requested, needs 90 < f < 220");
    expectFail(run, "cts.event-count", "250 events in ");
}

// A recorded board with a biased gyroscope, an accelerometer at twice the asked rate and a
// magnetometer that never sent a sample: the value and rate rules see the samples, and a sensor
// the recording asked for samples that sent none FAILs (it did not merely run out).
TEST(CheckTest, ARecordedBoardFailsOnItsSamples) {
    TempFile recording;
    record(host("biased-board.json"), {"--rate", "50", "--duration", "3"}, recording);
    const CheckRun run = runCheck({"--host", recording.path(), "--speed", "0", "--quick"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "stream.norm", "rad/s outside 0 +- 0.1");
    expectFail(run, "stream.hot-switch", "average interval 10 ms at the recorded period of 20 ms");
    expectFail(run, "stream.count", "the recording asked it for samples and it sent none");
    expectFail(run, "cts.frequency", "the recording asked it for samples and it sent none");
    const std::map<std::string, std::string> v = verdictsOf(run);
    EXPECT_EQ(v.at("cts.frequency Accelerometer (lid) @ 50 Hz"), "PASS") << "2x is within 2.2 f";
    EXPECT_EQ(v.at("cts.magnitude Gyroscope (lid) @ 50 Hz"), "PASS") << "0.5 <= 1.5 rad/s";
}

// Rules that this library's fixed descriptions and answers keep; a sub-HAL in front of it breaks
// them.
TEST(CheckTest, BrokenDescriptionsFailTheListRules) {
    const CheckRun run = runFaulty(
        "empty-name,empty-vendor,meta-type,type-string,negative-power,zero-range,fifo,on-change,"
        "zero-min-delay,top-byte",
        {"--rule", "list.*", "--rule", "proxy.handle-top-byte"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "list.name", "name is empty");
    expectFail(run, "list.vendor", "vendor is empty");
    expectFail(run, "list.type", "META_DATA");
    expectFail(run, "list.type-string", "\"android.sensor.not_this_one\"");
    expectFail(run, "list.power", "< 0");
    expectFail(run, "list.max-range", "<= 0");
    expectFail(run, "list.fifo", "fifoMaxEventCount 0 < fifoReservedEventCount 10");
    expectFail(run, "list.reporting-mode", "ON_CHANGE, the type's is CONTINUOUS");
    expectFail(run, "list.delays", "CONTINUOUS needs minDelay > 0");
    expectFail(run, "proxy.handle-top-byte", "handle 0x01000003");
}

TEST(CheckTest, WrongAnswersFailTheCommandRules) {
    const CheckRun run = runFaulty(
        "accept-any-handle,refuse-deactivate,refuse-batch,double-flush,direct-channel,"
        "refuse-injection,keep-first-callback",
        {"--rule", "commands.*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "commands.invalid-handle", "answered OK, expected BAD_VALUE");
    expectFail(run, "commands.activate-twice", "activate(false) answered INVALID_OPERATION");
    expectFail(run, "commands.batch", "answered BAD_VALUE, expected OK");
    expectFail(run, "commands.flush", "1 flushes gave 2 completions");
    expectFail(run, "commands.flush-inactive", "answered OK with 2 completions");
    expectFail(run, "commands.direct-channel", "registerDirectChannel answered OK");
    expectFail(run, "commands.operation-mode", "INVALID_OPERATION, expected BAD_VALUE");
    expectFail(run, "commands.initialize-twice", "the newest callback received no event");
}

TEST(CheckTest, RefusedReinitializeFailsTheCleanupRule) {
    const CheckRun run = runFaulty("refuse-late-initialize", {"--rule", "commands.initialize-*"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "commands.initialize-cleanup", "initialize answered NO_MEMORY");
}

TEST(CheckTest, MisaddressedEventsAndWakeLocksFailTheStreamAndProxyRules) {
    const CheckRun run = runFaulty("wrong-handle,foreign-events,wake-lock,refuse-batch",
                                   {"--quick", "--rule", "stream.handle", "--rule", "stream.meta",
                                    "--rule", "stream.commands", "--rule", "proxy.wakelock"});
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    expectFail(run, "stream.handle", "carries handle 101, expected 1");
    expectFail(run, "stream.meta", "non-meta events of sensors not under test");
    expectFail(run, "stream.commands", "batch answered BAD_VALUE");
    expectFail(run, "proxy.wakelock", "held the wake lock");
}

}  // namespace
