#pragma once

#include <cutils/trace.h>

namespace android::cindral {

// Trace sections under the graphics tag, only while the debug switch is on. The tag is asked for at
// both ends, as tracing may be switched in between.

inline void traceBegin(bool debuggable, const char* text) {
    if (debuggable) atrace_begin(ATRACE_TAG_GRAPHICS, text);
}

inline void traceEnd(bool debuggable) {
    if (debuggable) atrace_end(ATRACE_TAG_GRAPHICS);
}

// A named instant: a section that ends where it begins.
inline void traceMarker(bool debuggable, const char* text) {
    traceBegin(debuggable, text);
    traceEnd(debuggable);
}

// A section over a scope.
class TraceSection {
  public:
    TraceSection(bool debuggable, const char* text) : mDebuggable(debuggable) {
        traceBegin(mDebuggable, text);
    }
    ~TraceSection() { traceEnd(mDebuggable); }
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;

  private:
    const bool mDebuggable;
};

}  // namespace android::cindral
