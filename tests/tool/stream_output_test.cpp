// The stream's output writer against a pipe nobody reads, one read late, and one closed; and the
// stall watch on a clock the test moves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "StallWatch.h"
#include "StdoutWriter.h"

namespace {

using kelvane::tools::StallWatch;
using kelvane::tools::StdoutWriter;
using namespace std::chrono_literals;

class Pipe {
  public:
    Pipe() {
        EXPECT_EQ(pipe2(mFds, O_CLOEXEC), 0);
        signal(SIGPIPE, SIG_IGN);  // as the tool does: a closed reader is EPIPE
    }
    ~Pipe() {
        closeRead();
        close(mFds[1]);
    }
    int writeEnd() const { return mFds[1]; }
    void closeRead() {
        if (mFds[0] >= 0) close(mFds[0]);
        mFds[0] = -1;
    }
    // Reads until `bytes` came or the writer closed.
    std::string read(size_t bytes) {
        std::string text;
        char buffer[65536];
        while (text.size() < bytes) {
            const ssize_t n =
                ::read(mFds[0], buffer, std::min(sizeof(buffer), bytes - text.size()));
            if (n <= 0) break;
            text.append(buffer, static_cast<size_t>(n));
        }
        return text;
    }

  private:
    int mFds[2] = {-1, -1};
};

const auto kNever = [] { return false; };
const auto kQuiet = [](size_t) {};

TEST(StdoutWriterTest, KeepsEveryLineUpToTheCapThenCountsDrops) {
    Pipe pipe;
    const std::string line(99, 'x');
    const std::string text = line + "\n";
    // The pipe takes 64 KiB unread; the writer keeps 1 MiB more, then drops.
    StdoutWriter writer(pipe.writeEnd(), size_t{1} << 20);
    size_t kept = 0;
    for (int i = 0; i < 20000; ++i) kept += writer.append(text) ? 1 : 0;
    EXPECT_GT(writer.dropped(), 0u);
    EXPECT_EQ(kept + writer.dropped(), 20000u);
    EXPECT_EQ(writer.failed(), 0);
    // The cap holds what is being written too: memory is the cap, beyond what the pipe took.
    EXPECT_LE(kept * text.size(), (size_t{1} << 20) + (size_t{64} << 10));

    // A late reader gets every line that was kept, whole and in order.
    std::string read = pipe.read(kept * text.size());
    EXPECT_EQ(writer.drain(kNever, kQuiet), StdoutWriter::Drained::kAll);
    ASSERT_EQ(read.size(), kept * text.size());
    EXPECT_EQ(std::count(read.begin(), read.end(), '\n'), static_cast<long>(kept));
    EXPECT_EQ(writer.unwritten(), 0u);
}

TEST(StdoutWriterTest, ADrainGivesUpWhenAskedAndSaysHowMuchWasLeft) {
    Pipe pipe;
    StdoutWriter writer(pipe.writeEnd());
    const std::string text = std::string(999, 'y') + "\n";
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(writer.append(text));  // 200 KB: the pipe fills

    size_t slowLines = 0;
    int asked = 0;
    // The reader never comes: the drain says so after a second, then gives up.
    const auto drained =
        writer.drain([&asked, &slowLines] { return slowLines != 0 && ++asked > 1; },
                     [&slowLines](size_t lines) { slowLines = lines; });
    EXPECT_EQ(drained, StdoutWriter::Drained::kGaveUp);
    EXPECT_GT(slowLines, 100u);
    EXPECT_LE(slowLines, 200u);
    EXPECT_GT(writer.unwritten(), 100u);
    // Destroying it does not wait for a reader either (a hang here fails by the test's limit).
}

TEST(StdoutWriterTest, AClosedReaderIsAWriteErrorNotADeath) {
    Pipe pipe;
    pipe.closeRead();
    StdoutWriter writer(pipe.writeEnd());
    writer.append("one\n");
    EXPECT_EQ(writer.drain(kNever, kQuiet), StdoutWriter::Drained::kWriteFailed);
    EXPECT_EQ(writer.failed(), EPIPE);
    EXPECT_FALSE(writer.append("two\n"));
    EXPECT_EQ(writer.dropped(), 0u);  // not written is not dropped for want of room
}

TEST(StallWatchTest, SaysWhenAContinuousSensorGoesQuietAndWhenItComesBack) {
    const auto origin = StallWatch::Clock::time_point() + 100s;
    StallWatch watch(origin);
    watch.watch(1, "[1] Accelerometer (lid)");
    watch.watch(2, "[2] Gyroscope (lid)");

    // Sensor 1 streams at 100 Hz for a second; sensor 2 never sends (not a stall).
    auto t = origin + 2s;
    for (int i = 0; i < 100; ++i, t += 10ms) EXPECT_EQ(watch.arrived(1, t), "");
    const auto last = t - 10ms;
    EXPECT_TRUE(watch.check(last + 1900ms).empty());  // ten periods are less than the floor
    std::vector<std::string> lines = watch.check(last + StallWatch::kMinimumStall);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              "[1] Accelerometer (lid): no event since 3.0 s (they came every 10.0 ms); the "
              "device stopped delivering");
    EXPECT_TRUE(watch.check(last + 3s).empty());  // said once
    ASSERT_EQ(watch.stalledAtEnd(last + 3s).size(), 1u);
    EXPECT_EQ(watch.stalledAtEnd(last + 3s)[0],
              "[1] Accelerometer (lid) stalled: nothing from 3.0 s to the end of the stream at "
              "6.0 s");

    EXPECT_EQ(watch.arrived(1, last + 4s),
              "[1] Accelerometer (lid): events again at 7.0 s, after "
              "4.0 s without any");
    EXPECT_TRUE(watch.stalledAtEnd(last + 4s).empty());
    EXPECT_EQ(watch.arrived(3, last + 4s), "");  // not watched: an on-change sensor
}

TEST(StallWatchTest, ASlowSensorIsAllowedTenOfItsPeriods) {
    const auto origin = StallWatch::Clock::time_point();
    StallWatch watch(origin);
    watch.watch(1, "[1] Magnetometer (lid)");
    for (int i = 0; i < 3; ++i) watch.arrived(1, origin + i * 1s);  // 1 Hz
    EXPECT_TRUE(watch.check(origin + 2s + 9s).empty());
    EXPECT_EQ(watch.check(origin + 2s + 10s).size(), 1u);
}

}  // namespace
