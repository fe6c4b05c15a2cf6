#pragma once

// The floor below each entry point: the locks, clock reads and signals that its sequence
// consists of, and nothing else. Same calls, same order, same number, through the procedure linkage
// table of a shared library that is compiled like the one under measurement.

#include <string>

namespace bench::floor {

enum class Sequence {
    kNothing,
    kLayerLock,
    kMeasure,        // an increment that only measures
    kWatch,          // with the frame regulator: twice the state lock with a signal
    kWatchAndPower,  // with the power controller as well: its lock once more
    kDecrement,
    kVsync,
    kVsyncActive,  // with an active headroom regulator: its lock with a signal
};

using Floor = void (*)(const char* layer);

// A named floor also does what a look-up by name cannot do without: it measures the name once and
// compares it once with the right one.
__attribute__((visibility("default"))) Floor floorOf(Sequence sequence, bool named);

// The name that the look-ups compare with.
__attribute__((visibility("default"))) void setLayer(const std::string& layer);

}  // namespace bench::floor
