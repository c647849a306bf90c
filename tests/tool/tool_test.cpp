// Runs the built iio-subhal in a subprocess against emulated hosts, with the built library loaded
// the way the proxy loads it, and checks what it prints and how it exits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/subprocess.h"

namespace {

using nlohmann::json;

using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;
using RunOptions = ProcessOptions;

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;  // empty when merged into `out`
};

RunOptions merged() {
    RunOptions o;
    o.mergeStderr = true;
    return o;
}
RunOptions fromStdin(const std::string& path) {
    RunOptions o;
    o.stdinPath = path;
    return o;
}
RunOptions toFile(const std::string& path) {
    RunOptions o;
    o.stdoutPath = path;
    return o;
}
RunOptions inDir(const std::string& dir) {
    RunOptions o;
    o.cwd = dir;
    return o;
}

// Runs the tool with `args`.
ToolRun runTool(const std::vector<std::string>& args, const RunOptions& options = {}) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessRun process = kelvane::testing::runProcess(argv, options);
    if (!process.started) ADD_FAILURE() << process.err;
    if (process.started && !process.finished) {
        ADD_FAILURE() << "iio-subhal did not finish within " << options.limit.count() << " s";
    }
    return ToolRun{process.exitCode, std::move(process.out), std::move(process.err)};
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "/tool_test.XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        mDir = pattern;
    }
    void TearDown() override {
        for (const std::string& file : mFiles) std::remove(file.c_str());
        rmdir(mDir.c_str());
    }

    // Writes a description file and returns its path.
    std::string describe(const std::string& name, const std::string& text) {
        const std::string path = mDir + "/" + name;
        std::ofstream(path) << text;
        mFiles.push_back(path);
        return path;
    }

    std::string mDir;
    std::vector<std::string> mFiles;
};

const char* const kAccelChannels = R"(["accel_x", "accel_y", "accel_z", "timestamp"])";

