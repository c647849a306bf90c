#pragma once

#include <cerrno>
#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>

namespace logging {

using LogSeverity = int;
constexpr LogSeverity LOG_INFO = 0;
constexpr LogSeverity LOG_WARNING = 1;
constexpr LogSeverity LOG_ERROR = 2;
constexpr LogSeverity LOG_FATAL = 3;
constexpr LogSeverity LOG_NUM_SEVERITIES = 4;

// "INFO", "WARNING", "ERROR", "FATAL"; "VERBOSE<n>" below zero, "UNKNOWN" above FATAL.
std::string LogSeverityName(LogSeverity severity);

// Sees every message before it is written. `str` is the whole line, prefix and trailing '\n'
// included; the text proper starts at `message_start`. Returning true keeps the line off stderr.
// Called on the logging thread, so it must be thread-safe itself.
typedef bool (*LogMessageHandlerFunction)(int severity, const char* file, int line,
                                          size_t message_start, const std::string& str);
void SetLogMessageHandler(LogMessageHandlerFunction handler);
LogMessageHandlerFunction GetLogMessageHandler();

// Collects one message and emits it from the destructor as
// "[MMDD/HHMMSS.uuuuuu:SEVERITY:file(line)] text\n" (local time). FATAL aborts after emitting.
class LogMessage {
  public:
    LogMessage(const char* file, int line, LogSeverity severity);
    // A failed CHECK: FATAL, text starting with "Check failed: <condition>. ".
    LogMessage(const char* file, int line, const char* condition);
    ~LogMessage();

    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    std::ostream& stream() { return mStream; }
    LogSeverity severity() const { return mSeverity; }

  private:
    void Init();

    const char* mFile;
    int mLine;
    LogSeverity mSeverity;
    size_t mMessageStart = 0;
    std::ostringstream mStream;
};

// Appends ": <strerror(err)> (<err>)" to the text, for PLOG.
class ErrnoLogMessage {
  public:
    ErrnoLogMessage(const char* file, int line, LogSeverity severity, int err);
    ~ErrnoLogMessage();

    ErrnoLogMessage(const ErrnoLogMessage&) = delete;
    ErrnoLogMessage& operator=(const ErrnoLogMessage&) = delete;

    std::ostream& stream() { return mMessage.stream(); }

  private:
    int mErr;
    LogMessage mMessage;
};

// Turns "cond ? (void)0 : stream << ..." into a void expression so that the streamed operands
// are evaluated only when the message is emitted.
class LogMessageVoidify {
  public:
    void operator&(std::ostream&) {}
};

}  // namespace logging

#define LAZY_STREAM(stream, condition) \
    !(condition) ? (void)0 : ::logging::LogMessageVoidify() & (stream)

#define LOG(severity) ::logging::LogMessage(__FILE__, __LINE__, ::logging::LOG_##severity).stream()
#define LOG_IF(severity, condition) LAZY_STREAM(LOG(severity), condition)

// Like LOG, with errno (read before the streamed operands run) and its description appended.
#define PLOG(severity) \
    ::logging::ErrnoLogMessage(__FILE__, __LINE__, ::logging::LOG_##severity, errno).stream()
#define PLOG_IF(severity, condition) LAZY_STREAM(PLOG(severity), condition)

#define DLOG(severity) LOG(severity)
#define DLOG_IF(severity, condition) LOG_IF(severity, condition)

// Checks stay on in every build: a broken invariant here is better as a crash with a log line
// than as undefined behaviour.
#define CHECK(condition) \
    LAZY_STREAM(::logging::LogMessage(__FILE__, __LINE__, #condition).stream(), !(condition))

#define CHECK_OP(a, op, b) \
    LAZY_STREAM(::logging::LogMessage(__FILE__, __LINE__, #a " " #op " " #b).stream(), !((a)op(b)))
#define CHECK_EQ(a, b) CHECK_OP(a, ==, b)
#define CHECK_NE(a, b) CHECK_OP(a, !=, b)
#define CHECK_LE(a, b) CHECK_OP(a, <=, b)
#define CHECK_LT(a, b) CHECK_OP(a, <, b)
#define CHECK_GE(a, b) CHECK_OP(a, >=, b)
#define CHECK_GT(a, b) CHECK_OP(a, >, b)

#define DCHECK(condition) CHECK(condition)
#define DCHECK_EQ(a, b) CHECK_EQ(a, b)
#define DCHECK_NE(a, b) CHECK_NE(a, b)
#define DCHECK_LE(a, b) CHECK_LE(a, b)
#define DCHECK_LT(a, b) CHECK_LT(a, b)
#define DCHECK_GE(a, b) CHECK_GE(a, b)
#define DCHECK_GT(a, b) CHECK_GT(a, b)

#define NOTREACHED() LOG(FATAL) << "NOTREACHED hit. "
