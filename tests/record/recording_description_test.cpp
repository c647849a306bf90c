// Reading descriptions as recordings need: timed sample rows, their errors with JSON paths, and
// the reader's refusals of what is not a description (too large, a directory, not text).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "host/description/DescriptionReader.h"

namespace kelvane::host::description {
namespace {

std::string parseError(const std::string& text) {
    HostConfig config;
    std::string error;
    EXPECT_FALSE(parseHostDescription(text, &config, &error)) << text;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    return error;
}

std::string loadError(const std::string& path, size_t limit = kMaxDescriptionBytes) {
    HostConfig config;
    std::string error;
    EXPECT_FALSE(loadHostDescription(path, &config, &error, limit)) << path;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    return error;
}

class TempFile {
  public:
    explicit TempFile(const std::string& text) {
        char name[] = "/tmp/recording-test-XXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(fd);
        mPath = name;
    }
    ~TempFile() { std::remove(mPath.c_str()); }
    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

TEST(RecordingDescriptionTest, TimedSamplesAccumulateTimesAndKeepMissingChannels) {
    HostConfig config;
    std::string error;
    ASSERT_TRUE(parseHostDescription(R"({"devices": [{"id": 3, "types": [1],
        "channels": ["accel_x", "accel_y", "accel_z", "timestamp"],
        "frequencyAnswers": [[100, 50], [0.5, 0.5]],
        "timedSamples": {"channels": [0, 3, 2], "restarts": [1],
                         "samples": [[2000, 1, null, -9223372036854775808],
                                     [0, 9223372036854775807, 5, 0],
                                     [2500, -1, 6, null]]}}],
        "timeline": [{"atMs": 4.5, "action": "closeDevice", "device": 3}]})",
                                     &config, &error))
        << error;
    const TimedSamples& t = *config.devices[0].timedSamples;
    EXPECT_EQ(t.channels, (std::vector<int32_t>{0, 3, 2}));
    EXPECT_EQ(t.atUs, (std::vector<int64_t>{2000, 2000, 4500}));
    EXPECT_EQ(t.values[2], INT64_MIN);
    EXPECT_EQ(t.values[3], INT64_MAX);
    EXPECT_EQ(t.present,
              (std::vector<bool>{true, false, true, true, true, true, true, true, false}));
    EXPECT_EQ(t.restarts, (std::vector<size_t>{1}));
    EXPECT_EQ(config.devices[0].frequencyAnswers,
              (std::vector<std::pair<double, double>>{{100, 50}, {0.5, 0.5}}));
    EXPECT_EQ(config.timeline[0].at, std::chrono::microseconds(4500));
}

TEST(RecordingDescriptionTest, HandEditedRecordingsNameTheRowAtFault) {
    const std::string dev = R"({"devices": [{"id": 1, "types": [1], "timedSamples": )";
    const struct {
        std::string text;
        std::string error;
    } cases[] = {
        {dev + R"({"channels": [0, 1], "samples": [[0, 1, 2], [5, 1]]}}]})",
         "/devices/0/timedSamples/samples/1: expected 3 numbers (the time, then one value per "
         "channel), got 2"},
        {dev + R"({"channels": [0], "samples": [[-1, 1]]}}]})",
         "/devices/0/timedSamples/samples/0/0: the time must be a number of microseconds, 0 or "
         "more"},
        {dev + R"({"channels": [0], "samples": [[null, 1]]}}]})",
         "/devices/0/timedSamples/samples/0/0: the time must be a number of microseconds, 0 or "
         "more"},
        {dev + R"({"channels": [0], "samples": [[0, 1.5]]}}]})",
         "/devices/0/timedSamples/samples/0/1: expected an integer or null"},
        {dev + R"({"channels": [0], "samples": [[0, "7"]]}}]})",
         "/devices/0/timedSamples/samples/0/1: expected an integer or null"},
        {dev + R"({"channels": [0], "samples": [[0, 1], 7]}}]})",
         "/devices/0/timedSamples/samples/1: expected an array"},
        {dev + R"({"channels": [0], "samples": [[0, [1]]]}}]})",
         "/devices/0/timedSamples/samples/0/1: expected an integer or null"},
        {dev + R"({"channels": [0], "samples": [[0, 9223372036854775808]]}}]})",
         "/devices/0/timedSamples/samples/0/1: 9223372036854775808 is out of range for a 64-bit "
         "integer"},
        {dev + R"({"channels": [0, 0], "samples": []}}]})",
         "/devices/0/timedSamples/channels/1: channel 0 is listed twice"},
        {dev + R"({"channels": [0], "samples": [], "rate": 5}}]})",
         "/devices/0/timedSamples: unknown key \"rate\""},
        {dev + R"({"channels": [0], "samples": [[0, 1]], "restarts": [1]}}]})",
         "/devices/0/timedSamples/restarts/0: 1 is out of range 0..0"},
        {dev + R"({"samples": []}}]})", "/devices/0/timedSamples: missing key \"channels\""},
        {R"({"devices": [{"id": 1, "types": [1], "samples": [], "timedSamples": {}}]})",
         "/devices/0/timedSamples: a device has samples or timedSamples, not both"},
        {R"({"devices": [{"id": 1, "types": [1], "frequencyAnswers": [[1]]}]})",
         "/devices/0/frequencyAnswers/0: expected [requested Hz, answered Hz]"},
        // A repeated key deep in a sample is caught where it is, in the same single pass.
        {R"({"devices": [{"id": 1, "types": [1], "samples": [{"0": 1}, {"0": 1, "0": 2}]}]})",
         "/devices/0/samples/1: duplicate key \"0\""},
        {R"({"timeline": [{"atMs": -0.5, "action": "tabletMode", "on": true}]})",
         "/timeline/0/atMs: -0.5 is out of range 0..9223372036854775"},
    };
    for (const auto& c : cases) EXPECT_EQ(parseError(c.text), c.error) << c.text;
}

