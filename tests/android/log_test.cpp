#define LOG_TAG "logtest"

#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_capture.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Sends fd 2 into a pipe that a reader thread drains (so writers never block on a full pipe)
// until finish() puts stderr back and returns everything written meanwhile.
class StderrCapture {
  public:
    StderrCapture() {
        EXPECT_EQ(0, pipe(mPipe));
        mSaved = dup(STDERR_FILENO);
        EXPECT_GE(mSaved, 0);
        EXPECT_EQ(STDERR_FILENO, dup2(mPipe[1], STDERR_FILENO));
        close(mPipe[1]);
        mReader = std::thread([this] {
            char buffer[4096];
            ssize_t n;
            while ((n = read(mPipe[0], buffer, sizeof(buffer))) > 0) {
                mText.append(buffer, static_cast<size_t>(n));
            }
        });
    }
    ~StderrCapture() { finish(); }

    std::string finish() {
        if (mSaved >= 0) {
            dup2(mSaved, STDERR_FILENO);  // closes the pipe's last write end: the reader sees EOF
            close(mSaved);
            mSaved = -1;
            mReader.join();
            close(mPipe[0]);
        }
        return mText;
    }

  private:
    int mPipe[2] = {-1, -1};
    int mSaved = -1;
    std::thread mReader;
    std::string mText;  // written by the reader, read after join
};

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line)) lines.push_back(line);
    return lines;
}

TEST(AndroidLog, StderrBriefFormat) {
    StderrCapture capture;
    ALOGI("hello %d", 5);
    ALOGW("ends with a newline\n");
    ALOGE("%s", "");
    __android_log_print(ANDROID_LOG_VERBOSE, nullptr, "no tag");
    __android_log_print(ANDROID_LOG_DEBUG, "t", "d");
    __android_log_print(ANDROID_LOG_FATAL, "t", "f");
    const std::string longText(2000, 'x');
    __android_log_print(ANDROID_LOG_INFO, "long", "%s", longText.c_str());
    EXPECT_EQ(
        "I/logtest: hello 5\n"
        "W/logtest: ends with a newline\n"
        "E/logtest: \n"
        "V/: no tag\n"
        "D/t: d\n"
        "F/t: f\n"
        "I/long: " +
            longText + "\n",
        capture.finish());
}

TEST(AndroidLog, LinesFromThreadsDoNotInterleave) {
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    StderrCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            const std::string padding(100 + 40 * t, static_cast<char>('a' + t));
            for (int i = 0; i < kLines; ++i) ALOGI("thread %d line %d %s", t, i, padding.c_str());
        });
    }
    for (auto& thread : threads) thread.join();
    const std::vector<std::string> lines = splitLines(capture.finish());
    ASSERT_EQ(static_cast<size_t>(kThreads * kLines), lines.size());
    std::set<std::pair<int, int>> seen;
    for (const auto& line : lines) {
        int t = -1;
        int i = -1;
        int consumed = 0;
        ASSERT_EQ(2,
                  std::sscanf(line.c_str(), "I/logtest: thread %d line %d %n", &t, &i, &consumed))
            << line;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line;
        EXPECT_EQ(std::string(100 + 40 * t, static_cast<char>('a' + t)), line.substr(consumed));
        seen.insert({t, i});
    }
    EXPECT_EQ(static_cast<size_t>(kThreads * kLines), seen.size());
}

struct Message {
    int prio;
    std::string tag;
    std::string text;
};

TEST(AndroidLog, SinkCapturesThenStderrIsRestored) {
    std::vector<Message> messages;
    android_log_set_sink([&](int prio, const std::string& tag, const std::string& text) {
        messages.push_back({prio, tag, text});
    });
    ALOGW("captured %s\n", "text");
    __android_log_write(ANDROID_LOG_ERROR, nullptr, "plain %s");
    android_log_set_sink(nullptr);

    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ(ANDROID_LOG_WARN, messages[0].prio);
    EXPECT_EQ("logtest", messages[0].tag);
    EXPECT_EQ("captured text", messages[0].text);
    EXPECT_EQ(ANDROID_LOG_ERROR, messages[1].prio);
    EXPECT_EQ("", messages[1].tag);
    EXPECT_EQ("plain %s", messages[1].text);

    StderrCapture capture;
    ALOGI("back on stderr");
    EXPECT_EQ("I/logtest: back on stderr\n", capture.finish());
    EXPECT_EQ(2u, messages.size());
}

// Sinks are swapped while threads log: every message reaches exactly one sink, sink calls never
// overlap, and a replaced sink is not called once the swap has returned.
TEST(AndroidLog, SinkSwapsWhileThreadsLog) {
    constexpr int kThreads = 3;
    constexpr int kMessages = 2000;
    std::atomic<int> inSink{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> delivered{0};
    std::atomic<int> lateCalls{0};
    auto makeSink = [&](std::shared_ptr<std::atomic<bool>> retired) {
        return [&, retired](int, const std::string&, const std::string&) {
            if (inSink.fetch_add(1) != 0) overlaps++;
            if (retired->load()) lateCalls++;
            delivered++;
            inSink.fetch_sub(1);
        };
    };

    auto retired = std::make_shared<std::atomic<bool>>(false);
    android_log_set_sink(makeSink(retired));
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kMessages; ++i) ALOGI("message %d", i);
            finished++;
        });
    }
    int swaps = 0;
    while (finished.load() < kThreads || swaps < 10) {
        auto next = std::make_shared<std::atomic<bool>>(false);
        android_log_set_sink(makeSink(next));
        retired->store(true);
        retired = next;
        ++swaps;
    }
    for (auto& thread : threads) thread.join();
    android_log_set_sink({});

    EXPECT_EQ(kThreads * kMessages, delivered.load());
    EXPECT_EQ(0, overlaps.load());
    EXPECT_EQ(0, lateCalls.load());
}

}  // namespace
