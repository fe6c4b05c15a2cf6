#pragma once

// The floor below each entry point: the locks, clock reads and signals that its sequence
// consists of, and nothing else. Same calls, same order, same number, through the procedure linkage
// table of a shared library that is compiled like the one under measurement.
//
// The second form of each also does what a look-up by name cannot do without: it measures the name
// once and compares it once with the right one.

#include <string>

#define BENCH_EXPORT __attribute__((visibility("default")))

namespace bench::floor {

using Floor = void (*)(const char* layer);

// The name that the look-ups compare with.
BENCH_EXPORT void setLayer(const std::string& layer);

BENCH_EXPORT void nothing(const char*);
BENCH_EXPORT void layerLock(const char*);
BENCH_EXPORT void layerLockNamed(const char* layer);
// An increment that only measures: layer lock, handed over to the work lock; two clock reads.
BENCH_EXPORT void increment(const char*);
BENCH_EXPORT void incrementNamed(const char* layer);
// The same of another tracker, on another thread.
BENCH_EXPORT void incrementOfRival(const char* layer);
// With the frame regulator: twice the state lock with a signal.
BENCH_EXPORT void incrementWatched(const char*);
BENCH_EXPORT void incrementWatchedNamed(const char* layer);
// With the power controller as well: its lock once more.
BENCH_EXPORT void incrementPowered(const char*);
BENCH_EXPORT void incrementPoweredNamed(const char* layer);
// The layer's pattern, built and matched by the standard library under the layer lock.
BENCH_EXPORT void classify(const char* layer);
BENCH_EXPORT void decrement(const char*);
BENCH_EXPORT void decrementNamed(const char* layer);
BENCH_EXPORT void vsync(const char*);
// With an active headroom regulator: its lock with a signal.
BENCH_EXPORT void vsyncActive(const char*);

// A thread that waits as the monitor does: in turns of a period, on the condition that the watched
// increments signal. A vsync waiter does so without a deadline, as the headroom thread. While one
// exists, the floors above wake a thread as often as the entry points do.
class BENCH_EXPORT Waiter {
  public:
    enum class On { kState, kVsync };
    explicit Waiter(On on, long periodNs);
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

  private:
    struct Thread;
    Thread* mThread;
};

}  // namespace bench::floor
