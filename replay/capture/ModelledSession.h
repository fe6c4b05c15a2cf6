#pragma once

// A game session made by rule, for when no capture is at hand: half a minute of one game on a 60 Hz
// phone with the things that go wrong in real ones. The same on every machine and in every run.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"

namespace replay {

// One counter as the tracing of a device would show it.
struct CounterSample {
    int64_t timeNs = 0;  // whole microseconds, as ftrace text has no more
    enum class Origin { kProducer, kCompositor, kVsync } origin = Origin::kProducer;
    std::string name;
    int64_t value = 0;
};

extern const char kModelledSessionName[];

std::vector<CounterSample> modelledSession();

Capture modelledCapture();

// The session as ftrace text, which reads back as the same capture.
void writeFtrace(std::ostream& out, const std::vector<CounterSample>& samples);

}  // namespace replay
