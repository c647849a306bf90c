#include "tests/support/log_capture.h"

#include <android/log.h>

#include <cstdlib>

#include "base/logging.h"

namespace kelvane::testing {
namespace {

// Held while a line is handed to the capture, so that the capture cannot go away under a logging
// thread.
std::mutex gMutex;
LogCapture* gActive = nullptr;  // guarded by gMutex

bool deliver(LogLine line) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (gActive == nullptr) return false;
    gActive->add(std::move(line));
    return true;
}

// liblog's logger is a plain pointer that its writers read without a lock, so it is set once,
// before main() starts any thread, and decides per line where the line goes.
void onAndroidLog(const __android_logger_data* data, const char* message) {
    std::string text = message;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!deliver(LogLine{LogLine::kAndroid, data->priority, data->tag ? data->tag : "", text})) {
        __android_log_stderr_logger(data, message);
    }
}

[[maybe_unused]] const bool gLoggerSet = [] {
    __android_log_set_logger(&onAndroidLog);
    return true;
}();

bool onChromeLog(int severity, const char* file, int, size_t messageStart, const std::string& str) {
    std::string text = str.substr(messageStart);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return deliver(LogLine{LogLine::kChrome, severity, file, text});
}

}  // namespace

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (gActive != nullptr) std::abort();  // one capture at a time
        gActive = this;
    }
    logging::SetLogMessageHandler(&onChromeLog);
}

LogCapture::~LogCapture() {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gActive = nullptr;
    }
    logging::SetLogMessageHandler(nullptr);
}

void LogCapture::add(LogLine line) {
    mSignal.Notify([&] { mLines.push_back(std::move(line)); });
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(mSignal.mutex());
    return mLines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> texts;
    for (const LogLine& l : lines()) texts.push_back(l.text);
    return texts;
}

size_t LogCapture::count(const std::string& text) const {
    size_t n = 0;
    for (const LogLine& l : lines()) n += l.text == text ? 1 : 0;
    return n;
}

bool LogCapture::waitFor(const std::string& text, size_t n) {
    return mSignal.WaitUntil([&] {
        size_t seen = 0;
        for (const LogLine& l : mLines) seen += l.text == text ? 1 : 0;
        return seen >= n;
    });
}

const LogLine* LogCapture::find(const std::string& text, std::vector<LogLine>* storage) const {
    *storage = lines();
    for (const LogLine& l : *storage) {
        if (l.text == text) return &l;
    }
    return nullptr;
}

}  // namespace kelvane::testing
