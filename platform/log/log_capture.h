// Redirects the Android log, for tests and tools that want to look at what was logged.
#pragma once

#include <cutils/compiler.h>

#include <functional>
#include <string>

// Receives each message: its priority, its tag ("" for none) and its text without the trailing
// newline. Calls are serialized. A sink must not log itself.
using AndroidLogSink =
    std::function<void(int prio, const std::string& tag, const std::string& text)>;

// Replaces the current sink; an empty function restores stderr. Once this returns, the old sink is
// not running and will not be called again.
ANDROID_API void android_log_set_sink(AndroidLogSink sink);
