#pragma once

#include <errno.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

namespace android::cindral {

enum class WaitResult {
    kWoken,     // a signal, or spuriously: callers must not tell the two apart
    kTimedOut,  // the deadline passed first
};

// A condition whose timed waits run on CLOCK_MONOTONIC, used with android::Mutex. It is the
// platform's condition with the lock it needs stated for the compiler.
class MonotonicCondition {
  public:
    void wait(Mutex& mutex) REQUIRES(mutex) { mCondition.wait(mutex); }

    // Waits until `duration` ns from now. The deadline is the clock plus the duration, nanoseconds
    // carried into seconds and the seconds saturated. There is no borrow for a negative duration:
    // it returns at once, as timed out or, where the nanoseconds become negative, as woken.
    WaitResult waitFor(Mutex& mutex, nsecs_t duration) REQUIRES(mutex) {
        return mCondition.waitRelative(mutex, withoutNegativeSeconds(duration)) == -ETIMEDOUT
                       ? WaitResult::kTimedOut
                       : WaitResult::kWoken;
    }

    void signal() { mCondition.signal(); }
    void broadcast() { mCondition.broadcast(); }

  private:
    // The platform's saturation overflows for negative seconds. They only move a deadline that has
    // passed further back, so what is left without them ends the same way.
    static constexpr nsecs_t withoutNegativeSeconds(nsecs_t duration) {
        constexpr nsecs_t kNsPerSecond = 1'000'000'000;
        return duration < 0 ? duration % kNsPerSecond : duration;
    }

    Condition mCondition;
};

}  // namespace android::cindral
