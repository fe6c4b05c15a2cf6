// The platform's log and trace calls, defined in the executable so that the libraries it loads bind
// to them instead of to the platform's own. The platform's headers are left out on purpose: they
// declare some of these calls differently from one release to the next, and only the plain names
// matter.

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "device/Backend.h"

using device::Backend;

namespace {

constexpr int kLogged = 1;
constexpr size_t kUsualChars = 127;  // of a line; longer ones are formatted twice

std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string text(kUsualChars, '\0');
    // The terminating null goes where the string keeps its own.
    const int length = vsnprintf(text.data(), text.size() + 1, format, arguments);
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    if (text.size() > kUsualChars) vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace

extern "C" {

__attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                              const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);
    Backend::log(priority, tag, std::move(text));
    return kLogged;
}

uint64_t atrace_get_enabled_tags() {
    return Backend::traceTags();
}
void atrace_begin_body(const char* name) {
    Backend::traceBegin(name);
}
void atrace_end_body() {
    Backend::traceEnd();
}

}  // extern "C"