TEST_F(ToolTest, ListJsonShowsTheSupportedReadyDevices) {
    const std::string host = describe("odd.json", std::string(R"({"devices": [
      {"id": 3, "types": [2, 1], "channels": ["anglvel_x", "anglvel_y", "anglvel_z", "timestamp"],
       "attributes": {"name": "bmi160", "scale": "0.0010652", "location": "lid"}},
      {"id": 5, "types": [4, 6], "channels": ["count"]},
      {"id": 7, "types": [1], "channels": )") + kAccelChannels +
                                                      R"(,
       "attributes": {"name": "kxcj9", "scale": "0.5", "location": null}},
      {"id": 9, "types": [3], "channels": ["illuminance"], "stall": "attributes"},
      {"id": 11, "types": [11], "channels": ["gravity_x", "gravity_y", "gravity_z"],
       "attributes": {"location": "base"}}
    ]})");
    ToolRun run = runTool({"--host", host, "list", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json list = json::parse(run.out);
    ASSERT_TRUE(list.is_array());
    ASSERT_EQ(list.size(), 3u) << run.out;

    // Device 3 is a gyroscope (its first supported type), device 7 has no location, the stalled
    // light sensor and the unsupported device are absent.
    EXPECT_EQ(list[0]["name"], "Gyroscope (lid)");
    EXPECT_EQ(list[0]["type"], 4);
    EXPECT_EQ(list[0]["typeAsString"], "android.sensor.gyroscope");
    EXPECT_EQ(list[1]["name"], "Accelerometer");
    EXPECT_EQ(list[1]["type"], 1);
    EXPECT_EQ(list[2]["name"], "Gravity (base)");
    EXPECT_EQ(list[2]["type"], 9);

    std::set<int> handles;
    for (const json& sensor : list) {
        for (const char* field :
             {"sensorHandle", "name", "vendor", "version", "type", "typeAsString", "maxRange",
              "resolution", "power", "minDelay", "fifoReservedEventCount", "fifoMaxEventCount",
              "requiredPermission", "maxDelay", "flags"}) {
            EXPECT_TRUE(sensor.contains(field)) << field << " in " << sensor;
        }
        EXPECT_TRUE(sensor["requiredPermission"].is_string());
        EXPECT_FALSE(sensor["vendor"].get<std::string>().empty());
        EXPECT_GT(sensor["maxRange"].get<double>(), 0.0);
        EXPECT_LE(sensor["minDelay"].get<int>(), sensor["maxDelay"].get<int>());
        EXPECT_EQ(sensor["flags"].get<int>() & 1, 0) << "no sensor wakes the system";
        int handle = sensor["sensorHandle"].get<int>();
        EXPECT_GT(handle, handles.empty() ? 0 : *handles.rbegin());  // list is in handle order
        handles.insert(handle);
    }
    // Floats read back to the library's single-precision values.
    EXPECT_EQ(list[1]["resolution"].get<float>(), 0.0023928226f);
    EXPECT_EQ(list[1]["power"].get<float>(), 0.001f);
    EXPECT_EQ(list[0]["resolution"].get<float>(), 0.001065264f);
}

TEST_F(ToolTest, TableAndDumpOfTheBuiltInHost) {
    ToolRun list = runTool({"list"});
    ASSERT_EQ(list.exitCode, 0) << list.err;
    std::vector<std::string> rows = lines(list.out);
    ASSERT_EQ(rows.size(), 6u) << list.out;
    EXPECT_EQ(rows[0].rfind("handle", 0), 0u) << rows[0];
    EXPECT_NE(rows[1].find("Accelerometer (lid)"), std::string::npos) << rows[1];
    EXPECT_NE(rows[1].find("1 accelerometer"), std::string::npos) << rows[1];
    EXPECT_NE(rows[4].find("Light (base)"), std::string::npos) << rows[4];
    EXPECT_NE(rows[4].find("on-change"), std::string::npos) << rows[4];
    EXPECT_NE(rows[1].find("78.4532 m/s²"), std::string::npos) << rows[1];
    EXPECT_NE(rows[3].find("0.15 µT"), std::string::npos) << rows[3];
    EXPECT_NE(rows[3].find("20000 µs"), std::string::npos) << rows[3];
    // What the host saw, then the outcome.
    EXPECT_NE(list.err.find("host: the library connected over the container bridge\n"),
              std::string::npos)
        << list.err;
    EXPECT_NE(list.err.find("host: device 4 set up\n"), std::string::npos) << list.err;
    EXPECT_NE(list.err.find("\n5 sensors published in 2."), std::string::npos) << list.err;
    EXPECT_EQ(list.err.find("warning"), std::string::npos) << list.err;

    // With --log the library's lines show, but a normal exit provokes no warnings.
    ToolRun dump = runTool({"--log", "dump"});
    ASSERT_EQ(dump.exitCode, 0) << dump.err;
    EXPECT_NE(dump.err.find("IioSensorBridge"), std::string::npos) << dump.err;
    // liblog writes "tag W date time pid tid text" for a warning.
    for (const char* fault : {"WARNING", " W ", " E ", "lost", "warning"}) {
        EXPECT_EQ(dump.err.find(fault), std::string::npos) << fault << " in " << dump.err;
    }
    EXPECT_EQ(dump.out,
              "IioSensorSubHal:\n"
              "  sensors: 5\n"
              "  [1] Accelerometer (lid) (type 1)\n"
              "  [2] Gyroscope (lid) (type 4)\n"
              "  [3] Magnetometer (lid) (type 2)\n"
              "  [4] Light (base) (type 5)\n"
              "  [5] Gravity (lid) (type 9)\n");
}

TEST_F(ToolTest, StreamJsonConvertsScriptedSamples) {
    const std::string host = describe("scripted.json", std::string(R"({"devices": [
      {"id": 0, "types": [1], "channels": )") + kAccelChannels +
                                                           R"(,
       "attributes": {"scale": "0.5", "location": "lid"},
       "samples": [{"0": 100, "1": -4, "2": 7, "3": 1000},
                   {"0": -3, "2": 16777217, "3": 2000},
                   {"0": 0, "1": 1, "2": 2, "3": 3000}]},
      {"id": 1, "types": [3], "channels": ["illuminance", "timestamp"]}
    ]})");
    ToolRun run = runTool({"--host", host, "--json", "stream", "--sensor", "accelerometer",
                           "--count", "12", "--duration", "60", "--rate", "100"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::map<int64_t, std::vector<float>> expected = {
        {1000, {50.0f, -2.0f, 3.5f}},
        {2000, {-1.5f, 0.0f, 8388608.0f}},  // 2^24 + 1 is 2^24 as a float, then halved
        {3000, {0.0f, 0.5f, 1.0f}},
    };
    std::vector<std::string> events = lines(run.out);
    ASSERT_EQ(events.size(), 12u) << run.out;
    for (const std::string& line : events) {
        json event = json::parse(line);
        EXPECT_EQ(event["sensorType"], 1) << line;
        EXPECT_EQ(event["status"], 3) << line;
        auto it = expected.find(event["timestamp"].get<int64_t>());
        ASSERT_NE(it, expected.end()) << "timestamp not from the timestamp channel: " << line;
        ASSERT_EQ(event["values"].size(), 3u) << line;
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(event["values"][i].get<float>(), it->second[i]) << line;
        }
    }
    EXPECT_NE(run.err.find("Accelerometer (lid): 12 events"), std::string::npos) << run.err;
}

