#pragma once

#include <utils/LightRefBase.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <cstdint>
#include <thread>

#include "perf/PerfProxy.h"
#include "platform/MonotonicCondition.h"
#include "platform/UnlockedField.h"

namespace android {

namespace cindral {
inline constexpr char kHeadroomTag[] = "Cindral.HeadroomRegulator";
}  // namespace cindral

// Paces the buffers of one layer: a thread that reports a queued buffer is held until a preset
// headroom before the next vsync, so that the layer's frames leave at a steady point of the vsync
// cycle.
//
// Threads: the regulator's own thread ("PHR") is woken by onVsync, times (vsync period - headroom)
// and releases whoever waits. trackQueueBuffer and the two headroom steps are called on the thread
// that queues buffers, one at a time; updateAccumulationStatus on the one that consumes them;
// onVsync on the one that reports vsyncs; setActiveStatus also on the tracker's monitor thread.
// Blocking: only trackQueueBuffer holds its caller: for a vsync period at most, and, where buffers
// are pending, for a short check and another period. onVsync waits at most for the PHR thread to
// pass through a release.
// Units: nanoseconds of CLOCK_MONOTONIC.
// Lifetime: the owner calls forceStop before it drops the last strong pointer; the destructor joins
// the thread and would wait for ever otherwise. A stopped regulator does not start again.
// Failure: without a thread there is no release; every held buffer then waits its full time.
//
// Lock order: mVsyncLock before mQueueLock. Only the PHR thread holds both.
class PresetHeadroomRegulator : public LightRefBase<PresetHeadroomRegulator> {
  public:
    PresetHeadroomRegulator(sp<PerfProxy>& perfProxy, bool gfarEnabled, bool debuggable);
    ~PresetHeadroomRegulator();
    PresetHeadroomRegulator(const PresetHeadroomRegulator&) = delete;
    PresetHeadroomRegulator& operator=(const PresetHeadroomRegulator&) = delete;

    // The vsync period (ns) and the display's class (Hz). A new period sets the headroom back to
    // its minimum; the current one changes nothing, whatever the class.
    void setVsyncInfo(long vsyncPeriod, int refreshRate);
    // A vsync, reported at `timestamp`. Ignored while inactive.
    void onVsync(long timestamp) EXCLUDES(mVsyncLock);
    void setActiveStatus(bool enable);
    bool isActive() const { return mActive; }
    // Switches regulation off for good and ends the thread, without waiting for it.
    void forceStop() EXCLUDES(mVsyncLock);

    // A buffer was queued: holds the caller until the release. Returns at once while inactive.
    void trackQueueBuffer() EXCLUDES(mQueueLock);
    // Frames are late: a step earlier. Frames are early: a step later. From the next cycle on, and
    // also while inactive.
    void increasePresetHeadroom();
    void reducePresetHeadroom();
    // A buffer was consumed and left others pending, or none.
    void updateAccumulationStatus(bool accumulated);

  private:
    void readMinRate();
    void threadMain() EXCLUDES(mVsyncLock, mQueueLock);
    void runCycle() REQUIRES(mVsyncLock);
    void storeHeadroom(nsecs_t headroom);

    void waitForRelease() EXCLUDES(mQueueLock);
    void waitForAccumulationReport() EXCLUDES(mQueueLock);
    void delayForAccumulation() EXCLUDES(mQueueLock);
    cindral::WaitResult waitInQueue(nsecs_t duration) REQUIRES(mQueueLock);

    bool mRunning GUARDED_BY(mVsyncLock) = true;
    const bool mGfarEnabled;
    const bool mDebuggable;
    // The unlocked fields below are read and written by several of the threads named above, by
    // design.
    cindral::UnlockedField<bool> mActive{false};
    cindral::UnlockedField<bool> mTimerExpired{
            false};  // a release has happened and was not used yet
    cindral::UnlockedField<bool> mWaitTimedOut{false};  // a wait ran out before its release came
    bool mQueueWaiting GUARDED_BY(mQueueLock) =
            false;  // somebody waits, or has waited, on mQueueCond
    cindral::UnlockedField<bool> mAccumulationReported{false};  // since the last vsync
    cindral::UnlockedField<bool> mAccumulated{false};           // what the last report said
    cindral::UnlockedField<int32_t> mRefreshRate{60};
    cindral::UnlockedField<float> mMinRate{0.0F};
    cindral::UnlockedField<nsecs_t> mMinHeadroom{-1};
    cindral::UnlockedField<nsecs_t> mMaxHeadroom{-1};
    cindral::UnlockedField<nsecs_t> mHeadroom{-1};
    cindral::UnlockedField<nsecs_t> mVsyncPeriod{-1};
    cindral::UnlockedField<nsecs_t> mLastVsyncTime{-1};
    Mutex mVsyncLock ACQUIRED_BEFORE(mQueueLock);  // held by the PHR thread except while it waits
    Mutex mQueueLock;
    cindral::MonotonicCondition mVsyncCond;  // the PHR thread: a vsync, and its headroom timer
    cindral::MonotonicCondition mQueueCond;  // queueing threads: the release
    const sp<PerfProxy> mPerfProxy;
    std::thread mThread;  // touched only by the constructor and the destructor
};

}  // namespace android
