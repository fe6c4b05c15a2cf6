#pragma once

// What the library's wake-ups cannot do without: the same threads, in the same scheduling class, waiting
// for the same lengths on conditions of their own and waking each other in the same order, with nothing
// in between. A game that is played against it has the lateness of bare waits, at the places in a frame
// at which the library waits.

#include <utils/Mutex.h>

#include <atomic>
#include <string>
#include <thread>

#include "perf/ServiceApi.h"
#include "platform/MonotonicCondition.h"

namespace bench {

class BareGame {
  public:
    // Starts the threads: monitor, boost, headroom. `timerNs` goes from a vsync to the release,
    // `periodNs` from a queued buffer to the boost.
    // Throws std::runtime_error without the performance service to send the boosts to.
    BareGame(int64_t timerNs, int64_t periodNs);
    ~BareGame();
    BareGame(const BareGame&) = delete;
    BareGame& operator=(const BareGame&) = delete;

    void vsync();
    // Held until the release after the latest vsync.
    void queue();
    void consume() {}  // wakes nobody

  private:
    void monitor();
    void boost();
    void headroom();
    void wakeMonitor();
    void waitForRelease();

    const int64_t mTimerNs;
    const int64_t mPeriodNs;
    android::cindral::PerfHintFn mPerfHint;
    std::atomic<bool> mRunning{true};
    std::atomic<bool> mReleased{false};

    android::Mutex mStateLock, mBoostLock, mVsyncLock, mQueueLock;
    android::cindral::MonotonicCondition mStateCond, mBoostCond, mVsyncCond, mQueueCond;
    std::thread mMonitor, mBoost, mHeadroom;
};

}  // namespace bench
