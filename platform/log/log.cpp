#include <errno.h>
#include <log/log.h>
#include <log/log_capture.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace {

struct LogState {
    // Held while a message is delivered and while the sink is swapped, so that sink calls are
    // serialized and a replaced sink is never called again.
    std::mutex mutex;
    AndroidLogSink sink;  // guarded by mutex
};

// Never destroyed: threads may still log while the process exits.
LogState& logState() {
    static LogState* state = new LogState;
    return *state;
}

char priorityLetter(int prio) {
    switch (prio) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

// One write(2) for the whole line keeps lines from different threads (and processes sharing the
// descriptor) from interleaving; only a short write makes a second call.
int writeAll(int fd, const std::string& line) {
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = write(fd, line.data() + done, line.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<int>(done);
}

int deliver(int prio, const char* tag, std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const std::string tagText = tag ? tag : "";

    LogState& state = logState();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.sink) {
        state.sink(prio, tagText, text);
        return static_cast<int>(text.size());
    }
    std::string line;
    line.reserve(tagText.size() + text.size() + 4);
    line += priorityLetter(prio);
    line += '/';
    line += tagText;
    line += ": ";
    line += text;
    line += '\n';
    return writeAll(STDERR_FILENO, line);
}

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    char small[512];
    const int needed = vsnprintf(small, sizeof(small), fmt, args);
    va_end(args);
    std::string text;
    if (needed < 0) {
        va_end(copy);
        return -EINVAL;
    }
    if (static_cast<size_t>(needed) < sizeof(small)) {
        text.assign(small, static_cast<size_t>(needed));
    } else {
        text.resize(static_cast<size_t>(needed) + 1);
        vsnprintf(&text[0], text.size(), fmt, copy);
        text.resize(static_cast<size_t>(needed));
    }
    va_end(copy);
    return deliver(prio, tag, std::move(text));
}

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    return deliver(prio, tag, text ? text : "");
}

void android_log_set_sink(AndroidLogSink sink) {
    LogState& state = logState();
    AndroidLogSink old;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        old = std::exchange(state.sink, std::move(sink));
    }
    // The old sink (and whatever it captured) is destroyed outside the lock.
}