TEST_F(ToolTest, ObserverErrorFiveRestartsTheStream) {
    // The error comes 4.5 s after the host set up its channel: after the ~2 s enumeration, while
    // the accelerometer streams. Without --log the tool still says what happened.
    const std::string host = describe("restart.json", std::string(R"({"devices": [
      {"id": 0, "types": [1], "channels": )") + kAccelChannels +
                                                          R"(,
       "attributes": {"scale": "0.01"}}],
      "timeline": [{"atMs": 4500, "device": 0, "action": "observerError", "error": 5}]})");
    ToolRun run = runTool({"--host", host, "stream", "--duration", "8"}, merged());
    ASSERT_EQ(run.exitCode, 0) << run.out;
    const size_t error =
        run.out.find("iio-subhal: warning: device 0: observer error 5 (read failed) at 4.");
    ASSERT_NE(error, std::string::npos) << run.out;
    const size_t restart = run.out.find("host: device 0: the library restarted sampling at 4.");
    ASSERT_NE(restart, std::string::npos) << run.out;
    EXPECT_LT(error, restart);
    size_t after = 0;
    for (const std::string& line : lines(run.out.substr(restart))) {
        if (line.find("] Accelerometer: x=") != std::string::npos) ++after;
    }
    EXPECT_GE(after, 10u) << run.out;
}

