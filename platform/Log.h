#pragma once

#include <android/log.h>

// Log lines under a class's tag. DEBUG and WARN exist only while the debug switch of the object is
// on; ERROR is always written. Macros, so that the compiler checks the format against its
// arguments.

#define CINDRAL_LOGD(debuggable, tag, ...)                                        \
    do {                                                                          \
        if (debuggable) __android_log_print(ANDROID_LOG_DEBUG, tag, __VA_ARGS__); \
    } while (false)

#define CINDRAL_LOGW(debuggable, tag, ...)                                       \
    do {                                                                         \
        if (debuggable) __android_log_print(ANDROID_LOG_WARN, tag, __VA_ARGS__); \
    } while (false)

#define CINDRAL_LOGE(tag, ...) __android_log_print(ANDROID_LOG_ERROR, tag, __VA_ARGS__)
