#include "base/logging.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <locale>

namespace logging {
namespace {

std::atomic<LogMessageHandlerFunction> gHandler{nullptr};

// One write(2) for the whole line, so lines from different threads never interleave.
void WriteToStderr(const std::string& line) {
    const char* data = line.data();
    size_t left = line.size();
    while (left > 0) {
        ssize_t n = write(STDERR_FILENO, data, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        data += n;
        left -= static_cast<size_t>(n);
    }
}

// strerror_r comes in a GNU (char*) and an XSI (int) flavour depending on feature macros.
[[maybe_unused]] const char* StrErrorResult(char* result, const char*) { return result; }
[[maybe_unused]] const char* StrErrorResult(int result, const char* buf) {
    return result == 0 ? buf : "Unknown error";
}

}  // namespace

std::string LogSeverityName(LogSeverity severity) {
    static const char* const kNames[LOG_NUM_SEVERITIES] = {"INFO", "WARNING", "ERROR", "FATAL"};
    if (severity >= 0 && severity < LOG_NUM_SEVERITIES) return kNames[severity];
    if (severity < 0) return "VERBOSE" + std::to_string(-static_cast<long long>(severity));
    return "UNKNOWN";
}

void SetLogMessageHandler(LogMessageHandlerFunction handler) { gHandler.store(handler); }

LogMessageHandlerFunction GetLogMessageHandler() { return gHandler.load(); }

LogMessage::LogMessage(const char* file, int line, LogSeverity severity)
    : mFile(file), mLine(line), mSeverity(severity) {
    Init();
}

LogMessage::LogMessage(const char* file, int line, const char* condition)
    : mFile(file), mLine(line), mSeverity(LOG_FATAL) {
    Init();
    mStream << "Check failed: " << condition << ". ";
}

void LogMessage::Init() {
    // Messages must read the same whatever global locale the process has set.
    mStream.imbue(std::locale::classic());

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[96];
    snprintf(stamp, sizeof(stamp), "[%02d%02d/%02d%02d%02d.%06ld:", local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec, static_cast<long>(now.tv_nsec / 1000));
    mStream << stamp << LogSeverityName(mSeverity) << ':' << (mFile != nullptr ? mFile : "") << '('
            << mLine << ")] ";
    mMessageStart = static_cast<size_t>(mStream.tellp());
}

LogMessage::~LogMessage() {
    mStream << '\n';
    const std::string line = mStream.str();
    LogMessageHandlerFunction handler = gHandler.load();
    if (handler == nullptr || !handler(mSeverity, mFile, mLine, mMessageStart, line)) {
        WriteToStderr(line);
    }
    if (mSeverity == LOG_FATAL) abort();
}

ErrnoLogMessage::ErrnoLogMessage(const char* file, int line, LogSeverity severity, int err)
    : mErr(err), mMessage(file, line, severity) {}

ErrnoLogMessage::~ErrnoLogMessage() {
    char buf[256];
    buf[0] = '\0';
    const char* text = StrErrorResult(strerror_r(mErr, buf, sizeof(buf)), buf);
    mMessage.stream() << ": " << text << " (" << mErr << ')';
    errno = mErr;
}

}  // namespace logging
