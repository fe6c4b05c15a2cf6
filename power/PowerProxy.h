#pragma once

#include <utils/LightRefBase.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <cstdint>

#include "perf/PerfProxy.h"
#include "platform/UnlockedField.h"
#include "power/PowerRules.h"

namespace android {

// Saves energy on a layer that renders comfortably faster than the display needs: asks the
// performance service for a negative boost whose strength follows the slack, drops it as soon as a
// frame is missed or slow, and counts when the two alternate (ping-pong).
//
// Threads: the tracker's monitor thread evaluates frames and reports missed ones; the thread that
// queues buffers moves the threshold; set-up and changes of the vsync period come from the
// compositor.
// Blocking: whatever sends or drops a negative boost calls the service with mLock held, and blocks as
// long as the service does; every operation that takes mLock waits for those.
// Units: nanoseconds of CLOCK_MONOTONIC; thresholds in percent of the vsync period.
// Lifetime: held by its tracker. Destroying it sends nothing; a negative boost in force runs out by
// itself.
// Failure: without the service everything but the hint itself goes on.
class PowerProxy : public LightRefBase<PowerProxy> {
  public:
    explicit PowerProxy(const sp<PerfProxy>& perfProxy);
    ~PowerProxy();
    PowerProxy(const PowerProxy&) = delete;
    PowerProxy& operator=(const PowerProxy&) = delete;

    void setDebuggable(bool debuggable) { mDebuggable = debuggable; }
    void setVsyncPeriod(long period) { mVsyncPeriod = period; }
    // The ceiling of the threshold, cut to its range. Lowers the threshold to it, but leaves
    // the coefficient. Set-up only.
    void setRenderTimeThresh(int percent);
    // The lowest coefficient, stored as it comes. Set-up only.
    void setNegativeBoostThresh(int coefficient) { mNegativeBoostThresh = coefficient; }

    // A frame took `renderTime` ns and came within the vsync period.
    void scaleEnergyIfNeed(long renderTime) EXCLUDES(mLock);
    // Drops the negative boost: because a frame was missed (true) or merely slow (false).
    void updateStatusAndRel(bool byPerf) EXCLUDES(mLock);
    // Frames are early: up a little. Frames are late: down by more.
    void increaseThreshold() EXCLUDES(mLock);
    void reduceThreshold() EXCLUDES(mLock);
    // Moves the coefficient by `delta` and sends it if that is worth a call.
    void negativeBoostAcq(int delta) EXCLUDES(mLock);

  private:
    bool consumeCooldown() EXCLUDES(mLock);
    void apply(int32_t newCoe) REQUIRES(mLock);
    void negativeBoostRel() REQUIRES(mLock);
    void monitorPingpongStatus(bool byPerf) REQUIRES(mLock);
    void moveThreshold(int32_t thresh) REQUIRES(mLock);

    cindral::UnlockedField<bool> mDebuggable{false};
    bool mNegativeBoosted GUARDED_BY(mLock) = false;
    int32_t mCooldownCount GUARDED_BY(mLock) = 0;
    Mutex mLock;
    int32_t mCoe GUARDED_BY(mLock) = 0;
    // Moved under mLock. A frame is judged without it, as one frame by the old threshold does no harm.
    cindral::UnlockedField<int32_t> mThresh{cindral::kInitialThresh};
    // Set before any other thread uses the object.
    int32_t mNegativeBoostThresh = cindral::kInitialNegativeBoostThresh;
    int32_t mRenderTimeThresh = cindral::kMaxRenderTimeThresh;
    uint32_t mPingpongCount GUARDED_BY(mLock) = 0;
    cindral::StatusHistory mStatusHistory GUARDED_BY(mLock);
    cindral::UnlockedField<int64_t> mVsyncPeriod{-1};
    nsecs_t mLastRefreshTime GUARDED_BY(mLock) = 0;
    const sp<PerfProxy> mPerfProxy;  // may be null
};

}  // namespace android
