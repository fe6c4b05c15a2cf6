#pragma once

#include <errno.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <algorithm>

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
        return mCondition.waitRelative(mutex, std::max(duration, kShortestWaitNs)) == -ETIMEDOUT
                       ? WaitResult::kTimedOut
                       : WaitResult::kWoken;
    }

    void signal() { mCondition.signal(); }
    void broadcast() { mCondition.broadcast(); }

  private:
    // The platform's arithmetic overflows for a second or more below zero, and every negative
    // duration means the same.
    static constexpr nsecs_t kShortestWaitNs = -999'999'999;

    Condition mCondition;
};

}  // namespace android::cindral
