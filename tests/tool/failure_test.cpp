// The tool under the failures of real use, through the built tool in a subprocess: a reader of
// stdout that falls behind or goes away, signals, a recording path that cannot be written or is
// the input, a device that stops delivering, --speed where there is nothing to speed up.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/subprocess.h"

namespace {

using kelvane::testing::ProcessOptions;
using kelvane::testing::ProcessRun;

ProcessRun runTool(const std::vector<std::string>& args, const ProcessOptions& options = {}) {
    std::vector<std::string> argv = {IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessRun run = kelvane::testing::runProcess(argv, options);
    EXPECT_TRUE(run.started) << run.err;
    EXPECT_TRUE(run.finished) << "iio-subhal did not finish; stderr so far:\n" << run.err;
    return run;
}

// The tool run by a shell that sets things up first (`setup` ends with the tool's arguments as
// "$@" after the tool itself as "$0").
ProcessRun runToolInShell(const std::string& setup, const std::vector<std::string>& args,
                          const ProcessOptions& options = {}) {
    std::vector<std::string> argv = {"/bin/bash", "-c", setup, IIO_SUBHAL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessRun run = kelvane::testing::runProcess(argv, options);
    EXPECT_TRUE(run.finished) << "iio-subhal did not finish; stderr so far:\n" << run.err;
    return run;
}

size_t countLines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// "[1] Accelerometer (lid): 800 events, ..." -> 800
size_t summaryEvents(const std::string& err, const std::string& sensor) {
    const size_t at = err.find(sensor + ": ");
    if (at == std::string::npos) return 0;
    return std::stoul(err.substr(at + sensor.size() + 2));
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ToolFailureTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "/tool_failure.XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        mDir = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + mDir + "'").c_str()); }

    std::string write(const std::string& name, const std::string& text) {
        const std::string path = mDir + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    // The names in the directory, hidden ones included: no temporary file may be left behind.
    std::vector<std::string> files() const {
        ProcessRun ls = kelvane::testing::runProcess({"/bin/ls", "-A", mDir});
        std::vector<std::string> names;
        std::istringstream in(ls.out);
        for (std::string name; std::getline(in, name);) names.push_back(name);
        return names;
    }

    std::string mDir;
};

// Item: a reader that falls behind used to lose the events it had not taken when the duration
// ended, and kept the sensors streaming for as long as it was stalled.
TEST_F(ToolFailureTest, AReaderThatFallsBehindGetsEveryEventAndHoldsUpNothing) {
    ProcessOptions slowReader;
    // The reader takes nothing until the tool says that the sensors are off and it is waiting:
    // 800 lines are more than the pipe holds, so the tool must keep them itself meanwhile.
    slowReader.holdStdout = [](const ProcessRun& run) {
        return !contains(run.err, "waiting for the reader of stdout");
    };
    ProcessRun run = runTool(
        {"stream", "--json", "--rate", "400", "--duration", "2", "--sensor", "1"}, slowReader);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(contains(run.err,
                         "iio-subhal: warning: the sensors are off; waiting for the "
                         "reader of stdout to take "))
        << run.err;
    const size_t events = summaryEvents(run.err, "[1] Accelerometer (lid)");
    EXPECT_GT(events, 500u) << run.err;
    EXPECT_EQ(countLines(run.out), events) << run.err;
}

// Item: a closed stdout (| head -3) used to kill the tool by SIGPIPE, with no recording.
TEST_F(ToolFailureTest, AClosedStdoutIsAWriteErrorAndTheRecordingIsWritten) {
    const std::string recording = mDir + "/head.json";
    ProcessRun run = runToolInShell(R"(set -o pipefail; "$0" "$@" | head -3 >/dev/null)",
                                    {"stream", "--follow", "--record", recording});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_TRUE(contains(run.err, "iio-subhal: write error: Broken pipe\n")) << run.err;
    EXPECT_TRUE(contains(run.err, "iio-subhal: recorded ")) << run.err;
    EXPECT_TRUE(nlohmann::json::parse(readFile(recording))["devices"].is_array());
    EXPECT_EQ(files(), std::vector<std::string>{"head.json"});
}

// Item: SIGHUP (a dropped SSH session) used to end the tool at once with no recording.
TEST_F(ToolFailureTest, SighupEndsTheStreamWithItsRecording) {
    const std::string recording = mDir + "/hup.json";
    ProcessOptions hangUp;
    bool sent = false;
    hangUp.onOutput = [&sent](pid_t pid, const ProcessRun& run) {
        if (!sent && countLines(run.out) >= 10) sent = kill(pid, SIGHUP) == 0;
    };
    ProcessRun run =
        runTool({"stream", "--follow", "--sensor", "1", "--record", recording}, hangUp);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(contains(run.err, "[1] Accelerometer (lid): ")) << run.err;  // the summary
    const nlohmann::json written = nlohmann::json::parse(readFile(recording));
    size_t samples = 0;
    for (const auto& device : written["devices"]) {
        if (device.contains("timedSamples")) samples += device["timedSamples"]["samples"].size();
    }
    EXPECT_GE(samples, 10u);
    EXPECT_EQ(files(), std::vector<std::string>{"hup.json"});
}

// Item: a bad path was reported after the whole stream; the --host input could be overwritten.
TEST_F(ToolFailureTest, ARecordingPathIsCheckedBeforeAnythingStreams) {
    ProcessRun missing = runTool({"stream", "--record", mDir + "/no/such/dir/x.json"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err, "iio-subhal: --record " + mDir + "/no/such/dir/x.json: cannot create " +
                               "a file in " + mDir + "/no/such/dir/: No such file or directory\n");

    ProcessRun directory = runTool({"stream", "--record", mDir});
    EXPECT_EQ(directory.exitCode, 2);
    EXPECT_EQ(directory.err, "iio-subhal: --record " + mDir + ": is a directory\n");

    const std::string input = write("input.json", R"({"devices": []})");
    const std::string link = mDir + "/link.json";
    ASSERT_EQ(symlink(input.c_str(), link.c_str()), 0);
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--host", input, "stream", "--record", input},
                                               {"--host", input, "stream", "--record", link}}) {
        ProcessRun refused = runTool(args);
        EXPECT_EQ(refused.exitCode, 2);
        EXPECT_EQ(refused.err, "iio-subhal: --record " + args.back() +
                                   ": is the --host input; write the recording to another file\n");
    }
    ProcessOptions fromStdin;
    fromStdin.stdinPath = input;
    ProcessRun piped = runTool({"--host", "-", "stream", "--record", input}, fromStdin);
    EXPECT_EQ(piped.exitCode, 2) << piped.err;
    EXPECT_EQ(readFile(input), R"({"devices": []})");
}

// Item: every output replaced whatever was at its path: a device node became a regular file (as
// root, `-o /dev/null` broke the machine's /dev/null), a FIFO's reader got nothing, a link to
// /proc/self/fd/1 was replaced by a file. Run as an ordinary user, as the tool mostly is.
TEST_F(ToolFailureTest, OutputsGoIntoWhatIsNotARegularFileAndReplaceOnlyRegularOnes) {
    const std::string recording = mDir + "/r.json";
    ASSERT_EQ(runTool({"stream", "--count", "5", "--record", recording}).exitCode, 0);
    const bool root = geteuid() == 0;
    // As root, a device node of our own stands in for /dev/null: a fault must not break the
    // machine's.
    std::string device = "/dev/null";
    if (root) {
        device = mDir + "/null";
        ASSERT_EQ(mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    }
    const std::string fifo = mDir + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const std::string toStdout = mDir + "/stdout.html";
    ASSERT_EQ(symlink("/proc/self/fd/1", toStdout.c_str()), 0);
    const std::string privateFile = write("private.html", "old");
    const std::string link = mDir + "/link.html";
    ASSERT_EQ(symlink(privateFile.c_str(), link.c_str()), 0);
    for (const std::string& path : {mDir, device, fifo, privateFile}) {
        chmod(path.c_str(), path == privateFile ? 0600 : path == mDir ? 0777 : 0666);
        if (root) {
            ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0) << path;
        }
    }
    const std::string asUser = root ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    auto report = [&](const std::string& setup, const std::string& output) {
        return runToolInShell(setup + asUser + R"("$0" "$@"; code=$?; wait; exit $code)",
                              {"report", recording, "-o", output});
    };
    struct stat st = {};
    EXPECT_EQ(report("", device).exitCode, 0);
    ASSERT_EQ(stat(device.c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));

    EXPECT_EQ(report("cat '" + fifo + "' > '" + mDir + "/read.html' & ", fifo).exitCode, 0);
    EXPECT_TRUE(contains(readFile(mDir + "/read.html"), "<!DOCTYPE html>"));
    ASSERT_EQ(stat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));

    const ProcessRun printed = report("", toStdout);
    EXPECT_EQ(printed.exitCode, 0) << printed.err;
    EXPECT_EQ(printed.out.rfind("<!DOCTYPE html>", 0), 0u);
    ASSERT_EQ(lstat(toStdout.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));

    // A regular file behind a link is replaced whole, keeping its mode; the link stays.
    EXPECT_EQ(report("", link).exitCode, 0);
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(stat(privateFile.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_TRUE(contains(readFile(privateFile), "<!DOCTYPE html>"));

    std::vector<std::string> expected = {"fifo",   "link.html", "private.html",
                                         "r.json", "read.html", "stdout.html"};
    if (root) expected.insert(expected.begin() + 2, "null");
    EXPECT_EQ(files(), expected);
}

// Item: with stdout closed, the recording became descriptor 1 and got the event lines ahead of its
// JSON; with stderr closed it got the host's lines.
TEST_F(ToolFailureTest, ClosedStandardDescriptorsNeverTakeInAFile) {
    for (const char* closed : {">&-", "2>&-", "<&-"}) {
        const std::string recording = mDir + "/closed.json";
        ProcessRun run = runToolInShell(std::string(R"(exec "$0" "$@" )") + closed,
                                        {"stream", "--count", "5", "--record", recording});
        EXPECT_EQ(run.exitCode, 0) << closed << ": " << run.err;
        const nlohmann::json parsed = nlohmann::json::parse(readFile(recording), nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << closed << ": " << readFile(recording);
        EXPECT_EQ(parsed["devices"].size(), 5u) << closed;
    }
}

// Item: reading `--host -` ignored Ctrl-C, SIGTERM and SIGHUP until its input ended; list, dump
// and flush with --record wrote nothing when a signal ended them, and left a temporary file.
TEST_F(ToolFailureTest, StopSignalsEndEveryPhaseAndKeepTheRecording) {
    const std::string input = mDir + "/in";
    ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
    // The input is a FIFO that never ends; the signal comes once the tool (not the shell before
    // it runs the tool) has opened it a second time, to read.
    const std::string signalWhileReading = R"sh(set -m; exec 3<>")sh" + input + R"sh("
        "$0" "$@" <&3 3<&- & pid=$!
        tool=$(readlink -f "$0")
        while kill -0 $pid 2>/dev/null && { [ "$(readlink /proc/$pid/exe)" != "$tool" ] ||
              [ "$(readlink /proc/$pid/fd/* | grep -cF "$(readlink /proc/$pid/fd/0)")" -lt 2 ]; }; do
            sleep 0.01
        done
        kill -$SIGNAL $pid; wait $pid)sh";
    for (const char* name : {"INT", "TERM", "HUP"}) {
        ProcessOptions options;
        options.extraEnv = {std::string("SIGNAL=") + name};
        ProcessRun run = runToolInShell(signalWhileReading, {"--host", "-", "stream"}, options);
        const int signal = name[0] == 'I' ? SIGINT : name[0] == 'T' ? SIGTERM : SIGHUP;
        EXPECT_EQ(run.exitCode, 128 + signal) << name << ": " << run.err;
        EXPECT_TRUE(contains(run.err, " while reading <stdin>\n")) << name << ": " << run.err;
    }

    const struct {
        std::vector<std::string> args;
        int signal;
    } runs[] = {{{"list"}, SIGINT}, {{"dump"}, SIGTERM}, {{"flush", "1"}, SIGHUP}};
    for (const auto& r : runs) {
        const std::string recording = mDir + "/" + r.args[0] + ".json";
        std::vector<std::string> args = r.args;
        args.insert(args.end(), {"--record", recording});
        ProcessOptions interrupt;
        bool sent = false;
        interrupt.onOutput = [&](pid_t pid, const ProcessRun& run) {
            if (!sent && contains(run.err, "device list asked for")) {
                sent = kill(pid, r.signal) == 0;
            }
        };
        ProcessRun run = runTool(args, interrupt);
        EXPECT_EQ(run.exitCode, 128 + r.signal) << r.args[0] << ": " << run.err;
        const nlohmann::json parsed = nlohmann::json::parse(readFile(recording), nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << r.args[0] << ": " << run.err;
        EXPECT_EQ(parsed["devices"].size(), 5u) << r.args[0];
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"dump.json", "flush.json", "in", "list.json"}));
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TOOL_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TOOL_TEST_SANITIZED 1
#endif

// Item: an 82 MB recording held 250 MB to list and more to replay: its sample rows were read into
// growing vectors and then copied. They now cost about their size once.
TEST_F(ToolFailureTest, ADescriptionCostsAboutItsSizeInMemory) {
#ifdef TOOL_TEST_SANITIZED
    GTEST_SKIP() << "a sanitizer's shadow memory is not the tool's";
#endif
    if (access("/usr/bin/time", X_OK) != 0) GTEST_SKIP() << "no /usr/bin/time to measure with";
    std::string text = R"({"devices": [{"id": 0, "types": [1],
        "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
        "timedSamples": {"channels": [0, 1, 2, 3], "samples": [)";
    for (int i = 0; i < 300000; ++i) {
        text += std::string(i == 0 ? "" : ",") + "\n[2500," + std::to_string(i % 9973 - 5000) +
                ",-" + std::to_string(i % 811) + "," + std::to_string(i % 4099) + "," +
                std::to_string(1000000000000 + i * 2500000ll) + "]";
    }
    const std::string description = write("big.json", text + "]}}]}");
    auto peakKb = [this](const std::vector<std::string>& args) {
        ProcessRun run = runToolInShell(R"(exec /usr/bin/time -f "peak %M" "$0" "$@")", args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        const size_t at = run.err.rfind("peak ");
        return at == std::string::npos ? 0.0 : std::stod(run.err.substr(at + 5));
    };
    const double builtIn = peakKb({"list"});
    const double loaded = peakKb({"--host", description, "--speed", "0", "list"});
    const double fileKb = static_cast<double>(text.size()) / 1024;
    EXPECT_LT(loaded - builtIn, 2 * fileKb) << loaded << " KB against " << builtIn << " KB";
}

// Item: a full disk left a truncated recording over the file that was there.
TEST_F(ToolFailureTest, AFailedRecordingLeavesTheFileThereUntouched) {
    const std::string old = write("field.json", R"({"devices": []})");
    // A file size limit of 4 KiB stands in for a full disk; SIGXFSZ ignored turns it into EFBIG.
    ProcessRun run = runToolInShell(
        R"(ulimit -f 4; trap '' XFSZ; exec "$0" "$@")",
        {"stream", "--sensor", "1", "--rate", "400", "--count", "400", "--record", old});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_TRUE(contains(run.err, "iio-subhal: " + old +
                                      ": recording not written: File too large (the file there "
                                      "is unchanged)\n"))
        << run.err;
    EXPECT_EQ(readFile(old), R"({"devices": []})");
    EXPECT_EQ(files(), std::vector<std::string>{"field.json"});
}

// Item: a script's background job starts with SIGINT ignored; the tool used to take it back.
TEST_F(ToolFailureTest, AnInheritedIgnoredSigintStaysIgnored) {
    ProcessOptions interrupt;
    bool sent = false;
    interrupt.onOutput = [&sent](pid_t pid, const ProcessRun& run) {
        if (!sent && countLines(run.out) >= 1) sent = kill(pid, SIGINT) == 0;
    };
    ProcessRun run = runToolInShell(
        R"(trap '' INT; exec "$0" "$@")",
        {"stream", "--sensor", "1", "--rate", "400", "--count", "300", "--duration", "60"},
        interrupt);
    ASSERT_TRUE(sent);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(countLines(run.out), 300u) << run.err;
}

// Item: a device that stops delivering mid-stream gave seconds of nothing and exit 0.
TEST_F(ToolFailureTest, ADeviceThatStopsDeliveringIsSaidAndFailsTheStream) {
    // Ten samples at 10 ms, then nothing for a minute: the board's buffer ran dry. (The last
    // sample keeps the replay from being over.)
    std::string samples;
    for (int i = 0; i < 10; ++i) samples += std::string(i ? ", " : "") + "[10000, 1, 2, 3]";
    const std::string host = write("dry.json", R"({"devices": [{"id": 0, "types": [1],
        "channels": ["accel_x", "accel_y", "accel_z"],
        "timedSamples": {"channels": [0, 1, 2], "samples": [)" +
                                                   samples + R"(, [60000000, 1, 2, 3]]}}]})");
    ProcessRun run = runTool({"--host", host, "stream", "--duration", "3"});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_TRUE(contains(run.err, "iio-subhal: warning: [1] Accelerometer: no event since "))
        << run.err;
    EXPECT_TRUE(contains(run.err, "iio-subhal: [1] Accelerometer stalled: nothing from "))
        << run.err;
}

// Item: a replay at --speed 0 stopped at the default 3 s with samples unplayed, and took as long
// as at speed 1 when short.
TEST_F(ToolFailureTest, AReplayEndsWhenEverySampleIsServed) {
    // Two devices, 20,000 samples, an hour of recorded time.
    std::string rows;
    for (int i = 0; i < 10000; ++i) {
        rows += std::string(i ? ", " : "") + "[360000, " + std::to_string(i) + ", 2, 3]";
    }
    std::string devices;
    for (int id = 0; id < 2; ++id) {
        devices += std::string(id ? ", " : "") + R"({"id": )" + std::to_string(id) +
                   R"(, "types": [)" + (id ? "2" : "1") + R"(], "channels": )" +
                   (id ? R"(["anglvel_x", "anglvel_y", "anglvel_z"])"
                       : R"(["accel_x", "accel_y", "accel_z"])") +
                   R"(, "timedSamples": {"channels": [0, 1, 2], "samples": [)" + rows + "]}}";
    }
    const std::string host = write("hour.json", R"({"devices": [)" + devices + "]}");
    ProcessRun run = runTool({"--host", host, "--speed", "0", "stream", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(countLines(run.out), 20000u) << run.err;
    EXPECT_TRUE(contains(run.err, "host: the replay is over at ")) << run.err;
    EXPECT_EQ(summaryEvents(run.err, "[1] Accelerometer"), 10000u) << run.err;

    // Some of the sensors: the replay is over once what they read is played; the others' samples
    // wait for a reader that does not come, and no stall is cried.
    ProcessRun some = runTool({"--host", host, "--speed", "0", "stream", "--sensor", "1"});
    EXPECT_EQ(some.exitCode, 0) << some.err;
    EXPECT_TRUE(contains(some.err, "host: the replay is over at ")) << some.err;
    EXPECT_EQ(summaryEvents(some.err, "[1] Accelerometer"), 10000u) << some.err;
    EXPECT_FALSE(contains(some.err, "stalled")) << some.err;
}

// A device that streamed nothing was recorded without samples, and on replay it generated a
// waveform of its own: the replay showed events the recorded run never had.
TEST_F(ToolFailureTest, ADeviceThatSentNothingReplaysSilent) {
    const std::string host = write("quiet.json", R"({"devices": [
        {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
         "faults": {"dropBurst": {"fromMs": 0, "forMs": 1000000000}}},
        {"id": 1, "types": [2], "channels": ["anglvel_x", "anglvel_y", "anglvel_z", "timestamp"]}]})");
    const std::string recording = mDir + "/quiet-recording.json";
    ProcessRun live =
        runTool({"--host", host, "stream", "--json", "--duration", "0.5", "--record", recording});
    EXPECT_EQ(live.exitCode, 1) << live.err;  // no events from the accelerometer
    EXPECT_TRUE(contains(live.err, "iio-subhal: no events from [1] Accelerometer\n")) << live.err;
    const nlohmann::json written = nlohmann::json::parse(readFile(recording));
    EXPECT_EQ(written["devices"][0]["timedSamples"]["samples"].size(), 0u) << written.dump();

    ProcessRun replay = runTool({"--host", recording, "--speed", "0", "stream", "--json"});
    EXPECT_EQ(replay.exitCode, 1) << replay.err;
    EXPECT_TRUE(contains(replay.err, "iio-subhal: no events from [1] Accelerometer\n"))
        << replay.err;
    // The gyroscope's events again, in timestamp order (equal widths sort as numbers): those of
    // the live run, and at most the one the host sent as the live run deactivated it.
    auto sorted = [](const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const std::vector<std::string> liveEvents = sorted(live.out);
    std::vector<std::string> replayed = sorted(replay.out);
    EXPECT_GT(liveEvents.size(), 10u) << live.err;
    EXPECT_LE(replayed.size(), liveEvents.size() + 1) << replay.err;
    replayed.resize(std::min(replayed.size(), liveEvents.size()));
    EXPECT_EQ(replayed, liveEvents) << replay.err;
    EXPECT_FALSE(contains(replay.out, "\"sensorHandle\": 1,")) << replay.out;
}

// Every device that was streaming lost: the line about the lost host says what the host did,
// once; the sensors that sent nothing are named in one more line, without repeating it.
TEST_F(ToolFailureTest, ALostHostIsSaidOnceWithTheSensorsThatSentNothing) {
    const std::string host = write("lost.json", R"({"devices": [
        {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
         "faults": {"dropBurst": {"fromMs": 0, "forMs": 1000000000}}},
        {"id": 1, "types": [2], "channels": ["anglvel_x", "anglvel_y", "anglvel_z", "timestamp"],
         "faults": {"dropBurst": {"fromMs": 0, "forMs": 1000000000}}},
        {"id": 2, "types": [5], "channels": ["magn_x", "magn_y", "magn_z", "timestamp"]}],
      "timeline": [{"atMs": 4000, "action": "closeDevice", "device": 0},
                   {"atMs": 4000, "action": "closeDevice", "device": 1},
                   {"atMs": 4000, "action": "closeDevice", "device": 2}]})");
    // Closed 2 s after publication, while all three stream; only the lost host ends the stream
    // early. Its replay, of the magnetometer's samples and then the losses, ends the same way.
    const std::string recording = mDir + "/lost-recording.json";
    ProcessRun live =
        runTool({"--host", host, "stream", "--duration", "30", "--record", recording});
    ProcessRun replay =
        runTool({"--host", recording, "--speed", "0", "stream", "--duration", "30"});
    for (const ProcessRun& run : {live, replay}) {
        EXPECT_EQ(run.exitCode, 1) << run.err;
        EXPECT_TRUE(contains(run.err,
                             "\niio-subhal: the host is lost: it closed every device that was "
                             "streaming (device 0 at "))
            << run.err;
        EXPECT_TRUE(contains(run.err,
                             "\niio-subhal: no events from [1] Accelerometer and [2] "
                             "Gyroscope\n"))
            << run.err;
    }
}

// Whitespace before a syntax error used to be kept whole by the parser and quoted back, control
// characters eightfold: 200,000 blank lines made a refusal of 1.6 MB, and 50 MB of them took
// 580 MB of memory to refuse.
TEST_F(ToolFailureTest, BlankRunsInADescriptionAreNotQuotedBack) {
    ProcessOptions blank;
    blank.stdinPath = write("blank.json", "{\"devices\": [" + std::string(200000, '\n') + "  \t x");
    ProcessRun run = runTool({"--host", "-", "list"}, blank);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err,
              "iio-subhal: <stdin>: line 200001, column 5: syntax error while parsing value - "
              "invalid literal; last read: '\"devices\": [<U+000A>x'\n");
}

// Item: --rate 1e9 streamed at the host's 400 Hz without a word.
TEST_F(ToolFailureTest, ARateTheHostDoesNotHonourIsSaid) {
    ProcessRun run = runTool({"stream", "--sensor", "1", "--rate", "1e9", "--count", "5"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(contains(run.err,
                         "iio-subhal: warning: device 0: 1000000000 Hz asked, the host "
                         "answered 400 Hz\n"))
        << run.err;
    ProcessRun honoured = runTool({"stream", "--sensor", "1", "--rate", "100", "--count", "5"});
    EXPECT_EQ(honoured.exitCode, 0) << honoured.err;
    EXPECT_FALSE(contains(honoured.err, " asked, the host answered ")) << honoured.err;

    // Without --rate, the library's own request is the one answered short.
    const std::string slow = write("slow.json", R"({"devices": [
        {"id": 0, "types": [1], "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
         "maxFrequency": 12.5}]})");
    ProcessRun library = runTool({"--host", slow, "stream", "--count", "3"});
    EXPECT_EQ(library.exitCode, 0) << library.err;
    EXPECT_TRUE(contains(library.err, " Hz asked by the library, the host answered 12.5 Hz\n"))
        << library.err;
}

TEST_F(ToolFailureTest, SpeedWithoutAnythingToSpeedUpIsSaid) {
    ProcessRun builtIn = runTool({"--speed", "0", "list"});
    EXPECT_EQ(builtIn.exitCode, 2);
    EXPECT_EQ(builtIn.err,
              "iio-subhal: --speed applies to the recorded samples and timeline of a --host "
              "description; the built-in host generates its samples live\n");
    ProcessRun iio = runTool({"--iio", "local:", "--speed", "2", "list"});
    EXPECT_EQ(iio.exitCode, 2);
    EXPECT_TRUE(contains(iio.err, "; --iio serves real devices as they sample\n")) << iio.err;

    const std::string host = write("untimed.json", R"({"devices": [{"id": 0, "types": [1],
        "channels": ["accel_x", "accel_y", "accel_z"]}]})");
    ProcessRun untimed = runTool({"--host", host, "--speed", "0", "list"});
    EXPECT_EQ(untimed.exitCode, 0) << untimed.err;
    EXPECT_TRUE(contains(untimed.err, "iio-subhal: warning: --speed changes nothing: " + host +
                                          " has no recorded samples (timedSamples) and no "
                                          "timeline\n"))
        << untimed.err;
}

}  // namespace
