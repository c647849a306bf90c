// Runs the built iio-subhal in a subprocess against emulated hosts, with the built library loaded
// the way the proxy loads it, and checks what it prints and how it exits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

using nlohmann::json;

// A run may wait for the host's enumeration and stream for several seconds; sanitizers slow it.
constexpr std::chrono::seconds kRunLimit{90};

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;  // empty when merged into `out`
};

// Runs the tool with `args`; with `merge`, stderr goes to the same pipe as stdout so that the
// order of log lines and events is kept.
ToolRun runTool(const std::vector<std::string>& args, bool merge = false) {
    ToolRun run;
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2 failed";
        return run;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, merge ? outPipe[1] : errPipe[1], STDERR_FILENO);
    std::vector<std::string> all = {IIO_SUBHAL_PATH};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, IIO_SUBHAL_PATH, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (spawned != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        ADD_FAILURE() << "cannot start " << IIO_SUBHAL_PATH;
        return run;
    }

    const auto deadline = std::chrono::steady_clock::now() + kRunLimit;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            ADD_FAILURE() << "iio-subhal did not finish within " << kRunLimit.count() << " s";
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, static_cast<int>(left.count())) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (pollfd& f : fds) {
        if (f.fd >= 0) close(f.fd);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
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
    EXPECT_NE(list.err.find("waiting for the sensor list..."), std::string::npos);

    ToolRun dump = runTool({"dump"});
    ASSERT_EQ(dump.exitCode, 0) << dump.err;
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
    // the accelerometer streams.
    const std::string host = describe("restart.json", std::string(R"({"devices": [
      {"id": 0, "types": [1], "channels": )") + kAccelChannels +
                                                          R"(,
       "attributes": {"scale": "0.01"}}],
      "timeline": [{"atMs": 4500, "device": 0, "action": "observerError", "error": 5}]})");
    ToolRun run = runTool({"--host", host, "--log", "stream", "--duration", "8"}, /*merge=*/true);
    ASSERT_EQ(run.exitCode, 0) << run.out;
    const size_t error = run.out.find("observer error 5");
    ASSERT_NE(error, std::string::npos) << run.out;
    size_t after = 0;
    for (const std::string& line : lines(run.out.substr(error))) {
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

TEST_F(ToolTest, UsageErrorsExitTwo) {
    EXPECT_EQ(runTool({}).exitCode, 2);
    EXPECT_EQ(runTool({"stream", "--rate", "10", "--period-ns", "1000"}).exitCode, 2);
    EXPECT_EQ(runTool({"stream", "--rate", "-1"}).exitCode, 2);
    EXPECT_EQ(runTool({"flush"}).exitCode, 2);
    ToolRun help = runTool({"stream", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("--period-ns"), std::string::npos) << help.out;
}

TEST_F(ToolTest, LibraryProblemsExitOne) {
    ToolRun missing = runTool({"--library", mDir + "/libnothing.so", "list"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("cannot open shared object file"), std::string::npos) << missing.err;

    ToolRun noEntry = runTool({"list", "--library", "libm.so.6"});
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
    EXPECT_NE(unmatched.err.find("no sensor matches --sensor \"barometer\""), std::string::npos)
        << unmatched.err;
}

}  // namespace
