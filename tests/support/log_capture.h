// Captures both log channels (the Android log and the libchrome log) for the life of the object.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tests/support/wait.h"

namespace kelvane::testing {

struct LogLine {
    enum Channel { kAndroid, kChrome } channel;
    int severity;      // Android priority, or libchrome severity (0 INFO, 1 WARNING, 2 ERROR)
    std::string file;  // libchrome: the source file as logged; Android: the tag
    std::string text;  // without the prefix and the final newline
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    std::vector<std::string> texts() const;
    size_t count(const std::string& text) const;  // lines whose text equals `text`
    bool contains(const std::string& text) const { return count(text) > 0; }
    // Waits until `n` lines with this exact text have been logged.
    bool waitFor(const std::string& text, size_t n = 1);
    // The first line with this text, or null.
    const LogLine* find(const std::string& text, std::vector<LogLine>* storage) const;

    void add(LogLine line);

  private:
    mutable Signal mSignal;
    std::vector<LogLine> mLines;  // guarded by mSignal's mutex
};

}  // namespace kelvane::testing