TEST_F(ToolTest, FlushPrintsOneCompletion) {
    ToolRun run = runTool({"--json", "flush", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::vector<std::string> events = lines(run.out);
    ASSERT_EQ(events.size(), 1u) << run.out;
    json event = json::parse(events[0]);
    EXPECT_EQ(event["sensorType"], 0);
    EXPECT_EQ(event["sensorHandle"], 2);
    EXPECT_EQ(event["meta"]["what"], 1);

    ToolRun unknown = runTool({"flush", "99"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_NE(unknown.err.find("iio-subhal: unknown sensor handle 99"), std::string::npos)
        << unknown.err;
    EXPECT_TRUE(unknown.out.empty()) << unknown.out;
}

TEST_F(ToolTest, BadDescriptionsExitTwoWithOneLine) {
    const struct {
        const char* file;
        const char* text;
        const char* error;  // after "<path>: "
    } cases[] = {
        {"syntax.json", "{\n  \"devices\": [\n    {\"id\": 1,,}\n  ]\n}", "line 3, column "},
        {"type.json", R"({"devices": [{"id": 1, "types": [1, "x"]}]})",
         "/devices/0/types/1: expected an integer"},
        {"key.json", R"({"devices": [{"id": 1, "types": [1], "colour": "red"}]})",
         "/devices/0: unknown key \"colour\""},
        {"duplicate.json", R"({"devices": [{"id": 1, "types": [1]}, {"id": 1, "types": [2]}]})",
         "/devices/1/id: duplicate device id 1"},
    };
    for (const auto& c : cases) {
        const std::string path = describe(c.file, c.text);
        ToolRun run = runTool({"--host", path, "list"});
        EXPECT_EQ(run.exitCode, 2) << c.file;
        const std::string prefix = "iio-subhal: " + path + ": " + c.error;
        EXPECT_EQ(run.err.rfind(prefix, 0), 0u) << run.err;
        EXPECT_EQ(lines(run.err).size(), 1u) << run.err;
        EXPECT_TRUE(run.out.empty());
    }
    ToolRun missing = runTool({"list", "--host", mDir + "/absent.json"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err,
              "iio-subhal: " + mDir + "/absent.json: cannot read: No such file or directory\n");
}

TEST_F(ToolTest, UsageErrorsAreOneLineWithASuggestion) {
    const struct {
        std::vector<std::string> args;
        const char* error;  // the whole of stderr
    } cases[] = {
        {{},
         "no subcommand given: list, stream, flush, dump, check, serve, report, compare or help "
         "(iio-subhal --help)"},
        {{"lst"}, "unknown subcommand \"lst\"; did you mean list? (iio-subhal --help)"},
        {{"stream", "--sensors", "1"},
         "stream: unknown option --sensors; did you mean --sensor? (iio-subhal help stream)"},
        {{"list", "--rate", "5"},
         "list: unknown option --rate; it belongs to stream (iio-subhal help list)"},
        {{"help", "strem"},
         "unknown subcommand \"strem\"; did you mean stream? (iio-subhal --help)"},
        {{"stream", "--count", "0"},
         "stream: --count: expected a whole number of events, 1 or more, got \"0\" (iio-subhal "
         "help stream)"},
        {{"stream", "--rate", "x"},
         "stream: --rate: expected a rate in Hz from 0.001 to 1000000000, got \"x\" (iio-subhal "
         "help stream)"},
        {{"stream", "--rate", "1e-10"},
         "stream: --rate: 1e-10 Hz is slower than the slowest accepted, 0.001 Hz (a period of "
         "1000 s) (iio-subhal help stream)"},
        {{"stream", "--period-ns", "99999999999999999999"},
         "stream: --period-ns: 99999999999999999999 ns is longer than the longest accepted, "
         "1000000000000 ns (1000 s) (iio-subhal help stream)"},
        {{"stream", "--duration", "nan"},
         "stream: --duration: expected seconds, 0 or more (0: until Ctrl-C), got \"nan\" "
         "(iio-subhal help stream)"},
        {{"stream", "--sensor", "02"},
         "stream: --sensor: handles are written without leading zeros: \"02\" (did you mean 2?) "
         "(iio-subhal help stream)"},
        {{"flush", "01"},
         "flush: handles are written without leading zeros: \"01\" (did you mean 1?) (iio-subhal "
         "help flush)"},
        {{"--json", "dump"}, "dump prints text only; drop --json"},
        {{"stream", "--rate", "10", "--period-ns", "1000"},
         "stream: --rate and --period-ns cannot be given together; choose one (iio-subhal help "
         "stream)"},
        // CLI11's own texts never reach the user.
        {{"stream", "--count"},
         "stream: --count needs a value (--count N) (iio-subhal help stream)"},
        {{"stream", "--rate", "1", "--rate", "2"},
         "stream: --rate is given 2 times; give it once (iio-subhal help stream)"},
        {{"flush"}, "flush: HANDLE is missing (iio-subhal help flush)"},
        // An empty value (an unset variable in a script) is not the default.
        {{"--iio", "", "list"},
         "--iio is empty; give a URI or leave the option out (iio-subhal --help)"},
        {{"--host", "", "list"},
         "--host is empty; give a FILE or leave the option out (iio-subhal --help)"},
        {{"stream", "--", "--count", "1"},
         "\"--count\" comes after --, where options are not read (iio-subhal --help)"},
        {{"help", "stream", "list"}, "help takes one subcommand, got 2 (iio-subhal help)"},
        // "--NAME=" took the next word as its value; "--follow=no" turned --follow on.
        {{"stream", "--sensor=", "--duration", "1"},
         "\"--sensor=\": --sensor needs a value (--sensor SENSOR) (iio-subhal help stream)"},
        {{"stream", "--rate="},
         "\"--rate=\": --rate needs a value (--rate HZ) (iio-subhal help stream)"},
        {{"stream", "--follow=no"},
         "\"--follow=no\": --follow takes no value; give --follow or leave it out (iio-subhal "
         "help stream)"},
        {{"--json=banana", "list"},
         "\"--json=banana\": --json takes no value; give --json or leave it out (iio-subhal "
         "--help)"},
        {{"--count", "3", "stream"},
         "stream: --count goes after the subcommand it belongs to (iio-subhal stream --count ...) "
         "(iio-subhal help stream)"},
        // Outputs that would write nothing, or destroy each other.
        {{"check", "--html", ""}, "--html is empty; give a FILE or leave the option out"},
        {{"check", "--junit", "x.xml", "--html", "x.xml"},
         "--junit and --html both write x.xml; give each its own file"},
        {{"stream", "--record", "-"},
         "--record -: standard output carries what the command prints; give a file"},
    };
    for (const auto& c : cases) {
        ToolRun run = runTool(c.args);
        EXPECT_EQ(run.exitCode, 2) << c.error;
        EXPECT_EQ(run.err, std::string("iio-subhal: ") + c.error + "\n");
        EXPECT_TRUE(run.out.empty()) << run.out;
    }

    ToolRun version = runTool({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out.rfind("iio-subhal ", 0), 0u) << version.out;
    // Every subcommand's help, by either spelling, carries the common options, the exit codes
    // and what Ctrl-C does.
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"help", "stream"}, {"list", "--help"}}) {
        ToolRun help = runTool(args);
        EXPECT_EQ(help.exitCode, 0) << help.err;
        for (const char* part : {"Usage: iio-subhal ", "--host FILE", "--library PATH", "--json",
                                 "--log", "Exit codes: 0", "Ctrl-C"}) {
            EXPECT_NE(help.out.find(part), std::string::npos) << part << " in " << help.out;
        }
    }
    EXPECT_NE(runTool({"help", "stream"}).out.find("--follow"), std::string::npos);
    // A subcommand with a required operand, and help itself, have help too.
    EXPECT_NE(runTool({"help", "flush"}).out.find("Usage: iio-subhal flush"), std::string::npos);
    EXPECT_NE(runTool({"help", "help"}).out.find("Usage: iio-subhal help"), std::string::npos);
    EXPECT_NE(runTool({"help", "help"})
                  .out.find("list, stream, flush, dump, check, serve, report, compare or help"),
              std::string::npos);
    // An option's help shows its value's name only, not CLI11's notes ("--rate HZ Excludes:
    // --period-ns", "--speed X:X") wedged between the option and its description.
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--help"}, {"help", "stream"}}) {
        const std::string help = runTool(args).out;
        EXPECT_EQ(help.find("Excludes"), std::string::npos) << help;
        EXPECT_NE(help.find("--speed X "), std::string::npos) << help;
    }
    // "--" ends the options; the operands after it are read as usual.
    ToolRun flushed = runTool({"--", "flush", "1"});
    EXPECT_EQ(flushed.exitCode, 0) << flushed.err;
    EXPECT_NE(flushed.out.find("flush complete"), std::string::npos) << flushed.out;
}

TEST_F(ToolTest, LibraryProblemsExitOne) {
    ToolRun missing = runTool({"--library", mDir + "/libnothing.so", "list"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("cannot open shared object file"), std::string::npos) << missing.err;

    // A bare name is a file in the current directory, not whatever the library path finds.
    ToolRun bare = runTool({"list", "--library", "libiio-sensors-subhal.so"}, inDir(mDir));
    EXPECT_EQ(bare.exitCode, 1);
    EXPECT_EQ(bare.err.rfind("iio-subhal: cannot load the sub-HAL: ./libiio-sensors-subhal.so: "
                             "cannot open shared object file",
                             0),
              0u)
        << bare.err;

    ToolRun noEntry = runTool({"list", "--library", NO_ENTRY_LIBRARY_PATH});
    EXPECT_EQ(noEntry.exitCode, 1);
    EXPECT_NE(noEntry.err.find("no entry point sensorsHalGetSubHal_2_1"), std::string::npos)
        << noEntry.err;

    ToolRun wrongVersion = runTool({"list", "--library", WRONG_VERSION_SUBHAL_PATH});
    EXPECT_EQ(wrongVersion.exitCode, 1);
    EXPECT_NE(wrongVersion.err.find("sub-HAL version 0x02000000, expected 0x02010000"),
              std::string::npos)
        << wrongVersion.err;

    ToolRun unmatched = runTool({"stream", "--sensor", "barometer"});
    EXPECT_EQ(unmatched.exitCode, 1);
    EXPECT_NE(unmatched.err.find("no sensor matches --sensor \"barometer\"; choose a handle (1, "
                                 "2, 3, 4, 5), a type (accelerometer, gyroscope, magnetic_field, "
                                 "light, gravity), a name (\"Accelerometer (lid)\""),
              std::string::npos)
        << unmatched.err;
}

TEST_F(ToolTest, EnumerationProblemsAreExplainedWithoutLog) {
    const std::string host = describe("broken.json", R"({"devices": [
      {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z"]},
      {"id": 1, "types": [3], "channels": ["illuminance"], "stall": "attributes"},
      {"id": 2, "types": [2], "channels": ["anglvel_x"], "stall": "channels"},
      {"id": 3, "types": [5], "channels": ["magn_x"], "closeAt": "channels"},
      {"id": 4, "types": [11], "channels": ["gravity_x"], "stall": "device"}],
      "timeline": [{"atMs": 100, "device": 0, "action": "observerError", "error": 5}]})");
    ToolRun run = runTool({"--host", host, "list"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    for (const char* line :
         {"host: device list asked for; the library publishes once its enumeration grace period "
          "ends\nhost: device 0 set up\n",
          "iio-subhal: warning: the host's timeline entry at 100 ms (observerError) not "
          "applied: device 0 has no observer\n",
          "iio-subhal: warning: device 1 never became ready: the host never answered its "
          "attributes (GetAttributes)\n",
          "iio-subhal: warning: device 2 never became ready: the host never answered its "
          "channel list (GetAllChannelIds)\n",
          "iio-subhal: warning: device 3 never became ready: the host closed it at its "
          "channel list (GetAllChannelIds)\n",
          "iio-subhal: warning: device 4 never became ready: the host never answered its "
          "device request (GetDevice)\n",
          "\n1 sensor published in 2."}) {
        EXPECT_NE(run.err.find(line), std::string::npos) << line << " in\n" << run.err;
    }

    const std::string old = describe("old.json", R"({"bridgeVersion": 53, "devices": [
      {"id": 0, "types": [1], "channels": ["accel_x"]}]})");
    ToolRun mismatch = runTool({"--host", old, "list"});
    ASSERT_EQ(mismatch.exitCode, 0) << mismatch.err;
    EXPECT_NE(mismatch.err.find("iio-subhal: warning: the library never connected to the host (a "
                                "bridge version mismatch? the host offers version 53)\n"),
              std::string::npos)
        << mismatch.err;
    EXPECT_NE(mismatch.err.find("0 sensors published in"), std::string::npos) << mismatch.err;
}

TEST_F(ToolTest, ASilentSensorFailsTheStreamAndSaysWhy) {
    // The host answers the accelerometer's setup, so it is published, and then drops its pipe.
    const std::string host = describe("silent.json", R"({"devices": [
      {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
       "closeAt": "afterAttributes"}]})");
    ToolRun run = runTool({"--host", host, "stream", "--sensor", "android.sensor.accelerometer",
                           "--duration", "0.5"});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_TRUE(run.out.empty()) << run.out;
    EXPECT_NE(run.err.find("[1] Accelerometer: no events\n"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("iio-subhal: no events from [1] Accelerometer; the host side saw: "
                           "device 0: the host closed its pipe at "),
              std::string::npos)
        << run.err;
}

TEST_F(ToolTest, LongAndOpenEndedStreams) {
    // A duration too long to represent used to end the stream at once, with success.
    ToolRun magnet = runTool(
        {"--json", "stream", "--sensor", "magnetometer", "--duration", "1e10", "--count", "5"});
    ASSERT_EQ(magnet.exitCode, 0) << magnet.err;
    std::vector<std::string> events = lines(magnet.out);
    ASSERT_EQ(events.size(), 5u) << magnet.out;
    for (const std::string& line : events) {
        json event = json::parse(line);
        EXPECT_EQ(event["sensorType"], 2) << line;
        double sum = 0;
        for (const json& v : event["values"]) sum += v.get<double>() * v.get<double>();
        // The earth's field, in µT.
        EXPECT_GT(std::sqrt(sum), 25.0) << line;
        EXPECT_LT(std::sqrt(sum), 65.0) << line;
    }
    EXPECT_NE(magnet.err.find("[3] Magnetometer (lid): 5 events"), std::string::npos) << magnet.err;
    EXPECT_NE(magnet.err.find(" µT"), std::string::npos) << magnet.err;

    ToolRun follow = runTool({"stream", "--follow", "--sensor", "1", "--count", "2"});
    ASSERT_EQ(follow.exitCode, 0) << follow.err;
    ASSERT_EQ(lines(follow.out).size(), 2u) << follow.out;
    EXPECT_NE(follow.out.find(" ns [1] Accelerometer (lid): x="), std::string::npos) << follow.out;
    EXPECT_NE(follow.out.find(" m/s² (status 3)"), std::string::npos) << follow.out;
}

TEST_F(ToolTest, WriteErrorsAreReported) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"list"},
                                               {"dump"},
                                               {"stream", "--sensor", "1", "--count", "3"},
                                               {"--help"},
                                               {"--version"},
                                               {"stream", "--help"},
                                               {"help", "check"}}) {
        ToolRun run = runTool(args, toFile("/dev/full"));
        EXPECT_EQ(run.exitCode, 1) << args[0] << ": " << run.err;
        const std::string expected = "iio-subhal: write error: No space left on device\n";
        ASSERT_GE(run.err.size(), expected.size()) << run.err;
        EXPECT_EQ(run.err.substr(run.err.size() - expected.size()), expected) << run.err;
    }
}

