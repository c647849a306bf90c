// The Android log. Each message is one line on stderr in logcat's brief form, "I/tag: text",
// unless a sink is installed (see log/log_capture.h).
//
// Define LOG_TAG before using the ALOG macros.
#pragma once

#include <cutils/compiler.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// Writes one message. A trailing newline in the text is dropped: the line always ends with exactly
// one. Returns the number of bytes written, or a negative errno.
ANDROID_API int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// The same for text that is not a format.
ANDROID_API int __android_log_write(int prio, const char* tag, const char* text);

#ifdef __cplusplus
}
#endif

#ifndef LOG_NDEBUG
#ifdef NDEBUG
#define LOG_NDEBUG 1
#else
#define LOG_NDEBUG 0
#endif
#endif

// Verbose messages are compiled in only when LOG_NDEBUG is 0; their arguments are checked
// either way.
#if LOG_NDEBUG
#define ALOGV(...)                                                             \
    do {                                                                       \
        if (0) __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__); \
    } while (0)
#else
#define ALOGV(...) ((void)__android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__))
#endif
#define ALOGD(...) ((void)__android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, __VA_ARGS__))
#define ALOGI(...) ((void)__android_log_print(ANDROID_LOG_INFO, LOG_TAG, __VA_ARGS__))
#define ALOGW(...) ((void)__android_log_print(ANDROID_LOG_WARN, LOG_TAG, __VA_ARGS__))
#define ALOGE(...) ((void)__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, __VA_ARGS__))