TEST(RecordingDescriptionTest, NumbersBeyondADoubleNameThePathLineAndColumn) {
    EXPECT_EQ(
        parseError("{\"devices\": [{\"id\": 1, \"types\": [1],\n  \"maxFrequency\": 1e400}]}"),
        "/devices/0/maxFrequency: line 2, column 23: number overflow parsing '1e400'");
    EXPECT_EQ(parseError(R"({"devices": [{"id": 1, "types": [1], "samples": [{"0": -1e400}]}]})"),
              "/devices/0/samples/0/0: line 1, column 61: number overflow parsing '-1e400'");
    EXPECT_EQ(parseError(R"({"devices": [{"id": 1, "types": [1], "timedSamples": )"
                         R"({"channels": [0], "samples": [[0, 1e999]]}}]})"),
              "/devices/0/timedSamples/samples/0/1: line 1, column 92: number overflow parsing "
              "'1e999'");
}

TEST(RecordingDescriptionTest, ATruncatedRecordingIsASyntaxErrorAtItsEnd) {
    const std::string text =
        "{\"devices\": [{\"id\": 1, \"types\": [1], \"timedSamples\": {\"channels\": [0],\n"
        "  \"samples\": [\n   [0, 1],\n   [2500, 2";
    const std::string error = parseError(text);
    EXPECT_EQ(error.rfind("line 4, column ", 0), 0u) << error;
    EXPECT_NE(error.find("unexpected end of input"), std::string::npos) << error;
}

TEST(RecordingDescriptionTest, WhatIsNotADescriptionIsRefusedInOneLine) {
    char dir[] = "/tmp/recording-dir-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    EXPECT_EQ(loadError(dir), std::string(dir) + ": is a directory, not a host description");
    rmdir(dir);

    // Without a size cap this read until memory ran out.
    EXPECT_EQ(loadError("/dev/zero"), "/dev/zero: not a text file: a NUL byte at line 1, column 1");

    TempFile deep(std::string(100, '['));
    EXPECT_NE(loadError(deep.path()).find(": nested deeper than 64 levels"), std::string::npos);

    // A file over the cap is refused by its size, before any of it is read.
    TempFile big("{}" + std::string(4096, ' '));
    EXPECT_EQ(loadError(big.path(), 1024),
              big.path() + ": larger than the 1024 bytes a host description may hold");
    HostConfig config;
    std::string error;
    EXPECT_TRUE(loadHostDescription(big.path(), &config, &error, 4098)) << error;
}

TEST(RecordingDescriptionTest, AnEndlessStreamIsCutOffAtTheCap) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::signal(SIGPIPE, SIG_IGN);
    // The writer goes on until the reader closes its end.
    std::thread writer([fd = fds[1]] {
        const std::string chunk(4096, ' ');
        if (write(fd, "{", 1) != 1) return;
        while (write(fd, chunk.data(), chunk.size()) > 0) {
        }
        close(fd);
    });
    const std::string path = "/proc/self/fd/" + std::to_string(fds[0]);
    EXPECT_EQ(loadError(path, size_t{1} << 20),
              path + ": larger than the 1 MiB a host description may hold");
    close(fds[0]);
    writer.join();
}

}  // namespace
}  // namespace kelvane::host::description