TEST_F(ToolTest, DescriptionFromStandardInputAndHostileNames) {
    const std::string host = describe("stdin.json", R"({"devices": [
      {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z"],
       "attributes": {"location": "lid\u001b[2J\nX"}}]})");
    ToolRun json = runTool({"--host", "-", "--json", "list"}, fromStdin(host));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    // One document on one line.
    ASSERT_EQ(lines(json.out).size(), 1u) << json.out;
    nlohmann::json list = nlohmann::json::parse(json.out);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]["name"], "Accelerometer (lid\x1b[2J\nX)");

    ToolRun table = runTool({"--host", "-", "list"}, fromStdin(host));
    ASSERT_EQ(table.exitCode, 0) << table.err;
    ASSERT_EQ(lines(table.out).size(), 2u) << table.out;
    EXPECT_NE(table.out.find("Accelerometer (lid\\x1b[2J\\nX)"), std::string::npos) << table.out;
    EXPECT_EQ(table.out.find('\x1b'), std::string::npos);

    const std::string bad = describe("bad.json", R"({"devices": 1})");
    ToolRun refused = runTool({"--host", "-", "list"}, fromStdin(bad));
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.err.rfind("iio-subhal: <stdin>: /devices: ", 0), 0u) << refused.err;
}

}  // namespace
