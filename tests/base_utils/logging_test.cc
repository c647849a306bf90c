#include "base/logging.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <locale>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Captured {
    int severity;
    std::string file;
    int line;
    size_t message_start;
    std::string str;

    std::string text() const { return str.substr(message_start); }
};

std::mutex gCapturedMutex;
std::vector<Captured> gCaptured;  // guarded by gCapturedMutex

bool Capture(int severity, const char* file, int line, size_t message_start,
             const std::string& str) {
    std::lock_guard<std::mutex> lock(gCapturedMutex);
    gCaptured.push_back(Captured{severity, file, line, message_start, str});
    return true;
}

class LoggingTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mPrevious = logging::GetLogMessageHandler();
        logging::SetLogMessageHandler(&Capture);
        std::lock_guard<std::mutex> lock(gCapturedMutex);
        gCaptured.clear();
    }
    void TearDown() override { logging::SetLogMessageHandler(mPrevious); }

    static std::vector<Captured> Take() {
        std::lock_guard<std::mutex> lock(gCapturedMutex);
        return std::move(gCaptured);
    }

  private:
    logging::LogMessageHandlerFunction mPrevious = nullptr;
};

// "[MMDD/HHMMSS.uuuuuu:SEVERITY:file(line)] "
const std::regex kPrefix(
    R"(\[(0[1-9]|1[0-2])(0[1-9]|[12][0-9]|3[01])/([01][0-9]|2[0-3])[0-5][0-9][0-6][0-9]\.[0-9]{6}:)"
    R"(([A-Z]+):([^(]+)\(([0-9]+)\)\] )");

TEST_F(LoggingTest, LineCarriesSeverityRelativeFileAndLine) {
    const int line = __LINE__ + 1;
    LOG(WARNING) << "hello " << 42;
    LOG(INFO) << "i";
    LOG(ERROR) << "e";

    std::vector<Captured> logs = Take();
    ASSERT_EQ(logs.size(), 3u);
    const Captured& w = logs[0];
    EXPECT_EQ(w.severity, logging::LOG_WARNING);
    EXPECT_EQ(w.file, "tests/base_utils/logging_test.cc");
    EXPECT_EQ(w.line, line);
    EXPECT_EQ(w.text(), "hello 42\n");

    std::smatch m;
    const std::string prefix = w.str.substr(0, w.message_start);
    ASSERT_TRUE(std::regex_match(prefix, m, kPrefix)) << w.str;
    EXPECT_EQ(m[4], "WARNING");
    EXPECT_EQ(m[5], "tests/base_utils/logging_test.cc");
    EXPECT_EQ(m[6], std::to_string(line));

    EXPECT_EQ(logs[1].severity, logging::LOG_INFO);
    EXPECT_NE(logs[1].str.find(":INFO:"), std::string::npos);
    EXPECT_EQ(logs[2].severity, logging::LOG_ERROR);
    EXPECT_NE(logs[2].str.find(":ERROR:"), std::string::npos);

    EXPECT_EQ(logging::LogSeverityName(logging::LOG_FATAL), "FATAL");
    EXPECT_EQ(logging::LogSeverityName(-2), "VERBOSE2");
    EXPECT_EQ(logging::LogSeverityName(9), "UNKNOWN");
}

// A locale that writes "1,5": the log must ignore it.
struct CommaDecimal : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
    char do_thousands_sep() const override { return '.'; }
};

TEST_F(LoggingTest, DoublesUseDefaultFormatWhateverTheGlobalLocale) {
    std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
    LOG(INFO) << 1.0 << ' ' << 0.0025 << ' ' << 1e-5 << ' ' << 1234567.0 << ' ' << 1.5 << ' '
              << 1234567;
    std::locale::global(previous);

    std::vector<Captured> logs = Take();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].text(), "1 0.0025 1e-05 1.23457e+06 1.5 1234567\n");
}

TEST_F(LoggingTest, ConditionalFormsEvaluateOperandsOnlyWhenLogging) {
    int evaluated = 0;
    auto touch = [&evaluated] { return ++evaluated; };
    LOG_IF(INFO, false) << touch();
    CHECK(true) << touch();
    CHECK_EQ(1 + 1, 2) << touch();
    DCHECK_LT(1, 2) << touch();
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(Take().empty());

    LOG_IF(INFO, true) << touch();
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(Take().size(), 1u);
}

TEST_F(LoggingTest, PlogAppendsErrnoSeenBeforeStreaming) {
    auto clobber = [] {
        errno = EINVAL;
        return "open";
    };
    errno = ENOENT;
    PLOG(ERROR) << clobber();
    std::vector<Captured> logs = Take();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].text(), "open: No such file or directory (2)\n");
}

// Points fd 2 at a temporary file for the life of the object.
class StderrRedirect {
  public:
    StderrRedirect() {
        mFile = std::tmpfile();
        fflush(stderr);
        mSaved = dup(STDERR_FILENO);
        dup2(fileno(mFile), STDERR_FILENO);
    }
    ~StderrRedirect() {
        Restore();
        fclose(mFile);
    }
    std::string Restore() {
        if (mSaved >= 0) {
            dup2(mSaved, STDERR_FILENO);
            close(mSaved);
            mSaved = -1;
        }
        std::string out;
        rewind(mFile);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), mFile)) > 0) out.append(buf, n);
        return out;
    }

  private:
    FILE* mFile = nullptr;
    int mSaved = -1;
};

bool Decline(int, const char*, int, size_t, const std::string&) { return false; }

TEST(LoggingStderrTest, LinesFromManyThreadsStayWhole) {
    logging::LogMessageHandlerFunction previous = logging::GetLogMessageHandler();
    // A handler that declines leaves the line to the default sink.
    logging::SetLogMessageHandler(&Decline);
    EXPECT_EQ(logging::GetLogMessageHandler(), &Decline);

    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    StderrRedirect redirect;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            const std::string payload(300, static_cast<char>('a' + t));
            for (int i = 0; i < kLines; ++i) LOG(INFO) << "t" << t << ' ' << payload;
        });
    }
    for (auto& thread : threads) thread.join();
    const std::string out = redirect.Restore();
    logging::SetLogMessageHandler(previous);

    std::istringstream lines(out);
    std::string line;
    int count = 0;
    std::smatch m;
    while (std::getline(lines, line)) {
        ++count;
        ASSERT_TRUE(std::regex_search(line, m, kPrefix)) << line;
        ASSERT_EQ(m.position(0), 0);
        const std::string text = m.suffix();
        ASSERT_EQ(text.size(), 303u) << line;
        const char c = static_cast<char>('a' + (text[1] - '0'));
        EXPECT_EQ(text, "t" + std::string(1, text[1]) + " " + std::string(300, c));
    }
    EXPECT_EQ(count, kThreads * kLines);
}

TEST(LoggingDeathTest, FatalAndFailedChecksAbortAfterLogging) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    logging::SetLogMessageHandler(nullptr);
    EXPECT_DEATH(LOG(FATAL) << "boom " << 7, ":FATAL:.*logging_test\\.cc\\([0-9]+\\)\\] boom 7");
    EXPECT_DEATH(CHECK(1 + 1 == 3) << "math", "Check failed: 1 \\+ 1 == 3\\. math");
    EXPECT_DEATH(CHECK_GE(1, 2), "Check failed: 1 >= 2");
    EXPECT_DEATH(DCHECK(false), "Check failed: false");
    EXPECT_DEATH(NOTREACHED(), "NOTREACHED");
}

}  // namespace
